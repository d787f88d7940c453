#pragma once
// The loopback server's data in flight and its translation between forms: packet lists of MIDI
// 1.0 bytes, and event lists of UMP words at MIDI 1.0 or MIDI 2.0.

#include "MIDICore/MIDIEvent.hpp"
#include "MIDIIO/MIDIPlatform.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace MIDIIO {

// One list as sent: a packet list, or an event list (whose header names its protocol).
struct LoopbackMessage {
    bool isEventList = false;
    std::vector<std::uint8_t> bytes;
};

// Something that receives data: a legacy block (packet lists) or a block of a protocol.
struct Receiver {
    std::optional<MIDIProtocolID> protocol;  // absent: legacy, packet lists
    MIDIPlatform::ReadBlock readBlock;
    MIDIPlatform::ReceiveBlock receiveBlock;
};

// The kinds of message a thru connection keeps from its destinations.
struct LoopbackThruFilter {
    bool sysEx = false;        // every SysEx, 7- and 8-bit
    bool mtc = false;          // time code: quarter frames and full-frame (universal real-time 01)
    bool beatClock = false;    // timing clock
    bool tuneRequest = false;
    bool allControls = false;  // control changes, RPN/NRPN, per-note controllers

    static LoopbackThruFilter of(const MIDIThruConnectionParams& params);
    bool any() const { return sysEx || mtc || beatClock || tuneRequest || allControls; }
    bool drops(const MIDICore::MIDIEvent& event) const;
};

// Translates the lists of one stream. Parsers keep their state between lists of the stream
// (running status, SysEx in progress), so each stream has its own translator. A list is parsed
// once, whatever the number of receivers, by `prepare`, then written in each receiver's form.
class LoopbackTranslator {
public:
    LoopbackTranslator();
    ~LoopbackTranslator();
    LoopbackTranslator(LoopbackTranslator&&) noexcept;
    LoopbackTranslator& operator=(LoopbackTranslator&&) noexcept;

    // Reads the message for translation (a no-op when no receiver needs another form or a
    // filter).
    void prepare(const LoopbackMessage& message);
    // The message in the receiver's form: a packet list when `protocol` is absent, else an event
    // list of that protocol, without what the filter drops. Nothing when that leaves no data. A
    // message in the receiver's form passes as it came unless a filter is set.
    std::optional<std::vector<std::uint8_t>> render(const LoopbackMessage& message,
                                                    std::optional<MIDIProtocolID> protocol,
                                                    const LoopbackThruFilter& filter = {}) const;
    // Whether the message is already in the receiver's form.
    static bool isInForm(const LoopbackMessage& message, std::optional<MIDIProtocolID> protocol);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace MIDIIO
