#include "backends/bluetooth_bluez/BluezPeripheral.hpp"

#include "backends/bluetooth_bluez/BluezBluetoothPlatform.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <algorithm>

namespace havrel {

namespace {

// The longest value a write with response carries.
constexpr std::uint64_t kMaximumWriteWithResponse = 512;
// The ATT header of a write without response.
constexpr std::uint16_t kWriteHeaderLength = 3;
constexpr std::uint16_t kMinimumMTU = 23;

}  // namespace

std::string BluezPeripheral::name() const {
    if (properties_.name) {
        return *properties_.name;
    }
    return std::string();
}

std::optional<std::string> BluezPeripheral::identifier() const {
    return properties_.address;
}

std::vector<std::shared_ptr<RNBluetoothService>> BluezPeripheral::services() const {
    if (!properties_.servicesResolved.value_or(false)) {
        return {};
    }
    return {bluezServices.begin(), bluezServices.end()};
}

void BluezPeripheral::addService(const std::shared_ptr<BluezService>& service) {
    if (std::find(bluezServices.begin(), bluezServices.end(), service) == bluezServices.end()) {
        bluezServices.push_back(service);
    }
}

void BluezPeripheral::deliver(
    std::function<void(RNBluetoothPeripheralDelegate&, const std::shared_ptr<RNBluetoothPeripheral>&)> call) {
    std::weak_ptr<RNBluetoothPeripheral> weak = weak_from_this();
    MainQueue::shared().post([weak, call = std::move(call)] {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        if (auto target = self->delegate.lock()) {
            call(*target, self);
        }
    });
}

void BluezPeripheral::discoverServices(const std::optional<std::vector<std::string>>& /*serviceUUIDs*/) {
    if (!linked()) {
        return;
    }
    // BlueZ discovers every service of a device by itself; the list is whole once it says so.
    if (properties_.servicesResolved.value_or(false)) {
        deliver([](RNBluetoothPeripheralDelegate& target, const std::shared_ptr<RNBluetoothPeripheral>& self) {
            target.peripheralDidDiscoverServices(self, std::nullopt);
        });
    } else {
        servicesRequested = true;
    }
}

void BluezPeripheral::discoverCharacteristics(const std::shared_ptr<RNBluetoothService>& service) {
    const auto own = std::dynamic_pointer_cast<BluezService>(service);
    if (!linked() || !own || std::find(bluezServices.begin(), bluezServices.end(), own) == bluezServices.end()) {
        return;
    }
    deliver([service](RNBluetoothPeripheralDelegate& target, const std::shared_ptr<RNBluetoothPeripheral>& self) {
        target.peripheralDidDiscoverCharacteristicsForService(self, service, std::nullopt);
    });
}

void BluezPeripheral::discoverDescriptorsForCharacteristic(
    const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) {
    if (!linked() || !std::dynamic_pointer_cast<BluezCharacteristic>(characteristic)) {
        return;
    }
    deliver([characteristic](RNBluetoothPeripheralDelegate& target, const std::shared_ptr<RNBluetoothPeripheral>& self) {
        target.peripheralDidDiscoverDescriptorsForCharacteristic(self, characteristic, std::nullopt);
    });
}

void BluezPeripheral::readValueForDescriptor(const std::shared_ptr<RNBluetoothDescriptor>& descriptor) {
    auto own = std::dynamic_pointer_cast<BluezDescriptor>(descriptor);
    auto platform = platform_.lock();
    if (!linked() || !own || !platform) {
        return;
    }
    std::weak_ptr<RNBluetoothPeripheral> weak = weak_from_this();
    platform->call(
        own->path(), kBluezDescriptorInterface, "ReadValue",
        [](sdbus::MethodCall& message) { message << std::map<std::string, sdbus::Variant>{}; }, true,
        [weak, own](const RNBluetoothOptionalError& error, const Bytes& value) {
            auto self = weak.lock();
            if (!self) {
                return;
            }
            if (!error) {
                own->setValue(value);
            }
            if (auto target = self->delegate.lock()) {
                target->peripheralDidUpdateValueForDescriptor(self, own, error);
            }
        });
}

void BluezPeripheral::setNotifyValue(bool enabled, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) {
    auto own = std::dynamic_pointer_cast<BluezCharacteristic>(characteristic);
    auto platform = platform_.lock();
    if (!linked() || !own || !platform) {
        return;
    }
    platform->call(own->path(), kBluezCharacteristicInterface, enabled ? "StartNotify" : "StopNotify", nullptr, false,
                   [own, enabled](const RNBluetoothOptionalError& error, const Bytes&) {
                       if (error) {
                           logf("Bluetooth: could not turn notification {} for {}: {}", enabled ? "on" : "off",
                                own->UUID(), error->description);
                           return;
                       }
                       own->setNotifying(enabled);
                   });
}

void BluezPeripheral::writeValue(ByteView value, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic,
                                 std::int64_t type) {
    auto own = std::dynamic_pointer_cast<BluezCharacteristic>(characteristic);
    auto platform = platform_.lock();
    if (!linked() || !own || !platform) {
        return;
    }
    std::vector<std::uint8_t> bytes(value.begin(), value.end());
    const std::string kind = type == CBCharacteristicWriteWithoutResponse ? "command" : "request";
    platform->call(
        own->path(), kBluezCharacteristicInterface, "WriteValue",
        [bytes = std::move(bytes), kind](sdbus::MethodCall& message) {
            message << bytes << std::map<std::string, sdbus::Variant>{{"type", sdbus::Variant(kind)}};
        },
        false, [own](const RNBluetoothOptionalError& error, const Bytes&) {
            if (error) {
                logf("Bluetooth: write to {} failed: {}", own->UUID(), error->description);
            }
        });
}

std::optional<std::uint64_t> BluezPeripheral::maximumWriteValueLengthForType(std::int64_t type) const {
    if (type == CBCharacteristicWriteWithResponse) {
        return kMaximumWriteWithResponse;
    }
    for (const auto& service : bluezServices) {
        for (const auto& characteristic : service->bluezCharacteristics()) {
            if (characteristic->mtu && *characteristic->mtu >= kMinimumMTU) {
                return *characteristic->mtu - kWriteHeaderLength;
            }
        }
    }
    return std::nullopt;
}

}  // namespace havrel
