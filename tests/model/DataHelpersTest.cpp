#include "model/HVDataHelpers.hpp"
#include "platform/Log.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace havrel {
namespace {

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

TEST(DataHelpers, SuffixTruncationDistinguishesEmptyFromNothing) {
    const Bytes marker{0x7C, 0x7C};
    EXPECT_EQ(returnTruncatedBytesIfLastBytesAreEqualTo(Bytes{1, 2, 0x7C, 0x7C}, marker), (Bytes{1, 2}));
    auto exact = returnTruncatedBytesIfLastBytesAreEqualTo(marker, marker);
    ASSERT_TRUE(exact.has_value());
    EXPECT_TRUE(exact->empty());
    EXPECT_FALSE(returnTruncatedBytesIfLastBytesAreEqualTo(Bytes{0x7C}, marker).has_value());
    EXPECT_FALSE(returnTruncatedBytesIfLastBytesAreEqualTo(Bytes{0x7C, 0x7C, 1}, marker).has_value());
    EXPECT_EQ(firstByte(Bytes{9, 8, 7}), Bytes{9});
    EXPECT_EQ(everythingButFirstByte(Bytes{9, 8, 7}), (Bytes{8, 7}));
    EXPECT_TRUE(firstByte(Bytes{}).empty());
    EXPECT_TRUE(everythingButFirstByte(Bytes{}).empty());
}

TEST(DataHelpers, ToDoubleReadsHostOrderAndRejectsOtherLengths) {
    double value = 1234.5;
    Bytes raw(sizeof value);
    std::memcpy(raw.data(), &value, sizeof value);
    EXPECT_EQ(toDouble(raw), 1234.5);
    EXPECT_DEATH(toDouble(Bytes{1, 2, 3}), "length|size");
}

TEST(DataHelpers, GzipAndZlibRoundTripAndRefusals) {
    std::string text;
    for (int i = 0; i < 2000; ++i) {
        text += "{\"numericID\":" + std::to_string(i) + ",\"name\":\"fader\"},";
    }
    const Bytes original = bytesOf(text);
    auto compressed = gzipDeflate(original);
    ASSERT_TRUE(compressed.has_value());
    EXPECT_TRUE(isGzipData(*compressed));
    EXPECT_LT(compressed->size(), original.size() / 4);
    EXPECT_EQ(gzipInflate(*compressed), original);

    // Empty in, empty out, in both directions.
    ASSERT_TRUE(gzipDeflate(Bytes{}).has_value());
    EXPECT_TRUE(gzipDeflate(Bytes{})->empty());
    ASSERT_TRUE(gzipInflate(Bytes{}).has_value());
    EXPECT_TRUE(gzipInflate(Bytes{})->empty());

    // Plain text, and a truncated stream, give nothing.
    EXPECT_FALSE(gzipInflate(bytesOf("{\"plain\": true}")).has_value());
    Bytes cut(compressed->begin(), compressed->begin() + static_cast<std::ptrdiff_t>(compressed->size() / 2));
    EXPECT_FALSE(gzipInflate(cut).has_value());

    EXPECT_FALSE(isGzipData(Bytes{0x1F}));
    EXPECT_FALSE(isGzipData(Bytes{}));
    // A zlib header (0x78 0x9C) with the deflate of "a" and its Adler-32 inflates too.
    EXPECT_EQ(gzipInflate(Bytes{0x78, 0x9C, 0x4B, 0x04, 0x00, 0x00, 0x62, 0x00, 0x62}), bytesOf("a"));
}

TEST(DataHelpers, InflateRefusesOutputBeyondTheBoundWithOneLogLine) {
    // One mebibyte of zeros compresses to about a kilobyte.
    const Bytes zeros(1 << 20, 0);
    auto bomb = gzipDeflate(zeros);
    ASSERT_TRUE(bomb.has_value());
    ScopedLogCapture capture;
    EXPECT_FALSE(gzipInflate(*bomb, 512 * 1024).has_value());
    EXPECT_EQ(capture.lines().size(), 1u);
    EXPECT_TRUE(capture.contains("exceeds"));
    // At exactly the inflated size it passes.
    auto exact = gzipInflate(*bomb, zeros.size());
    ASSERT_TRUE(exact.has_value());
    EXPECT_EQ(exact->size(), zeros.size());
}

}  // namespace
}  // namespace havrel
