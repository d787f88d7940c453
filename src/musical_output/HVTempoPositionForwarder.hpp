#pragma once
// Sends the tempo and song position that the MIDI manager follows from incoming MIDI clock to
// every USB client, as frames 112 and 113, so a client shows the tempo of the application that
// sends clock. Installed by the host after the MIDI manager's set-up.

#include "midi_service/HVMIDIManager.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"

#include <functional>
#include <memory>

namespace havrel {

class HVTempoPositionForwarder : public std::enable_shared_from_this<HVTempoPositionForwarder> {
public:
    using USBManagerSource = std::function<std::shared_ptr<HVCentralUSBManager>()>;

    // Registers with the manager: for ticks first (a registration without a tick callback is
    // dropped at the first tick), then for tempo and position, each change handed to the main
    // queue and sent to the USB manager there is then.
    static std::shared_ptr<HVTempoPositionForwarder> install(const std::shared_ptr<HVMIDIManager>& manager,
                                                             USBManagerSource usbManager = &HVCentralUSBManager::shared);

    explicit HVTempoPositionForwarder(USBManagerSource usbManager) : usbManager_(std::move(usbManager)) {}

private:
    USBManagerSource usbManager_;
};

}  // namespace havrel
