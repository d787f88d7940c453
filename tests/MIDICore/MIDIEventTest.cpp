#include "MIDICore/MIDIEvent.hpp"

#include <gtest/gtest.h>

namespace MIDICore {
namespace {

using Change = MIDI2ParameterNumberChange;

// One event of each of the 29 cases, in case order.
std::vector<MIDIEvent> oneOfEach(UInt4 group) {
    UInt4 ch(3);
    return {
        MIDIEvent::noteOn(60, ChanVoice7Bit16BitValue::midi1(100), ch, group),
        MIDIEvent::noteOff(60, ChanVoice7Bit16BitValue::midi1(0), ch, group),
        MIDIEvent::noteCC(MIDINote(UInt7(60)), PerNoteController::assignable(5), ChanVoice32BitValue::midi2(1), ch, group),
        MIDIEvent::notePitchBend(MIDINote(UInt7(60)), ChanVoice32BitValue::unitInterval(0.5), ch, group),
        MIDIEvent::notePressure(MIDINote(UInt7(60)), ChanVoice7Bit32BitValue::midi1(1), ch, group),
        MIDIEvent::noteManagement(MIDINote(UInt7(60)), OptionFlags{OptionFlag::resetPerNoteControllers}, ch, group),
        MIDIEvent::cc(Controller::modWheel, ChanVoice7Bit32BitValue::midi1(1), ch, group),
        MIDIEvent::programChange(UInt7(1), ch, group),
        MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(8192), ch, group),
        MIDIEvent::pressure(ChanVoice7Bit32BitValue::midi1(1), ch, group),
        MIDIEvent::rpn(RegisteredController::null(), Change::absolute, ch, group),
        MIDIEvent::nrpn(AssignableController::null(), Change::absolute, ch, group),
        MIDIEvent::sysEx7(SysExManufacturer::educational(), {1, 2}, group),
        MIDIEvent::universalSysEx7(UniversalSysExType::realTime, UInt7(1), UInt7(2), UInt7(3), {}, group),
        MIDIEvent::sysEx8(SysExManufacturer::educational(), {1}, 4, group),
        MIDIEvent::universalSysEx8(UniversalSysExType::nonRealTime, UInt7(1), UInt7(2), UInt7(3), {}, 1, group),
        MIDIEvent::timecodeQuarterFrame(UInt7(1), group),
        MIDIEvent::songPositionPointer(UInt14(1), group),
        MIDIEvent::songSelect(UInt7(1), group),
        MIDIEvent::tuneRequest(group),
        MIDIEvent::timingClock(group),
        MIDIEvent::start(group),
        MIDIEvent::continue_(group),
        MIDIEvent::stop(group),
        MIDIEvent::activeSensing(group),
        MIDIEvent::systemReset(group),
        MIDIEvent::noOp(group),
        MIDIEvent::jrClock(100, group),
        MIDIEvent::jrTimestamp(200, group),
    };
}

TEST(MIDIEvent, CaseOrderChannelGroupAndClassPredicates) {
    auto events = oneOfEach(UInt4(9));
    ASSERT_EQ(events.size(), 29u);
    for (std::size_t i = 0; i < events.size(); ++i) {
        const auto& e = events[i];
        EXPECT_EQ(e.index(), i);
        EXPECT_EQ(e.group(), 9);
        EXPECT_EQ(e.channel().has_value(), i <= 11) << i;
        EXPECT_EQ(e.isChannelVoice(), i <= 11);
        EXPECT_EQ(e.isSystemExclusive(), i >= 12 && i <= 15);
        EXPECT_EQ(e.isSystemCommon(), i >= 16 && i <= 19);
        EXPECT_EQ(e.isSystemRealTime(), i >= 20 && i <= 25);
        EXPECT_EQ(e.isUtility(), i >= 26);
        int classes = e.isChannelVoice() + e.isSystemExclusive() + e.isSystemCommon() + e.isSystemRealTime() + e.isUtility();
        EXPECT_EQ(classes, 1);
    }
    EXPECT_EQ(events[0].channel(), 3);
    EXPECT_FALSE(MIDIEvent::timingClock(UInt4(2)).channel().has_value());
    EXPECT_TRUE(events[22].isSystemRealTime(SysRealTimeType::continue_));
    EXPECT_TRUE(events[6].isChannelVoice(ChanVoiceType::cc));
    EXPECT_TRUE(events[7].isChannelVoice({ChanVoiceType::cc, ChanVoiceType::programChange}));
    EXPECT_FALSE(events[7].isChannelVoice({ChanVoiceType::cc}));
    EXPECT_TRUE(events[13].isSystemExclusive(SysExType::universalSysEx7));
    EXPECT_TRUE(events[17].isSystemCommon({SysCommonType::songPositionPointer}));
    EXPECT_TRUE(events[28].isUtility(UtilityType::jrTimestamp));
    EXPECT_FALSE(events[28].isSystemRealTime(SysRealTimeType::timingClock));
}

TEST(MIDIEvent, ValidatedFieldsClampOnWriteAndEqualityUsesConvertedValues) {
    auto event = MIDIEvent::noteOn(60, ChanVoice7Bit16BitValue::unitInterval(1.5), UInt4(0));
    auto* noteOn = event.get<MIDIEvent::NoteOn>();
    ASSERT_NE(noteOn, nullptr);
    EXPECT_EQ(noteOn->velocity().kind(), ChanVoice7Bit16BitValue::Case::unitInterval);
    EXPECT_EQ(noteOn->velocity().unitIntervalValue(), 1.0);
    noteOn->setVelocity(ChanVoice7Bit16BitValue::unitInterval(-0.5));
    EXPECT_EQ(noteOn->velocity().unitIntervalValue(), 0.0);
    EXPECT_EQ(noteOn->attribute.kind(), NoteAttribute::Case::none);
    EXPECT_TRUE(noteOn->midi1ZeroVelocityAsNoteOff);

    auto pitch = MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::bipolarUnitInterval(3.0), UInt4(1));
    EXPECT_EQ(pitch.get<MIDIEvent::PitchBend>()->value().bipolarUnitIntervalValue(), 1.0);
    EXPECT_EQ(pitch, MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(16383), UInt4(1)));
    EXPECT_NE(pitch, MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(16383), UInt4(2)));
    EXPECT_EQ(MIDIEvent::cc(UInt7(1), ChanVoice7Bit32BitValue::midi1(64), UInt4(0)),
              MIDIEvent::cc(Controller::modWheel, ChanVoice7Bit32BitValue::unitInterval(0.5), UInt4(0)));
}

TEST(MIDIEvent, ParameterNumberFormsRecogniseNamedCases) {
    UInt7Pair bend{UInt7(0), UInt7(0)};
    auto fromBytes = MIDIEvent::rpn(bend, DataEntryBytes{UInt7(2), UInt7(50)}, Change::absolute, UInt4(0));
    EXPECT_EQ(fromBytes, MIDIEvent::rpn(RegisteredController::pitchBendSensitivity(UInt7(2), UInt7(50)),
                                        Change::absolute, UInt4(0)));
    auto fine = MIDIEvent::rpn(UInt7Pair{UInt7(0), UInt7(1)}, UInt14(8193), Change::absolute, UInt4(0));
    const auto& fineParameter = fine.get<MIDIEvent::RPN>()->parameter;
    EXPECT_EQ(fineParameter.kind(), RegisteredController::Case::channelFineTuning);
    EXPECT_EQ(fineParameter.dataEntryBytes(), (DataEntryBytes{UInt7(64), UInt7(1)}));
    auto wide = MIDIEvent::rpn(UInt7Pair{UInt7(61), UInt7(8)}, std::uint32_t{0xFFFFFFFF}, Change::relative, UInt4(0));
    const auto& roll = wide.get<MIDIEvent::RPN>()->parameter;
    EXPECT_EQ(roll.kind(), RegisteredController::Case::threeDimensionalRollAngle);
    EXPECT_EQ(roll.parameterBytes(), (UInt7Pair{UInt7(61), UInt7(8)}));
    EXPECT_EQ(roll.dataEntryBytes(), (DataEntryBytes{UInt7(127), UInt7(127)}));
    auto raw = MIDIEvent::rpn(UInt7Pair{UInt7(5), UInt7(5)}, DataEntryBytes{UInt7(1), std::nullopt}, Change::absolute, UInt4(0));
    EXPECT_EQ(raw.get<MIDIEvent::RPN>()->parameter.kind(), RegisteredController::Case::raw);
    EXPECT_EQ(raw.get<MIDIEvent::RPN>()->parameter.parameterBytes(), (UInt7Pair{UInt7(5), UInt7(5)}));
    EXPECT_EQ(RegisteredController::mpeConfigurationMessage(UInt7(4), std::nullopt).parameterBytes(),
              (UInt7Pair{UInt7(0), UInt7(6)}));

    auto nullNRPN = MIDIEvent::nrpn(UInt7Pair{UInt7(127), UInt7(127)}, DataEntryBytes{UInt7(1), UInt7(2)},
                                    Change::absolute, UInt4(0));
    EXPECT_EQ(nullNRPN.get<MIDIEvent::NRPN>()->parameter, AssignableController::null());
    EXPECT_EQ(nullNRPN.get<MIDIEvent::NRPN>()->parameter.dataEntryBytes(), DataEntryBytes{});
}

TEST(MIDIEvent, ParameterNumbersAsMIDI1ControlChanges) {
    auto events = MIDIEvent::midi1RPN(RegisteredController::pitchBendSensitivity(UInt7(12), UInt7(0)),
                                      Change::absolute, UInt4(2));
    ASSERT_EQ(events.size(), 4u);
    std::vector<int> controllers;
    std::vector<int> values;
    for (const auto& e : events) {
        const auto* cc = e.get<MIDIEvent::CC>();
        ASSERT_NE(cc, nullptr);
        EXPECT_EQ(cc->channel, 2);
        controllers.push_back(cc->controller.number().intValue());
        values.push_back(cc->value().midi1Value().intValue());
    }
    EXPECT_EQ(controllers, (std::vector<int>{101, 100, 6, 38}));
    EXPECT_EQ(values, (std::vector<int>{0, 0, 12, 0}));

    auto coarse = MIDIEvent::midi1NRPN(AssignableController::raw(UInt7Pair{UInt7(3), UInt7(4)}, UInt7(9), std::nullopt),
                                       Change::absolute, UInt4(0));
    ASSERT_EQ(coarse.size(), 3u);
    EXPECT_EQ(coarse[0].get<MIDIEvent::CC>()->controller, Controller::nrpnMSB);
    EXPECT_EQ(coarse[1].get<MIDIEvent::CC>()->controller, Controller::nrpnLSB);
    EXPECT_EQ(coarse[2].get<MIDIEvent::CC>()->value().midi1Value(), 9);
}

TEST(MIDIEvent, SupportingFieldConversions) {
    EXPECT_EQ(Pitch7_9(60.5).coarse, 60);
    EXPECT_EQ(Pitch7_9(60.5).fine, 256);
    EXPECT_EQ(Pitch7_9(60.5).uInt16Value(), 30976);
    EXPECT_EQ(Pitch7_9(200.0).coarse, 127);
    EXPECT_EQ(Pitch7_9(200.0).fine, 511);
    EXPECT_EQ(Pitch7_9(BytePair(0x79, 0x00)), Pitch7_9(std::uint16_t{30976}));
    EXPECT_EQ(Pitch7_9(std::uint16_t{30976}).doubleValue(), 60.5);

    EXPECT_EQ(NoteAttribute(0, 5), NoteAttribute::none());
    EXPECT_EQ(NoteAttribute(3, 30976).pitch().coarse, 60);
    auto undefined = NoteAttribute(9, 7);
    EXPECT_EQ(undefined.kind(), NoteAttribute::Case::undefined);
    EXPECT_EQ(undefined.attributeType(), 9);
    EXPECT_EQ(NoteAttribute::profileSpecific(4).attributeType(), 2);
    EXPECT_EQ(NoteAttribute::none().attributeData(), 0);

    EXPECT_EQ(OptionFlags{OptionFlag::detachPerNoteControllers}.byte(), 2);
    EXPECT_EQ(OptionFlags::fromByte(0xFF).byte(), 3);
    EXPECT_EQ(Bank::bankSelect(UInt7(1), UInt7(2)).bankSelectValue(), 130);
    EXPECT_EQ(controllers(MIDIParameterNumberType::assignable).first, Controller::nrpnMSB);
}

}  // namespace
}  // namespace MIDICore
