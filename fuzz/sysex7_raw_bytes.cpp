// Parses arbitrary bytes as one complete SysEx7 message. A message that parses must write back
// as the same bytes (with the trailing F7 added when it was missing).
#include "MIDICore/MIDIEvent.hpp"

#include <cstddef>
#include <cstdint>
#include <vector>

using namespace MIDICore;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> bytes(data, data + size);
    try {
        auto event = MIDIEvent::sysEx7(bytes, UInt4(1));
        auto written = event.midi1RawBytes();
        if (bytes.back() != 0xF7) {
            bytes.push_back(0xF7);
        }
        if (written != bytes || !event.isSystemExclusive()) {
            __builtin_trap();
        }
    } catch (const MIDIEvent::ParseError&) {
    }
    return 0;
}
