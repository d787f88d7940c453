#include "MIDICore/MIDI1Parser.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace MIDICore {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::vector<MIDIEvent> parse(MIDI1Parser& parser, Bytes bytes, UInt4 group = UInt4(0)) {
    return parser.parsedEvents(bytes, group);
}

MIDIEvent noteOn(int note, int velocity, int channel = 0) {
    return MIDIEvent::noteOn(UInt7::checked(note), ChanVoice7Bit16BitValue::midi1(UInt7::checked(velocity)),
                             UInt4::checked(channel));
}
MIDIEvent noteOff(int note, int velocity, int channel = 0) {
    return MIDIEvent::noteOff(UInt7::checked(note), ChanVoice7Bit16BitValue::midi1(UInt7::checked(velocity)),
                              UInt4::checked(channel));
}

TEST(MIDI1Parser, RunningStatusWithinAndAcrossPackets) {
    MIDI1Parser parser;
    EXPECT_TRUE(parse(parser, {}).empty());
    EXPECT_EQ(parse(parser, {0x90, 0x3C, 0x40, 0x3C, 0x00}), (std::vector{noteOn(0x3C, 0x40), noteOff(0x3C, 0)}));
    // The second packet relies on the running status of the first.
    EXPECT_EQ(parse(parser, {0x3D, 0x41}), std::vector{noteOn(0x3D, 0x41)});
    // A message cut short at the end of a packet yields nothing and does not carry over.
    EXPECT_TRUE(parse(parser, {0x91, 0x3C}).empty());
    EXPECT_TRUE(parse(parser, {0x40}).empty());
    // ...but the running status it set does.
    EXPECT_EQ(parse(parser, {0x3E, 0x42}), std::vector{noteOn(0x3E, 0x42, 1)});
    // Real time leaves it; system common clears it, and data with no status is dropped.
    EXPECT_EQ(parse(parser, {0xF8, 0x3F, 0x43}), (std::vector{MIDIEvent::timingClock(), noteOn(0x3F, 0x43, 1)}));
    EXPECT_EQ(parse(parser, {0xF6, 0x3F, 0x43}), std::vector{MIDIEvent::tuneRequest()});
    EXPECT_TRUE(parse(parser, {0x40, 0x41}).empty());
    EXPECT_TRUE(MIDI1Parser().parsedEvents(Bytes{0x40, 0x41, 0x42}).empty());
}

TEST(MIDI1Parser, ZeroVelocitySwitchAndGroupStamping) {
    MIDI1Parser parser;
    parser.setTranslateNoteOnZeroVelocityToNoteOff(false);
    auto events = parse(parser, {0x95, 0x3C, 0x40, 0x3C, 0x00}, UInt4(7));
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1], MIDIEvent::noteOn(UInt7(0x3C), ChanVoice7Bit16BitValue::midi1(UInt7(0)), UInt4(5), UInt4(7)));
    // A parsed note on asks for a zero velocity to be written as a note off.
    EXPECT_TRUE(events[1].get<MIDIEvent::NoteOn>()->midi1ZeroVelocityAsNoteOff);
    EXPECT_EQ(events[1].midi1RawBytes(), (Bytes{0x85, 0x3C, 0x00}));
    for (const auto& event : events) {
        EXPECT_EQ(event.group(), 7);
    }
}

TEST(MIDI1Parser, RealTimeInsideAMessageComesFirst) {
    MIDI1Parser parser;
    EXPECT_EQ(parse(parser, {0x90, 0x3C, 0xF8, 0x40}), (std::vector{MIDIEvent::timingClock(), noteOn(0x3C, 0x40)}));
    // Inside SysEx too, and the undefined real-time bytes vanish.
    auto events = parse(parser, {0xF0, 0x41, 0xFA, 0x01, 0xF9, 0x02, 0xFD, 0xF7});
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0], MIDIEvent::start());
    EXPECT_EQ(events[1], MIDIEvent::sysEx7(SysExManufacturer::oneByte(UInt7(0x41)), {1, 2}));
}

TEST(MIDI1Parser, EveryStatusAndItsDataCount) {
    MIDI1Parser parser;
    auto events = parse(parser, {0xA2, 0x10, 0x20, 0xB3, 0x07, 0x64, 0xC4, 0x05, 0xD5, 0x33, 0xE6, 0x01, 0x40,
                                 0xF1, 0x12, 0xF2, 0x05, 0x01, 0xF3, 0x09, 0xFB, 0xFC, 0xFE, 0xFF});
    std::vector<MIDIEvent> expected{
        MIDIEvent::notePressure(MIDINote(UInt7(0x10)), ChanVoice7Bit32BitValue::midi1(UInt7(0x20)), UInt4(2)),
        MIDIEvent::cc(Controller::volume, ChanVoice7Bit32BitValue::midi1(UInt7(100)), UInt4(3)),
        MIDIEvent::programChange(UInt7(5), UInt4(4)),
        MIDIEvent::pressure(ChanVoice7Bit32BitValue::midi1(UInt7(0x33)), UInt4(5)),
        MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(UInt14(0x2001)), UInt4(6)),
        MIDIEvent::timecodeQuarterFrame(UInt7(0x12)),
        MIDIEvent::songPositionPointer(UInt14(0x85)),
        MIDIEvent::songSelect(UInt7(9)),
        MIDIEvent::continue_(),
        MIDIEvent::stop(),
        MIDIEvent::activeSensing(),
        MIDIEvent::systemReset(),
    };
    EXPECT_EQ(events, expected);
    // A status that interrupts an incomplete message drops it; undefined 0xF4 and 0xF5 do too.
    EXPECT_EQ(parse(parser, {0x90, 0x3C, 0xB0, 0x01, 0x02}),
              std::vector{MIDIEvent::cc(Controller::modWheel, ChanVoice7Bit32BitValue::midi1(UInt7(2)), UInt4(0))});
    EXPECT_TRUE(parse(parser, {0xF2, 0x01, 0xF4, 0x02, 0xF5, 0x03}).empty());
}

TEST(MIDI1Parser, SysExWithAndWithoutTerminator) {
    MIDI1Parser parser;
    auto expected = MIDIEvent::sysEx7(SysExManufacturer::oneByte(UInt7(0x41)), {1, 2});
    EXPECT_EQ(parse(parser, {0xF0, 0x41, 0x01, 0x02, 0xF7}), std::vector{expected});
    EXPECT_EQ(parse(parser, {0xF0, 0x41, 0x01, 0x02}), std::vector{expected});
    // Three-byte manufacturer, followed by a channel message that ends it.
    EXPECT_EQ(parse(parser, {0xF0, 0x00, 0x20, 0x29, 0x05, 0x90, 0x3C, 0x40}),
              (std::vector{MIDIEvent::sysEx7(SysExManufacturer::threeByte(UInt7(0x20), UInt7(0x29)), {5}),
                           noteOn(0x3C, 0x40)}));
    // Universal SysEx with no body: the stream parser strips the F7 and the message is too
    // short, while the complete bytes parse.
    Bytes bodiless{0xF0, 0x7E, 0x7F, 0x06, 0x01, 0xF7};
    EXPECT_TRUE(parse(parser, bodiless).empty());
    EXPECT_EQ(MIDIEvent::sysEx7(bodiless),
              MIDIEvent::universalSysEx7(UniversalSysExType::nonRealTime, UInt7(0x7F), UInt7(6), UInt7(1), {}));
    EXPECT_EQ(parse(parser, {0xF0, 0x7F, 0x01, 0x04, 0x01, 0x33, 0xF7}),
              std::vector{MIDIEvent::universalSysEx7(UniversalSysExType::realTime, UInt7(1), UInt7(4), UInt7(1), {0x33})});
    // A lone F7 and a bad manufacturer yield nothing.
    EXPECT_TRUE(parse(parser, {0xF7, 0xF0, 0x00, 0x01}).empty());
}

TEST(MIDI1Parser, OversizedSysExIsDropped) {
    MIDI1Parser parser;
    Bytes stream{0xF0, 0x41};
    stream.resize((1 << 20) + 16, 0x01);
    stream.insert(stream.end(), {0xF7, 0xC0, 0x05});
    EXPECT_EQ(parse(parser, stream), std::vector{MIDIEvent::programChange(UInt7(5), UInt4(0))});
}

TEST(SysEx7Parsing, ErrorsAndHexText) {
    auto kindOf = [](auto input) {
        try {
            MIDIEvent::sysEx7(input);
        } catch (const MIDIEvent::ParseError& e) {
            return e.kind();
        }
        return MIDIEvent::ParseError::invalidType;  // not thrown
    };
    EXPECT_EQ(kindOf(Bytes{}), MIDIEvent::ParseError::rawBytesEmpty);
    EXPECT_EQ(kindOf(Bytes{0xF0}), MIDIEvent::ParseError::malformed);
    EXPECT_EQ(kindOf(Bytes{0xF1, 0x41}), MIDIEvent::ParseError::malformed);
    EXPECT_EQ(kindOf(Bytes{0xF0, 0x41, 0x80, 0xF7}), MIDIEvent::ParseError::malformed);
    EXPECT_EQ(kindOf(Bytes{0xF0, 0x41, 0xF7, 0x01}), MIDIEvent::ParseError::malformed);
    EXPECT_EQ(kindOf(Bytes{0xF0, 0x7E, 0x01, 0x02, 0x03}), MIDIEvent::ParseError::malformed);
    EXPECT_EQ(kindOf(Bytes{0xF0, 0x00, 0x01}), MIDIEvent::ParseError::malformed);

    auto expected = MIDIEvent::sysEx7(SysExManufacturer::oneByte(UInt7(0x41)), {0x0A, 0x7F}, UInt4(3));
    EXPECT_EQ(MIDIEvent::sysEx7(std::string_view("F0 41 0a\t7F\nf7"), UInt4(3)), expected);
    EXPECT_EQ(MIDIEvent::sysEx7(std::string_view("F041+A7F"), UInt4(3)), expected);  // "+A" reads as 0x0A
    EXPECT_EQ(kindOf(std::string_view("F0 41 0")), MIDIEvent::ParseError::malformed);
    EXPECT_EQ(kindOf(std::string_view("F0 41 -1")), MIDIEvent::ParseError::malformed);
    EXPECT_EQ(kindOf(std::string_view("F0 41 zz")), MIDIEvent::ParseError::malformed);
    EXPECT_EQ(kindOf(std::string_view(" ")), MIDIEvent::ParseError::rawBytesEmpty);
    EXPECT_EQ(MIDIEvent::sysEx7(std::string_view("F041-0")), MIDIEvent::sysEx7(SysExManufacturer::oneByte(UInt7(0x41)), {0}));
}

TEST(MIDI1Encoding, EventFamilies) {
    using V16 = ChanVoice7Bit16BitValue;
    auto on = [](V16 velocity, bool zeroAsOff) {
        return MIDIEvent::noteOn(UInt7(60), velocity, UInt4(2), UInt4(0), zeroAsOff).midi1RawBytes();
    };
    EXPECT_EQ(on(V16::midi2(0), true), (Bytes{0x92, 60, 0x01}));
    EXPECT_EQ(on(V16::midi2(0x03FF), true), (Bytes{0x92, 60, 0x01}));
    EXPECT_EQ(on(V16::midi2(0x8000), true), (Bytes{0x92, 60, 0x40}));
    EXPECT_EQ(on(V16::midi1(UInt7(0)), true), (Bytes{0x82, 60, 0x00}));
    EXPECT_EQ(on(V16::midi1(UInt7(0)), false), (Bytes{0x92, 60, 0x00}));
    EXPECT_EQ(on(V16::unitInterval(0.5), true), (Bytes{0x92, 60, 0x40}));
    EXPECT_EQ(MIDIEvent::noteOff(UInt7(60), V16::midi2(0), UInt4(2)).midi1RawBytes(), (Bytes{0x82, 60, 0x00}));

    auto program = MIDIEvent::programChange(UInt7(9), Bank::bankSelect(UInt7(2), UInt7(3)), UInt4(1));
    EXPECT_EQ(program.midi1RawBytes(), (Bytes{0xB1, 0x00, 0x02, 0xB1, 0x20, 0x03, 0xC1, 0x09}));
    EXPECT_EQ(program.midi1RawDataBytes(), (MIDI1DataBytes{9, std::nullopt}));
    EXPECT_EQ(MIDIEvent::programChange(UInt7(9), UInt4(1)).midi1RawBytes(), (Bytes{0xC1, 0x09}));

    auto bend = MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(UInt14(0x2001)), UInt4(0));
    EXPECT_EQ(bend.midi1RawBytes(), (Bytes{0xE0, 0x01, 0x40}));
    EXPECT_EQ(bend.midi1RawStatusByte(), 0xE0);
    EXPECT_EQ(bend.midi1RawDataBytes(), (MIDI1DataBytes{0x01, 0x40}));

    auto rpn = MIDIEvent::rpn(RegisteredController::pitchBendSensitivity(UInt7(12), UInt7(50)),
                              MIDI2ParameterNumberChange::absolute, UInt4(3));
    EXPECT_EQ(rpn.midi1RawBytes(), (Bytes{0xB3, 101, 0, 0xB3, 100, 0, 0xB3, 6, 12, 0xB3, 38, 50}));
    EXPECT_EQ(rpn.midi1RawStatusByte(), std::nullopt);
    auto nrpn = MIDIEvent::nrpn(AssignableController::raw(UInt7Pair{UInt7(1), UInt7(2)}, UInt7(3), std::nullopt),
                                MIDI2ParameterNumberChange::absolute, UInt4(0));
    EXPECT_EQ(nrpn.midi1RawBytes(), (Bytes{0xB0, 99, 1, 0xB0, 98, 2, 0xB0, 6, 3}));

    EXPECT_EQ(MIDIEvent::timingClock().midi1RawBytes(), Bytes{0xF8});
    EXPECT_EQ(MIDIEvent::timingClock().midi1RawDataBytes(), std::nullopt);
    EXPECT_EQ(MIDIEvent::songPositionPointer(UInt14(0x3FFF)).midi1RawBytes(), (Bytes{0xF2, 0x7F, 0x7F}));
    EXPECT_EQ(MIDIEvent::songSelect(UInt7(4)).midi1RawDataBytes(), (MIDI1DataBytes{4, std::nullopt}));
    EXPECT_EQ(MIDIEvent::tuneRequest().midi1RawStatusByte(), 0xF6);
    EXPECT_TRUE(MIDIEvent::noteCC(MIDINote(UInt7(1)), PerNoteController::registered(1), ChanVoice32BitValue::midi2(5), UInt4(0))
                    .midi1RawBytes()
                    .empty());
    EXPECT_EQ(MIDIEvent::jrClock(5).midi1RawStatusByte(), std::nullopt);
    EXPECT_TRUE(MIDIEvent::sysEx8(SysExManufacturer::oneByte(UInt7(0x41)), {1}).midi1RawBytes().empty());

    auto sysEx = MIDIEvent::sysEx7(SysExManufacturer::threeByte(UInt7(0x20), UInt7(0x29)), {0x0A});
    EXPECT_EQ(sysEx.midi1RawBytes(), (Bytes{0xF0, 0x00, 0x20, 0x29, 0x0A, 0xF7}));
    EXPECT_EQ(sysEx.midi1RawStatusByte(), 0xF0);
    EXPECT_EQ(sysEx.get<MIDIEvent::SysEx7>()->midi1RawHexString(false, true, std::nullopt), "0020290AF7");
    EXPECT_EQ(MIDIEvent::deviceInquiryRequest(UInt7(0x7F)).get<MIDIEvent::UniversalSysEx7>()->midi1RawHexString(),
              "F0 7E 7F 06 01 F7");
}

TEST(MIDI1Encoding, ParsingTheBytesGivesTheEventBack) {
    std::vector<MIDIEvent> events{
        noteOn(1, 127, 15),
        noteOff(127, 0, 3),
        MIDIEvent::cc(Controller::pan, ChanVoice7Bit32BitValue::midi1(UInt7(64)), UInt4(9)),
        MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(UInt14(16383)), UInt4(1)),
        MIDIEvent::timecodeQuarterFrame(UInt7(0x71)),
        MIDIEvent::sysEx7(SysExManufacturer::educational(), {0, 1, 0x7F}),
        MIDIEvent::universalSysEx7(UniversalSysExType::realTime, UInt7(0x7F), UInt7(4), UInt7(1), {0x7F, 0x7F}),
    };
    MIDI1Parser parser;
    Bytes stream;
    for (const auto& event : events) {
        auto bytes = event.midi1RawBytes();
        stream.insert(stream.end(), bytes.begin(), bytes.end());
    }
    EXPECT_EQ(parser.parsedEvents(stream), events);

    // The sink form hands out the same events, with a real-time byte first and the running
    // status carried into the next call.
    stream.insert(stream.begin() + 2, 0xF8);
    stream.insert(stream.end(), {0x93, 0x40});
    MIDI1Parser sinkParser;
    std::vector<MIDIEvent> sunk;
    auto collect = [&](MIDIEvent&& event) { sunk.push_back(std::move(event)); };
    sinkParser.parse(stream, UInt4(0), collect);
    sinkParser.parse(Bytes{0x40, 0x00, 0x41, 0x7F}, UInt4(0), collect);
    std::vector<MIDIEvent> expected = MIDI1Parser().parsedEvents(Bytes{0xF8});
    expected.insert(expected.end(), events.begin(), events.end());
    expected.push_back(noteOff(0x40, 0, 3));  // 93 40 cut short yields nothing; 93 carried on
    expected.push_back(noteOn(0x41, 0x7F, 3));
    EXPECT_EQ(sunk, expected);
}

}  // namespace
}  // namespace MIDICore
