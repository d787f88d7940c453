#pragma once
// The Bluetooth Low Energy central role as the transport needs it of the system: a central
// manager that scans, connects and drops links, and peripherals with services, characteristics
// and descriptors that are discovered, subscribed to, read and written. A backend (the BlueZ
// one, or the simulated radio of the tests) implements these classes; every callback comes on
// the main queue, after the call that caused it has returned.
//
// UUIDs travel as their upper-case text ("293E27BA-4906-48DA-9D70-696E1C95BEBC").

#include "platform/SharedSlot.hpp"
#include "platform/Types.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

// The one service the Central scans for, and its characteristics.
inline constexpr const char* kHavrelServiceUUID = "293E27BA-4906-48DA-9D70-696E1C95BEBC";
// Central to client: the handshake replies (written without response).
inline constexpr const char* kHavrelOutCharacteristicUUID = "0224514F-F649-4565-B7BD-F275118EE573";
// Client to Central by notification: commands.
inline constexpr const char* kHavrelInCharacteristicUUID = "7CC1EABF-FDAC-4AB3-8EC1-F5268E031202";
// Client to Central by notification: range commands.
inline constexpr const char* kHavrelRealtimeCharacteristicUUID = "EE9E5C10-2C2C-4A99-9275-EF55730A67F4";

// States of the central manager.
inline constexpr std::int64_t CBManagerStateUnknown = 0;
inline constexpr std::int64_t CBManagerStateResetting = 1;
inline constexpr std::int64_t CBManagerStateUnsupported = 2;
inline constexpr std::int64_t CBManagerStateUnauthorized = 3;
inline constexpr std::int64_t CBManagerStatePoweredOff = 4;
inline constexpr std::int64_t CBManagerStatePoweredOn = 5;

// States of a peripheral's link.
inline constexpr std::int64_t CBPeripheralStateDisconnected = 0;
inline constexpr std::int64_t CBPeripheralStateConnecting = 1;
inline constexpr std::int64_t CBPeripheralStateConnected = 2;
inline constexpr std::int64_t CBPeripheralStateDisconnecting = 3;

// Write types.
inline constexpr std::int64_t CBCharacteristicWriteWithResponse = 0;
inline constexpr std::int64_t CBCharacteristicWriteWithoutResponse = 1;

// The error of a failed Bluetooth operation.
struct RNBluetoothError {
    std::string domain;
    std::int64_t code = 0;
    std::string description;
};
using RNBluetoothOptionalError = std::optional<RNBluetoothError>;

// The upper-case UUID text of 16 bytes: "%02x" per byte with a dash after bytes 3, 5, 7 and 9.
// Other lengths give the bytes in hexadecimal without dashes.
std::string representativeString(ByteView uuidBytes);

class RNBluetoothService;
class RNBluetoothCharacteristic;

class RNBluetoothDescriptor {
public:
    virtual ~RNBluetoothDescriptor();
    virtual std::string UUID() const = 0;
    // The last value read; empty until then.
    virtual Bytes value() const = 0;
    // The description of the value for log lines.
    virtual std::string description() const;
};

class RNBluetoothCharacteristic {
public:
    virtual ~RNBluetoothCharacteristic();
    virtual std::string UUID() const = 0;
    // The last value notified or read.
    virtual Bytes value() const = 0;
    virtual bool isNotifying() const = 0;
    virtual std::vector<std::shared_ptr<RNBluetoothDescriptor>> descriptors() const = 0;
    // "<UUID>" with the notifying state, for log lines.
    std::string description() const;
};

class RNBluetoothService {
public:
    virtual ~RNBluetoothService();
    virtual std::string UUID() const = 0;
    virtual std::vector<std::shared_ptr<RNBluetoothCharacteristic>> characteristics() const = 0;
};

class RNBluetoothPeripheral;

// Results of a peripheral's discoveries, reads and notifications.
class RNBluetoothPeripheralDelegate {
public:
    virtual ~RNBluetoothPeripheralDelegate();
    virtual void peripheralDidDiscoverServices(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                               const RNBluetoothOptionalError& error) = 0;
    virtual void peripheralDidDiscoverCharacteristicsForService(
        const std::shared_ptr<RNBluetoothPeripheral>& peripheral, const std::shared_ptr<RNBluetoothService>& service,
        const RNBluetoothOptionalError& error) = 0;
    virtual void peripheralDidDiscoverDescriptorsForCharacteristic(
        const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
        const std::shared_ptr<RNBluetoothCharacteristic>& characteristic, const RNBluetoothOptionalError& error) = 0;
    virtual void peripheralDidUpdateValueForDescriptor(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                                       const std::shared_ptr<RNBluetoothDescriptor>& descriptor,
                                                       const RNBluetoothOptionalError& error) = 0;
    virtual void peripheralDidUpdateValueForCharacteristic(
        const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
        const std::shared_ptr<RNBluetoothCharacteristic>& characteristic, const RNBluetoothOptionalError& error) = 0;
};

// One remote device. One device is one object for as long as the central manager knows it.
class RNBluetoothPeripheral : public std::enable_shared_from_this<RNBluetoothPeripheral> {
public:
    virtual ~RNBluetoothPeripheral();

    // The advertised name; may be empty.
    virtual std::string name() const = 0;
    // One of the CBPeripheralState values.
    virtual std::int64_t state() const = 0;
    // The platform's identifier of the device; nullopt where the platform has none.
    virtual std::optional<std::string> identifier() const = 0;
    // The services discovered so far.
    virtual std::vector<std::shared_ptr<RNBluetoothService>> services() const = 0;

    // nullopt: every service.
    virtual void discoverServices(const std::optional<std::vector<std::string>>& serviceUUIDs) = 0;
    virtual void discoverCharacteristics(const std::shared_ptr<RNBluetoothService>& service) = 0;
    virtual void discoverDescriptorsForCharacteristic(
        const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) = 0;
    virtual void readValueForDescriptor(const std::shared_ptr<RNBluetoothDescriptor>& descriptor) = 0;
    virtual void setNotifyValue(bool enabled, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) = 0;
    virtual void writeValue(ByteView value, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic,
                            std::int64_t type) = 0;
    // The largest value one write of the type carries; nullopt where the platform cannot tell.
    virtual std::optional<std::uint64_t> maximumWriteValueLengthForType(std::int64_t type) const = 0;

    std::weak_ptr<RNBluetoothPeripheralDelegate> delegate;

    // Kept on the object for the transport: the characteristics found on the Havrel service,
    // by UUID text. A later connection to the same object finds them.
    std::map<std::string, std::shared_ptr<RNBluetoothCharacteristic>> hvCharicateristics;
    // The platform identifier, or a random UUID made on the first read where there is none;
    // the same text for the life of the object.
    const std::string& hvIdentifier();

    // "<name> (<identifier>)", for log lines.
    std::string description();

private:
    std::optional<std::string> hvIdentifier_;
};

// The identifier text of a peripheral.
std::string idFromParipheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral);

class RNBluetoothCentralManagerDelegate {
public:
    virtual ~RNBluetoothCentralManagerDelegate();
    virtual void centralManagerDidUpdateState(std::int64_t state) = 0;
    virtual void centralManagerDidDiscoverPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                                     const Dictionary& advertisementData, std::int64_t RSSI) = 0;
    virtual void centralManagerDidConnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) = 0;
    virtual void centralManagerDidFailToConnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                                          const RNBluetoothOptionalError& error) = 0;
    virtual void centralManagerDidDisconnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                                       const RNBluetoothOptionalError& error) = 0;
    virtual void centralManagerDidRetrievePeripherals(
        const std::vector<std::shared_ptr<RNBluetoothPeripheral>>& peripherals) = 0;
};

class RNBluetoothCentralManager {
public:
    virtual ~RNBluetoothCentralManager();
    virtual std::int64_t state() const = 0;
    // nullopt: every service. Repeated sightings of one device are reported only when
    // allowDuplicates is set.
    virtual void scanForPeripheralsWithServices(const std::optional<std::vector<std::string>>& serviceUUIDs,
                                                bool allowDuplicates) = 0;
    virtual void stopScan() = 0;
    virtual void connectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                   bool notifyOnConnection, bool notifyOnDisconnection) = 0;
    virtual void cancelPeripheralConnection(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) = 0;
};

// What makes central managers: the backend of this process. Until a host or a test sets one,
// the shared platform is a radio-less one whose managers report CBManagerStateUnsupported.
class RNBluetoothPlatform {
public:
    virtual ~RNBluetoothPlatform();
    // A new central manager that reports to the delegate on the main queue, its first report
    // being its state.
    virtual std::shared_ptr<RNBluetoothCentralManager> makeCentralManager(
        std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate) = 0;

    static std::shared_ptr<RNBluetoothPlatform> shared();
    // nullptr restores the radio-less platform.
    static void setShared(std::shared_ptr<RNBluetoothPlatform> platform);
};

}  // namespace havrel
