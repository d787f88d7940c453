#pragma once
// A GATT characteristic of a device, as BlueZ lists it: its value, whether it notifies, the
// link's MTU where BlueZ tells it, and its descriptors.

#include "backends/bluetooth_bluez/BluezDescriptor.hpp"
#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

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

}  // namespace havrel
