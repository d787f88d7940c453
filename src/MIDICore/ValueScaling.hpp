#pragma once
// The exact conversions between the scales of channel-voice values: unit interval (0...1),
// MIDI 1.0 integers (7 and 14 bits) and MIDI 2.0 integers (16 and 32 bits).
//
// Unit interval to N bits (midpoint M = 2^(N-1)): clamp to 0...1; up to 0.5 trunc(v * 2^N),
// above M + trunc((v - 0.5) * (2^N - 2)), so 0.5 is exactly M and 1.0 exactly the maximum.
// N bits to unit interval: up to M v * 2^-N; the maximum is 1.0; otherwise (v - M) / (2^N - 2) + K.
// Upscaling repeats the bits below the top bit into the free low bits above the midpoint (min,
// centre and max are preserved); downscaling is a plain right shift.

#include "MIDICore/IntegerChecks.hpp"

#include <bit>
#include <cstdint>
#include <string_view>

namespace MIDICore::scaling {

// Bit pattern 3FE00000000051EB: 0.5000000000023282, added in every integer-to-unit-interval
// conversion of an upper-half value, whatever the width.
inline constexpr double K = std::bit_cast<double>(std::uint64_t{0x3FE00000000051EB});

template <unsigned N>
constexpr std::string_view integerName() {
    if constexpr (N == 7) {
        return "UInt7";
    } else if constexpr (N == 14) {
        return "UInt14";
    } else if constexpr (N == 16) {
        return "UInt16";
    } else {
        return "UInt32";
    }
}

template <unsigned N>
std::uint32_t fromUnitInterval(double value) {
    constexpr double full = static_cast<double>(1ULL << N);
    constexpr std::uint32_t midpoint = 1U << (N - 1);
    constexpr auto max = static_cast<std::uint32_t>((1ULL << N) - 1);
    if (value <= 0.0) {
        return 0;
    }
    if (value > 1.0) {
        value = 1.0;
    }
    if (value <= 0.5) {
        return detail::checkedFloating<std::uint32_t>(value * full, max, integerName<N>());
    }
    return midpoint + detail::checkedFloating<std::uint32_t>((value - 0.5) * (full - 2.0), max,
                                                             integerName<N>());
}

template <unsigned N>
constexpr double toUnitInterval(std::uint32_t value) {
    constexpr double full = static_cast<double>(1ULL << N);
    constexpr std::uint32_t midpoint = 1U << (N - 1);
    constexpr auto max = static_cast<std::uint32_t>((1ULL << N) - 1);
    if (value <= midpoint) {
        return static_cast<double>(value) * (1.0 / full);
    }
    if (value == max) {
        return 1.0;
    }
    return static_cast<double>(value - midpoint) / (full - 2.0) + K;
}

constexpr std::uint16_t upscale7To16(std::uint8_t value) {
    auto result = static_cast<std::uint16_t>(value << 9);
    if (value > 64) {
        result |= static_cast<std::uint16_t>(((value & 63) << 3) | ((value >> 3) & 7));
    }
    return result;
}

constexpr std::uint32_t upscale7To32(std::uint8_t value) {
    std::uint32_t result = static_cast<std::uint32_t>(value) << 25;
    if (value > 64) {
        for (std::uint32_t c = static_cast<std::uint32_t>(value & 63) << 19; c != 0; c >>= 6) {
            result |= c;
        }
    }
    return result;
}

constexpr std::uint32_t upscale14To32(std::uint16_t value) {
    std::uint32_t result = static_cast<std::uint32_t>(value) << 18;
    if (value > 8192) {
        for (std::uint32_t c = static_cast<std::uint32_t>(value & 8191) << 5; c != 0; c >>= 13) {
            result |= c;
        }
    }
    return result;
}

}  // namespace MIDICore::scaling
