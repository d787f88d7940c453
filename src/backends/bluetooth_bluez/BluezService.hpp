#pragma once
// A GATT service of a device, as BlueZ lists it, with its characteristics.

#include "backends/bluetooth_bluez/BluezCharacteristic.hpp"
#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include <memory>
#include <string>
#include <vector>

namespace havrel {

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

}  // namespace havrel
