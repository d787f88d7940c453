#include "MIDIInternals/MonotonicTime.hpp"

#include "MIDIInternals/Fatal.hpp"

#include <cerrno>
#include <cmath>
#include <string>

namespace {

constexpr long nanosecondsPerSecond = 1'000'000'000L;

timespec normalised(long long seconds, long long nanoseconds) {
    seconds += nanoseconds / nanosecondsPerSecond;
    nanoseconds %= nanosecondsPerSecond;
    if (nanoseconds < 0) {
        nanoseconds += nanosecondsPerSecond;
        seconds -= 1;
    }
    timespec result{};
    result.tv_sec = static_cast<time_t>(seconds);
    result.tv_nsec = static_cast<long>(nanoseconds);
    return result;
}

}  // namespace

namespace MIDIInternals {

timespec clock_gettime_monotonic_raw() {
    timespec time{};
    if (clock_gettime(CLOCK_MONOTONIC_RAW, &time) != 0) {
        fatalError("Could not execute clock_gettime, errno: " + std::to_string(errno));
    }
    return time;
}

timespec timespecFromSeconds(double seconds) {
    double whole = std::floor(seconds);
    auto nanoseconds = static_cast<long long>(std::llround((seconds - whole) * 1e9));
    return normalised(static_cast<long long>(whole), nanoseconds);
}

timespec timespecFromSeconds(long long seconds) {
    return normalised(seconds, 0);
}

double doubleValue(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

}  // namespace MIDIInternals

timespec operator+(const timespec& lhs, const timespec& rhs) {
    return normalised(static_cast<long long>(lhs.tv_sec) + rhs.tv_sec,
                      static_cast<long long>(lhs.tv_nsec) + rhs.tv_nsec);
}

timespec operator-(const timespec& lhs, const timespec& rhs) {
    return normalised(static_cast<long long>(lhs.tv_sec) - rhs.tv_sec,
                      static_cast<long long>(lhs.tv_nsec) - rhs.tv_nsec);
}

bool operator==(const timespec& lhs, const timespec& rhs) {
    return lhs.tv_sec == rhs.tv_sec && lhs.tv_nsec == rhs.tv_nsec;
}

bool operator<(const timespec& lhs, const timespec& rhs) {
    return lhs.tv_sec < rhs.tv_sec || (lhs.tv_sec == rhs.tv_sec && lhs.tv_nsec < rhs.tv_nsec);
}
