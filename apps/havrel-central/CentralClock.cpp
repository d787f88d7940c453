#include "CentralClock.hpp"

#include "musical_time/HVClock.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"

namespace havrel {

std::shared_ptr<CentralClock> CentralClock::create(std::shared_ptr<HVStepOutput> output) {
    auto clock = std::make_shared<CentralClock>(std::move(output));
    std::weak_ptr<CentralClock> weak = clock;
    // Ticks are told on the main queue; while the clock follows MIDI, each is MIDI's.
    NotificationCenter::defaultCenter().addObserver(clock.get(), HVMIDIQNNotification, nullptr,
                                                    [weak](const Notification&) {
                                                        auto self = weak.lock();
                                                        if (self && HVClock::shared()->clockSource() ==
                                                                        HVClockSource::externalClock) {
                                                            self->lastExternalTick_ = MainQueue::shared().now();
                                                        }
                                                    });
    return clock;
}

CentralClock::~CentralClock() {
    NotificationCenter::defaultCenter().removeObserver(this);
}

bool CentralClock::canHandBack() const {
    if (HVClock::shared()->clockSource() != HVClockSource::externalClock) {
        return false;
    }
    return !lastExternalTick_ || MainQueue::shared().now() - *lastExternalTick_ >= kQuietBeforeHandBack;
}

std::string CentralClock::handBack() {
    if (HVClock::shared()->clockSource() != HVClockSource::externalClock) {
        return "the clock already runs on its own timer";
    }
    if (!canHandBack()) {
        return "MIDI clock still arrives; the clock follows it";
    }
    const auto old = HVClock::shared();
    auto fresh = HVClock::create();
    fresh->setBpm(old->bpm());
    HVClock::setShared(fresh);
    lastExternalTick_.reset();
    if (output_) {
        output_->followClock(fresh);
        output_->setTransportStopped(false);
        output_->allNotesOff();
    }
    logf("havrel-central: the clock runs on its own timer again, at {} BPM, paused", fresh->bpm());
    return "";
}

}  // namespace havrel
