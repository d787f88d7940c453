#pragma once
// The system common and system real-time payloads of MIDIEvent, in the order of SysCommonType
// and SysRealTimeType.

#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <cstdint>

namespace MIDICore {

enum class SysCommonType : std::uint8_t { timecodeQuarterFrame, songPositionPointer, songSelect, tuneRequest };
enum class SysRealTimeType : std::uint8_t { timingClock, start, continue_, stop, activeSensing, systemReset };

namespace EventPayload {

// A message of a status byte alone: a group and nothing else. The case it stands for (a value of
// SysCommonType, SysRealTimeType or UtilityType) tells the kinds apart.
template <auto Case>
struct StatusOnly {
    static constexpr auto kind = Case;
    UInt4 group;
    friend bool operator==(const StatusOnly&, const StatusOnly&) = default;
};

struct TimecodeQuarterFrame {
    UInt7 dataByte;
    UInt4 group;
    friend bool operator==(const TimecodeQuarterFrame&, const TimecodeQuarterFrame&) = default;
};
struct SongPositionPointer {
    UInt14 midiBeat;
    UInt4 group;
    friend bool operator==(const SongPositionPointer&, const SongPositionPointer&) = default;
};
struct SongSelect {
    UInt7 number;
    UInt4 group;
    friend bool operator==(const SongSelect&, const SongSelect&) = default;
};
using TuneRequest = StatusOnly<SysCommonType::tuneRequest>;

using TimingClock = StatusOnly<SysRealTimeType::timingClock>;
using Start = StatusOnly<SysRealTimeType::start>;
using Continue = StatusOnly<SysRealTimeType::continue_>;
using Stop = StatusOnly<SysRealTimeType::stop>;
using ActiveSensing = StatusOnly<SysRealTimeType::activeSensing>;
using SystemReset = StatusOnly<SysRealTimeType::systemReset>;

}  // namespace EventPayload

}  // namespace MIDICore
