#pragma once
// The MIDI 1.0 wire form shared by the encoders and both parsers: the bytes of the non-SysEx
// events, the decoder of one message, and the SysEx readers that report failure without
// throwing (the stream parsers drop bad SysEx silently).

#include "MIDICore/MIDIEvent.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace MIDICore::detail {

// The longest non-SysEx form is an RPN or NRPN: four control changes.
struct MIDI1ShortBytes {
    std::array<std::uint8_t, 12> bytes{};
    std::uint8_t count = 0;
    void push(std::uint8_t a) { bytes[count++] = a; }
    void push(std::uint8_t a, std::uint8_t b) {
        push(a);
        push(b);
    }
    void push(std::uint8_t a, std::uint8_t b, std::uint8_t c) {
        push(a, b);
        push(c);
    }
};

inline std::uint8_t midi1Status(std::uint8_t kind, UInt4 channel) {
    return static_cast<std::uint8_t>(kind | channel.storage());
}

// A note on: a MIDI 2.0 velocity keeps the message a note on with a velocity of at least 1 (in
// MIDI 2.0 velocity 0 is a real note on); a MIDI 1.0 velocity of 0 becomes a note off when the
// event asks for it.
inline void noteOnBytes(const MIDIEvent::NoteOn& p, MIDI1ShortBytes& out) {
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
    out.push(midi1Status(kind, p.channel), p.note.number().storage(), byte);
}

template <class Parameter>
void parameterNumberBytes(const Parameter& parameter, UInt4 channel, MIDI1ShortBytes& out) {
    auto [msbController, lsbController] = controllers(parameter.type());
    auto bytes = parameter.parameterBytes();
    auto data = parameter.dataEntryBytes();
    std::uint8_t cc = midi1Status(0xB0, channel);
    out.push(cc, msbController.number().storage(), bytes.msb.storage());
    out.push(cc, lsbController.number().storage(), bytes.lsb.storage());
    if (data.msb) {
        out.push(cc, Controller::dataEntry.number().storage(), data.msb->storage());
    }
    if (data.lsb) {
        out.push(cc, Controller::lsb(Controller::LSB::dataEntry).number().storage(), data.lsb->storage());
    }
}

// Writes the bytes of a payload (nothing for the payloads with no short form).
struct ShortBytes {
    MIDI1ShortBytes& out;

    void operator()(const MIDIEvent::NoteOn& p) const { noteOnBytes(p, out); }
    void operator()(const MIDIEvent::NoteOff& p) const {
        out.push(midi1Status(0x80, p.channel), p.note.number().storage(), p.velocity().midi1Value().storage());
    }
    void operator()(const MIDIEvent::NotePressure& p) const {
        out.push(midi1Status(0xA0, p.channel), p.note.number().storage(), p.amount().midi1Value().storage());
    }
    void operator()(const MIDIEvent::CC& p) const {
        out.push(midi1Status(0xB0, p.channel), p.controller.number().storage(), p.value().midi1Value().storage());
    }
    void operator()(const MIDIEvent::ProgramChange& p) const {
        if (auto bank = p.bank.bankSelectValue()) {
            auto pair = bank->bytePair();
            out.push(midi1Status(0xB0, p.channel), 0x00, pair.msb);
            out.push(midi1Status(0xB0, p.channel), 0x20, pair.lsb);
        }
        out.push(midi1Status(0xC0, p.channel), p.program.storage());
    }
    void operator()(const MIDIEvent::PitchBend& p) const {
        auto pair = p.value().midi1Value().bytePair();
        out.push(midi1Status(0xE0, p.channel), pair.lsb, pair.msb);
    }
    void operator()(const MIDIEvent::Pressure& p) const {
        out.push(midi1Status(0xD0, p.channel), p.amount().midi1Value().storage());
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
[[gnu::always_inline]] inline MIDI1ShortBytes payloadBytes(const Payload& payload) {
    MIDI1ShortBytes bytes;
    ShortBytes{bytes}(payload);
    return bytes;
}

// The bytes of every event but the SysEx7 ones; empty for the MIDI 2.0-only events.
MIDI1ShortBytes midi1ShortBytes(const MIDIEvent& event);

// Messages of the stream parser carry at most this many SysEx bytes; a larger one is dropped.
inline constexpr std::size_t maximumSysExSize = std::size_t{1} << 20;

// sysEx7(rawBytes) without the throw: the event, or nothing with the reason in `error`.
std::optional<MIDIEvent> parseSysEx7(std::span<const std::uint8_t> bytes, UInt4 group,
                                     MIDIEvent::ParseError::Kind* error = nullptr);
std::optional<MIDIEvent> parseSysEx8(std::span<const std::uint8_t> bytes, std::uint8_t streamID, UInt4 group,
                                     MIDIEvent::ParseError::Kind* error = nullptr);

// Data bytes that follow a status byte: 2 for 0x8n, 0x9n, 0xAn, 0xBn, 0xEn and 0xF2; 1 for 0xCn,
// 0xDn, 0xF1, 0xF3; 0 for the others.
constexpr std::uint8_t midi1DataByteCount(std::uint8_t status) {
    switch (status >> 4) {
        case 0x8: case 0x9: case 0xA: case 0xB: case 0xE: return 2;
        case 0xC: case 0xD: return 1;
        case 0xF: return status == 0xF2 ? 2 : (status == 0xF1 || status == 0xF3) ? 1 : 0;
        default: return 0;
    }
}

// The real-time event of a status byte 0xF8...0xFF; nothing for the undefined 0xF9 and 0xFD.
inline std::optional<MIDIEvent> midi1RealTimeEvent(std::uint8_t status, UInt4 group) {
    switch (status) {
        case 0xF8: return MIDIEvent(MIDIEvent::TimingClock{group});
        case 0xFA: return MIDIEvent(MIDIEvent::Start{group});
        case 0xFB: return MIDIEvent(MIDIEvent::Continue{group});
        case 0xFC: return MIDIEvent(MIDIEvent::Stop{group});
        case 0xFE: return MIDIEvent(MIDIEvent::ActiveSensing{group});
        case 0xFF: return MIDIEvent(MIDIEvent::SystemReset{group});
        default: return std::nullopt;
    }
}

// Appends the event of a complete channel-voice message whose data bytes are known to be 7-bit
// (b2 is ignored by the one-byte forms). The fast path of the stream parser. `Out` is a
// std::vector<MIDIEvent> or anything else with its emplace_back and push_back.
template <class Out>
[[gnu::always_inline]] inline void emitChannelVoice(std::uint8_t b0, std::uint8_t b1, std::uint8_t b2, UInt4 group,
                             bool translateNoteOnZeroVelocityToNoteOff, Out& out) {
    const UInt4 channel = UInt4::fromStorage(b0 & 0x0F);
    const UInt7 d1 = UInt7::fromStorage(b1);
    const UInt7 d2 = UInt7::fromStorage(b2 & 0x7F);
    switch (b0 >> 4) {
        case 0x8:
            out.emplace_back(MIDIEvent::NoteOff{
                MIDINote(d1), ChanVoice7Bit16BitValue::midi1(d2), NoteAttribute(), channel, group});
            return;
        case 0x9:
            if (b2 == 0 && translateNoteOnZeroVelocityToNoteOff) {
                out.emplace_back(MIDIEvent::NoteOff{
                    MIDINote(d1), ChanVoice7Bit16BitValue::midi1(d2), NoteAttribute(), channel, group});
            } else {
                out.emplace_back(MIDIEvent::NoteOn{
                    MIDINote(d1), ChanVoice7Bit16BitValue::midi1(d2), NoteAttribute(), channel, group, true});
            }
            return;
        case 0xA:
            out.emplace_back(MIDIEvent::NotePressure{
                MIDINote(d1), ChanVoice7Bit32BitValue::midi1(d2), channel, group});
            return;
        case 0xB:
            out.emplace_back(MIDIEvent::CC{Controller(d1), ChanVoice7Bit32BitValue::midi1(d2), channel, group});
            return;
        case 0xC:
            out.emplace_back(MIDIEvent::ProgramChange{d1, Bank::noBankSelect(), channel, group});
            return;
        case 0xD:
            out.emplace_back(MIDIEvent::Pressure{ChanVoice7Bit32BitValue::midi1(d1), channel, group});
            return;
        case 0xE: {
            auto value = UInt14::fromStorage(static_cast<std::uint16_t>(b1 | (d2.storage() << 7)));
            out.emplace_back(MIDIEvent::PitchBend{ChanVoice14Bit32BitValue::midi1(value), channel, group});
            return;
        }
        default: return;
    }
}

// Decodes one MIDI 1.0 message (status byte first; missing bytes make it short) and appends
// the event, if any, to `out`. Bad or short messages append nothing.
template <class Out>
inline void decodeMIDI1Message(std::span<const std::uint8_t> message, UInt4 group,
                               bool translateNoteOnZeroVelocityToNoteOff, Out& out) {
    if (message.empty()) {
        return;
    }
    const std::uint8_t b0 = message[0];
    const std::size_t size = message.size();
    const std::uint8_t b1 = size > 1 ? message[1] : 0;
    const std::uint8_t b2 = size > 2 ? message[2] : 0;
    const bool oneValid = size > 1 && b1 < 0x80;
    const bool twoValid = oneValid && size > 2 && b2 < 0x80;
    switch (b0 >> 4) {
        case 0x8:
        case 0x9:
        case 0xA:
        case 0xB:
            if (twoValid) {
                emitChannelVoice(b0, b1, b2, group, translateNoteOnZeroVelocityToNoteOff, out);
            }
            return;
        case 0xC:
        case 0xD:
            if (oneValid) {
                emitChannelVoice(b0, b1, 0, group, translateNoteOnZeroVelocityToNoteOff, out);
            }
            return;
        case 0xE:
            // Pitch bend bytes are masked, not checked.
            if (size > 2) {
                emitChannelVoice(b0, b1 & 0x7F, b2 & 0x7F, group, translateNoteOnZeroVelocityToNoteOff, out);
            }
            return;
        case 0xF: break;
        default: return;
    }
    auto u7 = [](std::uint8_t byte) { return UInt7::fromStorage(byte); };
    switch (b0) {
        case 0xF0:
            if (auto event = parseSysEx7(message, group)) {
                out.push_back(std::move(*event));
            }
            return;
        case 0xF1:
            if (oneValid) {
                out.emplace_back(MIDIEvent::TimecodeQuarterFrame{u7(b1), group});
            }
            return;
        case 0xF2:
            if (size > 2) {
                out.emplace_back(
                    MIDIEvent::SongPositionPointer{UInt14::fromStorage(static_cast<std::uint16_t>((b1 & 0x7F) | ((b2 & 0x7F) << 7))), group});
            }
            return;
        case 0xF3:
            if (oneValid) {
                out.emplace_back(MIDIEvent::SongSelect{u7(b1), group});
            }
            return;
        case 0xF6: out.emplace_back(MIDIEvent::TuneRequest{group}); return;
        default:
            if (auto event = midi1RealTimeEvent(b0, group)) {
                out.push_back(std::move(*event));
            }
            return;
    }
}

}  // namespace MIDICore::detail
