#include "backends/midi_alsa/AlsaTranslator.hpp"

#include "MIDICore/MIDI1Wire.hpp"
#include "MIDIIO/MIDIPacketLayout.hpp"

#include <algorithm>
#include <cstring>

namespace MIDIIO {

namespace {
template <class T>
void put(std::vector<std::uint8_t>& bytes, const T& value) {
    const auto* raw = reinterpret_cast<const std::uint8_t*>(&value);
    bytes.insert(bytes.end(), raw, raw + sizeof(T));
}

void emitEvent(const MIDICore::MIDIEvent& event, const AlsaOutgoingTranslator::Emit& emit) {
    if (!event.isSystemExclusive()) {
        // Without a heap copy: this is the path of every note and controller.
        auto bytes = MIDICore::detail::midi1ShortBytes(event);
        if (bytes.count > 0) {
            emit(std::span<const std::uint8_t>(bytes.bytes.data(), bytes.count));
        }
        return;
    }
    auto bytes = event.midi1RawBytes();
    if (!bytes.empty()) {
        emit(bytes);
    }
}
// A MIDI 2.0 note on of velocity exactly 0 is what a 7-bit velocity of 0 becomes in MIDI 2.0 words
// (every 7-bit velocity from 1 up scales to 512 or more). The sequencer carries MIDI 1.0 only, and
// the plain MIDI 2.0 to 1.0 rule would raise it to velocity 1: a quiet note that never ends on
// every synth. It leaves as a note on of velocity 0 instead, which MIDI 1.0 receivers take as the
// note's release, as the client meant it. Small non-zero MIDI 2.0 velocities keep the usual rule.
bool isSilentNoteOn(const MIDICore::MIDIEvent::NoteOn& on) {
    const auto velocity = on.velocity();
    return velocity.kind() == MIDICore::ChanVoice7Bit16BitValue::Case::midi2 && velocity.midi2Value() == 0;
}
}  // namespace

AlsaOutgoingTranslator::AlsaOutgoingTranslator() {
    // A note on of velocity 0 goes out as it was sent.
    midi1_.setTranslateNoteOnZeroVelocityToNoteOff(false);
}

void AlsaOutgoingTranslator::packetList(std::span<const std::uint8_t> list, const Emit& emit) {
    forEachMIDIPacket(list, [&](std::span<const std::uint8_t> bytes, MIDITimeStamp) {
        midi1_.parse(bytes, MIDICore::UInt4(0), [&](MIDICore::MIDIEvent&& event) { emitEvent(event, emit); });
    });
}

void AlsaOutgoingTranslator::eventList(std::span<const std::uint8_t> list, const Emit& emit) {
    std::int32_t protocol = 0;
    forEachMIDIEventPacket(list, &protocol, [&](std::span<const std::uint32_t> words, MIDITimeStamp) {
        // A MIDI 1.0 channel voice packet holds the message's bytes as they are: no parse.
        if (words.size() == 1 && (words[0] >> 28) == 0x2) {
            const auto status = static_cast<std::uint8_t>(words[0] >> 16);
            if (status >= 0x80 && status < 0xF0) {
                const std::uint8_t bytes[3] = {status, static_cast<std::uint8_t>((words[0] >> 8) & 0x7F),
                                               static_cast<std::uint8_t>(words[0] & 0x7F)};
                const bool short2 = (status & 0xF0) == 0xC0 || (status & 0xF0) == 0xD0;
                emit(std::span<const std::uint8_t>(bytes, short2 ? 2 : 3));
                return;
            }
        }
        umpBytes_.clear();
        for (auto word : words) {
            for (int shift = 24; shift >= 0; shift -= 8) {
                umpBytes_.push_back(static_cast<std::uint8_t>(word >> shift));
            }
        }
        for (const auto& event : midi2_.parsedEvents(umpBytes_)) {
            if (const auto* on = event.get<MIDICore::MIDIEvent::NoteOn>(); on && isSilentNoteOn(*on)) {
                const std::uint8_t bytes[3] = {MIDICore::detail::midi1Status(0x90, on->channel),
                                               on->note.number().storage(), 0};
                emit(std::span<const std::uint8_t>(bytes, 3));
                continue;
            }
            emitEvent(event, emit);
        }
    });
}

AlsaIncomingTranslator::AlsaIncomingTranslator() { midi1_.setTranslateNoteOnZeroVelocityToNoteOff(false); }

std::vector<std::uint8_t> AlsaIncomingTranslator::packetList(std::span<const std::uint8_t> bytes,
                                                             MIDITimeStamp timeStamp) {
    std::vector<std::uint8_t> list;
    list.reserve(kSizeOfMIDIPacketListHeader + kSizeOfMIDIPacketHeader + bytes.size());
    std::uint32_t count = 0;
    put(list, count);
    for (std::size_t offset = 0; offset < bytes.size();) {
        auto length = static_cast<std::uint16_t>(std::min<std::size_t>(bytes.size() - offset, 0xFFFF));
        put(list, timeStamp);
        put(list, length);
        list.insert(list.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                    bytes.begin() + static_cast<std::ptrdiff_t>(offset + length));
        offset += length;
        ++count;
    }
    std::memcpy(list.data(), &count, 4);
    return list;
}

std::vector<std::uint8_t> AlsaIncomingTranslator::eventList(std::span<const std::uint8_t> bytes,
                                                            MIDIProtocolID protocol, MIDITimeStamp timeStamp) {
    auto version = protocol == MIDIProtocolID::midi1_0 ? MIDICore::MIDIProtocolVersion::midi1_0
                                                       : MIDICore::MIDIProtocolVersion::midi2_0;
    std::vector<std::uint8_t> list;
    std::uint32_t count = 0;
    put(list, static_cast<std::int32_t>(protocol));
    put(list, count);
    midi1_.parse(bytes, MIDICore::UInt4(0), [&](MIDICore::MIDIEvent&& event) {
        words_.clear();
        event.appendUMPWords(version, words_);
        MIDICore::forEachUMPPacket(words_, [&](std::span<const std::uint32_t> packet) {
            put(list, timeStamp);
            put(list, static_cast<std::uint32_t>(packet.size()));
            for (auto word : packet) {
                put(list, word);
            }
            ++count;
        });
    });
    if (count == 0) {
        return {};
    }
    std::memcpy(list.data() + 4, &count, 4);
    return list;
}

}  // namespace MIDIIO
