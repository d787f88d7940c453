// MIDI 1.0 bytes of events. Every 7-bit value is the midi1Value of its wrapper.
#include "MIDICore/MIDI1Wire.hpp"

#include "MIDIInternals/TextHelpers.hpp"

namespace MIDICore {

namespace {

using detail::MIDI1ShortBytes;

std::uint8_t status(std::uint8_t kind, UInt4 channel) {
    return static_cast<std::uint8_t>(kind | channel.storage());
}

// A note on: a MIDI 2.0 velocity keeps the message a note on with a velocity of at least 1 (in
// MIDI 2.0 velocity 0 is a real note on); a MIDI 1.0 velocity of 0 becomes a note off when the
// event asks for it.
void noteOnBytes(const MIDIEvent::NoteOn& p, MIDI1ShortBytes& out) {
    auto velocity = p.velocity();
    std::uint8_t byte = 0;
    std::uint8_t kind = 0x90;
    if (velocity.kind() == ChanVoice7Bit16BitValue::Case::midi2) {
        byte = static_cast<std::uint8_t>(velocity.midi2Value() >> 9);
        if (byte <= 1) {
            byte = 1;
        }
    } else {
        byte = velocity.midi1Value().storage();
        if (byte == 0 && p.midi1ZeroVelocityAsNoteOff) {
            kind = 0x80;
        }
    }
    out.push(status(kind, p.channel), p.note.number().storage(), byte);
}

template <class Parameter>
void parameterNumberBytes(const Parameter& parameter, UInt4 channel, MIDI1ShortBytes& out) {
    auto [msbController, lsbController] = controllers(parameter.type());
    auto bytes = parameter.parameterBytes();
    auto data = parameter.dataEntryBytes();
    std::uint8_t cc = status(0xB0, channel);
    out.push(cc, msbController.number().storage(), bytes.msb.storage());
    out.push(cc, lsbController.number().storage(), bytes.lsb.storage());
    if (data.msb) {
        out.push(cc, Controller::dataEntry.number().storage(), data.msb->storage());
    }
    if (data.lsb) {
        out.push(cc, Controller::lsb(Controller::LSB::dataEntry).number().storage(), data.lsb->storage());
    }
}

struct ShortBytes {
    MIDI1ShortBytes& out;

    void operator()(const MIDIEvent::NoteOn& p) const { noteOnBytes(p, out); }
    void operator()(const MIDIEvent::NoteOff& p) const {
        out.push(status(0x80, p.channel), p.note.number().storage(), p.velocity().midi1Value().storage());
    }
    void operator()(const MIDIEvent::NotePressure& p) const {
        out.push(status(0xA0, p.channel), p.note.number().storage(), p.amount().midi1Value().storage());
    }
    void operator()(const MIDIEvent::CC& p) const {
        out.push(status(0xB0, p.channel), p.controller.number().storage(), p.value().midi1Value().storage());
    }
    void operator()(const MIDIEvent::ProgramChange& p) const {
        if (auto bank = p.bank.bankSelectValue()) {
            auto pair = bank->bytePair();
            out.push(status(0xB0, p.channel), 0x00, pair.msb);
            out.push(status(0xB0, p.channel), 0x20, pair.lsb);
        }
        out.push(status(0xC0, p.channel), p.program.storage());
    }
    void operator()(const MIDIEvent::PitchBend& p) const {
        auto pair = p.value().midi1Value().bytePair();
        out.push(status(0xE0, p.channel), pair.lsb, pair.msb);
    }
    void operator()(const MIDIEvent::Pressure& p) const {
        out.push(status(0xD0, p.channel), p.amount().midi1Value().storage());
    }
    void operator()(const MIDIEvent::RPN& p) const { parameterNumberBytes(p.parameter, p.channel, out); }
    void operator()(const MIDIEvent::NRPN& p) const { parameterNumberBytes(p.parameter, p.channel, out); }
    void operator()(const MIDIEvent::TimecodeQuarterFrame& p) const { out.push(0xF1, p.dataByte.storage()); }
    void operator()(const MIDIEvent::SongPositionPointer& p) const {
        auto pair = p.midiBeat.bytePair();
        out.push(0xF2, pair.lsb, pair.msb);
    }
    void operator()(const MIDIEvent::SongSelect& p) const { out.push(0xF3, p.number.storage()); }
    void operator()(const MIDIEvent::TuneRequest&) const { out.push(0xF6); }
    void operator()(const MIDIEvent::TimingClock&) const { out.push(0xF8); }
    void operator()(const MIDIEvent::Start&) const { out.push(0xFA); }
    void operator()(const MIDIEvent::Continue&) const { out.push(0xFB); }
    void operator()(const MIDIEvent::Stop&) const { out.push(0xFC); }
    void operator()(const MIDIEvent::ActiveSensing&) const { out.push(0xFE); }
    void operator()(const MIDIEvent::SystemReset&) const { out.push(0xFF); }
    // Per-note events, SysEx (written elsewhere) and utility messages have no short form.
    template <class P>
    void operator()(const P&) const {}
};

template <class Payload>
MIDI1ShortBytes payloadBytes(const Payload& payload) {
    MIDI1ShortBytes bytes;
    ShortBytes{bytes}(payload);
    return bytes;
}

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
        return index() <= 13 ? std::optional<std::uint8_t>(0xF0) : std::nullopt;
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
