// Feeds arbitrary bytes to one MIDI 1.0 parser in several calls. The first byte chooses the
// group, the zero-velocity switch and how many split points follow; each split point byte is
// an offset into the rest. Every event must write back as bytes that parse to itself, and a
// second parser fed the same packets through its sink form must hand out the same events.
#include "MIDICore/MIDI1Parser.hpp"
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
    const std::uint8_t control = input[0];
    const auto group = UInt4::fromStorage(control & 0x0F);
    const bool translate = (control & 0x10) != 0;
    const std::size_t splitCount = std::min<std::size_t>((control >> 5) & 0x07, input.size() - 1);
    auto packets = splitPackets(input.subspan(1 + splitCount), input.subspan(1, splitCount), 1);

    MIDI1Parser parser;
    parser.setTranslateNoteOnZeroVelocityToNoteOff(translate);
    MIDI1Parser sinkParser;
    sinkParser.setTranslateNoteOnZeroVelocityToNoteOff(translate);
    for (auto packet : packets) {
        const auto events = parser.parsedEvents(packet, group);
        std::vector<MIDIEvent> sunk;
        sinkParser.parse(packet, group, [&](MIDIEvent&& event) { sunk.push_back(std::move(event)); });
        if (sunk != events) {
            __builtin_trap();
        }
        for (const auto& event : events) {
            if (event.group() != group) {
                __builtin_trap();
            }
            auto on = event.get<MIDIEvent::NoteOn>();
            if (on && on->velocity().midi1Value() == 0) {
                continue;  // written back as a note off, by rule
            }
            MIDI1Parser again;
            again.setTranslateNoteOnZeroVelocityToNoteOff(translate);
            auto reparsed = again.parsedEvents(event.midi1RawBytes(), group);
            if (reparsed.size() != 1 || reparsed[0] != event) {
                __builtin_trap();
            }
        }
    }
    return 0;
}
