#include "MIDICore/MIDINote.hpp"

#include <cctype>
#include <cmath>

namespace MIDICore {

namespace {

// Octave of note 0 under each style: note 60 is C3, C4, C5.
int lowestOctave(MIDINote::Style style) {
    switch (style) {
        case MIDINote::Style::yamaha: return -2;
        case MIDINote::Style::roland: return -1;
        case MIDINote::Style::cakewalk: return 0;
    }
    return -2;
}

// Semitones above C of each Name (A is 9).
int semitoneOf(MIDINote::Name name) {
    return (static_cast<int>(name) + 9) % 12;
}

MIDINote fromSemitoneAndOctave(int semitone, int octave, MIDINote::Style style) {
    long number = static_cast<long>(octave - lowestOctave(style)) * 12 + semitone;
    auto exact = UInt7::exactly(number);
    if (!exact) {
        throw MIDINote::NoteError(MIDINote::NoteError::outOfBounds);
    }
    return MIDINote(*exact, style);
}

bool consume(std::string_view& text, std::string_view prefix) {
    if (text.substr(0, prefix.size()) == prefix) {
        text.remove_prefix(prefix.size());
        return true;
    }
    return false;
}

}  // namespace

const char* MIDINote::NoteError::errorDescription() const noexcept {
    return kind_ == outOfBounds ? "MIDI note is out of bounds (invalid)."
                                : "An unexpected or malformed note name was encountered.";
}

MIDINote::MIDINote(Name name, int octave, Style style)
    : MIDINote(fromSemitoneAndOctave(semitoneOf(name), octave, style)) {}

MIDINote::MIDINote(std::string_view text, Style style) {
    auto malformed = [] { return NoteError(NoteError::malformedNoteName); };
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    if (text.empty()) {
        throw malformed();
    }
    static constexpr int letterSemitones[] = {9, 11, 0, 2, 4, 5, 7};  // A B C D E F G
    char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    if (letter < 'A' || letter > 'G') {
        throw malformed();
    }
    text.remove_prefix(1);
    int semitone = letterSemitones[letter - 'A'];
    if (consume(text, "#") || consume(text, "\u266F")) {
        semitone += 1;
    } else if (consume(text, "b") || consume(text, "\u266D")) {
        semitone -= 1;
    }
    bool negative = consume(text, "-");
    if (text.empty() || text.size() > 3) {
        throw malformed();
    }
    int octave = 0;
    for (char digit : text) {
        if (!std::isdigit(static_cast<unsigned char>(digit))) {
            throw malformed();
        }
        octave = octave * 10 + (digit - '0');
    }
    *this = fromSemitoneAndOctave(semitone, negative ? -octave : octave, style);
}

MIDINote MIDINote::frequency(double frequency, Style style, double tuning) {
    double exactNumber = std::log2(frequency / tuning) * 12.0 + 69.0;
    if (!std::isfinite(exactNumber) || std::fabs(exactNumber) > 1e6) {
        throw NoteError(NoteError::outOfBounds);
    }
    long number = calculateMIDINoteNumber(frequency, tuning);
    return MIDINote(number, style);
}

MIDINote::Name MIDINote::name() const {
    return static_cast<Name>((number_.storage() + 3) % 12);
}

int MIDINote::octave() const {
    return number_.storage() / 12 + lowestOctave(style_);
}

std::string MIDINote::stringValue(bool respellSharpAsFlat, bool unicodeAccidental) const {
    static constexpr const char* naturals[] = {"C", "C", "D", "D", "E", "F", "F", "G", "G", "A", "A", "B"};
    static constexpr bool sharp[] = {false, true, false, true, false, false, true, false, true, false, true, false};
    int semitone = number_.storage() % 12;
    std::string text;
    if (!sharp[semitone]) {
        text = naturals[semitone];
    } else if (respellSharpAsFlat) {
        text = std::string(naturals[semitone + 1]) + (unicodeAccidental ? "\u266D" : "b");
    } else {
        text = std::string(naturals[semitone]) + (unicodeAccidental ? "\u266F" : "#");
    }
    return text + std::to_string(octave());
}

double MIDINote::calculateFrequency(UInt7 midiNote, double tuning) {
    return tuning * std::pow(2.0, (static_cast<double>(midiNote.storage()) - 69.0) / 12.0);
}

long MIDINote::calculateMIDINoteNumber(double frequency, double tuning) {
    return std::lround(std::log2(frequency / tuning) * 12.0 + 69.0);
}

std::string MIDINote::styleDescription(Style style) {
    switch (style) {
        case Style::yamaha: return "Yamaha (Middle C == C3)";
        case Style::roland: return "Roland (Middle C == C4)";
        case Style::cakewalk: return "Cakewalk (Middle C == C5)";
    }
    return "";
}

}  // namespace MIDICore
