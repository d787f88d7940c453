#include "backends/bluetooth_bluez/BluezCharacteristic.hpp"

#include <algorithm>

namespace havrel {

std::vector<std::shared_ptr<RNBluetoothDescriptor>> BluezCharacteristic::descriptors() const {
    return {descriptors_.begin(), descriptors_.end()};
}

void BluezCharacteristic::addDescriptor(const std::shared_ptr<BluezDescriptor>& descriptor) {
    if (std::find(descriptors_.begin(), descriptors_.end(), descriptor) == descriptors_.end()) {
        descriptors_.push_back(descriptor);
    }
}

}  // namespace havrel
