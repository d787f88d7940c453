// What the ALSA backend hands the sequencer for the lists the library sends: complete MIDI 1.0
// messages, whether they came as MIDI 1.0 packets, MIDI 2.0 packets or byte packet lists.

#include "backends/midi_alsa/AlsaTranslator.hpp"

#include "MIDICore/MIDIEvent.hpp"
#include "MIDIIO/MIDIEventPacket.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace MIDIIO {
namespace {

using Bytes = std::vector<std::uint8_t>;
using MIDICore::MIDIEvent;
using MIDICore::UInt4;
using MIDICore::UInt7;

std::vector<Bytes> sendEvents(AlsaOutgoingTranslator& translator, const std::vector<MIDIEvent>& events,
                              MIDICore::MIDIProtocolVersion version) {
    std::vector<Bytes> messages;
    for (const auto& event : events) {
        std::vector<std::uint32_t> words;
        event.appendUMPWords(version, words);
        MIDICore::forEachUMPPacket(words, [&](std::span<const std::uint32_t> packet) {
            auto protocol = version == MIDICore::MIDIProtocolVersion::midi1_0 ? MIDIProtocolID::midi1_0
                                                                              : MIDIProtocolID::midi2_0;
            auto list = makeMIDIEventList(protocol, packet, 0);
            translator.eventList(list.bytes(), [&](std::span<const std::uint8_t> message) {
                messages.emplace_back(message.begin(), message.end());
            });
        });
    }
    return messages;
}

TEST(AlsaOutgoingTranslator, ChannelVoiceMessagesArriveWholeAtEitherProtocol) {
    const std::vector<MIDIEvent> events{
        MIDIEvent::noteOn(UInt7(60), MIDICore::ChanVoice7Bit16BitValue::midi1(UInt7(100)), UInt4(3)),
        MIDIEvent::programChange(UInt7(5), UInt4(15)),
        MIDIEvent::pitchBend(MIDICore::ChanVoice14Bit32BitValue::midi1(MIDICore::UInt14(0x1234)), UInt4(0)),
        MIDIEvent::cc(UInt7(7),
                      MIDICore::ChanVoice7Bit32BitValue::midi1(UInt7(127)), UInt4(4)),
    };
    const std::vector<Bytes> expected{{0x93, 60, 100}, {0xCF, 5}, {0xE0, 0x34, 0x24}, {0xB4, 7, 127}};
    AlsaOutgoingTranslator midi1;
    EXPECT_EQ(sendEvents(midi1, events, MIDICore::MIDIProtocolVersion::midi1_0), expected);
    // MIDI 2.0 values scale down to the same MIDI 1.0 bytes.
    AlsaOutgoingTranslator midi2;
    EXPECT_EQ(sendEvents(midi2, events, MIDICore::MIDIProtocolVersion::midi2_0), expected);
}

TEST(AlsaOutgoingTranslator, AReleasedNotePadStaysANoteOnOfVelocityZero) {
    // What the service sends for a note pad released to 0; a note off would change the message,
    // a velocity of 1 would leave the note sounding.
    const std::vector<MIDIEvent> released{MIDIEvent::noteOn(
        UInt7(60), MIDICore::ChanVoice7Bit16BitValue::midi1(UInt7(0)), UInt4(3), UInt4(0), false)};
    for (auto version : {MIDICore::MIDIProtocolVersion::midi1_0, MIDICore::MIDIProtocolVersion::midi2_0}) {
        AlsaOutgoingTranslator translator;
        EXPECT_EQ(sendEvents(translator, released, version), (std::vector<Bytes>{{0x93, 60, 0}}));
    }
    // A real MIDI 2.0 velocity below the 7-bit step is still heard.
    AlsaOutgoingTranslator translator;
    const std::vector<MIDIEvent> quiet{
        MIDIEvent::noteOn(UInt7(60), MIDICore::ChanVoice7Bit16BitValue::midi2(300), UInt4(3))};
    EXPECT_EQ(sendEvents(translator, quiet, MIDICore::MIDIProtocolVersion::midi2_0),
              (std::vector<Bytes>{{0x93, 60, 1}}));
}

TEST(AlsaOutgoingTranslator, ASysExSpreadOverPacketsComesOutOnceWhole) {
    Bytes sysEx{0xF0, 0x7D};
    for (int i = 0; i < 40; ++i) {
        sysEx.push_back(static_cast<std::uint8_t>(i));
    }
    sysEx.push_back(0xF7);
    AlsaOutgoingTranslator translator;
    auto messages = sendEvents(translator, {MIDIEvent::sysEx7(std::span<const std::uint8_t>(sysEx)),
                                            MIDIEvent::programChange(UInt7(9), UInt4(2))},
                               MIDICore::MIDIProtocolVersion::midi1_0);
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], sysEx);
    EXPECT_EQ(messages[1], (Bytes{0xC2, 9}));

    // Byte packet lists keep running status across packets.
    std::vector<Bytes> fromPackets;
    auto list = makeMIDIPacketList({{0x90, 60, 1}, {61, 2}});
    translator.packetList(list, [&](std::span<const std::uint8_t> message) {
        fromPackets.emplace_back(message.begin(), message.end());
    });
    EXPECT_EQ(fromPackets, (std::vector<Bytes>{{0x90, 60, 1}, {0x90, 61, 2}}));
}

}  // namespace
}  // namespace MIDIIO
