#pragma once
// A one-shot or repeating timer on a work queue (main or serial), timed by the queue's clock.
// Like a run-loop timer, a scheduled timer is kept alive by its queue until it is invalidated
// (or, one-shot, until it fires): a holder that goes away must invalidate it.
//
// A repeating timer keeps its period from its first due time (due, due + interval, ...), so in
// virtual time a 1 s timer fires exactly five times in 5 s. On the steady clock a timer that
// falls more than a period behind skips the missed fires instead of bunching them.
//
// A timer whose interval is a second or more may fire up to a tenth of its interval late (on
// the steady clock), so that such timers share the queue's wake-ups; never early.
//
// Scheduling again to a later time than the one already waiting on the queue posts nothing:
// the waiting fire finds the later due time and waits again for it. So a timer pushed back by
// every event of a burst costs the queue one entry per interval, not one per event.

#include "platform/WorkQueue.hpp"

#include <functional>
#include <memory>
#include <mutex>

namespace havrel {

class Timer : public std::enable_shared_from_this<Timer> {
public:
    using Duration = Clock::Duration;
    using Callback = std::function<void()>;

    // A timer that is not yet scheduled. The queue must outlive the scheduling calls; a timer
    // whose queue is gone no longer fires.
    static std::shared_ptr<Timer> create(WorkQueue& queue, Duration interval, bool repeats,
                                         Callback callback);
    // Created and scheduled at once: first fire after one interval.
    static std::shared_ptr<Timer> scheduled(WorkQueue& queue, Duration interval, bool repeats,
                                            Callback callback);

    // (Re)starts the timer from now: first fire after the interval, or after initialDelay
    // (zero: at once, on the queue). Any earlier schedule is dropped. Any thread.
    void schedule();
    void schedule(Duration initialDelay);
    // Sets a new interval and schedules again from now.
    void rearm(Duration interval);
    // Stops the timer. Called on the timer's queue, no callback runs after it returns; from
    // another thread, no callback starts after it returns (one in progress may finish).
    void invalidate();
    // Scheduled, and neither invalidated nor (one-shot) fired.
    bool isValid() const;

    Duration interval() const;
    bool repeats() const { return repeats_; }

    Timer(std::weak_ptr<WorkQueue> queue, Duration interval, bool repeats, Callback callback);

private:
    void arm(std::shared_ptr<WorkQueue> queue, Clock::TimePoint due, std::uint64_t generation);
    void fire(std::uint64_t generation);

    const std::weak_ptr<WorkQueue> queue_;
    const bool repeats_;
    const Callback callback_;
    mutable std::mutex mutex_;
    Duration interval_;
    Clock::TimePoint due_{};
    Clock::TimePoint postedDue_{};  // due time of the fire waiting on the queue
    bool posted_ = false;           // a fire of the current generation waits on the queue
    std::uint64_t generation_ = 0;  // bumped by every schedule and invalidate
    bool valid_ = false;
};

}  // namespace havrel
