#pragma once
// Range forms: closed (a...b), half-open (a..<b) and the three partial forms, with `contains`.
// Bounds of the closed and half-open forms must be ordered (lowerBound <= upperBound).

#include <compare>

namespace MIDIInternals {

template <class T>
struct ClosedRange {
    T lowerBound;
    T upperBound;
    constexpr bool contains(const T& value) const { return !(value < lowerBound) && !(upperBound < value); }
    friend constexpr bool operator==(const ClosedRange&, const ClosedRange&) = default;
};

template <class T>
struct Range {
    T lowerBound;
    T upperBound;
    constexpr bool contains(const T& value) const { return !(value < lowerBound) && value < upperBound; }
    constexpr bool isEmpty() const { return !(lowerBound < upperBound); }
    friend constexpr bool operator==(const Range&, const Range&) = default;
};

template <class T>
struct PartialRangeFrom {
    T lowerBound;
    constexpr bool contains(const T& value) const { return !(value < lowerBound); }
};

template <class T>
struct PartialRangeThrough {
    T upperBound;
    constexpr bool contains(const T& value) const { return !(upperBound < value); }
};

template <class T>
struct PartialRangeUpTo {
    T upperBound;
    constexpr bool contains(const T& value) const { return value < upperBound; }
};

}  // namespace MIDIInternals
