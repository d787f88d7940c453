#pragma once
// Runs the shared main queue until a condition holds, for tests whose work waits on real socket
// I/O, in turns of `step` (of the manual clock, where the queue has one). Bounded: false once the
// timeout has passed on the wall clock.

#include "platform/MainQueue.hpp"

#include <chrono>
#include <functional>

namespace havrel::testing {

inline bool runMainQueueUntil(const std::function<bool()>& condition,
                              std::chrono::milliseconds timeout = std::chrono::seconds(10),
                              std::chrono::milliseconds step = std::chrono::milliseconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        MainQueue::shared().runFor(step);
    }
    return true;
}

}  // namespace havrel::testing
