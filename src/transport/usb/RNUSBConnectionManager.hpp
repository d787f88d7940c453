#pragma once
// The frame side of a client channel: which frame types exist, and the first frame of a client
// (its device information), which becomes the "info" of a connect report.

#include "platform/Types.hpp"
#include "transport/usb/TNChannel.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace havrel {

class RNUSBConnectionManager;

class RNUSBConnectionManagerDelegate {
public:
    virtual ~RNUSBConnectionManagerDelegate() = default;

    // info: {"info": the XML property-list text of the client's first frame}.
    virtual void RNUSBConnectionManagerDidConnectToDeviceID(RNUSBConnectionManager& manager,
                                                           std::optional<std::int64_t> deviceID,
                                                           const Dictionary& info,
                                                           const std::shared_ptr<TNChannel>& channel) = 0;
    // Called with no info, and with the channel that ended.
    virtual void RNUSBConnectionManagerDidDisconnectFromDeviceID(RNUSBConnectionManager& manager,
                                                                std::optional<std::int64_t> deviceID,
                                                                const Dictionary* info,
                                                                const std::shared_ptr<TNChannel>& channel) = 0;
    // Reports of the client side of the protocol, never made on this side.
    virtual void RNUSBConnectionManagerDidReceiveRNCentral(RNUSBConnectionManager& manager, const Dictionary& central,
                                                          std::optional<std::int64_t> deviceID,
                                                          const std::shared_ptr<TNChannel>& channel) = 0;
    virtual void RNUSBConnectionManagerDidSendClientDataWithDeviceID(RNUSBConnectionManager& manager,
                                                                    std::optional<std::int64_t> deviceID,
                                                                    const std::shared_ptr<TNChannel>& channel) = 0;
    virtual void RNUSBConnectionManagerDidReceiveZippedFile(RNUSBConnectionManager& manager, ByteView file,
                                                           const std::string& name,
                                                           std::optional<std::int64_t> deviceID,
                                                           const std::shared_ptr<TNChannel>& channel) = 0;
};

class RNUSBConnectionManager : public TNChannelDelegate,
                               public std::enable_shared_from_this<RNUSBConnectionManager> {
public:
    ~RNUSBConnectionManager() override = default;

    std::weak_ptr<RNUSBConnectionManagerDelegate> delegate;

    // TNChannelDelegate. Frames 0 and 100 to 113 are accepted; any other type is logged and
    // its channel closed.
    std::uint8_t implementedOperations() const override { return 1 | 2; }
    bool ioFrameChannelShouldAcceptFrameOfType(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                                               std::uint32_t tag, std::uint32_t payloadSize) override;
    // Acts on frame 100 only.
    void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                                             std::uint32_t tag, const std::shared_ptr<TNData>& payload) override;

    // The "info" dictionary of a client's first frame: the XML property-list text of the
    // decoded payload, or an empty text when the payload is not a property list, which the
    // registry refuses (with its log line) while the process goes on.
    static Dictionary infoFromDeviceInfoPayload(ByteView payload);

protected:
    RNUSBConnectionManager() = default;
    std::shared_ptr<RNUSBConnectionManagerDelegate> delegateOrNull() const { return delegate.lock(); }
};

}  // namespace havrel
