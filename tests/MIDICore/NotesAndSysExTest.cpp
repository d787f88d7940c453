#include "MIDICore/MIDIEvent.hpp"
#include "MIDICore/MIDINote.hpp"
#include "MIDICore/SysExID.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace MIDICore {
namespace {

using Style = MIDINote::Style;

MIDINote::NoteError::Kind errorOf(std::string_view text) {
    try {
        MIDINote note(text);
        ADD_FAILURE() << "parsed " << text << " as " << note.number().description();
    } catch (const MIDINote::NoteError& e) {
        return e.kind();
    }
    return MIDINote::NoteError::outOfBounds;
}

TEST(MIDINote, StylesNamesAndOctaves) {
    EXPECT_EQ(MIDINote(UInt7(60), Style::yamaha).stringValue(), "C3");
    EXPECT_EQ(MIDINote(UInt7(60), Style::roland).stringValue(), "C4");
    EXPECT_EQ(MIDINote(UInt7(60), Style::cakewalk).stringValue(), "C5");
    EXPECT_EQ(MIDINote(UInt7(0)).stringValue(), "C-2");
    EXPECT_EQ(MIDINote(UInt7(127), Style::roland).stringValue(), "G9");
    EXPECT_EQ(MIDINote(UInt7(61)).name(), MIDINote::Name::C_sharp);
    EXPECT_EQ(MIDINote(UInt7(69)).name(), MIDINote::Name::A);
    EXPECT_EQ(MIDINote(UInt7(71)).name(), MIDINote::Name::B);
    EXPECT_EQ(MIDINote(UInt7(61)).stringValue(true), "Db3");
    EXPECT_EQ(MIDINote(UInt7(70)).stringValue(false, true), "A\u266F3");
    EXPECT_EQ(MIDINote(UInt7(70)).stringValue(true, true), "B\u266D3");
    EXPECT_EQ(MIDINote(MIDINote::Name::A, 4, Style::roland).number(), 69);
    EXPECT_EQ(MIDINote(MIDINote::Name::G_sharp, -2).number(), 8);
    EXPECT_EQ(MIDINote(UInt7(60)).advanced(12).number(), 72);
    EXPECT_EQ(MIDINote(UInt7(60)).distance(MIDINote(UInt7(48))), -12);
    EXPECT_THROW(MIDINote(MIDINote::Name::A, 9, Style::roland), MIDINote::NoteError);
    EXPECT_THROW(MIDINote(128), MIDINote::NoteError);
    EXPECT_EQ(MIDINote(std::uint64_t{127}).number(), 127);
}

TEST(MIDINote, ParsesNoteText) {
    EXPECT_EQ(MIDINote("C3").number(), 60);
    EXPECT_EQ(MIDINote("C4", Style::roland).number(), 60);
    EXPECT_EQ(MIDINote(" c#3 ").number(), 61);
    EXPECT_EQ(MIDINote("Db3").number(), 61);
    EXPECT_EQ(MIDINote("E\u266D3").number(), 63);
    EXPECT_EQ(MIDINote("F\u266F3").number(), 66);
    EXPECT_EQ(MIDINote("C-2").number(), 0);
    EXPECT_EQ(MIDINote("G8").number(), 127);
    EXPECT_EQ(MIDINote("Cb4").number(), 71);
    EXPECT_EQ(MIDINote("B#3").number(), 72);
    for (auto text : {"", "H3", "C", "C#", "C 3", "C3x", "Cx3", "C--1", "C1000"}) {
        EXPECT_EQ(errorOf(text), MIDINote::NoteError::malformedNoteName) << text;
    }
    EXPECT_EQ(errorOf("G#8"), MIDINote::NoteError::outOfBounds);
    EXPECT_EQ(errorOf("Cb-2"), MIDINote::NoteError::outOfBounds);
}

TEST(MIDINote, FrequencyBothWays) {
    EXPECT_DOUBLE_EQ(MIDINote(UInt7(69)).frequencyValue(), 440.0);
    EXPECT_DOUBLE_EQ(MIDINote(UInt7(81)).frequencyValue(), 880.0);
    EXPECT_DOUBLE_EQ(MIDINote(UInt7(69)).frequencyValue(432.0), 432.0);
    EXPECT_NEAR(MIDINote::calculateFrequency(UInt7(60)), 261.6255653, 1e-6);
    EXPECT_EQ(MIDINote::calculateMIDINoteNumber(440.0), 69);
    EXPECT_EQ(MIDINote::calculateMIDINoteNumber(261.63), 60);
    // Exactly half way between 69 and 70 rounds away from zero.
    EXPECT_EQ(MIDINote::calculateMIDINoteNumber(440.0 * std::pow(2.0, 0.5 / 12.0)), 70);
    EXPECT_EQ(MIDINote::frequency(880.0).number(), 81);
    EXPECT_THROW(MIDINote::frequency(0.0), MIDINote::NoteError);
    EXPECT_THROW(MIDINote::frequency(20000.0), MIDINote::NoteError);
}

TEST(SysExID, ManufacturerAndUniversalFormsRawBytesAndValidity) {
    auto threeByte = SysExManufacturer::threeByte(UInt7(0x12), UInt7(0x34));
    EXPECT_EQ(threeByte.sysEx7RawBytes(), (std::vector<std::uint8_t>{0x00, 0x12, 0x34}));
    EXPECT_EQ(threeByte.sysEx8RawBytes(), (std::vector<std::uint8_t>{0x92, 0x34}));
    auto roland = SysExManufacturer::oneByte(UInt7(0x41));
    EXPECT_EQ(roland.sysEx7RawBytes(), (std::vector<std::uint8_t>{0x41}));
    EXPECT_EQ(roland.sysEx8RawBytes(), (std::vector<std::uint8_t>{0x00, 0x41}));
    EXPECT_EQ(SysExManufacturer::fromSysEx7RawBytes(roland.sysEx7RawBytes()), roland);
    EXPECT_EQ(SysExManufacturer::fromSysEx8RawBytes(threeByte.sysEx8RawBytes()), threeByte);
    EXPECT_EQ(SysExManufacturer::fromSysEx7RawBytes(threeByte.sysEx7RawBytes()), threeByte);
    EXPECT_EQ(SysExManufacturer::fromSysEx8RawBytes(roland.sysEx8RawBytes()), roland);
    EXPECT_FALSE(SysExManufacturer::fromSysEx7RawBytes(std::vector<std::uint8_t>{0x00}).has_value());
    EXPECT_FALSE(SysExManufacturer::fromSysEx7RawBytes(std::vector<std::uint8_t>{0x41, 0x10}).has_value());
    EXPECT_FALSE(SysExManufacturer::fromSysEx8RawBytes(std::vector<std::uint8_t>{0x05, 0x10}).has_value());

    EXPECT_FALSE(SysExManufacturer::oneByte(UInt7(0)).isValid());
    EXPECT_FALSE(SysExManufacturer::oneByte(UInt7(0x7E)).isValid());
    EXPECT_TRUE(SysExManufacturer::oneByte(UInt7(0x7D)).isValid());
    EXPECT_FALSE(SysExManufacturer::threeByte(UInt7(0), UInt7(0)).isValid());
    EXPECT_TRUE(SysExManufacturer::threeByte(UInt7(0), UInt7(1)).isValid());
    EXPECT_EQ(SysExManufacturer::educational(), SysExManufacturer::oneByte(UInt7(0x7D)));
    // A one-byte and a three-byte number with the same low byte are different makers.
    EXPECT_EQ(roland.name(), "Roland");
    EXPECT_FALSE(SysExManufacturer::threeByte(UInt7(0x00), UInt7(0x41)).name().has_value());

    // The identifier of a message: a universal type or a manufacturer.
    auto realTime = SysExID::universal(UniversalSysExType::realTime);
    EXPECT_EQ(realTime.sysEx7RawBytes(), (std::vector<std::uint8_t>{0x7F}));
    EXPECT_EQ(realTime.sysEx8RawBytes(), (std::vector<std::uint8_t>{0x00, 0x7F}));
    EXPECT_EQ(SysExID::fromSysEx7RawBytes(std::vector<std::uint8_t>{0x7E}),
              SysExID::universal(UniversalSysExType::nonRealTime));
    EXPECT_EQ(SysExID::fromSysEx8RawBytes(realTime.sysEx8RawBytes()), realTime);
    auto korg = SysExID::manufacturer(SysExManufacturer::oneByte(UInt7(0x42)));
    EXPECT_EQ(SysExID::fromSysEx8RawBytes(korg.sysEx8RawBytes()), korg);
    EXPECT_EQ(korg.manufacturerValue(), SysExManufacturer::oneByte(UInt7(0x42)));
    EXPECT_FALSE(korg.universalValue().has_value());
}

TEST(SysExEvents, DeviceInquiryRequestAndResponse) {
    auto request = MIDIEvent::deviceInquiryRequest(UInt7(0x7F));
    const auto* r = request.get<MIDIEvent::UniversalSysEx7>();
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->universalType, UniversalSysExType::nonRealTime);
    EXPECT_EQ(r->deviceID, 0x7F);
    EXPECT_EQ(r->subID1, 6);
    EXPECT_EQ(r->subID2, 1);
    EXPECT_TRUE(r->data.empty());

    auto response = MIDIEvent::deviceInquiryResponse(
        UInt7(0x10), SysExManufacturer::threeByte(UInt7(0x20), UInt7(0x29)), UInt14(0x0123), UInt14(0x0081),
        {UInt7(1), UInt7(2), UInt7(3), UInt7(4)}, UInt4(3));
    const auto* s = response.get<MIDIEvent::UniversalSysEx7>();
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->subID1, 6);
    EXPECT_EQ(s->subID2, 1);
    EXPECT_EQ(s->group, 3);
    EXPECT_EQ(s->data, (std::vector<std::uint8_t>{0x00, 0x20, 0x29, 0x23, 0x02, 0x01, 0x01, 1, 2, 3, 4}));
}

}  // namespace
}  // namespace MIDICore
