#pragma once
// Runs the shared main queue (on its steady clock) until a condition holds, for tests whose
// work waits on real socket I/O. Bounded: false once the timeout has passed.

#include "platform/MainQueue.hpp"

#include <chrono>
#include <functional>

namespace havrel::testing {

inline bool runMainQueueUntil(const std::function<bool()>& condition,
                              std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        MainQueue::shared().runFor(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace havrel::testing
