#include "musical_time/HVClock.hpp"

#include "midi_service/HVMIDIHandOff.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "platform/Assert.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/SerialQueue.hpp"
#include "platform/ThreadPriority.hpp"

#include <cmath>
#include <limits>

namespace havrel {

SharedSlot<HVClock>& HVClock::sharedSlot() {
    static SharedSlot<HVClock> slot([] { return HVClock::create(); });
    return slot;
}

std::shared_ptr<HVClock> HVClock::shared() {
    return sharedSlot().get();
}

void HVClock::setShared(std::shared_ptr<HVClock> clock) {
    sharedSlot().set(std::move(clock));
}

std::shared_ptr<HVClock> HVClock::create() {
    auto clock = std::make_shared<HVClock>();
    auto manager = HVMIDIManager::shared();
    if (!manager) {
        return clock;
    }
    std::weak_ptr<HVClock> weak = clock;
    // Ticks first, then tempo: the other order would lose the tick callback.
    manager->registerForQNChangesWithRegistrar(clock, [weak](std::uint64_t total) {
        if (auto self = weak.lock()) {
            self->externalTick(total);
        }
    });
    manager->registerForTempoChangesWithRegistrar(
        clock,
        [weak](bool running) {
            if (auto self = weak.lock()) {
                self->setRunning(running);
            }
        },
        [weak](double position, std::int32_t bar, std::int32_t beat, std::int32_t division) {
            if (weak.lock()) {
                logDiagf("position  {}:{}:{}:{})", position, bar, beat, division);
            }
        },
        [weak](double tempo) {
            if (weak.lock()) {
                logDiagf("tempo {}", tempo);
            }
        });
    return clock;
}

HVClock::~HVClock() {
    std::lock_guard lock(mutex_);
    cancelTimerLocked();
    // A queue cannot end itself: when the last holder lets go on the clock's own thread, the
    // queue ends on the main queue.
    if (queue_ && queue_->isCurrent()) {
        MainQueue::shared().post([queue = std::move(queue_)] {});
    }
}

HVClockSource HVClock::clockSource() const {
    std::lock_guard lock(mutex_);
    return clockSource_;
}

void HVClock::setClockSource(HVClockSource source) {
    std::lock_guard lock(mutex_);
    clockSource_ = source;
    if (source == HVClockSource::externalClock) {
        cancelTimerLocked();
    }
}

double HVClock::bpm() const {
    std::lock_guard lock(mutex_);
    return bpm_;
}

void HVClock::setBpm(double bpm) {
    {
        std::lock_guard lock(mutex_);
        bpm_ = bpm;
        if (!isRunning_) {
            return;
        }
        cancelTimerLocked();
    }
    start();
}

bool HVClock::hasTimer() const {
    std::lock_guard lock(mutex_);
    return timerActive_;
}

void HVClock::start() {
    setRunning(true);
    std::unique_lock lock(mutex_);
    if (!queue_) {
        queue_ = SerialQueue::create(kQueueLabel);
        queue_->post([] {
            if (const auto refusal = raiseCurrentThreadToRealTimePriority(); !refusal.empty()) {
                logf("[HVClock] {} runs at normal priority: real-time priority refused ({})", kQueueLabel, refusal);
            }
        });
    }
    if (timerActive_) {
        return;
    }
    HV_ASSERT(std::isfinite(bpm_) && bpm_ > 0);
    timerActive_ = true;
    periodSeconds_ = quantiomToSecondsInterval(bpmToQuantiom(bpm_));
    timerStart_ = queue_->now();
    const auto generation = generation_;
    lock.unlock();
    schedule(generation, 0);
}

void HVClock::pause() {
    setRunning(false);
    std::lock_guard lock(mutex_);
    cancelTimerLocked();
}

bool HVClock::isCurrentTimer(std::uint64_t generation) const {
    std::lock_guard lock(mutex_);
    return timerActive_ && generation == generation_;
}

void HVClock::cancelTimerLocked() {
    timerActive_ = false;
    ++generation_;
}

// Deadline k of the timer: start + k × period, rounded to the clock's resolution from the
// start each time, so no error accumulates.
void HVClock::schedule(std::uint64_t generation, std::uint64_t k) {
    std::shared_ptr<SerialQueue> queue;
    Clock::TimePoint deadline;
    {
        std::lock_guard lock(mutex_);
        if (!timerActive_ || generation != generation_ || !queue_) {
            return;
        }
        queue = queue_;
        deadline = timerStart_ + std::chrono::duration_cast<Clock::Duration>(
                                     std::chrono::duration<double>(periodSeconds_ * static_cast<double>(k)));
    }
    std::weak_ptr<HVClock> weak = weak_from_this();
    const auto clock = queue->clock();
    if (clock->isManual()) {
        queue->postAt(deadline, [weak, generation, k] {
            if (auto self = weak.lock()) {
                self->fire(generation, k);
            }
        });
        return;
    }
    // A thread's wake-up comes tens of microseconds after the time asked for, so the queue wakes
    // this much early and the last stretch to the deadline is waited out on the thread.
    // The spin is only for a timer still running: one paused or re-timed meanwhile returns at once.
    queue->postAt(deadline - kWakeAhead, [weak, generation, k, clock, deadline] {
        auto self = weak.lock();
        if (!self || !self->isCurrentTimer(generation)) {
            return;
        }
        while (clock->now() < deadline) {
        }
        self->fire(generation, k);
    });
}

void HVClock::fire(std::uint64_t generation, std::uint64_t k) {
    Clock::TimePoint deadline;
    std::uint64_t next = k + 1;
    {
        std::lock_guard lock(mutex_);
        if (!timerActive_ || generation != generation_) {
            return;
        }
        const auto period = std::chrono::duration<double>(periodSeconds_);
        deadline = timerStart_ + std::chrono::duration_cast<Clock::Duration>(period * static_cast<double>(k));
        // A fire more than a period late skips the deadlines it missed instead of bunching them.
        const auto now = queue_->now();
        const double behind = std::chrono::duration<double>(now - timerStart_) / period;
        if (behind >= static_cast<double>(next)) {
            next = static_cast<std::uint64_t>(behind) + 1;
        }
    }
    internalTick(deadline);
    schedule(generation, next);
}

void HVClock::internalTick(Clock::TimePoint deadline) {
    if (internalTickObserver) {
        internalTickObserver(deadline);
    }
    // The count wraps one short of the largest 64-bit number.
    const auto current = midiQN_.load();
    midiQN_.store(current == std::numeric_limits<std::uint64_t>::max() - 1 ? 0 : current + 1);
    std::weak_ptr<HVClock> weak = weak_from_this();
    MainQueue::shared().post([weak] {
        // The value is read as the notification is posted.
        if (auto self = weak.lock()) {
            NotificationCenter::defaultCenter().post(HVMIDIQNNotification, nullptr,
                                                     {{HVMIDIQNNotification, self->midiQN_.load()}});
        }
    });
}

void HVClock::externalTick(std::uint64_t total) {
    setClockSource(HVClockSource::externalClock);
    midiQN_.store(total);
    postTick(total);
}

namespace {

// What MIDI clock brings from the receive queues to the main queue: bounded, a flood of clock
// is dropped and counted rather than queued.
HVMIDIHandOff& receivedClockHandOff() {
    static HVMIDIHandOff handOff(MainQueue::shared());
    return handOff;
}

}  // namespace

void HVClock::postTick(std::uint64_t value) {
    receivedClockHandOff().post([value] {
        NotificationCenter::defaultCenter().post(HVMIDIQNNotification, nullptr, {{HVMIDIQNNotification, value}});
    });
}

void HVClock::setRunning(bool running) {
    isRunning_.store(running);
    std::vector<std::function<void(bool)>> observers;
    {
        std::lock_guard lock(mutex_);
        observers = runningObservers_;
    }
    if (observers.empty()) {
        return;
    }
    receivedClockHandOff().post([observers = std::move(observers), running] {
        for (const auto& observer : observers) {
            observer(running);
        }
    });
}

void HVClock::addRunningObserver(std::function<void(bool running)> observer) {
    std::lock_guard lock(mutex_);
    runningObservers_.push_back(std::move(observer));
}

}  // namespace havrel
