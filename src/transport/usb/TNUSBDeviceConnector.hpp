#pragma once
// What a frame channel needs of the USB multiplexer hub: a connect to a port on a device that
// hands over the tunnel. On success the start callback receives the connected socket's file
// descriptor, which from then on carries the device port's bytes and belongs to the receiver
// (it must close it); on failure it receives the error and -1. The callback runs on the main
// queue, exactly once.

#include "transport/usb/TNError.hpp"

#include <cstdint>
#include <functional>

namespace havrel {

class TNUSBDeviceConnector {
public:
    using StartCallback = std::function<void(TNOptionalError error, int fileDescriptor)>;

    virtual ~TNUSBDeviceConnector() = default;

    virtual void connectToDevice(std::int64_t deviceID, std::int32_t port, StartCallback onStart) = 0;
};

}  // namespace havrel
