#include "MIDIInternals/UUID.hpp"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace MIDIInternals {
namespace {

TEST(UUID, RandomTextsAreCanonicalVersion4AndDistinctAndParsingIsStrict) {
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        const std::string text = randomUUIDString();
        ASSERT_EQ(parseUUIDString(text), text);
        EXPECT_EQ(text[14], '4') << text;
        EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 200u);

    // Parsing accepts either case and refuses anything else.
    EXPECT_EQ(parseUUIDString("293e27ba-4906-48da-9d70-696e1c95bebc"), "293E27BA-4906-48DA-9D70-696E1C95BEBC");
    EXPECT_EQ(parseUUIDString("293E27BA-4906-48DA-9D70-696E1C95BEB"), std::nullopt);
    EXPECT_EQ(parseUUIDString("293E27BA-4906-48DA-9D70-696E1C95BEBCD"), std::nullopt);
    EXPECT_EQ(parseUUIDString("293E27BA:4906-48DA-9D70-696E1C95BEBC"), std::nullopt);
    EXPECT_EQ(parseUUIDString("293E27BA-4906-48DA-9D70-696E1C95BEBG"), std::nullopt);
    EXPECT_EQ(parseUUIDString(""), std::nullopt);
}

}  // namespace
}  // namespace MIDIInternals
