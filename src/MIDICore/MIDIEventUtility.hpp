#pragma once
// The utility payloads of MIDIEvent, which exist only in MIDI 2.0, in the order of UtilityType.

#include "MIDICore/MIDIEventSystem.hpp"
#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <cstdint>

namespace MIDICore {

enum class UtilityType : std::uint8_t { noOp, jrClock, jrTimestamp };

namespace EventPayload {

using NoOp = StatusOnly<UtilityType::noOp>;

// A jitter-reduction time stamp: the clock of the sender, or the time of the next message.
template <UtilityType Case>
struct JRTime {
    static constexpr UtilityType kind = Case;
    std::uint16_t time = 0;
    UInt4 group;
    friend bool operator==(const JRTime&, const JRTime&) = default;
};
using JRClock = JRTime<UtilityType::jrClock>;
using JRTimestamp = JRTime<UtilityType::jrTimestamp>;

}  // namespace EventPayload

}  // namespace MIDICore
