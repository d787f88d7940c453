#pragma once
// Which of the system's two APIs an object uses: the new one (event lists of a protocol) or the
// legacy one (packet lists of MIDI 1.0 bytes).

#include "MIDICore/MIDIUMPTypes.hpp"
#include "MIDIIO/MIDIPlatform.hpp"

#include <string>

namespace MIDIIO {

class CoreMIDIAPIVersion {
public:
    static constexpr CoreMIDIAPIVersion newCoreMIDI(MIDICore::MIDIProtocolVersion protocol) {
        return CoreMIDIAPIVersion(false, protocol);
    }
    static constexpr CoreMIDIAPIVersion legacyCoreMIDI() {
        return CoreMIDIAPIVersion(true, MIDICore::MIDIProtocolVersion::midi1_0);
    }

    constexpr bool isLegacy() const { return legacy_; }
    // midi1_0 for the legacy API.
    constexpr MIDICore::MIDIProtocolVersion midiProtocol() const { return protocol_; }
    constexpr MIDIProtocolID protocolID() const {
        return protocol_ == MIDICore::MIDIProtocolVersion::midi1_0 ? MIDIProtocolID::midi1_0 : MIDIProtocolID::midi2_0;
    }
    // "New Core MIDI API (MIDI 2.0)", "Legacy Core MIDI API".
    std::string description() const {
        return legacy_ ? "Legacy Core MIDI API" : "New Core MIDI API (" + MIDICore::description(protocol_) + ")";
    }

    friend constexpr bool operator==(const CoreMIDIAPIVersion&, const CoreMIDIAPIVersion&) = default;

private:
    constexpr CoreMIDIAPIVersion(bool legacy, MIDICore::MIDIProtocolVersion protocol)
        : legacy_(legacy), protocol_(protocol) {}
    bool legacy_;
    MIDICore::MIDIProtocolVersion protocol_;
};

}  // namespace MIDIIO
