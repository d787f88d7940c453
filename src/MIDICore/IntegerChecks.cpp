#include "MIDICore/IntegerChecks.hpp"

#include "MIDIInternals/Exception.hpp"
#include "MIDIInternals/Fatal.hpp"

namespace MIDICore::detail {

void raiseOverflow(std::string_view integerName) {
    MIDIInternals::Exception::raise(MIDIInternals::Exception::overflow,
                                    std::string(integerName) + " integer overflowed");
}

void raiseUnderflow(std::string_view integerName) {
    MIDIInternals::Exception::raise(MIDIInternals::Exception::underflow,
                                    std::string(integerName) + " integer underflowed");
}

void unrepresentableFloat(std::string_view sourceName, std::string_view targetName) {
    MIDIInternals::fatalError(std::string(sourceName) + " value cannot be converted to " +
                              std::string(targetName) +
                              " because it is outside the representable range");
}

void arithmeticTrap(std::string_view what) {
    MIDIInternals::fatalError(what);
}

void decodingFailure(std::string_view integerName) {
    throw DecodingError("Encoded value is not a valid " + std::string(integerName) + ".");
}

}  // namespace MIDICore::detail
