// MIDI 1.0 bytes of events. Every 7-bit value is the midi1Value of its wrapper.
#include "MIDICore/MIDI1Wire.hpp"

#include "MIDIInternals/TextHelpers.hpp"

namespace MIDICore {

namespace {

using detail::MIDI1ShortBytes;
using detail::payloadBytes;
using detail::ShortBytes;

template <class Payload>
MIDI1DataBytes payloadDataBytes(const Payload& payload) {
    auto bytes = payloadBytes(payload);
    // A program change ends with its one data byte, after the bank select messages if any.
    if (bytes.count == 2 || std::is_same_v<Payload, MIDIEvent::ProgramChange>) {
        return MIDI1DataBytes{bytes.bytes[bytes.count - 1], std::nullopt};
    }
    return MIDI1DataBytes{bytes.bytes[1], bytes.bytes[2]};
}

template <class SysEx>
std::vector<std::uint8_t> sysEx7Bytes(const SysEx& p, const std::vector<std::uint8_t>& id, bool leadingF0,
                                      bool trailingF7) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(id.size() + p.data.size() + 2);
    if (leadingF0) {
        bytes.push_back(0xF0);
    }
    bytes.insert(bytes.end(), id.begin(), id.end());
    bytes.insert(bytes.end(), p.data.begin(), p.data.end());
    if (trailingF7) {
        bytes.push_back(0xF7);
    }
    return bytes;
}

std::vector<std::uint8_t> universalID(const MIDIEvent::UniversalSysEx7& p) {
    return {static_cast<std::uint8_t>(p.universalType), p.deviceID.storage(), p.subID1.storage(), p.subID2.storage()};
}

std::string hexText(const std::vector<std::uint8_t>& bytes, std::optional<std::string_view> separator) {
    return MIDIInternals::hexString(bytes, 2, false, separator.value_or(""));
}

}  // namespace

namespace detail {
MIDI1ShortBytes midi1ShortBytes(const MIDIEvent& event) {
    MIDI1ShortBytes bytes;
    std::visit(ShortBytes{bytes}, event.payload());
    return bytes;
}
}  // namespace detail

#define MIDICORE_CHANNEL_PAYLOAD_BYTES(Payload)                                                    \
    std::uint8_t MIDIEvent::Payload::midi1RawStatusByte() const { return payloadBytes(*this).bytes[0]; } \
    MIDI1DataBytes MIDIEvent::Payload::midi1RawDataBytes() const { return payloadDataBytes(*this); }
MIDICORE_CHANNEL_PAYLOAD_BYTES(NoteOn)
MIDICORE_CHANNEL_PAYLOAD_BYTES(NoteOff)
MIDICORE_CHANNEL_PAYLOAD_BYTES(NotePressure)
MIDICORE_CHANNEL_PAYLOAD_BYTES(CC)
MIDICORE_CHANNEL_PAYLOAD_BYTES(ProgramChange)
MIDICORE_CHANNEL_PAYLOAD_BYTES(PitchBend)
MIDICORE_CHANNEL_PAYLOAD_BYTES(Pressure)
#undef MIDICORE_CHANNEL_PAYLOAD_BYTES

std::vector<std::uint8_t> MIDIEvent::SysEx7::midi1RawBytes(bool leadingF0, bool trailingF7) const {
    return sysEx7Bytes(*this, manufacturer.sysEx7RawBytes(), leadingF0, trailingF7);
}

std::string MIDIEvent::SysEx7::midi1RawHexString(bool leadingF0, bool trailingF7,
                                                 std::optional<std::string_view> separator) const {
    return hexText(midi1RawBytes(leadingF0, trailingF7), separator);
}

std::vector<std::uint8_t> MIDIEvent::UniversalSysEx7::midi1RawBytes(bool leadingF0, bool trailingF7) const {
    return sysEx7Bytes(*this, universalID(*this), leadingF0, trailingF7);
}

std::string MIDIEvent::UniversalSysEx7::midi1RawHexString(bool leadingF0, bool trailingF7,
                                                          std::optional<std::string_view> separator) const {
    return hexText(midi1RawBytes(leadingF0, trailingF7), separator);
}

std::vector<std::uint8_t> MIDIEvent::midi1RawBytes() const {
    if (auto sysEx = get<SysEx7>()) {
        return sysEx->midi1RawBytes();
    }
    if (auto sysEx = get<UniversalSysEx7>()) {
        return sysEx->midi1RawBytes();
    }
    auto bytes = detail::midi1ShortBytes(*this);
    return std::vector<std::uint8_t>(bytes.bytes.begin(), bytes.bytes.begin() + bytes.count);
}

std::optional<std::uint8_t> MIDIEvent::midi1RawStatusByte() const {
    if (isSystemExclusive()) {
        const bool sevenBit = isSystemExclusive(EnumSet<SysExType>{SysExType::sysEx7, SysExType::universalSysEx7});
        return sevenBit ? std::optional<std::uint8_t>(0xF0) : std::nullopt;
    }
    if (get<RPN>() || get<NRPN>()) {
        return std::nullopt;
    }
    auto bytes = detail::midi1ShortBytes(*this);
    return bytes.count == 0 ? std::nullopt : std::optional<std::uint8_t>(bytes.bytes[0]);
}

std::optional<MIDI1DataBytes> MIDIEvent::midi1RawDataBytes() const {
    if (isSystemExclusive() || get<RPN>() || get<NRPN>()) {
        return std::nullopt;
    }
    auto bytes = detail::midi1ShortBytes(*this);
    if (bytes.count <= 1) {
        return std::nullopt;
    }
    return std::visit(
        [](const auto& p) -> std::optional<MIDI1DataBytes> {
            if constexpr (requires { p.midi1RawDataBytes(); }) {
                return p.midi1RawDataBytes();
            } else {
                auto bytes = payloadBytes(p);
                if (bytes.count == 2) {
                    return MIDI1DataBytes{bytes.bytes[1], std::nullopt};
                }
                return MIDI1DataBytes{bytes.bytes[1], bytes.bytes[2]};
            }
        },
        payload_);
}

}  // namespace MIDICore
