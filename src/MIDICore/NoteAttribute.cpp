#include "MIDICore/NoteAttribute.hpp"

#include <algorithm>
#include <cmath>

namespace MIDICore {

Pitch7_9::Pitch7_9(double value) {
    double clamped = std::clamp(value, 0.0, 127.998046875);
    double whole = std::trunc(clamped);
    coarse = UInt7::checked(whole);
    fine = UInt9::checked(std::round((clamped - whole) * 512.0));
}

std::string NoteAttribute::description() const {
    switch (case_) {
        case Case::manufacturerSpecific: return "manufacturerSpecific(data: " + std::to_string(data_) + ")";
        case Case::profileSpecific: return "profileSpecific(data: " + std::to_string(data_) + ")";
        case Case::pitch7_9:
            return "pitch7_9(coarse: " + pitch().coarse.description() + ", fine: " + pitch().fine.description() + ")";
        case Case::undefined:
            return "undefined(attributeType: " + std::to_string(type_) + ", data: " + std::to_string(data_) + ")";
        case Case::none: return "none";
    }
    return "";
}

}  // namespace MIDICore
