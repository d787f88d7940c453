#pragma once
// A note number with a name and an octave under one of three middle-C conventions: note 60 is
// "C3" in `yamaha` (the default), "C4" in `roland`, "C5" in `cakewalk`.
//
// Note text accepted by MIDINote(text): optional white space around; a letter A-G in either
// case; an optional accidental "#", "♯" (sharp), "b", "♭" (flat); an optional "-" and the octave
// digits. "C#3", "db-1", "E♭ 4" is not accepted (no space inside), "Cb4" is B3 and "B#3" is C4.
// A note without an octave digit, or any other character, is malformedNoteName; a well-formed
// name outside 0...127 is outOfBounds.

#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace MIDICore {

class MIDINote {
public:
    enum class Style : std::uint8_t { yamaha, roland, cakewalk };
    enum class Name : std::uint8_t { A, A_sharp, B, C, C_sharp, D, D_sharp, E, F, F_sharp, G, G_sharp };

    class NoteError : public std::exception {
    public:
        enum Kind { outOfBounds, malformedNoteName };
        explicit NoteError(Kind kind) : kind_(kind) {}
        Kind kind() const { return kind_; }
        // "MIDI note is out of bounds (invalid)." / "An unexpected or malformed note name was
        // encountered."
        const char* errorDescription() const noexcept;
        const char* what() const noexcept override { return errorDescription(); }

    private:
        Kind kind_;
    };

    constexpr MIDINote() = default;
    constexpr MIDINote(UInt7 number, Style style = Style::yamaha) : number_(number), style_(style) {}
    // Any integer; outside 0...127 throws outOfBounds.
    template <PlainInteger I>
    explicit MIDINote(I number, Style style = Style::yamaha) : number_(checkedNumber(number)), style_(style) {}
    MIDINote(Name name, int octave, Style style = Style::yamaha);
    explicit MIDINote(std::string_view text, Style style = Style::yamaha);
    // The nearest note to a frequency; outside 0...127 throws outOfBounds.
    static MIDINote frequency(double frequency, Style style = Style::yamaha, double tuning = 440.0);

    constexpr UInt7 number() const { return number_; }
    constexpr Style style() const { return style_; }
    Name name() const;
    int octave() const;
    // "C#3", or "Db3" respelled as flat; "C♯3" / "D♭3" with Unicode accidentals.
    std::string stringValue(bool respellSharpAsFlat = false, bool unicodeAccidental = false) const;
    double frequencyValue(double tuning = 440.0) const { return calculateFrequency(number_, tuning); }

    // tuning * 2^((note - 69) / 12), tuning being the frequency of note 69.
    static double calculateFrequency(UInt7 midiNote, double tuning = 440.0);
    // round(log2(frequency / tuning) * 12 + 69), half away from zero; may be out of 0...127.
    static long calculateMIDINoteNumber(double frequency, double tuning = 440.0);

    long distance(MIDINote to) const { return static_cast<long>(number_.distance(to.number_)); }
    // Raises "UInt7 integer overflowed" past the range.
    MIDINote advanced(long by) const { return MIDINote(number_.advanced(by), style_); }

    static std::string styleDescription(Style style);
    std::string description() const { return stringValue(); }

    friend constexpr bool operator==(const MIDINote&, const MIDINote&) = default;

private:
    template <PlainInteger I>
    static UInt7 checkedNumber(I number) {
        auto exact = UInt7::exactly(number);
        if (!exact) {
            throw NoteError(NoteError::outOfBounds);
        }
        return *exact;
    }

    UInt7 number_;
    Style style_ = Style::yamaha;
};

}  // namespace MIDICore
