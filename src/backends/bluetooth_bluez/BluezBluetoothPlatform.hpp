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

#include "backends/bluetooth_bluez/BluezCentralManager.hpp"
#include "backends/bluetooth_bluez/BluezDescriptor.hpp"
#include "backends/bluetooth_bluez/BluezPeripheral.hpp"
#include "backends/bluetooth_bluez/BluezProperties.hpp"
#include "backends/bluetooth_bluez/BluezService.hpp"
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

class DBusConnectionThread;

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
