#pragma once
// A radio in the process: an implementation of the Bluetooth platform interface whose
// peripherals a test (or the client simulator) makes and plays. A peripheral advertises the
// Havrel service, accepts, refuses or ignores a connection, exposes its characteristics, sends
// values by notification in whatever pieces the player chooses, keeps every value written to
// it, and can drop its link. Everything happens on the main queue: each platform call's
// answer is posted there, so it arrives after the call returns, in order, in virtual time when
// the main queue runs on a manual clock.

#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class SimulatedBluetoothRadio;
class SimulatedCentralManager;

// A message cut into notification values of at most pieceSize bytes (at least 2); the last value
// has two bytes or more, so a message's end marker is never split.
std::vector<Bytes> notificationPieces(ByteView message, std::size_t pieceSize);

class SimulatedDescriptor final : public RNBluetoothDescriptor {
public:
    SimulatedDescriptor(std::string uuid, Bytes value) : uuid_(std::move(uuid)), value_(std::move(value)) {}
    std::string UUID() const override { return uuid_; }
    Bytes value() const override { return read_ ? value_ : Bytes(); }
    void markRead() { read_ = true; }

private:
    const std::string uuid_;
    const Bytes value_;
    bool read_ = false;
};

class SimulatedCharacteristic final : public RNBluetoothCharacteristic {
public:
    explicit SimulatedCharacteristic(std::string uuid);
    std::string UUID() const override { return uuid_; }
    Bytes value() const override { return value_; }
    bool isNotifying() const override { return notifying_; }
    std::vector<std::shared_ptr<RNBluetoothDescriptor>> descriptors() const override;

    void setValue(Bytes value) { value_ = std::move(value); }
    void setNotifying(bool notifying) { notifying_ = notifying; }

private:
    const std::string uuid_;
    Bytes value_;
    bool notifying_ = false;
    std::shared_ptr<SimulatedDescriptor> descriptor_;
};

class SimulatedService final : public RNBluetoothService {
public:
    SimulatedService(std::string uuid, std::vector<std::shared_ptr<SimulatedCharacteristic>> characteristics)
        : uuid_(std::move(uuid)), characteristics_(std::move(characteristics)) {}
    std::string UUID() const override { return uuid_; }
    std::vector<std::shared_ptr<RNBluetoothCharacteristic>> characteristics() const override;
    const std::vector<std::shared_ptr<SimulatedCharacteristic>>& simulatedCharacteristics() const {
        return characteristics_;
    }

private:
    const std::string uuid_;
    const std::vector<std::shared_ptr<SimulatedCharacteristic>> characteristics_;
};

class SimulatedPeripheral final : public RNBluetoothPeripheral {
public:
    // How the peripheral answers a connect.
    enum class ConnectionAnswer { accept, refuse, ignore };

    struct Settings {
        std::string name = "Simulated Pad";
        // nullopt: the platform gives no identifier.
        std::optional<std::string> identifier;  // default: a random UUID
        bool identifierFromPlatform = true;
        // The characteristics of the Havrel service.
        std::vector<std::string> characteristics = {kHavrelOutCharacteristicUUID, kHavrelInCharacteristicUUID,
                                                    kHavrelRealtimeCharacteristicUUID};
        // nullopt: the peripheral cannot tell its write length.
        std::optional<std::uint64_t> maximumWriteLength = 182;
        ConnectionAnswer connectionAnswer = ConnectionAnswer::accept;
        // The error of a refused connect; nullopt: a refusal without an error.
        RNBluetoothOptionalError refusalError;
    };

    SimulatedPeripheral(std::weak_ptr<SimulatedBluetoothRadio> radio, Settings settings);

    // --- RNBluetoothPeripheral ---
    std::string name() const override { return settings_.name; }
    std::int64_t state() const override { return state_; }
    std::optional<std::string> identifier() const override;
    std::vector<std::shared_ptr<RNBluetoothService>> services() const override;
    void discoverServices(const std::optional<std::vector<std::string>>& serviceUUIDs) override;
    void discoverCharacteristics(const std::shared_ptr<RNBluetoothService>& service) override;
    void discoverDescriptorsForCharacteristic(const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) override;
    void readValueForDescriptor(const std::shared_ptr<RNBluetoothDescriptor>& descriptor) override;
    void setNotifyValue(bool enabled, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) override;
    void writeValue(ByteView value, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic,
                    std::int64_t type) override;
    std::optional<std::uint64_t> maximumWriteValueLengthForType(std::int64_t type) const override;

    // --- The player's side ---
    Settings& settings() { return settings_; }
    // Starts advertising the Havrel service: a scanning central sees the peripheral.
    void startAdvertising();
    void stopAdvertising();
    // Completes a connect that the peripheral has been ignoring.
    void acceptPendingConnection();
    bool isAdvertising() const { return advertising_; }
    // Whether the central has turned notification on for the characteristic.
    bool isSubscribed(const std::string& characteristicUUID) const;
    // Sends each value as one notification, in order. Values of a characteristic the central
    // has not subscribed to are lost, as on the air; returns whether they were sent.
    bool notify(const std::string& characteristicUUID, const std::vector<Bytes>& values);
    // The message in notificationPieces.
    bool notifyInPieces(const std::string& characteristicUUID, ByteView message, std::size_t pieceSize);
    // Every value the central wrote to the characteristic, in order.
    std::vector<Bytes> writes(const std::string& characteristicUUID) const;
    // Called on the main queue with each value written, as it is written.
    std::function<void(const std::string& characteristicUUID, const Bytes& value)> onWrite;
    // Ends the link from the peripheral's side; the central hears of it with the error.
    void dropLink(RNBluetoothOptionalError error = RNBluetoothError{"CBErrorDomain", 7,
                                                                     "The specified device has disconnected from us."});

    // --- For the radio ---
    void setState(std::int64_t state) { state_ = state; }
    std::shared_ptr<SimulatedCharacteristic> characteristic(const std::string& uuid) const;

private:
    bool linked() const { return state_ == CBPeripheralStateConnected; }
    // Posts a delegate call for when the main queue gets to it.
    void deliver(std::function<void(RNBluetoothPeripheralDelegate&, const std::shared_ptr<RNBluetoothPeripheral>&)> call);

    std::weak_ptr<SimulatedBluetoothRadio> radio_;
    Settings settings_;
    std::int64_t state_ = CBPeripheralStateDisconnected;
    bool advertising_ = false;
    bool servicesDiscovered_ = false;
    std::shared_ptr<SimulatedService> service_;
    std::map<std::string, std::vector<Bytes>> writes_;
};

class SimulatedBluetoothRadio final : public RNBluetoothPlatform,
                                      public std::enable_shared_from_this<SimulatedBluetoothRadio> {
public:
    static std::shared_ptr<SimulatedBluetoothRadio> create(std::int64_t state = CBManagerStatePoweredOn);

    std::shared_ptr<RNBluetoothCentralManager> makeCentralManager(
        std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate) override;

    // Changes the power state; every central manager hears of it.
    void setState(std::int64_t state);
    std::int64_t state() const { return state_; }

    // A new peripheral in range, not yet advertising.
    std::shared_ptr<SimulatedPeripheral> addPeripheral(SimulatedPeripheral::Settings settings = {});

    // --- For the peripherals and managers ---
    // A peripheral began to advertise: scanning managers see it.
    void peripheralAdvertises(const std::shared_ptr<SimulatedPeripheral>& peripheral);
    // The link of the peripheral ended from its side.
    void peripheralDropped(const std::shared_ptr<SimulatedPeripheral>& peripheral, const RNBluetoothOptionalError& error);
    // The manager the peripheral is linked to (or connecting to), or nullptr.
    std::shared_ptr<SimulatedCentralManager> managerOf(const SimulatedPeripheral& peripheral) const;
    void setManagerOf(const SimulatedPeripheral& peripheral, const std::shared_ptr<SimulatedCentralManager>& manager);
    std::vector<std::shared_ptr<SimulatedPeripheral>> advertisingPeripherals() const;

    explicit SimulatedBluetoothRadio(std::int64_t state) : state_(state) {}

private:
    std::vector<std::shared_ptr<SimulatedCentralManager>> liveManagers() const;

    std::int64_t state_;
    std::vector<std::weak_ptr<SimulatedCentralManager>> managers_;
    std::vector<std::shared_ptr<SimulatedPeripheral>> peripherals_;
    std::map<const SimulatedPeripheral*, std::weak_ptr<SimulatedCentralManager>> links_;
};

class SimulatedCentralManager final : public RNBluetoothCentralManager,
                                      public std::enable_shared_from_this<SimulatedCentralManager> {
public:
    SimulatedCentralManager(std::weak_ptr<SimulatedBluetoothRadio> radio,
                            std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate)
        : radio_(std::move(radio)), delegate_(std::move(delegate)) {}

    std::int64_t state() const override;
    void scanForPeripheralsWithServices(const std::optional<std::vector<std::string>>& serviceUUIDs,
                                        bool allowDuplicates) override;
    void stopScan() override;
    void connectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral, bool notifyOnConnection,
                           bool notifyOnDisconnection) override;
    void cancelPeripheralConnection(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) override;

    bool isScanning() const { return scanning_; }
    // Sighting of an advertising peripheral while scanning; once per scan unless duplicates are
    // allowed.
    void sight(const std::shared_ptr<SimulatedPeripheral>& peripheral);
    // Posts a delegate call for when the main queue gets to it.
    void deliver(std::function<void(RNBluetoothCentralManagerDelegate&)> call);

private:
    std::weak_ptr<SimulatedBluetoothRadio> radio_;
    std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate_;
    bool scanning_ = false;
    bool allowDuplicates_ = false;
    std::vector<const SimulatedPeripheral*> sighted_;
};

}  // namespace havrel
