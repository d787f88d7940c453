#pragma once
// MIDI1Parser turns a MIDI 1.0 byte stream, one packet at a time, into events.
//
// The only state that survives between calls is the running status: the last channel-voice
// status byte, cleared by any byte 0xF0...0xF7 and untouched by real-time bytes. Everything
// else of a message must arrive within one call: a message cut short at the end of a packet
// yields nothing, and SysEx is not joined across packets. Real-time bytes come out at once, so
// one that interrupts a message comes out ahead of it. Malformed input yields no event and is
// never reported. A SysEx message larger than 1 MiB is dropped.
//
// One parser belongs to one receiver and is called one call at a time. Its two fields are
// atomics, so changing the zero-velocity switch from another thread is safe; two concurrent
// parsedEvents calls on one parser would interleave their running status, and callers do not
// do that.

#include "MIDICore/MIDIEvent.hpp"

#include <atomic>
#include <cstdint>
#include <span>
#include <vector>

namespace MIDICore {

class MIDI1Parser {
public:
    MIDI1Parser() = default;

    // True by default: a note on with velocity 0 is delivered as a noteOff.
    bool translateNoteOnZeroVelocityToNoteOff() const { return translate_.load(std::memory_order_relaxed); }
    void setTranslateNoteOnZeroVelocityToNoteOff(bool translate) { translate_.store(translate, std::memory_order_relaxed); }

    // The events of one packet, in stream order except for real-time bytes; `umpGroup` is
    // stamped on every event.
    std::vector<MIDIEvent> parsedEvents(std::span<const std::uint8_t> bytes, UInt4 umpGroup = UInt4(0));
    // A packet value with a `bytes` field.
    template <class Packet>
        requires requires(const Packet& packet) { std::span<const std::uint8_t>(packet.bytes); }
    std::vector<MIDIEvent> parsedEvents(const Packet& packet, UInt4 umpGroup = UInt4(0)) {
        return parsedEvents(std::span<const std::uint8_t>(packet.bytes), umpGroup);
    }

private:
    std::atomic<bool> translate_{true};
    // A channel status byte, or 0 for none.
    std::atomic<std::uint8_t> runningStatus_{0};
};

}  // namespace MIDICore
