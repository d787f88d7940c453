#include "MIDICore/MIDI2Parser.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace MIDICore {
namespace {

using Words = std::vector<std::uint32_t>;
using Packets = std::vector<Words>;
using Bytes = std::vector<std::uint8_t>;
constexpr auto v1 = MIDIProtocolVersion::midi1_0;
constexpr auto v2 = MIDIProtocolVersion::midi2_0;

Words flat(const Packets& packets) {
    Words words;
    for (const auto& packet : packets) {
        words.insert(words.end(), packet.begin(), packet.end());
    }
    return words;
}

std::vector<MIDIEvent> parseWords(MIDI2Parser& parser, const Words& words) {
    return parser.parsedEvents(umpBytes(words));
}

// The parser marks every note on as re-encoding a zero velocity as a note off; that flag is
// set by rule, not carried by the packet.
MIDIEvent withoutParserFlags(MIDIEvent event) {
    if (auto on = event.get<MIDIEvent::NoteOn>()) {
        on->midi1ZeroVelocityAsNoteOff = true;
    }
    return event;
}

TEST(UMPEncoding, ChannelVoiceAtBothProtocols) {
    auto on = MIDIEvent::noteOn(UInt7(60), ChanVoice7Bit16BitValue::midi1(UInt7(64)), UInt4(1), UInt4(0));
    EXPECT_EQ(on.umpRawWords(v2), (Packets{{0x40913C00, 0x80000000}}));
    EXPECT_EQ(on.umpRawWords(v1), (Packets{{0x20913C40}}));
    auto attributed = MIDIEvent::noteOff(UInt7(60), ChanVoice7Bit16BitValue::midi2(0x1234),
                                         NoteAttribute::pitch7_9(Pitch7_9(60.5)), UInt4(2), UInt4(5));
    EXPECT_EQ(attributed.umpRawWords(v2), (Packets{{0x45823C03, 0x12347900}}));

    EXPECT_EQ(MIDIEvent::programChange(UInt7(9), UInt4(3)).umpRawWords(v2), (Packets{{0x40C30000, 0x09000000}}));
    auto banked = MIDIEvent::programChange(UInt7(9), Bank::bankSelect(UInt7(2), UInt7(3)), UInt4(3));
    EXPECT_EQ(banked.umpRawWords(v2), (Packets{{0x40C30001, 0x09000203}}));
    EXPECT_EQ(banked.umpRawWords(v1), (Packets{{0x20B30002}, {0x20B32003}, {0x20C30900}}));
    EXPECT_EQ(MIDIEvent::pressure(ChanVoice7Bit32BitValue::midi1(UInt7(127)), UInt4(0)).umpRawWords(v1),
              (Packets{{0x20D07F00}}));
    EXPECT_EQ(MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(UInt14(8192)), UInt4(0)).umpRawWords(v2),
              (Packets{{0x40E00000, 0x80000000}}));

    auto rpn = MIDIEvent::rpn(RegisteredController::pitchBendSensitivity(UInt7(12), UInt7(0)),
                              MIDI2ParameterNumberChange::relative, UInt4(1), UInt4(2));
    EXPECT_EQ(rpn.umpRawWords(v2), (Packets{{0x42410000, 12u << 25}}));
    EXPECT_EQ(rpn.umpRawWords(v1), (Packets{{0x22B16500}, {0x22B16400}, {0x22B1060C}, {0x22B12600}}));
    auto nrpn = MIDIEvent::nrpn(AssignableController::raw(UInt7Pair{UInt7(1), UInt7(2)}, UInt7(127), UInt7(127)),
                                MIDI2ParameterNumberChange::absolute, UInt4(0));
    EXPECT_EQ(nrpn.umpRawWords(v2), (Packets{{0x40300102, 0xFFFFFFFF}}));

    // Per-note messages exist only in MIDI 2.0 and keep that form at either protocol.
    auto noteCC = MIDIEvent::noteCC(MIDINote(UInt7(5)), PerNoteController::assignable(0x81),
                                    ChanVoice32BitValue::midi2(7), UInt4(4));
    EXPECT_EQ(noteCC.umpRawWords(v1), (Packets{{0x40140581, 7}}));
    OptionFlags flags{OptionFlag::detachPerNoteControllers, OptionFlag::resetPerNoteControllers};
    EXPECT_EQ(MIDIEvent::noteManagement(MIDINote(UInt7(5)), flags, UInt4(4)).umpRawWords(v1),
              (Packets{{0x40F40503, 0}}));
}

TEST(UMPEncoding, SystemAndUtility) {
    EXPECT_EQ(MIDIEvent::timingClock(UInt4(2)).umpRawWords(v1), (Packets{{0x12F80000}}));
    EXPECT_EQ(MIDIEvent::timingClock(UInt4(2)).umpRawWords(v2), (Packets{{0x12F80000}}));
    EXPECT_EQ(MIDIEvent::songPositionPointer(UInt14(0x3F81)).umpRawWords(v2), (Packets{{0x10F2017F}}));
    EXPECT_EQ(MIDIEvent::songSelect(UInt7(5), UInt4(1)).umpRawWords(v2), (Packets{{0x11F30500}}));
    EXPECT_EQ(MIDIEvent::noOp(UInt4(3)).umpRawWords(v2), (Packets{{0x03000000}}));
    EXPECT_EQ(MIDIEvent::jrClock(0xBEEF).umpRawWords(v1), (Packets{{0x0010BEEF}}));
    EXPECT_EQ(MIDIEvent::jrTimestamp(0x0102, UInt4(1)).umpRawWords(v2), (Packets{{0x01200102}}));
}

TEST(UMPEncoding, SysEx7Chunks) {
    // The manufacturer byte is the first payload byte.
    auto sysEx = [](std::size_t payload) {
        Bytes data(payload - 1);
        for (std::size_t i = 0; i < data.size(); ++i) {
            data[i] = static_cast<std::uint8_t>(i + 1);
        }
        return MIDIEvent::sysEx7(SysExManufacturer::oneByte(UInt7(0x41)), data, UInt4(1)).umpRawWords(v2);
    };
    auto statuses = [](const Packets& packets) {
        std::vector<std::pair<int, int>> result;
        for (const auto& packet : packets) {
            EXPECT_EQ(packet.size(), 2u);
            result.emplace_back(static_cast<int>((packet[0] >> 20) & 0xF), static_cast<int>((packet[0] >> 16) & 0xF));
        }
        return result;
    };
    using S = std::vector<std::pair<int, int>>;
    EXPECT_EQ(sysEx(6), (Packets{{0x31064101, 0x02030405}}));
    EXPECT_EQ(statuses(sysEx(1)), (S{{0, 1}}));
    EXPECT_EQ(sysEx(7), (Packets{{0x31164101, 0x02030405}, {0x31310600, 0x00000000}}));
    EXPECT_EQ(statuses(sysEx(12)), (S{{1, 6}, {3, 6}}));
    EXPECT_EQ(statuses(sysEx(13)), (S{{1, 6}, {2, 6}, {3, 1}}));
    // Data of 0, 6, 7, 12 and 13 bytes after the manufacturer byte, written and read back.
    MIDI2Parser parser;
    for (auto [dataSize, packetCount] : {std::pair{0, 1}, {6, 2}, {7, 2}, {12, 3}, {13, 3}}) {
        auto event = MIDIEvent::sysEx7(SysExManufacturer::oneByte(UInt7(0x41)), Bytes(static_cast<std::size_t>(dataSize), 0x55));
        auto packets = event.umpRawWords(v1);
        EXPECT_EQ(packets.size(), static_cast<std::size_t>(packetCount)) << dataSize;
        EXPECT_EQ(parseWords(parser, flat(packets)), std::vector{event}) << dataSize;
    }
    // A universal message with no data still has its four header bytes.
    auto universal = MIDIEvent::universalSysEx7(UniversalSysExType::realTime, UInt7(1), UInt7(2), UInt7(3), {});
    EXPECT_EQ(universal.umpRawWords(v1), (Packets{{0x30047F01, 0x02030000}}));
}

TEST(UMPEncoding, SysEx8AcrossAChunkBoundary) {
    Bytes data(12);
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<std::uint8_t>(0xE0 + i);
    }
    // Two ID bytes and 12 data bytes: 14 payload bytes, one more than a packet holds.
    auto event = MIDIEvent::sysEx8(SysExManufacturer::threeByte(UInt7(0x12), UInt7(0x34)), data, 0x07, UInt4(2));
    EXPECT_EQ(event.umpRawWords(v2), (Packets{{0x521E0792, 0x34E0E1E2, 0xE3E4E5E6, 0xE7E8E9EA},
                                              {0x523207EB, 0, 0, 0}}));
    MIDI2Parser parser;
    EXPECT_EQ(parseWords(parser, flat(event.umpRawWords(v2))), std::vector{event});
}

TEST(MIDI2Parser, SeveralPacketsAndBadLengths) {
    MIDI2Parser parser;
    EXPECT_EQ(parseWords(parser, {0x20903C40, 0x20803C00}),
              (std::vector{MIDIEvent::noteOn(UInt7(60), ChanVoice7Bit16BitValue::midi1(UInt7(64)), UInt4(0)),
                           MIDIEvent::noteOff(UInt7(60), ChanVoice7Bit16BitValue::midi1(UInt7(0)), UInt4(0))}));
    // A zero velocity in a MIDI 1.0 packet stays a note on.
    auto zero = parseWords(parser, {0x20903C00});
    ASSERT_EQ(zero.size(), 1u);
    EXPECT_TRUE(zero[0].get<MIDIEvent::NoteOn>());
    EXPECT_TRUE(parser.parsedEvents(Bytes{0x20, 0x90, 0x3C, 0x40, 0x20}).empty());
    EXPECT_TRUE(parser.parsedEvents(Bytes{}).empty());
    // A truncated final packet and an unknown type end the parse; what came before stays.
    EXPECT_EQ(parseWords(parser, {0x10F80000, 0x40903C00}).size(), 1u);
    EXPECT_EQ(parseWords(parser, {0x10FA0000, 0x60000000, 0x10FC0000}), std::vector{MIDIEvent::start()});
    // Statuses that do not belong to the message type yield nothing.
    EXPECT_TRUE(parseWords(parser, {0x20F80000, 0x10903C40, 0x10F00000, 0x00300000, 0x40703C00, 0}).empty());
    // 7-bit fields with the high bit set yield nothing.
    EXPECT_TRUE(parseWords(parser, {0x4090BC00, 0x80000000, 0x20903CC0}).empty());
}

TEST(MIDI2Parser, SysEx7Reassembly) {
    MIDI2Parser parser;
    auto expected = MIDIEvent::sysEx7(SysExManufacturer::oneByte(UInt7(0x41)), {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    Words words = flat(expected.umpRawWords(v2));
    ASSERT_EQ(words.size(), 6u);
    EXPECT_EQ(parseWords(parser, words), std::vector{expected});
    // Continue or end without a start yields nothing, packet by packet.
    EXPECT_TRUE(parseWords(parser, {words[2], words[3]}).empty());
    EXPECT_TRUE(parseWords(parser, {words[4], words[5]}).empty());
    // Split over calls; a new start replaces an unfinished message.
    EXPECT_TRUE(parseWords(parser, {words[0], words[1], 0x30130000, 0}).empty());
    EXPECT_TRUE(parseWords(parser, {words[0], words[1], words[2], words[3]}).empty());
    EXPECT_EQ(parseWords(parser, {words[4], words[5]}), std::vector{expected});
    // A byte count above 6 or an unknown status yields nothing; a bad body throws inside and
    // yields nothing too.
    EXPECT_TRUE(parseWords(parser, {0x30074101, 0x02030405, 0x30404101, 0, 0x30024180, 0}).empty());
}

TEST(MIDI2Parser, InterleavedSysEx8StreamsStayApart) {
    MIDI2Parser parser;
    Bytes a(20, 0xAA);
    Bytes b(30, 0xBB);
    auto first = MIDIEvent::sysEx8(SysExManufacturer::oneByte(UInt7(0x41)), a, 1);
    auto second = MIDIEvent::universalSysEx8(UniversalSysExType::nonRealTime, UInt7(1), UInt7(2), UInt7(3), b, 2, UInt4(4));
    auto p1 = first.umpRawWords(v2);
    auto p2 = second.umpRawWords(v2);
    ASSERT_EQ(p1.size(), 2u);
    ASSERT_EQ(p2.size(), 3u);
    EXPECT_TRUE(parseWords(parser, flat({p1[0], p2[0], p2[1]})).empty());
    EXPECT_EQ(parseWords(parser, flat({p1[1], p2[2]})), (std::vector{first, second}));
    // A finished stream is forgotten: its end packet alone yields nothing now.
    EXPECT_TRUE(parseWords(parser, p1[1]).empty());
}

TEST(MIDI2Parser, OversizedSysExIsDropped) {
    MIDI2Parser parser;
    Words start{0x30160001, 0x02030405};
    Words more{0x30260101, 0x01010101};
    Words end{0x30310100, 0};
    EXPECT_TRUE(parseWords(parser, start).empty());
    Words stream;
    for (int i = 0; i < (1 << 20) / 6 + 2; ++i) {
        stream.insert(stream.end(), more.begin(), more.end());
    }
    EXPECT_TRUE(parseWords(parser, stream).empty());
    EXPECT_TRUE(parseWords(parser, end).empty());
    // The parser goes on with the next message.
    EXPECT_EQ(parseWords(parser, {0x30014100, 0}).size(), 1u);
}

TEST(UMPRoundTrip, ChannelVoiceAtBothProtocols) {
    using V16 = ChanVoice7Bit16BitValue;
    using V32 = ChanVoice7Bit32BitValue;
    using Change = MIDI2ParameterNumberChange;
    std::vector<MIDIEvent> both{
        MIDIEvent::noteOn(UInt7(60), V16::midi1(UInt7(1)), UInt4(1), UInt4(3)),
        MIDIEvent::noteOn(UInt7(127), V16::unitInterval(1.0), UInt4(15)),
        MIDIEvent::noteOff(UInt7(0), V16::midi1(UInt7(0)), UInt4(0), UInt4(15)),
        MIDIEvent::noteOff(UInt7(64), V16::midi2(0xFE00), UInt4(7)),
        MIDIEvent::notePressure(MIDINote(UInt7(3)), V32::midi1(UInt7(99)), UInt4(2)),
        MIDIEvent::cc(Controller::sustainPedal, V32::unitInterval(0.5), UInt4(4), UInt4(1)),
        MIDIEvent::programChange(UInt7(0), UInt4(6)),
        MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::bipolarUnitInterval(-1.0), UInt4(8)),
        MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(UInt14(0x2ABC)), UInt4(8)),
        MIDIEvent::pressure(V32::midi2(0xFE000000), UInt4(9)),
        MIDIEvent::noteCC(MIDINote(UInt7(9)), PerNoteController::registered(PerNoteController::Registered::pan),
                          ChanVoice32BitValue::midi2(0x12345678), UInt4(10)),
        MIDIEvent::notePitchBend(MIDINote(UInt7(9)), ChanVoice32BitValue::unitInterval(0.25), UInt4(11)),
        MIDIEvent::noteManagement(MIDINote(UInt7(9)), OptionFlags{OptionFlag::detachPerNoteControllers}, UInt4(12)),
    };
    std::vector<MIDIEvent> midi2Only{
        MIDIEvent::noteOn(UInt7(60), V16::midi2(1), NoteAttribute::manufacturerSpecific(0xABCD), UInt4(1)),
        MIDIEvent::noteOn(UInt7(60), V16::midi2(0), UInt4(1)),
        MIDIEvent::cc(Controller::modWheel, V32::midi2(0x01234567), UInt4(4)),
        MIDIEvent::programChange(UInt7(127), Bank::bankSelect(UInt14(0x3FFF)), UInt4(5)),
        MIDIEvent::rpn(RegisteredController::channelFineTuning(UInt14(0x1FFF)), Change::absolute, UInt4(13)),
        MIDIEvent::rpn(RegisteredController::channelCoarseTuning(UInt7(70)), Change::relative, UInt4(13)),
        MIDIEvent::nrpn(AssignableController::raw(UInt7Pair{UInt7(5), UInt7(6)}, UInt7(7), UInt7(8)), Change::absolute,
                        UInt4(14)),
    };
    MIDI2Parser parser;
    for (auto protocol : {v1, v2}) {
        for (const auto& event : both) {
            auto parsed = parseWords(parser, flat(event.umpRawWords(protocol)));
            ASSERT_EQ(parsed.size(), 1u) << event.description();
            EXPECT_EQ(withoutParserFlags(parsed[0]), event) << event.description() << " at " << description(protocol);
        }
    }
    for (const auto& event : midi2Only) {
        auto parsed = parseWords(parser, flat(event.umpRawWords(v2)));
        ASSERT_EQ(parsed.size(), 1u) << event.description();
        EXPECT_EQ(parsed[0], event) << event.description();
    }
    // At MIDI 1.0 a bank select and a parameter number travel as their control changes.
    auto banked = parseWords(parser, flat(midi2Only[3].umpRawWords(v1)));
    ASSERT_EQ(banked.size(), 3u);
    EXPECT_EQ(banked[1], MIDIEvent::cc(Controller::lsb(Controller::LSB::bankSelect), V32::midi1(UInt7(127)), UInt4(5)));
    EXPECT_EQ(banked[2], MIDIEvent::programChange(UInt7(127), UInt4(5)));
    auto rpn = RegisteredController::pitchBendSensitivity(UInt7(2), UInt7(0));
    EXPECT_EQ(parseWords(parser, flat(MIDIEvent::rpn(rpn, Change::absolute, UInt4(1)).umpRawWords(v1))),
              MIDIEvent::midi1RPN(rpn, Change::absolute, UInt4(1)));
}

TEST(MIDIParameterNumberUtils, StatusNibbles) {
    using Type = MIDIParameterNumberType;
    using Change = MIDI2ParameterNumberChange;
    for (auto type : {Type::registered, Type::assignable}) {
        for (auto change : {Change::absolute, Change::relative}) {
            auto nibble = MIDIParameterNumberUtils::umpStatusNibble(type, change);
            EXPECT_EQ(MIDIParameterNumberUtils::typeAndChange(nibble), std::pair(type, change));
        }
    }
    EXPECT_EQ(MIDIParameterNumberUtils::umpStatusNibble(Type::assignable, Change::relative), 0x5);
    EXPECT_EQ(MIDIParameterNumberUtils::typeAndChange(UInt4(6)), std::nullopt);
    EXPECT_EQ(wordLength(MIDIUMPMessageType::data128bit), 4u);
    EXPECT_EQ(description(MIDIProtocolVersion::midi2_0), "MIDI 2.0");
}

}  // namespace
}  // namespace MIDICore
