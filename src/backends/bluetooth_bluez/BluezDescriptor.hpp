#pragma once
// A GATT descriptor of a device, as BlueZ lists it; its value is what the last read returned.

#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include <string>

namespace havrel {

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

}  // namespace havrel
