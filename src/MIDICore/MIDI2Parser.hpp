#pragma once
// MIDI2Parser turns Universal MIDI Packet bytes (four bytes a word, most significant first) into
// events, and joins SysEx7 and SysEx8 messages that span several packets.
//
// One input may hold several packets; parsing stops at a message type this library does not
// read or at a truncated final packet. SysEx7 has one reassembly buffer, SysEx8 one per stream
// ID. A buffer that would grow past 1 MiB is dropped (no event, and the continuation packets
// that follow are dropped as packets with no start); so are SysEx8 buffers that together would
// pass 1 MiB. A stream that stops after its start packet keeps its buffer until the next start.
//
// MIDI 1.0 channel-voice packets (type 2) decode as MIDI 1.0 bytes do, without the zero-velocity
// translation; MIDI 2.0 channel-voice packets (type 4) decode with MIDI 2.0 values. Fields that
// must be 7-bit but carry a high bit make the packet yield nothing.

#include "MIDICore/MIDIEvent.hpp"

#include <cstdint>
#include <map>
#include <mutex>
#include <span>
#include <vector>

namespace MIDICore {

class MIDI2Parser {
public:
    MIDI2Parser() = default;
    MIDI2Parser(const MIDI2Parser&) = delete;
    MIDI2Parser& operator=(const MIDI2Parser&) = delete;

    // Empty when the byte count is 0 or not a multiple of 4.
    std::vector<MIDIEvent> parsedEvents(std::span<const std::uint8_t> bytes);
    // A packet value with a `bytes` field.
    template <class Packet>
        requires requires(const Packet& packet) { std::span<const std::uint8_t>(packet.bytes); }
    std::vector<MIDIEvent> parsedEvents(const Packet& packet) {
        return parsedEvents(std::span<const std::uint8_t>(packet.bytes));
    }

private:
    void sysEx7(std::span<const std::uint8_t> packet, UInt4 group, std::vector<MIDIEvent>& out);
    void sysEx8(std::span<const std::uint8_t> packet, UInt4 group, std::vector<MIDIEvent>& out);

    // Guards the reassembly buffers; channel-voice packets never take it.
    std::mutex sysExLock;
    std::vector<std::uint8_t> sysEx7MultiPartUMPBuffer;
    std::map<std::uint8_t, std::vector<std::uint8_t>> sysEx8MultiPartUMPBuffer;
    std::size_t sysEx8BufferedBytes = 0;
};

}  // namespace MIDICore
