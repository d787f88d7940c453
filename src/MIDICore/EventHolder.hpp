#pragma once
// EventHolder keeps one event back for a short time. When the time-out passes with the event
// still held, the expiration task takes it and hands it to `timerExpired` with the time stamp
// and source it was held with. Taking the event (a merge) and the expiration are race-free: both
// take it under one lock, and a generation count makes an expiration scheduled for an event
// that was since taken or replaced do nothing. The task holds the holder weakly, so a holder
// that is destroyed never fires.
//
// The expiration runs on the given queue through its own clock (asyncAfter), so a queue with a
// manual clock drives it in tests. `timerExpired` is called on that queue, outside the lock.

#include "MIDICore/MIDIEvent.hpp"
#include "MIDIInternals/DispatchQueue.hpp"
#include "MIDIInternals/Fatal.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace MIDICore {

template <class Event, class TimeStamp, class Source>
class EventHolder {
public:
    using TimerExpired = std::function<void(MIDIEvent event, TimeStamp timeStamp, std::optional<Source> source)>;
    struct StoredEvent {
        Event event;
        TimeStamp timeStamp;
        std::optional<Source> source;
    };

    // `timeOut` in seconds.
    EventHolder(std::shared_ptr<MIDIInternals::DispatchQueue> queue, double timeOut, TimerExpired timerExpired)
        : queue_(std::move(queue)), state_(std::make_shared<State>()) {
        if (!queue_) {
            MIDIInternals::fatalError("EventHolder needs a queue for its expiration task");
        }
        state_->timeOut = timeOut;
        state_->timerExpired = std::move(timerExpired);
    }
    EventHolder(const EventHolder&) = delete;
    EventHolder& operator=(const EventHolder&) = delete;

    // The held payload as an event.
    static MIDIEvent storedEventWrapper(const Event& event) { return MIDIEvent(event); }

    double timeOut() const {
        std::lock_guard lock(state_->mutex);
        return state_->timeOut;
    }
    void setTimeOut(double seconds) {
        std::lock_guard lock(state_->mutex);
        state_->timeOut = seconds;
    }

    // Holds an event (replacing any held one, which is lost) and starts its expiration task.
    void hold(Event event, TimeStamp timeStamp, std::optional<Source> source) {
        unsigned long generation = 0;
        double seconds = 0;
        {
            std::lock_guard lock(state_->mutex);
            state_->stored = StoredEvent{std::move(event), std::move(timeStamp), std::move(source)};
            generation = ++state_->generation;
            seconds = state_->timeOut;
        }
        auto delay = std::chrono::duration_cast<MIDIInternals::DispatchQueue::Duration>(
            std::chrono::nanoseconds(static_cast<long long>(seconds * 1'000'000'000.0)));
        std::weak_ptr<State> weak = state_;
        queue_->asyncAfter(delay, [weak, generation] { expire(weak, generation); });
    }

    // Takes the held event, if any; its expiration task will then do nothing.
    std::optional<StoredEvent> take() {
        std::lock_guard lock(state_->mutex);
        return takeLocked(*state_);
    }

    bool holding() const {
        std::lock_guard lock(state_->mutex);
        return state_->stored.has_value();
    }

private:
    struct State {
        mutable std::mutex mutex;
        std::optional<StoredEvent> stored;
        unsigned long generation = 0;
        double timeOut = 0;
        TimerExpired timerExpired;
    };

    static std::optional<StoredEvent> takeLocked(State& state) {
        std::optional<StoredEvent> taken;
        taken.swap(state.stored);
        ++state.generation;
        return taken;
    }

    static void expire(const std::weak_ptr<State>& weak, unsigned long generation) {
        auto state = weak.lock();
        if (!state) {
            return;
        }
        std::optional<StoredEvent> taken;
        TimerExpired handler;
        {
            std::lock_guard lock(state->mutex);
            if (state->generation != generation || !state->stored) {
                return;
            }
            taken = takeLocked(*state);
            handler = state->timerExpired;
        }
        if (handler) {
            handler(storedEventWrapper(taken->event), std::move(taken->timeStamp), std::move(taken->source));
        }
    }

    std::shared_ptr<MIDIInternals::DispatchQueue> queue_;
    std::shared_ptr<State> state_;
};

}  // namespace MIDICore
