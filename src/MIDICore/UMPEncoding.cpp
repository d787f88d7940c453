// Universal MIDI Packet words of events. A word is written from its most significant byte; the
// top byte of every packet is the message type (high nibble) and the group (low nibble).
#include "MIDICore/MIDI1Wire.hpp"

#include <algorithm>

namespace MIDICore {

namespace {

using Type = MIDIUMPMessageType;
using detail::midi1Status;

constexpr std::uint32_t word(std::uint8_t b0, std::uint8_t b1, std::uint8_t b2, std::uint8_t b3) {
    return (std::uint32_t{b0} << 24) | (std::uint32_t{b1} << 16) | (std::uint32_t{b2} << 8) | b3;
}

constexpr std::uint8_t head(Type type, UInt4 group) {
    return static_cast<std::uint8_t>((static_cast<std::uint8_t>(type) << 4) | group.storage());
}

// One packet of message type 1 or 2 per MIDI 1.0 message in the bytes.
void midi1MessageWords(const detail::MIDI1ShortBytes& bytes, Type type, UInt4 group, std::vector<std::uint32_t>& out) {
    for (std::uint8_t i = 0; i < bytes.count;) {
        std::uint8_t statusByte = bytes.bytes[i];
        std::uint8_t dataCount = detail::midi1DataByteCount(statusByte);
        std::uint8_t d1 = dataCount >= 1 ? bytes.bytes[i + 1] : 0;
        std::uint8_t d2 = dataCount >= 2 ? bytes.bytes[i + 2] : 0;
        out.push_back(word(head(type, group), statusByte, d1, d2));
        i = static_cast<std::uint8_t>(i + 1 + dataCount);
    }
}

// A SysEx payload cut into chunks. Status: complete when it fits one chunk; otherwise start,
// continue..., end, where the chunk at offset o is the end when o > total - (chunk + 1).
template <class WriteChunk>
void chunked(const std::vector<std::uint8_t>& payload, std::size_t chunkSize, WriteChunk&& write) {
    const std::size_t total = payload.size();
    if (total == 0) {
        return;
    }
    for (std::size_t offset = 0; offset < total; offset += chunkSize) {
        MIDIUMPSysExStatusField field;
        if (total <= chunkSize) {
            field = MIDIUMPSysExStatusField::complete;
        } else if (offset == 0) {
            field = MIDIUMPSysExStatusField::start;
        } else if (offset > total - (chunkSize + 1)) {  // total > chunkSize here
            field = MIDIUMPSysExStatusField::end;
        } else {
            field = MIDIUMPSysExStatusField::continue_;
        }
        std::size_t count = std::min(chunkSize, total - offset);
        std::array<std::uint8_t, 13> chunk{};
        std::copy_n(payload.begin() + static_cast<std::ptrdiff_t>(offset), count, chunk.begin());
        write(static_cast<std::uint8_t>(field), static_cast<std::uint8_t>(count), chunk);
    }
}

void sysEx7Words(const std::vector<std::uint8_t>& payload, UInt4 group, std::vector<std::uint32_t>& out) {
    chunked(payload, 6, [&](std::uint8_t field, std::uint8_t count, const std::array<std::uint8_t, 13>& b) {
        out.push_back(word(head(Type::data64bit, group), static_cast<std::uint8_t>((field << 4) | count), b[0], b[1]));
        out.push_back(word(b[2], b[3], b[4], b[5]));
    });
}

void sysEx8Words(const std::vector<std::uint8_t>& payload, std::uint8_t streamID, UInt4 group,
                 std::vector<std::uint32_t>& out) {
    chunked(payload, 13, [&](std::uint8_t field, std::uint8_t count, const std::array<std::uint8_t, 13>& b) {
        // The byte count includes the stream ID.
        out.push_back(word(head(Type::data128bit, group), static_cast<std::uint8_t>((field << 4) | (count + 1)),
                           streamID, b[0]));
        out.push_back(word(b[1], b[2], b[3], b[4]));
        out.push_back(word(b[5], b[6], b[7], b[8]));
        out.push_back(word(b[9], b[10], b[11], b[12]));
    });
}

template <class SysEx>
std::vector<std::uint8_t> universalPayload(const SysEx& p, std::vector<std::uint8_t> id) {
    id.push_back(p.deviceID.storage());
    id.push_back(p.subID1.storage());
    id.push_back(p.subID2.storage());
    id.insert(id.end(), p.data.begin(), p.data.end());
    return id;
}

std::vector<std::uint8_t> idPayload(std::vector<std::uint8_t> id, const std::vector<std::uint8_t>& data) {
    id.insert(id.end(), data.begin(), data.end());
    return id;
}

// The data value of a MIDI 2.0 parameter number: the 14 bits of data entry MSB and LSB (absent
// bytes as 0), upscaled to 32 bits.
template <class Parameter>
std::uint32_t parameterNumberData(const Parameter& parameter) {
    auto data = parameter.dataEntryBytes();
    auto value = static_cast<std::uint16_t>(data.msb.value_or(UInt7(0)).storage() * 128 +
                                            data.lsb.value_or(UInt7(0)).storage());
    return scaling::upscale14To32(value);
}

struct Encode {
    MIDIProtocolVersion protocol;
    std::vector<std::uint32_t>& out;

    void midi2(UInt4 group, std::uint8_t statusByte, std::uint8_t b2, std::uint8_t b3, std::uint32_t data) const {
        out.push_back(word(head(Type::midi2ChannelVoice, group), statusByte, b2, b3));
        out.push_back(data);
    }
    // The MIDI 1.0 form of a channel-voice event, at protocol midi1_0.
    template <class P>
    bool asMIDI1(const P& p) const {
        if (protocol != MIDIProtocolVersion::midi1_0) {
            return false;
        }
        auto bytes = detail::payloadBytes(p);
        if (bytes.count <= 3) {
            // One message; the bytes it does not use are zero.
            out.push_back(word(head(Type::midi1ChannelVoice, p.group), bytes.bytes[0], bytes.bytes[1], bytes.bytes[2]));
        } else {
            midi1MessageWords(bytes, Type::midi1ChannelVoice, p.group, out);
        }
        return true;
    }
    template <class Note>
    void note(const Note& p, std::uint8_t kind) const {
        if (!asMIDI1(p)) {
            midi2(p.group, midi1Status(kind, p.channel), p.note.number().storage(), p.attribute.attributeType(),
                  (std::uint32_t{p.velocity().midi2Value()} << 16) | p.attribute.attributeData());
        }
    }
    template <class Parameter>
    void parameterNumber(const Parameter& parameter, MIDI2ParameterNumberChange change, UInt4 channel,
                         UInt4 group) const {
        auto nibble = MIDIParameterNumberUtils::umpStatusNibble(parameter.type(), change);
        auto bytes = parameter.parameterBytes();
        midi2(group, static_cast<std::uint8_t>((nibble.storage() << 4) | channel.storage()), bytes.msb.storage(),
              bytes.lsb.storage(), parameterNumberData(parameter));
    }

    void operator()(const MIDIEvent::NoteOn& p) const { note(p, 0x90); }
    void operator()(const MIDIEvent::NoteOff& p) const { note(p, 0x80); }
    void operator()(const MIDIEvent::NoteCC& p) const {
        std::uint8_t kind = p.controller.isRegistered() ? 0x00 : 0x10;
        midi2(p.group, midi1Status(kind, p.channel), p.note.number().storage(), p.controller.number(), p.value().midi2Value());
    }
    void operator()(const MIDIEvent::NotePitchBend& p) const {
        midi2(p.group, midi1Status(0x60, p.channel), p.note.number().storage(), 0, p.value().midi2Value());
    }
    void operator()(const MIDIEvent::NotePressure& p) const {
        if (!asMIDI1(p)) {
            midi2(p.group, midi1Status(0xA0, p.channel), p.note.number().storage(), 0, p.amount().midi2Value());
        }
    }
    void operator()(const MIDIEvent::NoteManagement& p) const {
        midi2(p.group, midi1Status(0xF0, p.channel), p.note.number().storage(), p.flags.byte(), 0);
    }
    void operator()(const MIDIEvent::CC& p) const {
        if (!asMIDI1(p)) {
            midi2(p.group, midi1Status(0xB0, p.channel), p.controller.number().storage(), 0, p.value().midi2Value());
        }
    }
    void operator()(const MIDIEvent::ProgramChange& p) const {
        if (asMIDI1(p)) {
            return;
        }
        auto bank = p.bank.bankSelectValue();
        auto pair = bank ? bank->bytePair() : BytePair();
        midi2(p.group, midi1Status(0xC0, p.channel), 0, bank ? 1 : 0,
              (std::uint32_t{p.program.storage()} << 24) | (std::uint32_t{pair.msb} << 8) | pair.lsb);
    }
    void operator()(const MIDIEvent::PitchBend& p) const {
        if (!asMIDI1(p)) {
            midi2(p.group, midi1Status(0xE0, p.channel), 0, 0, p.value().midi2Value());
        }
    }
    void operator()(const MIDIEvent::Pressure& p) const {
        if (!asMIDI1(p)) {
            midi2(p.group, midi1Status(0xD0, p.channel), 0, 0, p.amount().midi2Value());
        }
    }
    void operator()(const MIDIEvent::RPN& p) const {
        if (!asMIDI1(p)) {
            parameterNumber(p.parameter, p.change, p.channel, p.group);
        }
    }
    void operator()(const MIDIEvent::NRPN& p) const {
        if (!asMIDI1(p)) {
            parameterNumber(p.parameter, p.change, p.channel, p.group);
        }
    }

    void operator()(const MIDIEvent::SysEx7& p) const {
        sysEx7Words(idPayload(p.manufacturer.sysEx7RawBytes(), p.data), p.group, out);
    }
    void operator()(const MIDIEvent::UniversalSysEx7& p) const {
        sysEx7Words(universalPayload(p, {static_cast<std::uint8_t>(p.universalType)}), p.group, out);
    }
    void operator()(const MIDIEvent::SysEx8& p) const {
        sysEx8Words(idPayload(p.manufacturer.sysEx8RawBytes(), p.data), p.streamID, p.group, out);
    }
    void operator()(const MIDIEvent::UniversalSysEx8& p) const {
        sysEx8Words(universalPayload(p, {0x00, static_cast<std::uint8_t>(p.universalType)}), p.streamID, p.group, out);
    }

    void operator()(const MIDIEvent::NoOp& p) const { utility(p.group, MIDIUMPUtilityStatusField::noOp, 0); }
    void operator()(const MIDIEvent::JRClock& p) const { utility(p.group, MIDIUMPUtilityStatusField::jrClock, p.time); }
    void operator()(const MIDIEvent::JRTimestamp& p) const {
        utility(p.group, MIDIUMPUtilityStatusField::jrTimestamp, p.time);
    }
    void utility(UInt4 group, MIDIUMPUtilityStatusField field, std::uint16_t time) const {
        out.push_back(word(head(Type::utility, group), static_cast<std::uint8_t>(static_cast<std::uint8_t>(field) << 4),
                           static_cast<std::uint8_t>(time >> 8), static_cast<std::uint8_t>(time & 0xFF)));
    }

    // System common and real time: the same with either protocol.
    template <class P>
    void operator()(const P& p) const {
        midi1MessageWords(detail::payloadBytes(p), Type::systemRealTimeAndCommon, p.group, out);
    }
};

}  // namespace

void MIDIEvent::appendUMPWords(MIDIProtocolVersion protocol, std::vector<std::uint32_t>& words) const {
    std::visit(Encode{protocol, words}, payload_);
}

std::vector<std::vector<std::uint32_t>> MIDIEvent::umpRawWords(MIDIProtocolVersion protocol) const {
    std::vector<std::uint32_t> words;
    appendUMPWords(protocol, words);
    std::vector<std::vector<std::uint32_t>> packets;
    forEachUMPPacket(words, [&](std::span<const std::uint32_t> packet) { packets.emplace_back(packet.begin(), packet.end()); });
    return packets;
}

}  // namespace MIDICore
