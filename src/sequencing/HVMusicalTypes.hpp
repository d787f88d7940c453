#pragma once
// The musical vocabulary of step sequences: note lengths in MIDI clock ticks (24 a quarter
// note), musical durations in whole notes, step shapes, and the note or controller a step
// addresses.

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

// A length in MIDI clock ticks. Only the values below have a name.
using HVMIDINoteLength = std::uint8_t;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_32 = 3;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_32T = 4;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_16 = 6;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_16T = 8;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_8 = 12;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_8T = 16;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_4 = 24;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_4T = 32;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_2 = 48;
inline constexpr HVMIDINoteLength HVMIDINoteLength1_2T = 64;
inline constexpr HVMIDINoteLength HVMIDINoteLength1 = 96;

// "1/16" for 6 and so on; the empty string for a value without a name.
std::string HVMIDINoteLengthStringValue(HVMIDINoteLength length);

// A duration from a thirty-second to a dotted whole note; raw values 0 to 11.
class HVMusicalDuration {
public:
    // Nothing for a raw value outside 0 to 11.
    static std::optional<HVMusicalDuration> fromRawValue(std::int64_t raw);

    std::int64_t rawValue() const { return raw_; }
    // In whole notes.
    double multiplier() const;
    std::string description() const;

    bool operator==(const HVMusicalDuration&) const = default;

private:
    explicit HVMusicalDuration(std::int64_t raw) : raw_(raw) {}
    std::int64_t raw_;
};

// Three shapes with no further meaning in the core; 0 is the default.
enum class HVSequencerStepShape : std::int64_t { shape0 = 0, shape1 = 1, shape2 = 2 };

// Nothing for a raw value other than 0, 1 or 2.
std::optional<HVSequencerStepShape> HVSequencerStepShapeFromRawValue(std::int64_t raw);

// A controller number or a note number, with its channel.
struct HVCCOrNote {
    std::uint8_t value = 0;
    std::uint8_t channel = 1;

    static HVCCOrNote withValue(std::uint8_t value) { return HVCCOrNote{value, 1}; }

    // The value n octaves up, held at 127, on channel 1. 12n above 255, or a sum above 255,
    // is a programming fault.
    HVCCOrNote up(std::uint8_t octaves) const;
    // The value n octaves down, on channel 1; a result below 0 is a programming fault.
    HVCCOrNote down(std::uint8_t octaves) const;
    void changeUp(std::uint8_t octaves);
    void changeDown(std::uint8_t octaves);

    // The note n octaves up, held at 127, or nothing where the 8-bit arithmetic would overflow
    // (12n above 255 or a sum above 255). For values that come from outside.
    static std::optional<std::uint8_t> checkedOctaveUp(std::uint8_t value, std::int64_t octaves);

    bool operator==(const HVCCOrNote&) const = default;
};

}  // namespace havrel
