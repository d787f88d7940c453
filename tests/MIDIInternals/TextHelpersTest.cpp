#include "MIDIInternals/TextHelpers.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace MIDIInternals {
namespace {

TEST(TextHelpers, IntegerAndCollectionRadixForms) {
    EXPECT_EQ(hexString(0x1F), "1F");
    EXPECT_EQ(hexString(0x1F, true), "0x1F");
    EXPECT_EQ(hexString(std::uint8_t{0x0A}, 4, true), "0x000A");
    EXPECT_EQ(hexString(-26), "-1A");
    EXPECT_EQ(binaryString(5, 8, true), "0b00000101");
    EXPECT_EQ(string(7, 3), "007");

    std::vector<std::uint8_t> bytes{0xF0, 0x7E, 0x01};
    EXPECT_EQ(hexString(bytes), "F0 7E 1");
    EXPECT_EQ(hexString(bytes, 2, true, ", "), "0xF0, 0x7E, 0x01");
    EXPECT_EQ(hexStringArrayLiteral(bytes, 2), "[0xF0, 0x7E, 0x01]");
    EXPECT_EQ(binaryString(std::array<int, 2>{1, 2}, 2, false, "|"), "01|10");
    EXPECT_EQ(hexString(std::vector<int>{}), "");
}

TEST(TextHelpers, CharacterFilteringAndSplitting) {
    EXPECT_EQ(quoted("Input"), "\"Input\"");
    EXPECT_EQ(onlyAlphanumerics("a-b c_9!"), "abc9");
    EXPECT_EQ(removing("a\tb\nc", asciiNonPrintable()), "abc");
    EXPECT_EQ(only("x\x80y", asciiExtended()), "\x80");
    EXPECT_EQ(asciiFull().count(), 256u);
    EXPECT_EQ((asciiPrintable() | asciiNonPrintable()), ascii());

    EXPECT_EQ(split(std::string("abcde"), 2), (std::vector<std::string>{"ab", "cd", "e"}));
    EXPECT_EQ(split(std::string("abcde"), 2, true), (std::vector<std::string>{"a", "bc", "de"}));
    EXPECT_EQ(split(std::string("abcd"), 2, true), (std::vector<std::string>{"ab", "cd"}));
    EXPECT_TRUE(split(std::string(), 3).empty());
}

TEST(TextHelpers, ClampingOverEveryRangeFormAndRounding) {
    EXPECT_EQ(clamped(12, ClosedRange<int>{0, 10}), 10);
    EXPECT_EQ(clamped(-3, ClosedRange<int>{0, 10}), 0);
    EXPECT_EQ(clamped(10, Range<int>{0, 10}), 9);
    EXPECT_EQ(clamped(-3, PartialRangeFrom<int>{0}), 0);
    EXPECT_EQ(clamped(11, PartialRangeThrough<int>{10}), 10);
    EXPECT_EQ(clamped(10, PartialRangeUpTo<int>{10}), 9);
    EXPECT_DOUBLE_EQ(clamped(1.5, ClosedRange<double>{0.0, 1.0}), 1.0);

    // Rounding to decimal places by every rule.
    EXPECT_DOUBLE_EQ(rounded(2.345, RoundingRule::toNearestOrAwayFromZero, 2), 2.35);
    EXPECT_DOUBLE_EQ(rounded(-2.5, RoundingRule::toNearestOrAwayFromZero, 0), -3.0);
    EXPECT_DOUBLE_EQ(rounded(2.5, RoundingRule::toNearestOrEven, 0), 2.0);
    EXPECT_DOUBLE_EQ(rounded(1.21, RoundingRule::up, 1), 1.3);
    EXPECT_DOUBLE_EQ(rounded(-1.29, RoundingRule::towardZero, 1), -1.2);
    EXPECT_DOUBLE_EQ(rounded(-1.21, RoundingRule::awayFromZero, 1), -1.3);
}

TEST(TextHelpers, AsciiConversionsStrictAndLossy) {
    EXPECT_EQ(toASCIIBytes("Hi"), (std::vector<std::uint8_t>{'H', 'i'}));
    EXPECT_FALSE(toASCIIBytes("caf\xC3\xA9").has_value());
    EXPECT_EQ(toASCIIData("caf\xC3\xA9", true), (std::vector<std::uint8_t>{'c', 'a', 'f', '?'}));
    std::vector<std::uint8_t> mixed{'o', 'k', 0xC8};
    EXPECT_FALSE(asciiDataToString(mixed).has_value());
    EXPECT_EQ(asciiDataToStringLossy(mixed), "ok?");
    EXPECT_EQ(asciiDataToString(std::vector<std::uint8_t>{'o', 'k'}), "ok");
}

TEST(TextHelpers, OffsetsAndOptionalZip) {
    std::vector<int> values{10, 20, 30, 40};
    EXPECT_EQ(atOffset(values, 2), 30);
    EXPECT_FALSE(atOffset(values, 4).has_value());
    EXPECT_EQ(atOffsets(values, ClosedRange<std::size_t>{1, 2}), (std::vector<int>{20, 30}));
    EXPECT_FALSE(atOffsets(values, ClosedRange<std::size_t>{2, 4}).has_value());
    auto indexes = range(values, ClosedRange<std::size_t>{0, 3});
    ASSERT_TRUE(indexes.has_value());
    EXPECT_EQ(indexes->upperBound, 4u);

    auto pairs = optionalZip(std::vector<int>{1, 2, 3}, std::string("ab"));
    ASSERT_EQ(pairs.size(), 3u);
    EXPECT_EQ(pairs[1].first, 2);
    EXPECT_EQ(pairs[1].second, 'b');
    EXPECT_EQ(pairs[2].first, 3);
    EXPECT_FALSE(pairs[2].second.has_value());
}

}  // namespace
}  // namespace MIDIInternals
