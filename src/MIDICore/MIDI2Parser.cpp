#include "MIDICore/MIDI2Parser.hpp"

#include "MIDICore/MIDI1Wire.hpp"

namespace MIDICore {

namespace {

using Status = MIDIUMPSysExStatusField;

std::uint32_t wordAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return (std::uint32_t{bytes[offset]} << 24) | (std::uint32_t{bytes[offset + 1]} << 16) |
           (std::uint32_t{bytes[offset + 2]} << 8) | bytes[offset + 3];
}

void utility(std::span<const std::uint8_t> p, UInt4 group, std::vector<MIDIEvent>& out) {
    auto time = static_cast<std::uint16_t>((p[2] << 8) | p[3]);
    switch (p[1] >> 4) {
        case 0: out.emplace_back(MIDIEvent::NoOp{group}); break;
        case 1: out.emplace_back(MIDIEvent::JRClock{time, group}); break;
        case 2: out.emplace_back(MIDIEvent::JRTimestamp{time, group}); break;
        default: break;
    }
}

void midi2ChannelVoice(std::span<const std::uint8_t> p, UInt4 group, std::vector<MIDIEvent>& out) {
    const std::uint8_t kind = p[1] >> 4;
    const UInt4 channel = UInt4::fromStorage(p[1] & 0x0F);
    const std::uint8_t b2 = p[2];
    const std::uint8_t b3 = p[3];
    const std::uint32_t data = wordAt(p, 4);
    const bool b2Valid = b2 < 0x80;
    const auto note = MIDINote(UInt7::fromStorage(b2 & 0x7F));
    switch (kind) {
        case 0x0:
        case 0x1:
            if (b2Valid) {
                auto controller = kind == 0 ? PerNoteController::registered(b3) : PerNoteController::assignable(b3);
                out.emplace_back(MIDIEvent::NoteCC{note, controller, ChanVoice32BitValue::midi2(data), channel, group});
            }
            return;
        case 0x2:
        case 0x3:
        case 0x4:
        case 0x5: {
            if (!b2Valid || b3 >= 0x80) {
                return;
            }
            auto [type, change] = *MIDIParameterNumberUtils::typeAndChange(UInt4::fromStorage(kind));
            UInt7Pair parameter{UInt7::fromStorage(b2), UInt7::fromStorage(b3)};
            out.push_back(type == MIDIParameterNumberType::registered
                              ? MIDIEvent::rpn(parameter, data, change, channel, group)
                              : MIDIEvent::nrpn(parameter, data, change, channel, group));
            return;
        }
        case 0x6:
            if (b2Valid) {
                out.emplace_back(MIDIEvent::NotePitchBend{note, ChanVoice32BitValue::midi2(data), channel, group});
            }
            return;
        case 0x8:
        case 0x9:
            if (b2Valid) {
                auto velocity = ChanVoice7Bit16BitValue::midi2(static_cast<std::uint16_t>(data >> 16));
                NoteAttribute attribute(b3, static_cast<std::uint16_t>(data & 0xFFFF));
                if (kind == 0x8) {
                    out.emplace_back(MIDIEvent::NoteOff{note, velocity, attribute, channel, group});
                } else {
                    out.emplace_back(MIDIEvent::NoteOn{note, velocity, attribute, channel, group, true});
                }
            }
            return;
        case 0xA:
            if (b2Valid) {
                out.emplace_back(MIDIEvent::NotePressure{note, ChanVoice7Bit32BitValue::midi2(data), channel, group});
            }
            return;
        case 0xB:
            if (b2Valid) {
                out.emplace_back(
                    MIDIEvent::CC{Controller(UInt7::fromStorage(b2)), ChanVoice7Bit32BitValue::midi2(data), channel, group});
            }
            return;
        case 0xC: {
            auto program = static_cast<std::uint8_t>(data >> 24);
            if (program >= 0x80) {
                return;
            }
            Bank bank = (b3 & 0x01) ? Bank::bankSelect(UInt14(BytePair(static_cast<std::uint8_t>((data >> 8) & 0xFF),
                                                                         static_cast<std::uint8_t>(data & 0xFF))))
                                    : Bank::noBankSelect();
            out.emplace_back(MIDIEvent::ProgramChange{UInt7::fromStorage(program), bank, channel, group});
            return;
        }
        case 0xD: out.emplace_back(MIDIEvent::Pressure{ChanVoice7Bit32BitValue::midi2(data), channel, group}); return;
        case 0xE: out.emplace_back(MIDIEvent::PitchBend{ChanVoice14Bit32BitValue::midi2(data), channel, group}); return;
        case 0xF:
            if (b2Valid) {
                out.emplace_back(MIDIEvent::NoteManagement{note, OptionFlags::fromByte(b3), channel, group});
            }
            return;
        default: return;
    }
}

// Appends `payload` to a reassembly buffer unless that makes it larger than the bound; a buffer
// that would grow too large is dropped and false returned.
bool appendBounded(std::vector<std::uint8_t>& buffer, std::span<const std::uint8_t> payload, std::size_t room) {
    if (payload.size() > room) {
        std::vector<std::uint8_t>().swap(buffer);
        return false;
    }
    buffer.insert(buffer.end(), payload.begin(), payload.end());
    return true;
}

}  // namespace

std::vector<MIDIEvent> MIDI2Parser::parsedEvents(std::span<const std::uint8_t> bytes) {
    std::vector<MIDIEvent> out;
    if (bytes.empty() || bytes.size() % 4 != 0) {
        return out;
    }
    out.reserve(bytes.size() / 4);
    for (std::size_t offset = 0; offset < bytes.size();) {
        auto type = umpMessageType(UInt4::fromStorage(bytes[offset] >> 4));
        if (!type) {
            break;
        }
        std::size_t length = wordLength(*type) * 4;
        if (offset + length > bytes.size()) {
            break;
        }
        auto packet = bytes.subspan(offset, length);
        auto group = UInt4::fromStorage(packet[0] & 0x0F);
        offset += length;
        switch (*type) {
            case MIDIUMPMessageType::utility: utility(packet, group, out); break;
            case MIDIUMPMessageType::systemRealTimeAndCommon:
                if (packet[1] >= 0xF1) {
                    detail::decodeMIDI1Message(packet.subspan(1, 3), group, false, out);
                }
                break;
            case MIDIUMPMessageType::midi1ChannelVoice:
                if (packet[1] >= 0x80 && packet[1] < 0xF0) {
                    detail::decodeMIDI1Message(packet.subspan(1, 3), group, false, out);
                }
                break;
            case MIDIUMPMessageType::data64bit: sysEx7(packet, group, out); break;
            case MIDIUMPMessageType::midi2ChannelVoice: midi2ChannelVoice(packet, group, out); break;
            case MIDIUMPMessageType::data128bit: sysEx8(packet, group, out); break;
        }
    }
    return out;
}

void MIDI2Parser::sysEx7(std::span<const std::uint8_t> packet, UInt4 group, std::vector<MIDIEvent>& out) {
    const std::uint8_t status = packet[1] >> 4;
    const std::uint8_t count = packet[1] & 0x0F;
    if (status > 3 || count > 6) {
        return;
    }
    auto payload = packet.subspan(2, count);
    std::vector<std::uint8_t> message;
    {
        std::lock_guard lock(sysExLock);
        auto& buffer = sysEx7MultiPartUMPBuffer;
        switch (static_cast<Status>(status)) {
            case Status::complete: message.assign(payload.begin(), payload.end()); break;
            case Status::start: buffer.assign(payload.begin(), payload.end()); return;
            case Status::continue_:
                if (!buffer.empty()) {
                    appendBounded(buffer, payload, detail::maximumSysExSize - buffer.size());
                }
                return;
            case Status::end:
                if (buffer.empty() || !appendBounded(buffer, payload, detail::maximumSysExSize - buffer.size())) {
                    return;
                }
                message.swap(buffer);
                break;
        }
    }
    message.insert(message.begin(), 0xF0);
    message.push_back(0xF7);
    if (auto event = detail::parseSysEx7(message, group)) {
        out.push_back(std::move(*event));
    }
}

void MIDI2Parser::sysEx8(std::span<const std::uint8_t> packet, UInt4 group, std::vector<MIDIEvent>& out) {
    const std::uint8_t status = packet[1] >> 4;
    const std::uint8_t count = packet[1] & 0x0F;
    // The count includes the stream ID byte.
    if (status > 3 || count < 1 || count > 14) {
        return;
    }
    const std::uint8_t streamID = packet[2];
    auto payload = packet.subspan(3, count - 1u);
    std::vector<std::uint8_t> message;
    {
        std::lock_guard lock(sysExLock);
        auto found = sysEx8MultiPartUMPBuffer.find(streamID);
        auto drop = [&] {
            if (found != sysEx8MultiPartUMPBuffer.end()) {
                sysEx8BufferedBytes -= found->second.size();
                sysEx8MultiPartUMPBuffer.erase(found);
            }
        };
        // Appends to the stream's buffer within the bound shared by all streams.
        auto append = [&] {
            std::size_t before = found->second.size();
            if (!appendBounded(found->second, payload, detail::maximumSysExSize - sysEx8BufferedBytes)) {
                sysEx8BufferedBytes -= before;
                sysEx8MultiPartUMPBuffer.erase(found);
                return false;
            }
            sysEx8BufferedBytes += payload.size();
            return true;
        };
        bool buffered = found != sysEx8MultiPartUMPBuffer.end() && !found->second.empty();
        switch (static_cast<Status>(status)) {
            case Status::complete: message.assign(payload.begin(), payload.end()); break;
            case Status::start:
                drop();
                if (!payload.empty() && payload.size() <= detail::maximumSysExSize - sysEx8BufferedBytes) {
                    sysEx8MultiPartUMPBuffer.emplace(streamID, std::vector<std::uint8_t>(payload.begin(), payload.end()));
                    sysEx8BufferedBytes += payload.size();
                }
                return;
            case Status::continue_:
                if (buffered) {
                    append();
                }
                return;
            case Status::end:
                if (!buffered || !append()) {
                    return;
                }
                message.swap(found->second);
                sysEx8MultiPartUMPBuffer.erase(found);
                sysEx8BufferedBytes -= message.size();
                break;
        }
    }
    if (auto event = detail::parseSysEx8(message, streamID, group)) {
        out.push_back(std::move(*event));
    }
}

}  // namespace MIDICore
