#pragma once
// The system's USB transport: answers each client's first frame with the Central's identity,
// asks the client registry for its verdict, and turns the frames of a client into the shared
// receive operations. Also the host's way to send a file, a tempo or a position to a device.
// One instance per process, on the main queue.

#include "central/HVCentralConnectionTypeManager.hpp"
#include "central/HVFileRepresentation.hpp"
#include "transport/usb/HVCentralUSBManagerDelegate.hpp"
#include "transport/usb/RNUSBServerConnectionManager.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

inline constexpr const char* HVCentralAPIVersion = "2.1";

class HVCentralUSBManager final : public HVCentralConnectionTypeManager,
                                  public RNUSBServerConnectionManagerDelegate,
                                  public std::enable_shared_from_this<HVCentralUSBManager> {
public:
    using Options = RNUSBServerConnectionManager::Options;

    // Makes the process's instance on the first call; later calls return it unchanged.
    static std::shared_ptr<HVCentralUSBManager> instantiateWithProductToSendOut(const std::string& product,
                                                                                const std::string& version,
                                                                                Options options = {});
    // The process's instance, or nullptr before the first instantiate.
    static std::shared_ptr<HVCentralUSBManager> shared();
    // For the host's shutdown and tests: stops the instance's connection manager and forgets it,
    // so the next instantiate makes a new one.
    static void resetShared();

    static std::shared_ptr<HVCentralUSBManager> initWithProudctToSendOut(const std::string& product,
                                                                        const std::string& version,
                                                                        Options options = {});
    ~HVCentralUSBManager() override;

    std::weak_ptr<HVCentralUSBManagerDelegate> delegate;
    // 0 no client, 1 a client handshake has been answered.
    std::uint64_t state = 0;
    const std::string versionToSendOut;
    const std::string productToSendOut;

    const std::shared_ptr<RNUSBServerConnectionManager>& connectionManager() const { return connectionManager_; }

    // Frames 111, 112 and 113 with tag 0; nothing for a device with no channel.
    void sendFile(const HVFileRepresentation& file, std::optional<std::int64_t> deviceID);
    void sendTempo(double tempo, std::optional<std::int64_t> deviceID);
    void sendPosition(double position, std::optional<std::int64_t> deviceID);
    // Frames 112 and 113 to every channel whose client the registry holds, the local path
    // included.
    void sendTempoToEveryClient(double tempo);
    void sendPositionToEveryClient(double position);

    // The name of this computer, as clients show it.
    static std::string localName();

    // RNUSBConnectionManagerDelegate. Only the first frame 100 of a channel introduces its
    // client; later ones are dropped, so a client repeating it cannot add records, alerts or
    // marker writes.
    void RNUSBConnectionManagerDidConnectToDeviceID(RNUSBConnectionManager& manager,
                                                   std::optional<std::int64_t> deviceID, const Dictionary& info,
                                                   const std::shared_ptr<TNChannel>& channel) override;
    void RNUSBConnectionManagerDidDisconnectFromDeviceID(RNUSBConnectionManager& manager,
                                                        std::optional<std::int64_t> deviceID, const Dictionary* info,
                                                        const std::shared_ptr<TNChannel>& channel) override;
    void RNUSBConnectionManagerDidReceiveRNCentral(RNUSBConnectionManager& manager, const Dictionary& central,
                                                  std::optional<std::int64_t> deviceID,
                                                  const std::shared_ptr<TNChannel>& channel) override;
    void RNUSBConnectionManagerDidSendClientDataWithDeviceID(RNUSBConnectionManager& manager,
                                                            std::optional<std::int64_t> deviceID,
                                                            const std::shared_ptr<TNChannel>& channel) override;
    void RNUSBConnectionManagerDidReceiveZippedFile(RNUSBConnectionManager& manager, ByteView file,
                                                   const std::string& name, std::optional<std::int64_t> deviceID,
                                                   const std::shared_ptr<TNChannel>& channel) override;

    // RNUSBServerConnectionManagerDelegate: each finds the device's client record and calls the
    // receive operation of the same name.
    void RNUSBConnectionManagerDidReceiveSyncData(RNUSBConnectionManager& manager, ByteView data,
                                                 std::optional<std::int64_t> deviceID, const std::shared_ptr<TNChannel>& channel) override;
    void RNUSBConnectionManagerDidReceiveClientData(RNUSBConnectionManager& manager, ByteView data,
                                                   std::optional<std::int64_t> deviceID, const std::shared_ptr<TNChannel>& channel) override;
    void RNUSBConnectionManagerDidReceivePureMIDIData(RNUSBConnectionManager& manager, ByteView data,
                                                     std::optional<std::int64_t> deviceID, const std::shared_ptr<TNChannel>& channel) override;
    void RNUSBConnectionManagerDidReceiveChangeData(RNUSBConnectionManager& manager, ByteView data,
                                                   std::optional<std::int64_t> deviceID, const std::shared_ptr<TNChannel>& channel) override;
    void RNUSBConnectionManagerDidReceiveRangeData(RNUSBConnectionManager& manager, ByteView data,
                                                  std::optional<std::int64_t> deviceID, const std::shared_ptr<TNChannel>& channel) override;
    void RNUSBConnectionManagerDidReceiveFileRepData(RNUSBConnectionManager& manager, ByteView data,
                                                    std::optional<std::int64_t> deviceID, const std::shared_ptr<TNChannel>& channel) override;

private:
    struct Key {};

public:
    HVCentralUSBManager(Key, std::string product, std::string version);

private:
    // The record the channel's introduction made, or nullptr.
    std::shared_ptr<RNUSBClient> clientForChannel(const std::shared_ptr<TNChannel>& channel) const;
    // The entry of a channel that has introduced itself, or nullptr.
    struct Introduction {
        std::weak_ptr<TNChannel> channel;
        bool repeatLogged = false;
    };
    Introduction* introductionOf(const std::shared_ptr<TNChannel>& channel);
    void sendToDevice(std::uint32_t type, std::shared_ptr<const Bytes> payload, std::optional<std::int64_t> deviceID);
    void sendToEveryClient(std::uint32_t type, const std::shared_ptr<const Bytes>& payload);
    void sendOnChannel(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                       std::shared_ptr<const Bytes> payload);

    std::shared_ptr<RNUSBServerConnectionManager> connectionManager_;
    // The channels whose client has introduced itself, until they end.
    std::vector<Introduction> introductions_;
};

}  // namespace havrel
