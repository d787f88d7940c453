#pragma once
// The system's Bluetooth transport: the central role towards client apps that advertise the
// Havrel service. Scans, keeps the list of devices found, connects to one at a time (with a
// time-out over each of the two stages, connecting and handshaking), subscribes to the
// service's characteristics, answers the client's handshake and hands received messages to the
// shared receive operations, unless the registry has muted the client. Runs on the main queue
// over the Bluetooth platform interface; one instance per process.

#include "central/HVCentralConnectionTypeManager.hpp"
#include "central/HVDiscoveredDeviceInfo.hpp"
#include "platform/Timer.hpp"
#include "transport/bluetooth/RNBluetoothPlatform.hpp"
#include "transport/bluetooth/RNCentralBluetoothConnection.hpp"
#include "transport/bluetooth/RNCentralBluetoothManagerDelegate.hpp"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace havrel {

inline constexpr const char* HVCentralBluetoothDiscoveryChangedNotification =
    "HVCentralBluetoothDiscoveryChangedNotification";
inline constexpr const char* HVCentralBluetoothConnectionFailedNotification =
    "HVCentralBluetoothConnectionFailedNotification";

class RNCentralBluetoothManager final : public HVCentralConnectionTypeManager,
                                        public RNBluetoothCentralManagerDelegate,
                                        public RNBluetoothPeripheralDelegate,
                                        public RNCentralBluetoothConnectionDelegate,
                                        public std::enable_shared_from_this<RNCentralBluetoothManager> {
private:
    struct Key {};

public:
    // A connect and a handshake each have this long.
    static constexpr std::chrono::seconds kConnectionTimeout{8};
    // The in and realtime subscriptions follow the one to out after these delays.
    static constexpr std::chrono::seconds kInSubscriptionDelay{2};
    static constexpr std::chrono::seconds kRealtimeSubscriptionDelay{4};
    // Discoveries kept at most; a new one past it replaces the oldest (devices that rotate
    // their private addresses are new devices each time).
    static constexpr std::size_t kMaximumDiscoveries = 64;

    // Makes the shared instance over the shared Bluetooth platform, replacing any earlier one.
    static std::shared_ptr<RNCentralBluetoothManager> instantiateWithProductToSendOut(
        const std::string& productToSendOut, const std::string& versionToSendOut);
    // The shared instance, or nullptr before the first instantiate.
    static std::shared_ptr<RNCentralBluetoothManager> sharedInstance();
    // For the host's shutdown and tests: cleans the instance up and forgets it.
    static void resetShared();
    // A manager whose platform manager comes from the shared Bluetooth platform.
    static std::shared_ptr<RNCentralBluetoothManager> initWithProductToSendOut(const std::string& productToSendOut,
                                                                               const std::string& versionToSendOut);

    RNCentralBluetoothManager(Key, std::string productToSendOut, std::string versionToSendOut);
    ~RNCentralBluetoothManager() override;

    std::weak_ptr<RNCentralBluetoothManagerDelegate> delegate;
    // Starts true: the first device sighted is connected to at once.
    bool hvAutoConnectsWhenSingleDeviceFound = true;

    std::int64_t state() const { return state_; }
    bool bluetoothPowerOn() const { return bluetoothPowerOn_; }
    bool isScanning() const { return isScanning_; }
    const std::shared_ptr<RNBluetoothCentralManager>& manager() const { return manager_; }
    const std::map<std::string, std::shared_ptr<RNCentralBluetoothConnection>>& bluetoothConnections() const {
        return bluetoothConnections_;
    }
    const std::shared_ptr<RNBluetoothPeripheral>& currentPeripheral() const { return currentPeripheral_; }
    const std::string& productToSendOut() const { return productToSendOut_; }
    const std::string& versionToSendOut() const { return versionToSendOut_; }
    bool hasConnectionTimeout() const { return hvConnectionTimeoutTimer_ != nullptr; }

    static std::string havrelServiceCBUUID() { return kHavrelServiceUUID; }
    // The two bytes that end every message: "||".
    static ByteView endTransmissionDataPacket();

    // Only with the power on: clears the discoveries and scans for the service.
    void scan();
    void stopScan();
    // The devices found, in order of first sighting.
    std::vector<HVDiscoveredDeviceInfo> hvDiscoveredDevices();
    void hvConnectToDiscoveredDeviceWithIdentifier(const std::string& identifier);
    void hvBeginConnectionToPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral);
    // Connects again to every known connection whose link is down.
    void retrievePeripherals();
    void connectToPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral);
    // Turns notification on or off for a characteristic by UUID text, if the peripheral has it.
    void setNotifyValue(bool enabled, const std::string& characteristicKey,
                        const std::shared_ptr<RNBluetoothPeripheral>& peripheral);
    // Drains the connection's send queue.
    void sendData(RNCentralBluetoothConnection& connection);
    // Writes one chunk to its characteristic; always true.
    bool sendDataChunkWithSBBluetoothDataQueueData(const RNBluetoothDataQueue::Chunk& chunk,
                                                   const std::shared_ptr<RNBluetoothPeripheral>& peripheral);
    // {"v": "<version>"} and the end marker, one write to out.
    void sendCentralMinApiVersionString(const std::string& version,
                                        const std::shared_ptr<RNBluetoothPeripheral>& peripheral);
    // The Central's identity as JSON and the end marker, one write to out.
    void sendCentralDataToPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral);
    // Stops the scan, unsubscribes and cancels every link.
    void cleanup();
    // cleanup, then forgets every connection, time-out and discovery.
    void reset();
    bool isConnected() const;
    static std::string localName();
    bool hvShouldIgnoreDataFromClient(const std::shared_ptr<RNClient>& client) const;

    void hvStartConnectionTimeoutForPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral);
    void hvCancelConnectionTimeout();
    void hvReportConnectionFailureForPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                                const std::string& diagnostic);

    // --- RNBluetoothCentralManagerDelegate ---
    void centralManagerDidUpdateState(std::int64_t state) override;
    void centralManagerDidDiscoverPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                             const Dictionary& advertisementData, std::int64_t RSSI) override;
    void centralManagerDidConnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) override;
    void centralManagerDidFailToConnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                                  const RNBluetoothOptionalError& error) override;
    void centralManagerDidDisconnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                               const RNBluetoothOptionalError& error) override;
    void centralManagerDidRetrievePeripherals(
        const std::vector<std::shared_ptr<RNBluetoothPeripheral>>& peripherals) override;

    // --- RNBluetoothPeripheralDelegate ---
    void peripheralDidDiscoverServices(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                       const RNBluetoothOptionalError& error) override;
    void peripheralDidDiscoverCharacteristicsForService(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                                        const std::shared_ptr<RNBluetoothService>& service,
                                                        const RNBluetoothOptionalError& error) override;
    void peripheralDidDiscoverDescriptorsForCharacteristic(
        const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
        const std::shared_ptr<RNBluetoothCharacteristic>& characteristic, const RNBluetoothOptionalError& error) override;
    void peripheralDidUpdateValueForDescriptor(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                               const std::shared_ptr<RNBluetoothDescriptor>& descriptor,
                                               const RNBluetoothOptionalError& error) override;
    void peripheralDidUpdateValueForCharacteristic(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                                   const std::shared_ptr<RNBluetoothCharacteristic>& characteristic,
                                                   const RNBluetoothOptionalError& error) override;

    // --- RNCentralBluetoothConnectionDelegate ---
    void RNCentralBluetoothConnectionDidReceiveClient(RNCentralBluetoothConnection& connection,
                                                      const std::shared_ptr<RNBluetoothClient>& client) override;
    void RNCentralBluetoothConnectionDidReceiveChangeData(RNCentralBluetoothConnection& connection,
                                                          ByteView data) override;
    void RNCentralBluetoothConnectionDidReceiveSyncData(RNCentralBluetoothConnection& connection,
                                                        ByteView data) override;
    void RNCentralBluetoothConnectionDidReceivePureMIDIData(RNCentralBluetoothConnection& connection,
                                                            ByteView data) override;
    void RNCentralBluetoothConnectionDidReceiveRangeData(RNCentralBluetoothConnection& connection,
                                                         ByteView data) override;
    void RNCentralBluetoothConnectionDidReceiveDisconnectRequest(RNCentralBluetoothConnection& connection) override;

private:
    void hvConnectionTimeoutFired(const std::shared_ptr<RNBluetoothPeripheral>& peripheral);
    void clearDiscoveries();
    void postDiscoveryChanged();
    // The registry's record of the connection's peripheral; nullptr when it has none.
    std::shared_ptr<RNClient> clientOfConnection(const RNCentralBluetoothConnection& connection);
    // A whole message plus the end marker in one write to out.
    void writeToOut(const std::string& message, const std::shared_ptr<RNBluetoothPeripheral>& peripheral);

    const std::string productToSendOut_;
    const std::string versionToSendOut_;
    std::int64_t state_ = CBManagerStateUnknown;
    bool bluetoothPowerOn_ = false;
    bool isScanning_ = false;
    std::shared_ptr<RNBluetoothCentralManager> manager_;
    std::map<std::string, std::shared_ptr<RNCentralBluetoothConnection>> bluetoothConnections_;
    std::shared_ptr<RNBluetoothPeripheral> currentPeripheral_;
    std::map<std::string, std::shared_ptr<RNBluetoothPeripheral>> hvDiscoveredPeripherals_;
    std::vector<std::string> hvDiscoveryOrder_;
    std::shared_ptr<Timer> hvConnectionTimeoutTimer_;
};

}  // namespace havrel
