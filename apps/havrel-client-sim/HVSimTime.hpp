#pragma once
// Seconds of a script and waits on the main queue. Waits are rounded up, so a frame waited for
// is due when the wait is over, also in virtual time (rounded down, a wait could end just short
// of its frame and be asked for again with the clock standing still).

#include "platform/MainQueue.hpp"

#include <chrono>

namespace havrel {

inline MainQueue::Duration secondsToDuration(double seconds) {
    return std::chrono::ceil<MainQueue::Duration>(std::chrono::duration<double>(seconds));
}

inline double durationToSeconds(MainQueue::Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace havrel
