#include "MIDICore/ChanVoiceValues.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <unordered_set>

namespace MIDICore {
namespace {

using V7_16 = ChanVoice7Bit16BitValue;
using V7_32 = ChanVoice7Bit32BitValue;
using V14_32 = ChanVoice14Bit32BitValue;
using V32 = ChanVoice32BitValue;

TEST(ChanVoiceValues, UpscalingKeepsMinCentreAndMax) {
    EXPECT_EQ(V7_32::midi1(0).midi2Value(), 0u);
    EXPECT_EQ(V7_32::midi1(64).midi2Value(), 0x80000000u);
    EXPECT_EQ(V7_32::midi1(127).midi2Value(), 0xFFFFFFFFu);
    EXPECT_EQ(V7_32::midi1(65).midi2Value(), 0x82082082u);
    EXPECT_EQ(V7_16::midi1(64).midi2Value(), 0x8000u);
    EXPECT_EQ(V7_16::midi1(127).midi2Value(), 0xFFFFu);
    EXPECT_EQ(V7_16::midi1(65).midi2Value(), 0x8208u);
    EXPECT_EQ(V14_32::midi1(8192).midi2Value(), 0x80000000u);
    EXPECT_EQ(V14_32::midi1(16383).midi2Value(), 0xFFFFFFFFu);
    EXPECT_EQ(V14_32::midi1(8193).midi2Value(), 0x80040020u);
    EXPECT_EQ(V32::midi1(UInt7(127)).midi2Value(), 0xFFFFFFFFu);
    EXPECT_EQ(V32::midi1(UInt14(8192)).midi2Value(), 0x80000000u);
    // Downscaling is a plain shift.
    EXPECT_EQ(V7_32::midi2(0x82082082u).midi1Value(), 65);
    EXPECT_EQ(V7_16::midi2(0x01FF).midi1Value(), 0);
    EXPECT_EQ(V14_32::midi2(0xFFFFFFFFu).midi1Value(), 16383);
    EXPECT_EQ(V32::midi2(0x80040002u).midi1_14BitValue(), 8193);
    EXPECT_EQ(V32::midi2(0xFE000000u).midi1_7BitValue(), 127);
}

TEST(ChanVoiceValues, UnitIntervalScalesBothWays) {
    EXPECT_EQ(V7_16::unitInterval(0.5).midi1Value(), 64);
    EXPECT_EQ(V7_16::unitInterval(1.0).midi1Value(), 127);
    EXPECT_EQ(V7_16::unitInterval(0.49).midi1Value(), 62);
    EXPECT_EQ(V7_16::unitInterval(-3.0).midi1Value(), 0);
    EXPECT_EQ(V7_16::unitInterval(7.0).midi2Value(), 0xFFFFu);
    EXPECT_EQ(V7_32::unitInterval(0.5).midi2Value(), 0x80000000u);
    EXPECT_EQ(V7_32::unitInterval(1.0).midi2Value(), 0xFFFFFFFFu);
    EXPECT_EQ(V14_32::unitInterval(0.75).midi1Value(), 8192 + 4095);
    EXPECT_EQ(V32::unitInterval(0.25).midi2Value(), 0x40000000u);

    const double K = scaling::K;
    EXPECT_EQ(K, 0.5000000000023282);
    EXPECT_EQ(V7_32::midi1(127).unitIntervalValue(), 1.0);
    EXPECT_EQ(V7_32::midi1(65).unitIntervalValue(), 1.0 / 126.0 + K);
    EXPECT_EQ(V7_32::midi1(64).unitIntervalValue(), 0.5);
    EXPECT_EQ(V7_32::midi1(32).unitIntervalValue(), 0.25);
    EXPECT_EQ(V14_32::midi1(8193).unitIntervalValue(), 1.0 / 16382.0 + K);
    EXPECT_EQ(V7_16::midi2(0x8001).unitIntervalValue(), 1.0 / 65534.0 + K);
    EXPECT_EQ(V32::midi2(0xFFFFFFFFu).unitIntervalValue(), 1.0);
    EXPECT_EQ(V32::midi2(0x80000001u).unitIntervalValue(), 1.0 / 4294967294.0 + K);
}

TEST(ChanVoiceValues, BipolarForms) {
    EXPECT_EQ(V14_32::bipolarUnitInterval(0.0).midi1Value(), 8192);
    EXPECT_EQ(V14_32::bipolarUnitInterval(-1.0).midi1Value(), 0);
    EXPECT_EQ(V14_32::bipolarUnitInterval(1.0).midi1Value(), 16383);
    EXPECT_EQ(V14_32::bipolarUnitInterval(-1.0).midi2Value(), 0u);
    EXPECT_EQ(V14_32::bipolarUnitInterval(0.0).midi2Value(), 0x80000000u);
    EXPECT_EQ(V14_32::bipolarUnitInterval(1.0).midi2Value(), 0xFFFFFFFFu);
    EXPECT_EQ(V14_32::bipolarUnitInterval(-0.5).midi2Value(), 0x40000000u);
    EXPECT_EQ(V14_32::bipolarUnitInterval(0.5).midi2Value(), 0x80000000u + 1073741823u);
    EXPECT_EQ(V14_32::bipolarUnitInterval(-1.0).unitIntervalValue(), 0.0);
    EXPECT_EQ(V14_32::bipolarUnitInterval(0.0).unitIntervalValue(), 0.5);
    EXPECT_EQ(V14_32::bipolarUnitInterval(1.0).unitIntervalValue(), 1.0);

    EXPECT_EQ(V14_32::unitInterval(0.0).bipolarUnitIntervalValue(), -1.0);
    EXPECT_EQ(V14_32::unitInterval(0.75).bipolarUnitIntervalValue(), 0.5);
    EXPECT_EQ(V14_32::unitInterval(2.0).bipolarUnitIntervalValue(), 1.0);
    EXPECT_EQ(V14_32::midi1(16383).bipolarUnitIntervalValue(), 1.0);
    EXPECT_EQ(V14_32::midi2(0).bipolarUnitIntervalValue(), -1.0);
    EXPECT_EQ(V14_32::midi2(0x80000000u).bipolarUnitIntervalValue(), 0.0);
    EXPECT_EQ(V14_32::midi2(0xFFFFFFFFu).bipolarUnitIntervalValue(), 1.0);
}

TEST(ChanVoiceValues, EqualityAcrossScalesAndValidatedClamping) {
    EXPECT_EQ(V7_32::unitInterval(0.5), V7_32::midi1(64));
    EXPECT_EQ(V7_32::midi1(64), V7_32::midi2(0x80000000u));
    EXPECT_EQ(V7_32::midi1(64), V7_32::midi2(0x81FFFFFFu));  // compared at MIDI 1.0 resolution
    EXPECT_NE(V7_32::unitInterval(0.5), V7_32::midi2(0x80000001u));
    EXPECT_NE(V7_32::unitInterval(0.5), V7_32::unitInterval(0.5000001));
    EXPECT_EQ(V14_32::bipolarUnitInterval(0.0), V14_32::unitInterval(0.5));
    EXPECT_EQ(V14_32::bipolarUnitInterval(1.0), V14_32::midi1(16383));
    EXPECT_EQ(V14_32::midi1(8192), V14_32::midi2(0x80000000u));
    EXPECT_EQ(V32::unitInterval(1.0), V32::midi2(0xFFFFFFFFu));
    // Equal values of different scales hash by scale: a set keeps both.
    std::unordered_set<V7_32> values{V7_32::midi1(64), V7_32::midi1(64), V7_32::midi2(0x80000000u)};
    EXPECT_EQ(values.size(), 2u);

    V7_16::Validated velocity(V7_16::unitInterval(1.5));
    EXPECT_EQ(velocity.wrappedValue().kind(), V7_16::Case::unitInterval);
    EXPECT_EQ(velocity.wrappedValue().unitIntervalValue(), 1.0);
    V14_32::Validated bend;
    bend.setWrappedValue(V14_32::bipolarUnitInterval(-4.0));
    EXPECT_EQ(bend.wrappedValue().bipolarUnitIntervalValue(), -1.0);
    bend.setWrappedValue(V14_32::midi2(7));
    EXPECT_EQ(bend.wrappedValue().midi2Value(), 7u);
}

}  // namespace
}  // namespace MIDICore
