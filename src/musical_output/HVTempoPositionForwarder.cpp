#include "musical_output/HVTempoPositionForwarder.hpp"

#include "midi_service/HVMIDIHandOff.hpp"
#include "musical_time/HVClock.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"

#include <utility>

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

HVTempoPositionForwarder::~HVTempoPositionForwarder() {
    if (forwardingInternal_) {
        NotificationCenter::defaultCenter().removeObserver(this);
    }
}

void HVTempoPositionForwarder::forwardInternalClock() {
    if (std::exchange(forwardingInternal_, true)) {
        return;
    }
    std::weak_ptr<HVTempoPositionForwarder> weak = weak_from_this();
    NotificationCenter::defaultCenter().addObserver(this, HVMIDIQNNotification, nullptr,
                                                    [weak](const Notification& notification) {
                                                        const auto it = notification.userInfo.find(HVMIDIQNNotification);
                                                        auto self = weak.lock();
                                                        if (self && it != notification.userInfo.end() &&
                                                            it->is_number_unsigned()) {
                                                            self->internalTick(it->get<std::uint64_t>());
                                                        }
                                                    });
}

void HVTempoPositionForwarder::internalTick(std::uint64_t count) {
    const auto clock = HVClock::shared();
    if (clock->clockSource() != HVClockSource::internalClock) {
        // MIDI clock's own tempo goes out from the manager; the internal one is told afresh
        // should it come back.
        internalTempoSent_.reset();
        return;
    }
    const auto usb = usbManager_();
    if (!usb) {
        return;
    }
    if (const double tempo = clock->bpm(); internalTempoSent_ != tempo) {
        usb->sendTempoToEveryClient(tempo);
        internalTempoSent_ = tempo;
    }
    if (count % 6 == 0) {
        usb->sendPositionToEveryClient(static_cast<double>(count / 6));
    }
}

}  // namespace havrel
