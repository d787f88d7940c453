#include "musical_output/HVTempoPositionForwarder.hpp"

#include "midi_service/HVMIDIHandOff.hpp"
#include "platform/MainQueue.hpp"

namespace havrel {

std::shared_ptr<HVTempoPositionForwarder> HVTempoPositionForwarder::install(const std::shared_ptr<HVMIDIManager>& manager,
                                                                            USBManagerSource usbManager) {
    auto forwarder = std::make_shared<HVTempoPositionForwarder>(std::move(usbManager));
    if (!manager) {
        return forwarder;
    }
    std::weak_ptr<HVTempoPositionForwarder> weak = forwarder;
    // Both run on the MIDI receive thread; the channels live on the main queue, reached through
    // a bounded hand-off.
    auto handOff = std::make_shared<HVMIDIHandOff>(MainQueue::shared());
    auto onMainQueue = [weak, handOff](auto send) {
        handOff->post([weak, send] {
            auto self = weak.lock();
            if (!self) {
                return;
            }
            if (auto usb = self->usbManager_()) {
                send(*usb);
            }
        });
    };
    manager->registerForQNChangesWithRegistrar(forwarder, [](std::uint64_t) {});
    manager->registerForTempoChangesWithRegistrar(
        forwarder, nullptr,
        [onMainQueue](double position, std::int32_t, std::int32_t, std::int32_t) {
            onMainQueue([position](HVCentralUSBManager& usb) { usb.sendPositionToEveryClient(position); });
        },
        [onMainQueue](double tempo) {
            onMainQueue([tempo](HVCentralUSBManager& usb) { usb.sendTempoToEveryClient(tempo); });
        });
    return forwarder;
}

}  // namespace havrel
