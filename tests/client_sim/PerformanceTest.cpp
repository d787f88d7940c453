#include "central/HVEncodedRangeCommand.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "havrel-client-sim/HVSimError.hpp"
#include "havrel-client-sim/HVSimPerformance.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace havrel {
namespace {

struct Entry {
    std::uint64_t wrapper;
    std::uint8_t axis;
    double position;
};

// The entries of a range frame as the Central decodes them.
std::vector<Entry> decoded(const HVSimFrame& frame) {
    EXPECT_EQ(frame.type, TNFrameTypeRangeData);
    auto command = HVEncodedRangeCommand::initWithData(frame.payload);
    EXPECT_TRUE(command.has_value());
    std::vector<Entry> entries;
    if (command) {
        for (const auto& value : command->rangeValues) {
            entries.push_back({value.dataWrapperID, value.axisNumber, value.rangeValue});
        }
    }
    return entries;
}

// Positions travel as k / 511.
constexpr double kWireStep = 1.0 / 511.0;

class PerformanceTest : public ::testing::Test {
protected:
    HVSimSurface surface = HVSimSurface::builtIn();

    std::vector<HVSimFrame> framesOf(const std::string& script, double rate = 100.0) {
        return HVSimPerformance::frames(HVSimScript::parse(script, surface), rate);
    }
};

TEST_F(PerformanceTest, SmallScriptMakesTimedFramesOfEachType) {
    auto frames = framesOf("set xy 0.25,0.75\n"
                           "wait 0.5\n"
                           "tap pad 0.2\n"
                           "midi 90 3C 64\n"
                           "change {\"changeType\": 2}\n"
                           "set radial 1,0.5\n");
    ASSERT_EQ(frames.size(), 6u);

    auto xy = decoded(frames[0]);
    ASSERT_EQ(xy.size(), 2u);
    EXPECT_EQ(xy[0].wrapper, kHVSimXYID);
    EXPECT_EQ(xy[0].axis, 0u);
    EXPECT_NEAR(xy[0].position, 0.25, kWireStep);
    EXPECT_EQ(xy[1].wrapper, kHVSimXYID);
    EXPECT_EQ(xy[1].axis, 1u);
    EXPECT_NEAR(xy[1].position, 0.75, kWireStep);
    EXPECT_DOUBLE_EQ(frames[0].time, 0.0);
    EXPECT_EQ(frames[0].cue, "set xy 0.25,0.75");

    // The tap presses after the wait and releases after its hold; only its first frame has a cue.
    auto press = decoded(frames[1]);
    auto release = decoded(frames[2]);
    ASSERT_EQ(press.size(), 1u);
    ASSERT_EQ(release.size(), 1u);
    EXPECT_EQ(press[0].wrapper, kHVSimPadID);
    EXPECT_EQ(press[0].position, 1.0);
    EXPECT_EQ(release[0].position, 0.0);
    EXPECT_DOUBLE_EQ(frames[1].time, 0.5);
    EXPECT_DOUBLE_EQ(frames[2].time, 0.7);
    EXPECT_EQ(frames[1].cue, "tap pad 0.2");
    EXPECT_TRUE(frames[2].cue.empty());

    EXPECT_EQ(frames[3].type, TNFrameTypePureMIDIData);
    auto midi = RNBluetoothMIDICommandPure::initWithData(frames[3].payload);
    ASSERT_TRUE(midi.has_value());
    EXPECT_EQ(midi->status, 0x90);
    EXPECT_EQ(midi->data1, 0x3C);
    EXPECT_EQ(midi->data2, 0x64);
    EXPECT_EQ(frames[3].payload[0], 0x10);

    EXPECT_EQ(frames[4].type, TNFrameTypeChangeData);
    EXPECT_EQ(std::string(frames[4].payload.begin(), frames[4].payload.end()), "{\"changeType\": 2}");
    EXPECT_DOUBLE_EQ(frames[4].time, 0.7);

    auto radial = decoded(frames[5]);
    ASSERT_EQ(radial.size(), 2u);
    EXPECT_EQ(radial[0].wrapper, kHVSimRadialID);
    EXPECT_EQ(radial[0].position, 1.0);
}

TEST_F(PerformanceTest, SweepSendsEvenlySpacedPositionsAtTheRate) {
    auto frames = framesOf("sweep fader 0 1 0.5\nset pitch 0.5", 10.0);
    // 0.5 s at 10 a second: five intervals, six positions, then the set right at the end.
    ASSERT_EQ(frames.size(), 7u);
    for (std::size_t index = 0; index <= 5; ++index) {
        auto entries = decoded(frames[index]);
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_NEAR(entries[0].position, 0.2 * static_cast<double>(index), kWireStep) << index;
        EXPECT_NEAR(frames[index].time, 0.1 * static_cast<double>(index), 1e-9) << index;
    }
    EXPECT_EQ(decoded(frames[5])[0].position, 1.0);
    EXPECT_DOUBLE_EQ(frames[6].time, 0.5);
    EXPECT_EQ(decoded(frames[6])[0].wrapper, kHVSimPitchID);

    // A sweep of no time still sends where it starts and where it ends.
    auto instant = framesOf("sweep xy 1,0 0,1 0");
    ASSERT_EQ(instant.size(), 2u);
    EXPECT_EQ(decoded(instant[1])[0].position, 0.0);
    EXPECT_EQ(decoded(instant[1])[1].position, 1.0);
}

TEST_F(PerformanceTest, DurationCountsTrailingWaitAndFrameLimitIsEnforced) {
    auto steps = HVSimScript::parse("tap fader\nsweep pitch 0 1 1\nwait 0.5", surface);
    EXPECT_DOUBLE_EQ(HVSimPerformance::duration(steps), HVSimScript::kDefaultTapSeconds + 1.5);

    auto builtIn = HVSimScript::parse(HVSimScript::builtInPerformance(surface), surface);
    EXPECT_GE(HVSimPerformance::duration(builtIn), 4.0);
    EXPECT_LE(HVSimPerformance::duration(builtIn), 6.0);

    // 1 + 6 frames fit a limit of 10; the second sweep passes it.
    try {
        HVSimPerformance::frames(
            HVSimScript::parse("set fader 0\nsweep fader 0 1 0.5\nsweep fader 1 0 0.5", surface), 10.0, 10);
        FAIL() << "the frame limit was not enforced";
    } catch (const HVSimScriptError& error) {
        EXPECT_EQ(error.line(), 3u);
        EXPECT_EQ(error.message(), "the script makes more than 10 frames");
    }
}

}  // namespace
}  // namespace havrel
