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

// Decodes one MIDI 1.0 message (status byte first; missing bytes make it short) and appends
// the event, if any, to `out`. Bad or short messages append nothing.
inline void decodeMIDI1Message(std::span<const std::uint8_t> message, UInt4 group,
                               bool translateNoteOnZeroVelocityToNoteOff, std::vector<MIDIEvent>& out) {
    if (message.empty()) {
        return;
    }
    const std::uint8_t b0 = message[0];
    const std::size_t size = message.size();
    const std::uint8_t b1 = size > 1 ? message[1] : 0;
    const std::uint8_t b2 = size > 2 ? message[2] : 0;
    const bool oneValid = size > 1 && b1 < 0x80;
    const bool twoValid = oneValid && size > 2 && b2 < 0x80;
    const UInt4 channel = UInt4::fromStorage(b0 & 0x0F);
    auto u7 = [](std::uint8_t byte) { return UInt7::fromStorage(byte); };
    auto u14 = [&] { return UInt14::fromStorage(static_cast<std::uint16_t>((b1 & 0x7F) | ((b2 & 0x7F) << 7))); };
    switch (b0 >> 4) {
        case 0x8:
            if (twoValid) {
                out.emplace_back(MIDIEvent::NoteOff{MIDINote(u7(b1)), ChanVoice7Bit16BitValue::midi1(u7(b2)),
                                                    NoteAttribute(), channel, group});
            }
            return;
        case 0x9:
            if (twoValid) {
                if (b2 == 0 && translateNoteOnZeroVelocityToNoteOff) {
                    out.emplace_back(MIDIEvent::NoteOff{MIDINote(u7(b1)), ChanVoice7Bit16BitValue::midi1(UInt7(0)),
                                                        NoteAttribute(), channel, group});
                } else {
                    out.emplace_back(MIDIEvent::NoteOn{MIDINote(u7(b1)), ChanVoice7Bit16BitValue::midi1(u7(b2)),
                                                       NoteAttribute(), channel, group, true});
                }
            }
            return;
        case 0xA:
            if (twoValid) {
                out.emplace_back(
                    MIDIEvent::NotePressure{MIDINote(u7(b1)), ChanVoice7Bit32BitValue::midi1(u7(b2)), channel, group});
            }
            return;
        case 0xB:
            if (twoValid) {
                out.emplace_back(MIDIEvent::CC{Controller(u7(b1)), ChanVoice7Bit32BitValue::midi1(u7(b2)), channel, group});
            }
            return;
        case 0xC:
            if (oneValid) {
                out.emplace_back(MIDIEvent::ProgramChange{u7(b1), Bank::noBankSelect(), channel, group});
            }
            return;
        case 0xD:
            if (oneValid) {
                out.emplace_back(MIDIEvent::Pressure{ChanVoice7Bit32BitValue::midi1(u7(b1)), channel, group});
            }
            return;
        case 0xE:
            if (size > 2) {
                out.emplace_back(MIDIEvent::PitchBend{ChanVoice14Bit32BitValue::midi1(u14()), channel, group});
            }
            return;
        case 0xF: break;
        default: return;
    }
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
                out.emplace_back(MIDIEvent::SongPositionPointer{u14(), group});
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
