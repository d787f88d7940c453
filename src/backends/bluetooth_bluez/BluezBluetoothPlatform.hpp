#pragma once
// The Bluetooth platform interface over BlueZ, the Linux Bluetooth daemon, on the system bus.
//
// One adapter (the one named in the options, else the first) is the radio: its Powered property
// is the managers' power state. Scanning sets a discovery filter (the service UUIDs, LE only) and
// starts discovery; a device object that appears or reports a new RSSI while a manager scans,
// and lists a wanted service, is a sighting. Connect and Disconnect are the device's own calls;
// its Connected property tells when a link ends. Services are the device's GATT objects once
// BlueZ has resolved them; notifications are changes of a characteristic's Value.
//
// All D-Bus traffic runs on the backend's own bus thread (DBusConnectionThread); the results are
// posted to the main queue, where the objects below live and the delegates are called. Nothing
// the bus says can crash the process: properties are type-checked and bounded
// (BluezProperties), unreadable signals are logged and dropped. Without a system bus, without
// BlueZ, or without an adapter the managers report CBManagerStateUnsupported; an adapter that is
// off gives CBManagerStatePoweredOff.

#include "backends/bluetooth_bluez/BluezProperties.hpp"
#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class BluezBluetoothPlatform;
class BluezCentralManager;
class DBusConnectionThread;

class BluezDescriptor final : public RNBluetoothDescriptor {
public:
    BluezDescriptor(std::string path, std::string uuid) : path_(std::move(path)), uuid_(std::move(uuid)) {}
    std::string UUID() const override { return uuid_; }
    Bytes value() const override { return value_; }
    const std::string& path() const { return path_; }
    void setValue(Bytes value) { value_ = std::move(value); }

private:
    const std::string path_;
    const std::string uuid_;
    Bytes value_;
};

class BluezCharacteristic final : public RNBluetoothCharacteristic {
public:
    BluezCharacteristic(std::string path, std::string uuid) : path_(std::move(path)), uuid_(std::move(uuid)) {}
    std::string UUID() const override { return uuid_; }
    Bytes value() const override { return value_; }
    bool isNotifying() const override { return notifying_; }
    std::vector<std::shared_ptr<RNBluetoothDescriptor>> descriptors() const override;

    const std::string& path() const { return path_; }
    void setValue(Bytes value) { value_ = std::move(value); }
    void setNotifying(bool notifying) { notifying_ = notifying; }
    std::optional<std::uint16_t> mtu;
    void addDescriptor(const std::shared_ptr<BluezDescriptor>& descriptor);

private:
    const std::string path_;
    const std::string uuid_;
    Bytes value_;
    bool notifying_ = false;
    std::vector<std::shared_ptr<BluezDescriptor>> descriptors_;
};

class BluezService final : public RNBluetoothService {
public:
    BluezService(std::string path, std::string uuid) : path_(std::move(path)), uuid_(std::move(uuid)) {}
    std::string UUID() const override { return uuid_; }
    std::vector<std::shared_ptr<RNBluetoothCharacteristic>> characteristics() const override;

    const std::string& path() const { return path_; }
    const std::vector<std::shared_ptr<BluezCharacteristic>>& bluezCharacteristics() const { return characteristics_; }
    void addCharacteristic(const std::shared_ptr<BluezCharacteristic>& characteristic);

private:
    const std::string path_;
    const std::string uuid_;
    std::vector<std::shared_ptr<BluezCharacteristic>> characteristics_;
};

class BluezPeripheral final : public RNBluetoothPeripheral {
public:
    BluezPeripheral(std::weak_ptr<BluezBluetoothPlatform> platform, std::string path)
        : platform_(std::move(platform)), path_(std::move(path)) {}

    // --- RNBluetoothPeripheral ---
    std::string name() const override;
    std::int64_t state() const override { return state_; }
    // The device's address.
    std::optional<std::string> identifier() const override;
    std::vector<std::shared_ptr<RNBluetoothService>> services() const override;
    void discoverServices(const std::optional<std::vector<std::string>>& serviceUUIDs) override;
    void discoverCharacteristics(const std::shared_ptr<RNBluetoothService>& service) override;
    void discoverDescriptorsForCharacteristic(const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) override;
    void readValueForDescriptor(const std::shared_ptr<RNBluetoothDescriptor>& descriptor) override;
    void setNotifyValue(bool enabled, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) override;
    void writeValue(ByteView value, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic,
                    std::int64_t type) override;
    // Without response: the link's ATT MTU less the three bytes of the write's header, where
    // BlueZ tells the MTU. With response: the longest attribute value.
    std::optional<std::uint64_t> maximumWriteValueLengthForType(std::int64_t type) const override;

    // --- For the platform and its managers ---
    const std::string& path() const { return path_; }
    BluezProperties& properties() { return properties_; }
    const BluezProperties& properties() const { return properties_; }
    void setState(std::int64_t state) { state_ = state; }
    std::weak_ptr<BluezCentralManager> manager;
    // The transport asked for the services before BlueZ had resolved them.
    bool servicesRequested = false;
    // Present in BlueZ's object tree now.
    bool present = true;
    // Sighted or connected once: should BlueZ drop the object and bring it back while the
    // transport still holds this one, it is this object again.
    bool known = false;
    // When the device last told something (the platform's count of device updates): the
    // table's oldest is forgotten first when it is full.
    std::uint64_t lastUpdate = 0;
    // Disconnect calls not answered yet.
    int pendingDisconnects = 0;
    // Reported itself since the discovery under way began.
    bool seenInDiscovery = false;
    std::vector<std::shared_ptr<BluezService>> bluezServices;
    void addService(const std::shared_ptr<BluezService>& service);
    // Posts a delegate call for when the main queue gets to it.
    void deliver(std::function<void(RNBluetoothPeripheralDelegate&, const std::shared_ptr<RNBluetoothPeripheral>&)> call);

private:
    bool linked() const { return state_ == CBPeripheralStateConnected; }

    std::weak_ptr<BluezBluetoothPlatform> platform_;
    const std::string path_;
    BluezProperties properties_;
    std::int64_t state_ = CBPeripheralStateDisconnected;
};

class BluezCentralManager final : public RNBluetoothCentralManager,
                                  public std::enable_shared_from_this<BluezCentralManager> {
public:
    BluezCentralManager(std::weak_ptr<BluezBluetoothPlatform> platform,
                        std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate)
        : platform_(std::move(platform)), delegate_(std::move(delegate)) {}

    std::int64_t state() const override;
    void scanForPeripheralsWithServices(const std::optional<std::vector<std::string>>& serviceUUIDs,
                                        bool allowDuplicates) override;
    void stopScan() override;
    void connectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral, bool notifyOnConnection,
                           bool notifyOnDisconnection) override;
    void cancelPeripheralConnection(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) override;

    // --- For the platform ---
    bool isScanning() const { return scanning_; }
    const std::optional<std::vector<std::string>>& wantedServices() const { return serviceUUIDs_; }
    void endScan() { scanning_ = false; }
    // A device in range reported itself while this manager scans.
    void sight(const std::shared_ptr<BluezPeripheral>& peripheral);
    // Calls the delegate now (the caller is on the main queue, in an item of its own).
    void report(const std::function<void(RNBluetoothCentralManagerDelegate&)>& call);
    // Posts a delegate call for when the main queue gets to it.
    void deliver(std::function<void(RNBluetoothCentralManagerDelegate&)> call);

private:
    std::weak_ptr<BluezBluetoothPlatform> platform_;
    std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate_;
    bool scanning_ = false;
    bool allowDuplicates_ = false;
    std::optional<std::vector<std::string>> serviceUUIDs_;
    // The devices reported in this scan, at most kMaximumDevices of them (the oldest go first).
    std::deque<std::weak_ptr<const BluezPeripheral>> sighted_;
};

class BluezBluetoothPlatform final : public RNBluetoothPlatform,
                                     public std::enable_shared_from_this<BluezBluetoothPlatform> {
public:
    struct Options {
        // "unix:path=..." of the bus BlueZ is on; empty: the system bus.
        std::string busAddress;
        // The adapter's name ("hci1"); empty: the first adapter.
        std::string adapter;
        // Turns the adapter on when it is off.
        bool powerOnAdapter = false;
        // How long a call to BlueZ may take (Connect waits for the device).
        std::chrono::milliseconds callTimeout{30'000};
    };
    // At most this many devices and GATT objects are followed. A device that is neither in
    // BlueZ's tree nor linked is forgotten; when the table is full, the unlinked device heard
    // from least recently makes room for a new one (tablets rotate their private addresses).
    static constexpr std::size_t kMaximumDevices = 512;
    static constexpr std::size_t kMaximumGattObjects = 4096;

    // Starts following BlueZ on the bus; the managers' first report is the state found there.
    static std::shared_ptr<BluezBluetoothPlatform> create(Options options);
    // For a host choosing its backend before it runs the main queue: whether the bus has BlueZ
    // with an adapter, waiting at most the timeout. Otherwise the reason, for one log line.
    static bool hasAdapter(const Options& options, std::chrono::milliseconds timeout, std::string& reason);

    ~BluezBluetoothPlatform() override;

    std::shared_ptr<RNBluetoothCentralManager> makeCentralManager(
        std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate) override;

    std::int64_t state() const { return state_; }
    // The adapter's object path; empty without one.
    const std::string& adapterPath() const { return adapterPath_; }
    // D-Bus work under way (calls waiting for replies, results not yet handled). A test waits for
    // it to fall to zero before it lets virtual time pass.
    std::size_t pendingOperations() const;
    // Devices followed now, and forgotten ones the transport may still hold.
    std::size_t deviceCount() const { return devices_.size(); }
    std::size_t forgottenCount() const { return forgotten_.size(); }

    // --- For the managers and peripherals (main queue) ---
    // Calls the method of the object on the bus thread; `done` then runs on the main queue with
    // the error, if any, and the reply's bytes when `readsBytes`.
    using Arguments = std::function<void(sdbus::MethodCall&)>;
    using Completion = std::function<void(const RNBluetoothOptionalError&, const Bytes&)>;
    void call(const std::string& path, const std::string& interface, const std::string& method, Arguments arguments,
              bool readsBytes, Completion done);
    void managerScanChanged();
    void linkEnded(const std::shared_ptr<BluezPeripheral>& peripheral, const RNBluetoothOptionalError& error);

    struct Private {};
    BluezBluetoothPlatform(Private, Options options);

private:
    struct BusSide;

    void start();
    void busLost(const std::string& reason);
    // Results from the bus thread.
    void applyObjects(std::vector<std::pair<std::string, std::vector<BluezProperties>>> objects, bool complete);
    // changed: a PropertiesChanged signal rather than the object's appearance.
    void applyProperties(const std::string& path, const BluezProperties& update, bool changed);
    void applyRemoved(const std::string& path, const std::vector<BluezInterface>& interfaces);
    void bluezGone(const std::string& reason);
    // Every adapter and device is gone, every link ended, every scan over.
    void dropEverything();
    void applyDevice(const std::string& path, const BluezProperties& update);
    void applyCharacteristic(const std::string& path, const BluezProperties& update, bool changed);
    void chooseAdapter();
    void setState(std::int64_t state);
    std::vector<std::shared_ptr<BluezCentralManager>> liveManagers();
    bool underAdapter(const std::string& path) const;
    // Drops the device and its GATT objects from the tables.
    void forgetDevice(const std::string& path);
    // Forgets the unlinked device heard from least recently; false when every one is linked.
    bool makeRoomForDevice();
    std::size_t gattObjectCount() const;

    const Options options_;
    std::unique_ptr<DBusConnectionThread> bus_;
    std::shared_ptr<BusSide> busSide_;
    bool ready_ = false;
    std::int64_t state_ = CBManagerStateUnknown;
    std::string adapterPath_;
    bool powerRequested_ = false;
    bool discovering_ = false;
    std::map<std::string, BluezProperties> adapters_;
    std::map<std::string, std::shared_ptr<BluezPeripheral>> devices_;
    // Known devices that were forgotten, by path, while something else holds them; at most
    // kMaximumDevices, the oldest dropped first.
    std::deque<std::pair<std::string, std::weak_ptr<BluezPeripheral>>> forgotten_;
    std::uint64_t deviceUpdates_ = 0;
    std::map<std::string, std::shared_ptr<BluezService>> services_;
    std::map<std::string, std::shared_ptr<BluezCharacteristic>> characteristics_;
    std::map<std::string, std::shared_ptr<BluezDescriptor>> descriptors_;
    std::vector<std::weak_ptr<BluezCentralManager>> managers_;
    bool reportedOverflow_ = false;
};

}  // namespace havrel
