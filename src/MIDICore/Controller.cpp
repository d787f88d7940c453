#include "MIDICore/Controller.hpp"

namespace MIDICore {

namespace {

struct NamedEntry {
    bool named = false;
    Controller::Case kind = Controller::Case::undefined;
    const char* text = "";
};

constexpr std::array<NamedEntry, 128> namedTable() {
    std::array<NamedEntry, 128> table{};
#define MIDICORE_X(name, number, text) table[number] = NamedEntry{true, Controller::Case::name, text};
    MIDICORE_CONTROLLER_NAMED(MIDICORE_X)
#undef MIDICORE_X
    return table;
}

struct LSBEntry {
    bool named = false;
    Controller::LSB::Case kind = Controller::LSB::Case::undefined;
    const char* text = "";
};

constexpr std::array<LSBEntry, 32> lsbTable() {
    std::array<LSBEntry, 32> table{};
#define MIDICORE_X(name, number, text) table[number] = LSBEntry{true, Controller::LSB::Case::name, text};
    MIDICORE_CONTROLLER_LSB_NAMED(MIDICORE_X)
#undef MIDICORE_X
    return table;
}

constexpr auto named = namedTable();
constexpr auto lsbs = lsbTable();

constexpr const char* modeNames[] = {"All Sound Off", "Reset All Controllers", "Local Control",
                                     "All Notes Off", "Omni Mode Off",         "Omni Mode On",
                                     "Mono Mode On",  "Poly Mode On"};

}  // namespace

Controller::LSB::Case Controller::LSB::kind() const {
    return lsbs[msb_].kind;
}

std::optional<Controller::LSB::Undefined> Controller::LSB::undefinedValue() const {
    if (lsbs[msb_].named) {
        return std::nullopt;
    }
    return static_cast<Undefined>(msb_);
}

std::string Controller::LSB::name() const {
    return lsbs[msb_].named ? lsbs[msb_].text : "Undefined LSB";
}

std::array<Controller, 128> Controller::allCases() {
    std::array<Controller, 128> cases{};
    for (std::uint8_t number = 0; number < 128; ++number) {
        cases[number] = Controller(UInt7::fromStorage(number));
    }
    return cases;
}

Controller::Case Controller::kind() const {
    if (number_ >= 32 && number_ <= 63) {
        return Case::lsb;
    }
    if (number_ >= 120) {
        return Case::mode;
    }
    return named[number_].named ? named[number_].kind : Case::undefined;
}

std::optional<Controller::LSB> Controller::lsbValue() const {
    if (kind() != Case::lsb) {
        return std::nullopt;
    }
    return LSB(static_cast<std::uint8_t>(number_ - 32));
}

std::optional<Controller::Mode> Controller::modeValue() const {
    if (kind() != Case::mode) {
        return std::nullopt;
    }
    return static_cast<Mode>(number_);
}

std::optional<Controller::Undefined> Controller::undefinedValue() const {
    if (kind() != Case::undefined) {
        return std::nullopt;
    }
    return static_cast<Undefined>(number_);
}

std::string Controller::name() const {
    switch (kind()) {
        case Case::lsb: return lsbValue()->name();
        case Case::mode: return modeNames[number_ - 120];
        case Case::undefined: return "Undefined";
        default: return named[number_].text;
    }
}

}  // namespace MIDICore
