#include "MIDICore/MIDIEventFilter.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace MIDICore {
namespace {

using V16 = ChanVoice7Bit16BitValue;
using V32 = ChanVoice7Bit32BitValue;

const std::vector<MIDIEvent>& mixed() {
    static const std::vector<MIDIEvent> events{
        MIDIEvent::noteOn(60, V16::midi1(100), UInt4(0)),                       // 0
        MIDIEvent::noteOff(72, V16::midi1(0), UInt4(1)),                        // 1
        MIDIEvent::cc(Controller::modWheel, V32::midi1(1), UInt4(0)),           // 2
        MIDIEvent::cc(Controller::volume, V32::midi1(2), UInt4(1)),             // 3
        MIDIEvent::programChange(UInt7(5), UInt4(2)),                           // 4
        MIDIEvent::sysEx7(SysExManufacturer::educational(), {1, 2}),            // 5
        MIDIEvent::timingClock(UInt4(0)),                                       // 6
        MIDIEvent::start(UInt4(1)),                                             // 7
        MIDIEvent::songSelect(UInt7(3), UInt4(1)),                              // 8
        MIDIEvent::noOp(UInt4(2)),                                              // 9
    };
    return events;
}

// Positions in mixed() of the events that passed.
std::vector<int> kept(const std::vector<MIDIEvent>& events) {
    std::vector<int> positions;
    for (const auto& event : events) {
        auto found = std::find(mixed().begin(), mixed().end(), event);
        positions.push_back(static_cast<int>(found - mixed().begin()));
    }
    return positions;
}

std::vector<int> through(const ChanVoiceTypes& selector) { return kept(filter(mixed(), selector)); }

TEST(MIDIEventFilter, ChannelVoicePrefixesByTypeChannelControllerAndNoteRange) {
    EXPECT_EQ(through(ChanVoiceTypes::onlyType(ChanVoiceType::cc)), (std::vector<int>{2, 3}));
    EXPECT_EQ(through(ChanVoiceTypes::keepTypes({ChanVoiceType::noteOn, ChanVoiceType::noteOff})),
              (std::vector<int>{0, 1, 5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::dropType(ChanVoiceType::programChange)),
              (std::vector<int>{0, 1, 2, 3, 5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::only()), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(through(ChanVoiceTypes::drop()), (std::vector<int>{5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::onlyTypes({})), (std::vector<int>{}));
    EXPECT_EQ(through(ChanVoiceTypes::keepTypes({})), (std::vector<int>{5, 6, 7, 8, 9}));
    // Channels.
    EXPECT_EQ(through(ChanVoiceTypes::onlyChannel(UInt4(1))), (std::vector<int>{1, 3}));
    EXPECT_EQ(through(ChanVoiceTypes::keepChannels({UInt4(0), UInt4(2)})), (std::vector<int>{0, 2, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::dropChannel(UInt4(0))), (std::vector<int>{1, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::dropChannels({})), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    // Controllers: the class narrows to control changes.
    EXPECT_EQ(through(ChanVoiceTypes::onlyCC(Controller::volume)), (std::vector<int>{3}));
    EXPECT_EQ(through(ChanVoiceTypes::onlyCC(UInt7(1))), (std::vector<int>{2}));
    EXPECT_EQ(through(ChanVoiceTypes::keepCC(Controller::volume)), (std::vector<int>{0, 1, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::dropCCs(std::vector<UInt7>{UInt7(1), UInt7(7)})),
              (std::vector<int>{0, 1, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::onlyCCs(std::vector<Controller>{})), (std::vector<int>{}));
    EXPECT_EQ(through(ChanVoiceTypes::keepCCs(std::vector<Controller>{})), (std::vector<int>{0, 1, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::dropCCs(std::vector<Controller>{})), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    // Note ranges are closed and narrow the class to note on and off.
    NoteRange low{UInt7(0), UInt7(60)};
    EXPECT_EQ(through(ChanVoiceTypes::onlyNotesInRange(low)), (std::vector<int>{0}));
    EXPECT_EQ(through(ChanVoiceTypes::onlyNotesInRange(NoteRange{UInt7(61), UInt7(72)})), (std::vector<int>{1}));
    EXPECT_EQ(through(ChanVoiceTypes::keepNotesInRange(low)), (std::vector<int>{0, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::dropNotesInRanges({low, NoteRange{UInt7(72), UInt7(72)}})),
              (std::vector<int>{2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(through(ChanVoiceTypes::onlyNotesInRanges({})), (std::vector<int>{}));
}

TEST(MIDIEventFilter, SystemAndUtilitySelectors) {
    EXPECT_EQ(kept(filter(mixed(), SysRealTimeTypes::onlyType(SysRealTimeType::start))), (std::vector<int>{7}));
    EXPECT_EQ(kept(filter(mixed(), SysRealTimeTypes::keepTypes({SysRealTimeType::timingClock}))),
              (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 8, 9}));
    EXPECT_EQ(kept(filter(mixed(), SysRealTimeTypes::dropType(SysRealTimeType::timingClock))),
              (std::vector<int>{0, 1, 2, 3, 4, 5, 7, 8, 9}));
    EXPECT_EQ(kept(filter(mixed(), SysExTypes::only())), (std::vector<int>{5}));
    EXPECT_EQ(kept(filter(mixed(), SysExTypes::keepTypes({}))), (std::vector<int>{0, 1, 2, 3, 4, 6, 7, 8, 9}));
    EXPECT_EQ(kept(filter(mixed(), SysCommonTypes::drop())), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 9}));
    EXPECT_EQ(kept(filter(mixed(), SysCommonTypes::onlyTypes({SysCommonType::songSelect, SysCommonType::tuneRequest}))),
              (std::vector<int>{8}));
    EXPECT_EQ(kept(filter(mixed(), UtilityTypes::dropTypes({UtilityType::noOp}))),
              (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(MIDIEventFilter, GroupsAndFilterGroupsApplyInTurn) {
    EXPECT_EQ(kept(filter(mixed(), UInt4(1))), (std::vector<int>{7, 8}));
    EXPECT_EQ(kept(filter(mixed(), std::vector<UInt4>{UInt4(1), UInt4(2)})), (std::vector<int>{7, 8, 9}));
    EXPECT_EQ(kept(drop(mixed(), UInt4(0))), (std::vector<int>{7, 8, 9}));
    EXPECT_EQ(kept(drop(mixed(), std::vector<UInt4>{})).size(), mixed().size());

    MIDIEventFilterGroup group({MIDIEventFilter::chanVoice(ChanVoiceTypes::keepChannel(UInt4(0))),
                                MIDIEventFilter::sysRealTime(SysRealTimeTypes::drop()),
                                MIDIEventFilter::group(UInt4(0))});
    EXPECT_EQ(kept(group.filter(mixed())), (std::vector<int>{0, 2, 5}));
    EXPECT_EQ(kept(MIDIEventFilterGroup().filter(mixed())).size(), mixed().size());
    EXPECT_EQ(kept(MIDIEventFilterGroup(MIDIEventFilter::utility(UtilityTypes::only())).filter(mixed())),
              (std::vector<int>{9}));
}

}  // namespace
}  // namespace MIDICore
