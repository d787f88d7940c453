#pragma once
// Sends the tempo and song position that the MIDI manager follows from incoming MIDI clock to
// every USB client, as frames 112 and 113, so a client shows the tempo of the application that
// sends clock; and, once asked, those of the musical clock while it runs on its own timer.
// Installed by the host after the MIDI manager's set-up.

#include "midi_service/HVMIDIManager.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace havrel {

class HVTempoPositionForwarder : public std::enable_shared_from_this<HVTempoPositionForwarder> {
public:
    using USBManagerSource = std::function<std::shared_ptr<HVCentralUSBManager>()>;

    // Registers with the manager: for ticks first (a registration without a tick callback is
    // dropped at the first tick), then for tempo and position, each change handed to the main
    // queue and sent to the USB manager there is then.
    static std::shared_ptr<HVTempoPositionForwarder> install(const std::shared_ptr<HVMIDIManager>& manager,
                                                             USBManagerSource usbManager = &HVCentralUSBManager::shared);

    // Also sends what the shared musical clock does on its own timer (main queue): its tempo at
    // its first tick and whenever it changes, and its position in sixteenths at every sixth tick.
    void forwardInternalClock();

    explicit HVTempoPositionForwarder(USBManagerSource usbManager) : usbManager_(std::move(usbManager)) {}
    ~HVTempoPositionForwarder();

private:
    void internalTick(std::uint64_t count);

    USBManagerSource usbManager_;
    std::optional<double> internalTempoSent_;
    bool forwardingInternal_ = false;
};

}  // namespace havrel
