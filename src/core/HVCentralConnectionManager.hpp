#pragma once
// The one place that knows every connected client, of both transports. It is the delegate of
// the USB and the Bluetooth transport, decides whether a client may connect, keeps the client
// list in order of arrival, and mutes the Bluetooth link of a device that is also connected
// over USB. Each connection leaves a marker with its date in the defaults store for the host.
// Runs on the main queue.

#include "core/HVCentralConnectionManagerUSBDelegate.hpp"
#include "core/HVHandoffMarker.hpp"
#include "transport/bluetooth/RNCentralBluetoothManagerDelegate.hpp"
#include "transport/usb/HVCentralUSBManagerDelegate.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class RNClient;
class RNUSBClient;
class RNBluetoothClient;
class TNChannel;

inline constexpr const char* HVHandoffMacClientConnectedNotification = "HVHandoffMacClientConnectedNotification";
inline constexpr const char* HVHandoffMacClientDisconnectedNotification =
    "HVHandoffMacClientDisconnectedNotification";
// What the USB delegate hears, also posted for any number of observers (the delegate slot holds
// one), with the client as the notification's object (std::shared_ptr<RNClient>; nullptr when a
// device that left had no record). Main queue, right after the delegate's call.
inline constexpr const char* HVCentralConnectionManagerDidRefuseUSBClientNotification =
    "HVCentralConnectionManagerDidRefuseUSBClientNotification";
inline constexpr const char* HVCentralConnectionManagerDidDisconnectUSBClientNotification =
    "HVCentralConnectionManagerDidDisconnectUSBClientNotification";
// The defaults key of the date of the last connection, an ISO-8601 text in UTC.
inline constexpr const char* kLastConnectedAtKey = "com.havrelapps.handoff.lastConnectedAt";

class HVCentralConnectionManager final : public HVCentralUSBManagerDelegate,
                                         public RNCentralBluetoothManagerDelegate,
                                         public std::enable_shared_from_this<HVCentralConnectionManager> {
private:
    struct Key {};

public:
    // Makes the shared instance, replacing any earlier one.
    static std::shared_ptr<HVCentralConnectionManager> instantiateWithProductToSendOut(
        const std::string& productToSendOut, const std::string& versionToSendOut);
    // The shared instance, or nullptr before the first instantiate.
    static std::shared_ptr<HVCentralConnectionManager> sharedInstance();
    // A registry with an empty list that has started both transports.
    static std::shared_ptr<HVCentralConnectionManager> initWithProductToSendOut(const std::string& productToSendOut,
                                                                                const std::string& versionToSendOut);

    HVCentralConnectionManager(Key, std::string productToSendOut, std::string versionToSendOut);

    // Every client of both transports, in order of arrival, refused USB records included.
    std::vector<std::shared_ptr<RNClient>> clients;
    std::weak_ptr<RNCentralBluetoothManagerDelegate> bluetoothDelegate;
    std::weak_ptr<HVCentralConnectionManagerUSBDelegate> usbDelegate;

    const std::string& productToSendOut() const { return productToSendOut_; }
    const std::string& versionToSendOut() const { return versionToSendOut_; }

    std::vector<std::shared_ptr<RNUSBClient>> usbClients() const;
    std::vector<std::shared_ptr<RNBluetoothClient>> bluetoothClients() const;

    // True unless the client speaks an API newer than this Central's; then the user is told to
    // update and the result is false. A client without an API version passes.
    bool checkVersionForClient(const RNClient& client);
    // With a number: the last USB record of that device. Without: the first USB record without
    // a device number (the local IPv4 path).
    std::shared_ptr<RNUSBClient> usbClientWithDeviceID(std::optional<std::int64_t> deviceID) override;
    // False for an absent or empty identifier.
    bool alreadyConnectedToClientWithUniqueIdentifier(const std::optional<std::string>& uniqueIdentifier) const;
    // False without a number.
    bool alreadyConnectedToDeviceID(std::optional<std::int64_t> deviceID) const;
    std::shared_ptr<RNBluetoothClient> clientForPeripheral(const PeripheralReference& peripheral) override;
    // Mutes every Bluetooth client whose device is also connected over USB (refused USB records
    // don't count) and unmutes the others, with one log line per change.
    void updateTransportArbitration();

    // The USB record that the channel's first frame made (accepted or refused), or nullptr.
    std::shared_ptr<RNUSBClient> usbClientForChannel(const std::shared_ptr<TNChannel>& channel) override;

    // --- The USB transport. With a channel, its record is remembered, and the channel's end
    // removes exactly that record (the local path has no device number to find it by). ---
    void HVCentralUSBManagerDidConnectToDeviceID(HVCentralUSBManager* manager, std::optional<std::int64_t> deviceID,
                                                 const Dictionary& info,
                                                 const std::shared_ptr<TNChannel>& channel) override;
    void HVCentralUSBManagerDidDisconnectFromDeviceID(HVCentralUSBManager* manager,
                                                      std::optional<std::int64_t> deviceID, const Dictionary& info,
                                                      const std::shared_ptr<TNChannel>& channel) override;

    const HVHandoffMarker& handoffMarker() const { return *handoffMarker_; }

    // --- The Bluetooth transport. ---
    void RNCentralBluetoothManagerDidReceiveClient(RNCentralBluetoothManager* manager,
                                                   const std::shared_ptr<RNClient>& client) override;
    void RNCentralBluetoothManagerDidDisconnectFromClient(RNCentralBluetoothManager* manager,
                                                          const std::shared_ptr<RNClient>& client) override;
    // Passed on to bluetoothDelegate unchanged.
    void RNCentralBluetoothManagerDidStartScanning(RNCentralBluetoothManager* manager) override;
    void RNCentralBluetoothManagerDidStopScanning(RNCentralBluetoothManager* manager) override;
    void RNCentralBluetoothManagerDidStartConnecting(RNCentralBluetoothManager* manager,
                                                     const PeripheralReference& perhipheral) override;
    void RNCentralBluetoothManagerDidStopConnecting(RNCentralBluetoothManager* manager,
                                                    const PeripheralReference& perhipheral) override;
    void RNCentralBluetoothManagerDidDidReceiveConnectionNameForPerhipheral(
        RNCentralBluetoothManager* manager, const PeripheralReference& perhipheral) override;
    void RNCentralBluetoothManagerDidFinishConnection(RNCentralBluetoothManager* manager,
                                                      const std::shared_ptr<RNClient>& client) override;

private:
    void startTransports();
    // Refuses a USB client whose first frame does not describe it: the record is kept, marked
    // refused, until its device leaves.
    void refuseUndescribedUSBClient(const std::shared_ptr<RNUSBClient>& client,
                                    const std::shared_ptr<TNChannel>& channel);
    // Tells the USB delegate and the observers of a refused client.
    void tellRefused(const std::shared_ptr<RNClient>& client);
    void addRecord(const std::shared_ptr<RNClient>& client, const std::shared_ptr<TNChannel>& channel);
    // Removes and returns the record the channel made, or nullptr.
    std::shared_ptr<RNClient> takeRecordOfChannel(const std::shared_ptr<TNChannel>& channel);
    // The marker, the log line and the notification of an accepted client.
    void announceConnectedClient();

    const std::string productToSendOut_;
    const std::string versionToSendOut_;
    const std::shared_ptr<HVHandoffMarker> handoffMarker_;
    // The record each USB channel made, while both live.
    std::vector<std::pair<std::weak_ptr<TNChannel>, std::weak_ptr<RNClient>>> channelRecords_;
};

}  // namespace havrel
