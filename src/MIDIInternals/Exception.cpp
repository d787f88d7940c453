#include "MIDIInternals/Exception.hpp"

#include <utility>

namespace MIDIInternals {

Exception::Exception(std::string name, std::string reason)
    : name_(std::move(name)), reason_(std::move(reason)) {}

std::string Exception::nameOf(Kind kind) {
    switch (kind) {
        case overflow: return "NSDecimalNumberOverflowException";
        case underflow: return "NSDecimalNumberUnderflowException";
        case divisionByZero: return "NSDecimalNumberDivideByZeroException";
    }
    return "NSDecimalNumberOverflowException";
}

void Exception::raise(Kind kind, std::optional<std::string> reason) {
    raiseException(nameOf(kind), std::move(reason));
}

void Exception::raiseException(std::string name, std::optional<std::string> reason) {
    throw Exception(std::move(name), reason.value_or(std::string()));
}

}  // namespace MIDIInternals
