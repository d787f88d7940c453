#pragma once
// The value wrappers of channel-voice events. A value remembers the scale it was given in and
// converts on demand (ValueScaling.hpp). Equality is by converted value, not by scale: of two
// scales the more abstract one is converted to the other (a unit interval against an integer
// compares integers; MIDI 1.0 against MIDI 2.0 compares at MIDI 1.0 resolution). Hashing takes
// the scale and the stored number, so equal values of different scales may hash apart.
//
// Validated<V> is the field form used in events: writing it clamps a unit interval into 0...1
// and a bipolar unit interval into -1...1.

#include "MIDICore/MIDIUnsignedInteger.hpp"
#include "MIDICore/ValueScaling.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>

namespace MIDICore {

template <class V>
class Validated {
public:
    constexpr Validated() = default;
    Validated(V value) : value_(value.clamped()) {}
    constexpr V wrappedValue() const { return value_; }
    void setWrappedValue(V value) { value_ = value.clamped(); }
    friend bool operator==(const Validated&, const Validated&) = default;

private:
    V value_{};
};

namespace detail {
std::string formatDouble(double value);
std::size_t hashCombine(std::size_t kind, std::size_t payload);
}  // namespace detail

// unitInterval(Double), midi1(UInt7), midi2(UInt16 or UInt32): ChanVoice7Bit16BitValue for note
// velocities, ChanVoice7Bit32BitValue for controller values and pressure.
template <unsigned Midi2Bits>
class ChanVoice7BitValue {
public:
    using Midi2 = std::conditional_t<Midi2Bits == 16, std::uint16_t, std::uint32_t>;
    using Validated = MIDICore::Validated<ChanVoice7BitValue>;
    enum class Case : std::uint8_t { unitInterval, midi1, midi2 };

    constexpr ChanVoice7BitValue() = default;
    static constexpr ChanVoice7BitValue unitInterval(double value) { return {Case::unitInterval, value, 0}; }
    static constexpr ChanVoice7BitValue midi1(UInt7 value) { return {Case::midi1, 0.0, value.storage()}; }
    static constexpr ChanVoice7BitValue midi2(Midi2 value) { return {Case::midi2, 0.0, value}; }

    constexpr Case kind() const { return case_; }

    double unitIntervalValue() const {
        switch (case_) {
            case Case::unitInterval: return unit_;
            case Case::midi1: return scaling::toUnitInterval<7>(integer_);
            case Case::midi2: return scaling::toUnitInterval<Midi2Bits>(integer_);
        }
        return 0.0;
    }
    UInt7 midi1Value() const {
        switch (case_) {
            case Case::unitInterval: return UInt7::fromStorage(static_cast<std::uint8_t>(scaling::fromUnitInterval<7>(unit_)));
            case Case::midi1: return UInt7::fromStorage(static_cast<std::uint8_t>(integer_));
            case Case::midi2: return UInt7::fromStorage(static_cast<std::uint8_t>(integer_ >> (Midi2Bits - 7)));
        }
        return UInt7();
    }
    Midi2 midi2Value() const {
        switch (case_) {
            case Case::unitInterval: return static_cast<Midi2>(scaling::fromUnitInterval<Midi2Bits>(unit_));
            case Case::midi1:
                if constexpr (Midi2Bits == 16) {
                    return scaling::upscale7To16(static_cast<std::uint8_t>(integer_));
                } else {
                    return scaling::upscale7To32(static_cast<std::uint8_t>(integer_));
                }
            case Case::midi2: return static_cast<Midi2>(integer_);
        }
        return 0;
    }

    ChanVoice7BitValue clamped() const {
        return case_ == Case::unitInterval ? unitInterval(std::clamp(unit_, 0.0, 1.0)) : *this;
    }

    friend bool operator==(const ChanVoice7BitValue& a, const ChanVoice7BitValue& b) {
        if (a.case_ == b.case_) {
            return a.case_ == Case::unitInterval ? a.unit_ == b.unit_ : a.integer_ == b.integer_;
        }
        if (a.case_ == Case::midi1 || b.case_ == Case::midi1) {
            return a.midi1Value() == b.midi1Value();
        }
        return a.midi2Value() == b.midi2Value();
    }

    std::size_t hashValue() const {
        std::size_t payload = case_ == Case::unitInterval ? std::hash<double>{}(unit_) : std::hash<std::uint32_t>{}(integer_);
        return detail::hashCombine(static_cast<std::size_t>(case_), payload);
    }

    std::string description() const {
        switch (case_) {
            case Case::unitInterval: return "unitInterval(" + detail::formatDouble(unit_) + ")";
            case Case::midi1: return "midi1(" + std::to_string(integer_) + ")";
            case Case::midi2: return "midi2(" + std::to_string(integer_) + ")";
        }
        return "";
    }

private:
    constexpr ChanVoice7BitValue(Case kind, double unit, std::uint32_t integer)
        : case_(kind), unit_(unit), integer_(integer) {}

    Case case_ = Case::midi1;
    double unit_ = 0.0;
    std::uint32_t integer_ = 0;
};

using ChanVoice7Bit16BitValue = ChanVoice7BitValue<16>;
using ChanVoice7Bit32BitValue = ChanVoice7BitValue<32>;

// Pitch bend: unitInterval(Double), bipolarUnitInterval(Double), midi1(UInt14), midi2(UInt32).
class ChanVoice14Bit32BitValue {
public:
    using Validated = MIDICore::Validated<ChanVoice14Bit32BitValue>;
    enum class Case : std::uint8_t { unitInterval, bipolarUnitInterval, midi1, midi2 };

    constexpr ChanVoice14Bit32BitValue() = default;
    static constexpr ChanVoice14Bit32BitValue unitInterval(double value) { return {Case::unitInterval, value, 0}; }
    static constexpr ChanVoice14Bit32BitValue bipolarUnitInterval(double value) {
        return {Case::bipolarUnitInterval, value, 0};
    }
    static constexpr ChanVoice14Bit32BitValue midi1(UInt14 value) { return {Case::midi1, 0.0, value.storage()}; }
    static constexpr ChanVoice14Bit32BitValue midi2(std::uint32_t value) { return {Case::midi2, 0.0, value}; }

    constexpr Case kind() const { return case_; }

    double unitIntervalValue() const;
    double bipolarUnitIntervalValue() const;
    UInt14 midi1Value() const;
    std::uint32_t midi2Value() const;

    // Inline: events are built on every parse.
    ChanVoice14Bit32BitValue clamped() const {
        switch (case_) {
            case Case::unitInterval: return unitInterval(std::clamp(unit_, 0.0, 1.0));
            case Case::bipolarUnitInterval: return bipolarUnitInterval(std::clamp(unit_, -1.0, 1.0));
            default: return *this;
        }
    }
    friend bool operator==(const ChanVoice14Bit32BitValue& a, const ChanVoice14Bit32BitValue& b);
    std::size_t hashValue() const;
    std::string description() const;

private:
    constexpr ChanVoice14Bit32BitValue(Case kind, double unit, std::uint32_t integer)
        : case_(kind), unit_(unit), integer_(integer) {}

    Case case_ = Case::midi1;
    double unit_ = 0.0;
    std::uint32_t integer_ = 0;
};

// Per-note values: unitInterval(Double), midi2(UInt32). The MIDI 1.0 constructors upscale at
// once and store a midi2 value.
class ChanVoice32BitValue {
public:
    using Validated = MIDICore::Validated<ChanVoice32BitValue>;
    enum class Case : std::uint8_t { unitInterval, midi2 };

    constexpr ChanVoice32BitValue() = default;
    static constexpr ChanVoice32BitValue unitInterval(double value) { return {Case::unitInterval, value, 0}; }
    static constexpr ChanVoice32BitValue midi2(std::uint32_t value) { return {Case::midi2, 0.0, value}; }
    static constexpr ChanVoice32BitValue midi1(UInt7 sevenBit) { return midi2(scaling::upscale7To32(sevenBit.storage())); }
    static constexpr ChanVoice32BitValue midi1(UInt14 fourteenBit) {
        return midi2(scaling::upscale14To32(fourteenBit.storage()));
    }

    constexpr Case kind() const { return case_; }

    double unitIntervalValue() const;
    std::uint32_t midi2Value() const;
    UInt7 midi1_7BitValue() const;
    UInt14 midi1_14BitValue() const;

    ChanVoice32BitValue clamped() const {
        return case_ == Case::unitInterval ? unitInterval(std::clamp(unit_, 0.0, 1.0)) : *this;
    }
    friend bool operator==(const ChanVoice32BitValue& a, const ChanVoice32BitValue& b);
    std::size_t hashValue() const;
    std::string description() const;

private:
    constexpr ChanVoice32BitValue(Case kind, double unit, std::uint32_t integer)
        : case_(kind), unit_(unit), integer_(integer) {}

    Case case_ = Case::midi2;
    double unit_ = 0.0;
    std::uint32_t integer_ = 0;
};

template <class T>
concept ChanVoiceValue = std::same_as<T, ChanVoice7Bit16BitValue> || std::same_as<T, ChanVoice7Bit32BitValue> ||
                         std::same_as<T, ChanVoice14Bit32BitValue> || std::same_as<T, ChanVoice32BitValue>;

}  // namespace MIDICore

template <MIDICore::ChanVoiceValue T>
struct std::hash<T> {
    std::size_t operator()(const T& value) const noexcept { return value.hashValue(); }
};
