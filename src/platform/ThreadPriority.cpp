#include "platform/ThreadPriority.hpp"

#include <pthread.h>
#include <sched.h>

#include <cstring>

namespace havrel {

std::string raiseCurrentThreadToRealTimePriority() {
    const int lowest = sched_get_priority_min(SCHED_RR);
    const int highest = sched_get_priority_max(SCHED_RR);
    if (lowest < 0 || highest < 0) {
        return std::strerror(errno);
    }
    sched_param parameters{};
    parameters.sched_priority = lowest + (highest - lowest) / 2;
    const int result = pthread_setschedparam(pthread_self(), SCHED_RR, &parameters);
    return result == 0 ? std::string() : std::string(std::strerror(result));
}

}  // namespace havrel
