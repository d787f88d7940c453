#include "backends/bluetooth_bluez/BluezService.hpp"

#include <algorithm>

namespace havrel {

std::vector<std::shared_ptr<RNBluetoothCharacteristic>> BluezService::characteristics() const {
    return {characteristics_.begin(), characteristics_.end()};
}

void BluezService::addCharacteristic(const std::shared_ptr<BluezCharacteristic>& characteristic) {
    if (std::find(characteristics_.begin(), characteristics_.end(), characteristic) == characteristics_.end()) {
        characteristics_.push_back(characteristic);
    }
}

}  // namespace havrel
