#pragma once
// The system-exclusive payloads of MIDIEvent, in the order of SysExType.

#include "MIDICore/MIDIUnsignedInteger.hpp"
#include "MIDICore/SysExID.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace MIDICore {

enum class SysExType : std::uint8_t { sysEx7, universalSysEx7, sysEx8, universalSysEx8 };

namespace EventPayload {

struct SysEx7 {
    SysExManufacturer manufacturer;
    std::vector<std::uint8_t> data;
    UInt4 group;
    // 0xF0, the ID bytes, data, 0xF7; the framing bytes only where asked for.
    std::vector<std::uint8_t> midi1RawBytes(bool leadingF0 = true, bool trailingF7 = true) const;
    // The same bytes as two-digit upper-case hexadecimal, no prefix, joined by the separator.
    std::string midi1RawHexString(bool leadingF0 = true, bool trailingF7 = true,
                                  std::optional<std::string_view> separator = " ") const;
    friend bool operator==(const SysEx7&, const SysEx7&) = default;
};
struct UniversalSysEx7 {
    UniversalSysExType universalType;
    UInt7 deviceID;
    UInt7 subID1;
    UInt7 subID2;
    std::vector<std::uint8_t> data;
    UInt4 group;
    // 0xF0, the ID bytes, data, 0xF7; the framing bytes only where asked for.
    std::vector<std::uint8_t> midi1RawBytes(bool leadingF0 = true, bool trailingF7 = true) const;
    // The same bytes as two-digit upper-case hexadecimal, no prefix, joined by the separator.
    std::string midi1RawHexString(bool leadingF0 = true, bool trailingF7 = true,
                                  std::optional<std::string_view> separator = " ") const;
    friend bool operator==(const UniversalSysEx7&, const UniversalSysEx7&) = default;
};
struct SysEx8 {
    SysExManufacturer manufacturer;
    std::vector<std::uint8_t> data;
    std::uint8_t streamID = 0;
    UInt4 group;
    friend bool operator==(const SysEx8&, const SysEx8&) = default;
};
struct UniversalSysEx8 {
    UniversalSysExType universalType;
    UInt7 deviceID;
    UInt7 subID1;
    UInt7 subID2;
    std::vector<std::uint8_t> data;
    std::uint8_t streamID = 0;
    UInt4 group;
    friend bool operator==(const UniversalSysEx8&, const UniversalSysEx8&) = default;
};

}  // namespace EventPayload

}  // namespace MIDICore
