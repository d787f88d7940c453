#pragma once
// The raw monotonic clock and arithmetic on timespec. Sums and differences carry between seconds
// and nanoseconds so that tv_nsec stays within 0...999,999,999.
//
// The operators are declared for ::timespec in the global namespace so that they are found
// wherever a timespec is used.

#include <concepts>
#include <ctime>

namespace MIDIInternals {

// clock_gettime with CLOCK_MONOTONIC_RAW; a failure is fatal
// ("Could not execute clock_gettime, errno: <number>").
timespec clock_gettime_monotonic_raw();

timespec timespecFromSeconds(double seconds);
timespec timespecFromSeconds(long long seconds);
template <std::integral I>
timespec timespecFromSeconds(I seconds) {
    return timespecFromSeconds(static_cast<long long>(seconds));
}

// Seconds plus nanoseconds / 1,000,000,000.
double doubleValue(const timespec& time);

}  // namespace MIDIInternals

timespec operator+(const timespec& lhs, const timespec& rhs);
timespec operator-(const timespec& lhs, const timespec& rhs);
bool operator==(const timespec& lhs, const timespec& rhs);
bool operator<(const timespec& lhs, const timespec& rhs);
inline bool operator>(const timespec& lhs, const timespec& rhs) { return rhs < lhs; }
