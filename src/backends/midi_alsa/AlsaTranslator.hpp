#pragma once
// The ALSA backend's translation between the library's lists and the sequencer's events. The
// sequencer of Debian 12 carries MIDI 1.0 only, so everything passes through complete MIDI 1.0
// messages, read and written with the MIDI library's own codecs: a MIDI 2.0 value sent by the
// library is scaled down as its MIDI 1.0 form says, and what arrives is handed on as a packet list
// or as an event list in the receiver's protocol.

#include "MIDICore/MIDI1Parser.hpp"
#include "MIDICore/MIDI2Parser.hpp"
#include "MIDIIO/MIDIPlatform.hpp"

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace MIDIIO {

// Splits what one stream sends (packet lists or event lists) into complete MIDI 1.0 messages.
// The parsers keep their state between lists (running status, a SysEx spread over several
// packets), so each sending stream has its own.
class AlsaOutgoingTranslator {
public:
    using Emit = std::function<void(std::span<const std::uint8_t> message)>;

    AlsaOutgoingTranslator();
    // Calls `emit` for each complete message of the list, in order; what cannot be read is left
    // out.
    void packetList(std::span<const std::uint8_t> list, const Emit& emit);
    void eventList(std::span<const std::uint8_t> list, const Emit& emit);

private:
    MIDICore::MIDI1Parser midi1_;
    MIDICore::MIDI2Parser midi2_;
    std::vector<std::uint8_t> umpBytes_;
};

// Turns the MIDI 1.0 bytes of one received event into lists. One per receiving stream (the
// sending port), as the parser keeps a SysEx in progress.
class AlsaIncomingTranslator {
public:
    AlsaIncomingTranslator();
    // A packet list of one packet, or of several when the bytes exceed a packet's length.
    static std::vector<std::uint8_t> packetList(std::span<const std::uint8_t> bytes, MIDITimeStamp timeStamp);
    // An event list at the protocol; empty when the bytes complete no event.
    std::vector<std::uint8_t> eventList(std::span<const std::uint8_t> bytes, MIDIProtocolID protocol,
                                        MIDITimeStamp timeStamp);

private:
    MIDICore::MIDI1Parser midi1_;
    std::vector<std::uint32_t> words_;
};

}  // namespace MIDIIO
