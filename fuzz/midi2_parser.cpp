// Feeds arbitrary words to one MIDI 2.0 parser in several calls, so SysEx7 and SysEx8
// fragments meet across calls. The first byte says how many split points follow (each a word
// offset). Every event must encode as MIDI 2.0 packets that parse back to itself.
#include "MIDICore/MIDI2Parser.hpp"
#include "split_points.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

using namespace MIDICore;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::span<const std::uint8_t> input(data, size);
    const std::size_t splitCount = std::min<std::size_t>(input[0] & 0x07, input.size() - 1);
    auto packets = splitPackets(input.subspan(1 + splitCount), input.subspan(1, splitCount), 4);

    MIDI2Parser parser;
    for (auto packet : packets) {
        for (const auto& event : parser.parsedEvents(packet)) {
            std::vector<std::uint32_t> words;
            event.appendUMPWords(MIDIProtocolVersion::midi2_0, words);
            MIDI2Parser again;
            auto reparsed = again.parsedEvents(umpBytes(words));
            if (reparsed.size() != 1 || reparsed[0] != event) {
                __builtin_trap();
            }
        }
    }
    return 0;
}
