#include "MIDICore/MIDI1Parser.hpp"

namespace MIDICore {

std::vector<MIDIEvent> MIDI1Parser::parsedEvents(std::span<const std::uint8_t> bytes, UInt4 umpGroup) {
    std::vector<MIDIEvent> out;
    if (bytes.empty()) {
        return out;
    }
    out.reserve(bytes.size() / 2 + 1);
    parseInto(bytes, umpGroup, out);
    return out;
}

}  // namespace MIDICore
