#pragma once
// A BlueZ device object as a peripheral: its calls go to the platform, which runs them on the bus
// thread; its delegate is called on the main queue.

#include "backends/bluetooth_bluez/BluezProperties.hpp"
#include "backends/bluetooth_bluez/BluezService.hpp"
#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class BluezBluetoothPlatform;
class BluezCentralManager;

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

}  // namespace havrel
