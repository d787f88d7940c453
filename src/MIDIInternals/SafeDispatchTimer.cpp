#include "MIDIInternals/SafeDispatchTimer.hpp"

#include <chrono>
#include <utility>

namespace MIDIInternals {

// Shared with the work posted to the queue, which holds it weakly. `generation` changes whenever
// the schedule changes, so that a posted firing of an older schedule does nothing.
struct SafeDispatchTimer::State {
    std::mutex mutex;
    std::weak_ptr<DispatchQueue> queue;
    Rate rate;
    Handler handler;
    bool running = false;
    bool fireAtStart = true;
    unsigned long generation = 0;
};

namespace {

DispatchQueue::Duration periodOf(SafeDispatchTimer::Rate rate) {
    return std::chrono::duration_cast<DispatchQueue::Duration>(
        std::chrono::duration<double>(rate.periodSeconds));
}

}  // namespace

SafeDispatchTimer::SafeDispatchTimer(Rate rate, const std::shared_ptr<DispatchQueue>& queue,
                                     DispatchQueue::Duration leeway, Handler eventHandler)
    : state(std::make_shared<State>()), leeway_(leeway) {
    state->queue = queue;
    state->rate = rate;
    state->handler = std::move(eventHandler);
}

SafeDispatchTimer::~SafeDispatchTimer() {
    std::lock_guard lock(state->mutex);
    state->running = false;
    ++state->generation;
}

void SafeDispatchTimer::start() {
    std::lock_guard lock(state->mutex);
    if (state->running) {
        return;
    }
    state->running = true;
    scheduleLocked(state->fireAtStart);
}

void SafeDispatchTimer::stop() {
    std::lock_guard lock(state->mutex);
    if (!state->running) {
        return;
    }
    state->running = false;
    ++state->generation;
}

void SafeDispatchTimer::restart(bool firingNow) {
    std::lock_guard lock(state->mutex);
    state->fireAtStart = firingNow;
    if (state->running) {
        scheduleLocked(firingNow);
    }
}

void SafeDispatchTimer::setRate(Rate rate) {
    {
        std::lock_guard lock(state->mutex);
        state->rate = rate;
    }
    restart();
}

void SafeDispatchTimer::setEventHandler(Handler handler) {
    std::lock_guard lock(state->mutex);
    state->handler = std::move(handler);
}

bool SafeDispatchTimer::running() const {
    std::lock_guard lock(state->mutex);
    return state->running;
}

SafeDispatchTimer::Rate SafeDispatchTimer::rate() const {
    std::lock_guard lock(state->mutex);
    return state->rate;
}

void SafeDispatchTimer::scheduleLocked(bool firingNow) {
    auto queue = state->queue.lock();
    if (!queue) {
        return;
    }
    unsigned long generation = ++state->generation;
    std::weak_ptr<State> weakState = state;
    auto work = [weakState, generation] { fire(weakState, generation); };
    if (firingNow) {
        queue->async(std::move(work));
    } else {
        queue->asyncAfter(periodOf(state->rate), std::move(work));
    }
}

void SafeDispatchTimer::fire(const std::weak_ptr<State>& weakState, unsigned long generation) {
    auto state = weakState.lock();
    if (!state) {
        return;
    }
    Handler handler;
    {
        std::lock_guard lock(state->mutex);
        if (!state->running || state->generation != generation) {
            return;
        }
        state->fireAtStart = false;
        handler = state->handler;
        auto queue = state->queue.lock();
        if (!queue) {
            return;
        }
        std::weak_ptr<State> next = state;
        queue->asyncAfter(periodOf(state->rate), [next, generation] { fire(next, generation); });
    }
    if (handler) {
        handler();
    }
}

}  // namespace MIDIInternals
