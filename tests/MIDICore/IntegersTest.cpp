#include "MIDICore/Int7.hpp"
#include "MIDICore/MIDIUnsignedInteger.hpp"
#include "MIDIInternals/Exception.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <unordered_set>

namespace MIDICore {
namespace {

// The reason text of the exception a call raises, or "" when it returns.
template <class F>
std::string raisedReason(F&& call) {
    try {
        call();
    } catch (const MIDIInternals::Exception& e) {
        return e.reason();
    }
    return "";
}

static_assert(UInt7(127).storage() == 127, "literals are checked at compile time");
static_assert(UInt25::max().storage() == 33554431 && UInt25::midpoint().storage() == 0x1000000);
static_assert(UInt9::max().storage() == 511 && UInt14::midpoint().storage() == 8192);

TEST(BoundedIntegers, CheckedExactClampingAndTruncatingConversions) {
    EXPECT_FALSE(UInt7::exactly(128).has_value());
    EXPECT_EQ(UInt7::clamping(128), 127);
    EXPECT_EQ(UInt7::truncatingIfNeeded(128), 0);
    EXPECT_EQ(raisedReason([] { UInt7::checked(128); }), "UInt7 integer overflowed");
    EXPECT_EQ(UInt4::clamping(-1), 0);
    EXPECT_EQ(UInt4::truncatingIfNeeded(-1), 15);
    EXPECT_EQ(raisedReason([] { UInt4::checked(-1); }), "UInt4 integer underflowed");

    // Sources wider or of another sign than the storage compare without wrapping.
    EXPECT_EQ(raisedReason([] { UInt7(std::numeric_limits<std::uint64_t>::max()); }), "UInt7 integer overflowed");
    EXPECT_EQ(raisedReason([] { UInt25(std::int64_t{-1}); }), "UInt25 integer underflowed");
    EXPECT_EQ(raisedReason([] { UInt14(std::int8_t{-128}); }), "UInt14 integer underflowed");
    EXPECT_EQ(UInt7(std::uint64_t{127}), 127);
    EXPECT_EQ(UInt14::clamping(std::numeric_limits<std::int64_t>::min()), 0);
    EXPECT_EQ(UInt25::exactly(std::uint64_t{33554431}), UInt25::max());
    EXPECT_EQ(toUInt9(511), UInt9::max());
    EXPECT_EQ(toUInt4Exactly(16), std::nullopt);
}

TEST(BoundedIntegers, FloatingPointChecksComeBeforeTruncation) {
    EXPECT_EQ(raisedReason([] { UInt7(127.5); }), "UInt7 integer overflowed");
    EXPECT_EQ(raisedReason([] { UInt7(-0.5); }), "UInt7 integer underflowed");
    EXPECT_EQ(UInt7(126.9), 126);
    EXPECT_EQ(toUInt14(0.99), 0);
    EXPECT_EQ(UInt7::exactly(64.0), 64);
    EXPECT_FALSE(UInt7::exactly(64.5).has_value());
    EXPECT_FALSE(UInt7::exactly(128.0).has_value());
    EXPECT_FALSE(toUInt7Exactly(std::nan("")).has_value());
    EXPECT_DEATH(UInt7(std::nan("")),
                 "Double value cannot be converted to UInt7 because it is outside the representable range");
}

TEST(BoundedIntegers, ArithmeticRevalidatesAndTrapsOutsideTheStorage) {
    EXPECT_EQ(raisedReason([] { UInt7(100) + UInt7(100); }), "UInt7 integer overflowed");
    EXPECT_EQ(UInt7(10) * UInt7(12), 120);
    EXPECT_EQ(UInt14(16383) / UInt14(2), 8191);
    EXPECT_EQ(UInt7(100) % UInt7(7), 2);
    UInt7 value = 5;
    value += 3;
    value -= 1;
    EXPECT_EQ(value, 7);
    EXPECT_EQ(~UInt7(0), 127);
    EXPECT_EQ(~UInt4(15), 0);
    EXPECT_EQ(~UInt14(1), 16382);
    EXPECT_EQ(UInt7(0x55) ^ UInt7(0x7F), 0x2A);
    EXPECT_DEATH(UInt7(127) * UInt7(127), "Arithmetic overflow");
    EXPECT_DEATH(UInt7(1) - UInt7(2), "Arithmetic overflow");
    EXPECT_DEATH(UInt7(1) / UInt7(0), "Division by zero");
}

TEST(BoundedIntegers, ShiftsBehaveAsTheStorageTypeAndRevalidate) {
    EXPECT_EQ(raisedReason([] { UInt7(64) << 1; }), "UInt7 integer overflowed");
    EXPECT_EQ(UInt7(64) << 2, 0);  // 256 leaves the 8-bit storage
    EXPECT_EQ(UInt7(32) << 1, 64);
    EXPECT_EQ(UInt7(8) << -2, 2);
    EXPECT_EQ(UInt7(127) >> 9, 0);
    EXPECT_EQ(UInt14(0x3000) >> std::uint64_t{12}, 3);
    EXPECT_EQ(UInt7(0).trailingZeroBitCount(), 7u);
    EXPECT_EQ(UInt25(0).trailingZeroBitCount(), 25u);
    EXPECT_EQ(UInt7(8).trailingZeroBitCount(), 3u);
}

TEST(BoundedIntegers, UInt14BipolarMappingAndBytePairs) {
    EXPECT_EQ(UInt14::bipolarUnitInterval(0.0), 8192);
    EXPECT_EQ(UInt14::bipolarUnitInterval(1.0), 16383);
    EXPECT_EQ(UInt14::bipolarUnitInterval(-1.0), 0);
    EXPECT_EQ(UInt14::bipolarUnitInterval(2.0), 16383);
    EXPECT_EQ(UInt14::bipolarUnitInterval(-2.0), 0);
    EXPECT_EQ(UInt14::bipolarUnitInterval(0.5), 8192 + 4095);
    EXPECT_EQ(UInt14::bipolarUnitInterval(-0.5), 4096);
    EXPECT_EQ(UInt14(16383).bipolarUnitIntervalValue(), 1.0);
    EXPECT_EQ(UInt14(0).bipolarUnitIntervalValue(), -1.0);
    EXPECT_EQ(UInt14(8192).bipolarUnitIntervalValue(), 0.0);

    EXPECT_EQ(UInt14(BytePair(0xFF, 0xFF)), 16383);
    EXPECT_EQ(UInt14(BytePair(0x01, 0x80)), 128);
    EXPECT_EQ(UInt14(UInt7Pair{UInt7(0x40), UInt7(0x01)}), 8193);
    EXPECT_EQ(UInt14(16383).bytePair(), BytePair(0x7F, 0x7F));
    EXPECT_EQ(UInt14(8193).midiUInt7Pair(), (UInt7Pair{UInt7(0x40), UInt7(0x01)}));
    EXPECT_EQ(BytePair(std::uint16_t{0x1234}), BytePair(0x12, 0x34));
    EXPECT_EQ(BytePair(0x12, 0x34).uInt16Value(), 0x1234);
}

TEST(BoundedIntegers, NibblesTextFormsEncodingAndHashing) {
    EXPECT_EQ(uInt8(UInt4(0xF), UInt4(0x0)), 240);
    EXPECT_EQ(nibbles(240).high, 15);
    EXPECT_EQ(nibbles(240).low, 0);
    EXPECT_EQ(nibbles(0x9A).low, 0xA);

    EXPECT_EQ((UInt7Pair{UInt7(10), UInt7(127)}).description(), "[msb: 0a, lsb: 7f]");

    EXPECT_EQ(UInt14::decode(UInt14(300).encode()), 300);
    try {
        UInt14::decode(16384);
        FAIL() << "decoded an out-of-range value";
    } catch (const DecodingError&) {
    }
    EXPECT_EQ(UInt7(3).advanced(4), 7);
    EXPECT_EQ(UInt7(10).distance(UInt7(3)), -7);
    std::unordered_set<UInt7> set{UInt7(1), UInt7(1), UInt7(2)};
    EXPECT_EQ(set.size(), 2u);
}

TEST(BoundedIntegers, Int7TwoPieceFormOrderingAndChecks) {
    Int7 minusOne = Int7::bitPattern(0x7Fu);
    EXPECT_EQ(minusOne.intValue(), -1);
    EXPECT_EQ(minusOne.rawByte(), 127);
    EXPECT_EQ(minusOne.sixBitStorage(), 63);
    EXPECT_TRUE(minusOne.isNegative());
    EXPECT_EQ(Int7(-64).rawByte(), 64);
    EXPECT_EQ(Int7(-64).sixBitStorage(), 0);
    EXPECT_EQ(Int7(63).rawUInt7Byte(), 63);
    EXPECT_TRUE(Int7(-1) < Int7(0));
    EXPECT_TRUE(Int7::min() < Int7::max());
    EXPECT_EQ(Int7::truncatingIfNecessary(-65).intValue(), 63);
    EXPECT_EQ(Int7(std::int16_t{-64}), Int7(-64));
    EXPECT_FALSE(Int7::exactly(64).has_value());
    EXPECT_EQ(raisedReason([] { Int7(64u); }), "Int7 integer overflowed");
    EXPECT_EQ(raisedReason([] { Int7::checked(-65); }), "Int7 integer underflowed");
    EXPECT_EQ(minusOne.binaryString(), "0b1111111");
    EXPECT_EQ(Int7(2).binaryString(), "0b0000010");
}

}  // namespace
}  // namespace MIDICore
