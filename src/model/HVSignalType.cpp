#include "model/HVSignalType.hpp"

namespace havrel {

std::optional<std::string> titleForSignalType(HVSignalType type) {
    switch (type) {
    case HVSignalTypeCC:
        return "CC";
    case HVSignalTypeNote:
        return "Note";
    case HVSignalTypePC:
        return "PC";
    case HVSignalTypePitch:
        return "Pitch";
    default:
        return std::nullopt;
    }
}

std::string singalToString(HVSignalType type) {
    switch (type) {
    case HVSignalTypeCC:
        return "Control Change";
    case HVSignalTypeNote:
        return "Note";
    case HVSignalTypePC:
        return "Program Change";
    case HVSignalTypePitch:
        return "Pitchbend";
    default:
        return "";
    }
}

}  // namespace havrel
