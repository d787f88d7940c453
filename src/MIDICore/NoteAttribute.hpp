#pragma once
// The attribute of a MIDI 2.0 note on or off, and its pitch form Pitch7_9.

#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <cstdint>
#include <string>

namespace MIDICore {

// A fixed-point semitone value: 7 bits of semitone, 9 bits of fraction.
struct Pitch7_9 {
    UInt7 coarse;
    UInt9 fine;

    constexpr Pitch7_9() = default;
    constexpr Pitch7_9(UInt7 coarse, UInt9 fine) : coarse(coarse), fine(fine) {}
    // Bits 15...9 and 8...0.
    constexpr explicit Pitch7_9(std::uint16_t value)
        : coarse(UInt7::fromStorage(static_cast<std::uint8_t>(value >> 9))),
          fine(UInt9::fromStorage(static_cast<std::uint16_t>(value & 0x1FF))) {}
    // coarse = msb >> 1, fine = the low bit of msb, then lsb.
    constexpr explicit Pitch7_9(BytePair pair) : Pitch7_9(pair.uInt16Value()) {}
    // Clamped to 0.0...127.998046875; coarse the integer part, fine round(fraction * 512).
    explicit Pitch7_9(double value);

    constexpr std::uint16_t uInt16Value() const {
        return static_cast<std::uint16_t>(coarse.storage() * 512 + fine.storage());
    }
    double doubleValue() const { return coarse.storage() + fine.storage() * 0.001953125; }
    friend constexpr bool operator==(const Pitch7_9&, const Pitch7_9&) = default;
};

class NoteAttribute {
public:
    enum class Case : std::uint8_t { manufacturerSpecific, profileSpecific, pitch7_9, undefined, none };

    constexpr NoteAttribute() = default;
    static constexpr NoteAttribute manufacturerSpecific(std::uint16_t data) { return {Case::manufacturerSpecific, 1, data}; }
    static constexpr NoteAttribute profileSpecific(std::uint16_t data) { return {Case::profileSpecific, 2, data}; }
    static constexpr NoteAttribute pitch7_9(Pitch7_9 pitch) { return {Case::pitch7_9, 3, pitch.uInt16Value()}; }
    static constexpr NoteAttribute undefined(std::uint8_t attributeType, std::uint16_t data) {
        return {Case::undefined, attributeType, data};
    }
    static constexpr NoteAttribute none() { return {}; }
    // The inverse of attributeType/attributeData: 0 none, 1 and 2 the specific forms, 3 a pitch,
    // anything else undefined.
    constexpr NoteAttribute(std::uint8_t type, std::uint16_t data)
        : NoteAttribute(type == 0   ? none()
                        : type == 1 ? manufacturerSpecific(data)
                        : type == 2 ? profileSpecific(data)
                        : type == 3 ? pitch7_9(Pitch7_9(data))
                                    : undefined(type, data)) {}

    constexpr Case kind() const { return case_; }
    // 1, 2, 3, the stored type, 0.
    constexpr std::uint8_t attributeType() const { return type_; }
    // The data, the pitch as 16 bits, or 0.
    constexpr std::uint16_t attributeData() const { return data_; }
    constexpr Pitch7_9 pitch() const { return Pitch7_9(data_); }
    std::string description() const;

    friend constexpr bool operator==(const NoteAttribute&, const NoteAttribute&) = default;

private:
    constexpr NoteAttribute(Case kind, std::uint8_t type, std::uint16_t data) : case_(kind), type_(type), data_(data) {}

    Case case_ = Case::none;
    std::uint8_t type_ = 0;
    std::uint16_t data_ = 0;
};

}  // namespace MIDICore
