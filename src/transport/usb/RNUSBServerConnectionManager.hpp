#pragma once
// Keeps one frame channel open to every attached client device and to a client on the local
// IPv4 path, and hands the frames that arrive to its delegate. Attached devices come from the
// USB multiplexer hub's notifications; a device whose app is not listening yet is tried every
// 5.0 seconds, the local path every 2.0 seconds, and every channel is pinged once a second. A
// channel whose ping is not written within kPingDeadline is closed: its peer stopped reading.
// Everything but the start of a connect runs on the main queue.

#include "platform/Clock.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/SerialQueue.hpp"
#include "platform/Timer.hpp"
#include "transport/usb/RNUSBConnectionManager.hpp"
#include "transport/usb/TNFrameType.hpp"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class RNUSBConnectionManager;
class TNUSBDeviceConnector;

class RNUSBServerConnectionManagerDelegate : public RNUSBConnectionManagerDelegate {
public:
    virtual void RNUSBConnectionManagerDidReceiveSyncData(RNUSBConnectionManager& manager, ByteView data,
                                                         std::optional<std::int64_t> deviceID,
                                                         const std::shared_ptr<TNChannel>& channel) = 0;
    virtual void RNUSBConnectionManagerDidReceiveClientData(RNUSBConnectionManager& manager, ByteView data,
                                                           std::optional<std::int64_t> deviceID,
                                                         const std::shared_ptr<TNChannel>& channel) = 0;
    virtual void RNUSBConnectionManagerDidReceivePureMIDIData(RNUSBConnectionManager& manager, ByteView data,
                                                             std::optional<std::int64_t> deviceID,
                                                         const std::shared_ptr<TNChannel>& channel) = 0;
    virtual void RNUSBConnectionManagerDidReceiveChangeData(RNUSBConnectionManager& manager, ByteView data,
                                                           std::optional<std::int64_t> deviceID,
                                                         const std::shared_ptr<TNChannel>& channel) = 0;
    virtual void RNUSBConnectionManagerDidReceiveRangeData(RNUSBConnectionManager& manager, ByteView data,
                                                          std::optional<std::int64_t> deviceID,
                                                         const std::shared_ptr<TNChannel>& channel) = 0;
    virtual void RNUSBConnectionManagerDidReceiveFileRepData(RNUSBConnectionManager& manager, ByteView data,
                                                            std::optional<std::int64_t> deviceID,
                                                         const std::shared_ptr<TNChannel>& channel) = 0;
};

class RNUSBServerConnectionManager final : public RNUSBConnectionManager {
public:
    // How long a ping may wait to be written before its channel is closed.
    static constexpr std::chrono::seconds kPingDeadline{5};

    struct Options {
        // The port of the local IPv4 path on 127.0.0.1; the USB tunnel port stays 4699.
        std::uint16_t localPort = RNUSBClientPort;
        // Whether to follow the USB multiplexer's devices at all.
        bool useUSBHub = true;
    };

    // Starts at once: hub notifications, the local path probe and the ping timer.
    static std::shared_ptr<RNUSBServerConnectionManager> initWithProductIdentifier(
        const std::string& productId, const std::string& version, Options options);
    static std::shared_ptr<RNUSBServerConnectionManager> initWithProductIdentifier(const std::string& productId,
                                                                                  const std::string& version) {
        return initWithProductIdentifier(productId, version, Options{});
    }
    ~RNUSBServerConnectionManager() override;

    // Stops every timer and probe and closes every channel, without disconnect reports. The
    // host's shutdown and tests call it; the manager does nothing afterwards.
    void stop();

    const std::string productId;
    const std::string version;
    const Options options;

    std::vector<std::shared_ptr<TNChannel>> connectedChannels;
    std::vector<std::int64_t> attachedDeviceIDs;

    // The last connected channel of the device; nullptr for none or no number.
    std::shared_ptr<TNChannel> channelWithDeviceID(std::optional<std::int64_t> deviceID) const;
    std::vector<std::int64_t> attachedDevicesIDsThatAreNotConnected() const;
    // Closes and forgets a channel with no disconnect report.
    void disconnectFromChannel(const std::shared_ptr<TNChannel>& channel);

    void connectToUSBDeviceWithDeviceID(std::int64_t deviceID);
    void instantiateScannerTimer();
    void scanForClients();
    void ping();
    void pingChannel(const std::shared_ptr<TNChannel>& channel);
    void queuePingTimer();
    void enqueueConnectToLocalIPv4Port();
    void connectToLocalIPv4Port();
    bool hasLocalIPv4Channel();
    // Reports the end of the channel's connection (the channel itself goes with the report).
    void didDisconnectFromClient(std::optional<std::int64_t> deviceID, const std::shared_ptr<TNChannel>& channel);

    // For the host and tests.
    bool hasScannerTimer() const { return scannerTimer_ != nullptr; }
    bool hasPingTimer() const { return pingTimer_ != nullptr; }

    // TNChannelDelegate.
    void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                                             std::uint32_t tag, const std::shared_ptr<TNData>& payload) override;
    void ioFrameChannelDidEndWithError(const std::shared_ptr<TNChannel>& channel,
                                       const TNOptionalError& error) override;

private:
    struct Key {};

public:
    RNUSBServerConnectionManager(Key, const std::string& productId, const std::string& version, Options options);

private:
    void startListeningForDevices();
    void deviceDidAttach(const Notification& notification);
    void deviceDidDetach(const Notification& notification);
    void didFinishConnecting(std::int64_t deviceID, const std::shared_ptr<TNChannel>& channel,
                             const TNOptionalError& error);
    void updateScannerTimer();
    std::weak_ptr<RNUSBServerConnectionManager> weakSelf();
    std::shared_ptr<RNUSBServerConnectionManagerDelegate> serverDelegate() const;

    std::shared_ptr<SerialQueue> notConnectedQueue_;
    std::shared_ptr<TNUSBDeviceConnector> hub_;
    std::shared_ptr<Timer> scannerTimer_;
    std::shared_ptr<Timer> pingTimer_;
    // When each channel's ping that is not written yet was sent.
    std::map<std::weak_ptr<TNChannel>, Clock::TimePoint, std::owner_less<>> unwrittenPings_;
    bool stopped_ = false;
};

}  // namespace havrel
