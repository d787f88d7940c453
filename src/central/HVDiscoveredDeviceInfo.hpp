#pragma once
// One row of the Bluetooth device list shown to the user. It has no wire form.

#include <string>

namespace havrel {

struct HVDiscoveredDeviceInfo {
    std::string identifier;
    std::string name;
    std::string subtitle;

    bool operator==(const HVDiscoveredDeviceInfo&) const = default;
};

}  // namespace havrel
