#pragma once
// A repeating timer that fires its handler on a serial queue. It is created stopped; start() and
// stop() may be called any number of times (a second start() changes nothing), and destroying
// it, running or stopped, cancels it: a firing already posted to the queue finds the timer gone
// and does nothing.
//
// The queue is held weakly: once the queue is gone the timer stops firing. Firings are scheduled
// one period after the previous one through the queue's own clock (`asyncAfter`), so a queue
// with a manual clock drives the timer in tests.

#include "MIDIInternals/DispatchQueue.hpp"

#include <functional>
#include <memory>
#include <mutex>

namespace MIDIInternals {

class SafeDispatchTimer {
public:
    struct Rate {
        static Rate hertz(double frequency) { return Rate{1.0 / frequency}; }
        static Rate seconds(double period) { return Rate{period}; }
        double periodSeconds;
    };
    using Handler = std::function<void()>;

    // The first firing after start() is at once, as after restart(true).
    SafeDispatchTimer(Rate rate, const std::shared_ptr<DispatchQueue>& queue,
                      DispatchQueue::Duration leeway, Handler eventHandler);
    ~SafeDispatchTimer();
    SafeDispatchTimer(const SafeDispatchTimer&) = delete;
    SafeDispatchTimer& operator=(const SafeDispatchTimer&) = delete;

    void start();
    void stop();
    // Reschedules from now: the next firing is at once, or one period from now.
    void restart(bool firingNow = true);
    // Stores the rate and restarts.
    void setRate(Rate rate);
    void setEventHandler(Handler handler);

    bool running() const;
    Rate rate() const;
    DispatchQueue::Duration leeway() const { return leeway_; }

private:
    struct State;
    void scheduleLocked(bool firingNow);
    static void fire(const std::weak_ptr<State>& weakState, unsigned long generation);

    std::shared_ptr<State> state;
    DispatchQueue::Duration leeway_;
};

}  // namespace MIDIInternals
