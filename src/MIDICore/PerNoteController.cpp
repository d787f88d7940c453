#include "MIDICore/PerNoteController.hpp"

#include <array>

namespace MIDICore {

namespace {

struct Entry {
    bool named = false;
    PerNoteController::Registered::Case kind = PerNoteController::Registered::Case::undefined;
    const char* text = "Undefined Per-Note CC";
};

constexpr std::array<Entry, 256> table() {
    std::array<Entry, 256> entries{};
#define MIDICORE_X(name, number, text) entries[number] = Entry{true, PerNoteController::Registered::Case::name, text};
    MIDICORE_PER_NOTE_REGISTERED(MIDICORE_X)
#undef MIDICORE_X
    return entries;
}

constexpr auto registeredTable = table();

}  // namespace

PerNoteController::Registered::Case PerNoteController::Registered::kind() const {
    return registeredTable[number_].kind;
}

std::string PerNoteController::Registered::name() const {
    return registeredTable[number_].text;
}

std::string PerNoteController::name() const {
    return registered_ ? Registered(number_).name() : "Assignable Per-Note CC " + std::to_string(number_);
}

std::string PerNoteController::description() const {
    return (registered_ ? "registered(" : "assignable(") + std::to_string(number_) + ")";
}

}  // namespace MIDICore
