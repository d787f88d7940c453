#pragma once
// The main queue: one io_context that the host runs on its main thread. Transports, the
// registry, dispatch and most timers live here. Any thread may post to it; work runs in order
// of posting (first in, first out for each poster).
//
// Its thread, the main thread, is the one that made it or last ran it (run, runFor, poll, or an
// advance of its manual clock): isCurrent() is true there, inside work and out, so that work for
// the main queue started on the main thread runs in place. The MIDI library asks the same
// question through its DispatchQueue interface.
//
// Test mode: enableManualClock() gives the queue a manual clock. advance(d) then runs, on the
// calling thread, everything that falls due within d in due order, including what that work
// posts, without sleeping; that thread is then the main queue's thread, and nothing calls
// run() meanwhile. Serial queues created afterwards share the manual clock.

#include "platform/WorkQueue.hpp"

#include <atomic>
#include <cstddef>
#include <thread>
#include <memory>

namespace havrel {

class MainQueue final : public WorkQueue {
public:
    static MainQueue& shared();

    // Runs the queue on the calling thread until stop(). The calling thread is then the main
    // queue's thread: isCurrent() is true there, inside work and out.
    void run();
    // Runs the queue for the duration on its clock: real time on the steady clock, advance()
    // on a manual clock. Returns the number of items run.
    std::size_t runFor(Duration duration);
    // Runs what is ready now (and, on a manual clock, what is due now) without waiting.
    std::size_t poll();
    // Makes run() return once the item in progress is done. Any thread.
    void stop();

    // True in the queue's work and on its thread (see above).
    bool isCurrent() const override;

    // Test mode. Discards pending work, installs a new manual clock and returns it.
    std::shared_ptr<ManualClock> enableManualClock();
    // The manual clock, or nullptr on the steady clock.
    std::shared_ptr<ManualClock> manualClock() const;
    // Advances the manual clock (the queue must have one).
    void advance(Duration duration);

    // For tests: discards every pending item and timer and goes back to the steady clock.
    // Only while no thread runs the queue; Asio objects made on context() before must be gone.
    void resetForTesting();

private:
    struct Key {};  // only shared() makes the main queue

public:
    MainQueue(Key, std::shared_ptr<Clock> clock);

private:
    std::size_t runDueWork() override;
    std::size_t pollReady();
    // Makes the calling thread the main queue's thread.
    void adoptCallingThread();

    std::atomic<std::thread::id> thread_{std::this_thread::get_id()};

    std::size_t executed_ = 0;  // items run through runDueWork, on the main queue's thread
};

// Puts the shared main queue in test mode for its lifetime and resets it on both ends.
class ManualClockScope {
public:
    ManualClockScope();
    ~ManualClockScope();
    ManualClockScope(const ManualClockScope&) = delete;
    ManualClockScope& operator=(const ManualClockScope&) = delete;

    ManualClock& clock() { return *clock_; }
    void advance(MainQueue::Duration duration) { clock_->advance(duration); }

private:
    std::shared_ptr<ManualClock> clock_;
};

}  // namespace havrel
