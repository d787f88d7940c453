#pragma once
// The small vocabulary of Universal MIDI Packets: the protocol an event is written for, the
// message types with their lengths in words, the status fields of SysEx, utility and mixed data
// set messages, and the status nibble of MIDI 2.0 parameter-number messages.

#include "MIDICore/MIDIUnsignedInteger.hpp"
#include "MIDICore/ParameterNumber.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace MIDICore {

enum class MIDIProtocolVersion : std::uint8_t { midi1_0, midi2_0 };

// "MIDI 1.0", "MIDI 2.0".
inline std::string description(MIDIProtocolVersion version) {
    return version == MIDIProtocolVersion::midi1_0 ? "MIDI 1.0" : "MIDI 2.0";
}

// The high nibble of a packet's first byte.
enum class MIDIUMPMessageType : std::uint8_t {
    utility = 0x0,
    systemRealTimeAndCommon = 0x1,
    midi1ChannelVoice = 0x2,
    data64bit = 0x3,
    midi2ChannelVoice = 0x4,
    data128bit = 0x5,
};

// The message type of a nibble; nothing for the types this library does not read (6...15).
constexpr std::optional<MIDIUMPMessageType> umpMessageType(UInt4 nibble) {
    if (nibble.storage() > 0x5) {
        return std::nullopt;
    }
    return static_cast<MIDIUMPMessageType>(nibble.storage());
}

// The packet length in 32-bit words: 1, 1, 1, 2, 2, 4.
constexpr unsigned wordLength(MIDIUMPMessageType type) {
    switch (type) {
        case MIDIUMPMessageType::data64bit:
        case MIDIUMPMessageType::midi2ChannelVoice: return 2;
        case MIDIUMPMessageType::data128bit: return 4;
        default: return 1;
    }
}

// Walks a flat list of packets, as the encoders write them: `visit(std::span<const std::uint32_t>)`
// for each packet in order, its length read from the message type of its first word (one word
// for the types this library does not read). A packet cut short by the end of the list is
// passed as far as it goes.
template <class Visit>
void forEachUMPPacket(std::span<const std::uint32_t> words, Visit&& visit) {
    for (std::size_t i = 0; i < words.size();) {
        auto type = umpMessageType(UInt4::fromStorage(static_cast<std::uint8_t>(words[i] >> 28)));
        std::size_t length = std::min<std::size_t>(type ? wordLength(*type) : 1, words.size() - i);
        visit(words.subspan(i, length));
        i += length;
    }
}

constexpr UInt4 rawValue(MIDIUMPMessageType type) { return UInt4::fromStorage(static_cast<std::uint8_t>(type)); }

// Words as the bytes parsers read: four bytes a word, most significant first.
inline std::vector<std::uint8_t> umpBytes(std::span<const std::uint32_t> words) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(words.size() * 4);
    for (auto word : words) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<std::uint8_t>(word >> shift));
        }
    }
    return bytes;
}

enum class MIDIUMPSysExStatusField : std::uint8_t { complete = 0, start = 1, continue_ = 2, end = 3 };
enum class MIDIUMPUtilityStatusField : std::uint8_t { noOp = 0, jrClock = 1, jrTimestamp = 2 };
// Modelled by its status field only: the library has no event for mixed data sets.
enum class MIDIUMPMixedDataSetStatusField : std::uint8_t { header = 8, payload = 9 };

struct MIDIParameterNumberUtils {
    // Registered absolute 0x2, assignable absolute 0x3, registered relative 0x4, assignable
    // relative 0x5.
    static constexpr UInt4 umpStatusNibble(MIDIParameterNumberType type, MIDI2ParameterNumberChange change) {
        std::uint8_t nibble = change == MIDI2ParameterNumberChange::absolute ? 0x2 : 0x4;
        if (type == MIDIParameterNumberType::assignable) {
            ++nibble;
        }
        return UInt4::fromStorage(nibble);
    }
    // The inverse; nothing for the other nibbles.
    static constexpr std::optional<std::pair<MIDIParameterNumberType, MIDI2ParameterNumberChange>>
    typeAndChange(UInt4 umpStatusNibble) {
        auto nibble = umpStatusNibble.storage();
        if (nibble < 0x2 || nibble > 0x5) {
            return std::nullopt;
        }
        auto type = (nibble & 1) ? MIDIParameterNumberType::assignable : MIDIParameterNumberType::registered;
        auto change = nibble >= 0x4 ? MIDI2ParameterNumberChange::relative : MIDI2ParameterNumberChange::absolute;
        return std::pair{type, change};
    }
};

}  // namespace MIDICore
