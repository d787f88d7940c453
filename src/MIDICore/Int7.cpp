#include "MIDICore/Int7.hpp"

#include "MIDIInternals/TextHelpers.hpp"

namespace MIDICore {

std::string Int7::binaryString() const {
    return MIDIInternals::binaryString(rawByte(), 7, true);
}

}  // namespace MIDICore
