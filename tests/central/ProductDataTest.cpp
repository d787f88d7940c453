#include "central/HVConnectionTypeConfiguration.hpp"
#include "central/HVProductData.hpp"
#include "central/HVStringOperations.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

TEST(VersionStrings, ComparisonToleratesMissingZerosJunkAndSigns) {
    EXPECT_EQ(compareToVersion("1.2", "1.2.0"), 0);
    EXPECT_EQ(compareToVersion("1.10", "1.9"), 1);
    EXPECT_EQ(compareToVersion("1.9", "1.10"), -1);
    EXPECT_EQ(compareToVersion("1.2b", "1.0"), 0);
    EXPECT_EQ(compareToVersion("1.2b", "1.1"), -1);
    EXPECT_EQ(compareToVersion("-1", "0"), -1);
    EXPECT_EQ(compareToVersion("", "0"), 0);
    EXPECT_EQ(compareToVersion("1..2", "1.0.2"), 0);
    EXPECT_EQ(compareToVersion("+3", "3"), 0);
    EXPECT_EQ(compareToVersion("+-3", "0"), 0);
    EXPECT_EQ(compareToVersion(" 3", "0"), 0);
    // Twenty digits overflow and count as 0; nineteen still fit.
    EXPECT_EQ(compareToVersion("1.99999999999999999999", "1.0"), 0);
    EXPECT_EQ(compareToVersion("1.9223372036854775807", "1.9223372036854775806"), 1);
    EXPECT_EQ(compareToVersion("2.0.1", "2.0.1.0.0.1"), -1);

    EXPECT_TRUE(isOlderThanVersion("2.0", "2.1"));
    EXPECT_FALSE(isOlderThanVersion("2.1", "2.1.0"));
    EXPECT_TRUE(isNewerThanVersion("2.1.1", "2.1"));
    EXPECT_TRUE(isEqualToVersion("2.1", "2.1.0"));
    EXPECT_TRUE(isEqualOrOlderThanVersion("2.1", "2.1"));
    EXPECT_FALSE(isEqualOrOlderThanVersion("2.2", "2.1"));
    EXPECT_TRUE(isEqualOrNewerThanVersion("2.1", "2.1.0"));
    EXPECT_FALSE(isEqualOrNewerThanVersion("2.0", "2.1"));
}

TEST(VersionStrings, MainVersionAndUpdatesWithinTheMainLine) {
    EXPECT_EQ(getMainVersionWithIntegerCount("1.2.3", 2), "1.2");
    EXPECT_EQ(getMainVersionWithIntegerCount("1.2.3", 3), "1.2.3");
    EXPECT_EQ(getMainVersionWithIntegerCount("1.2.3", 4), std::nullopt);
    EXPECT_EQ(getMainVersionWithIntegerCount("1.2.3", 0), std::nullopt);
    EXPECT_EQ(getMainVersionWithIntegerCount("1.2.3", -1), std::nullopt);
    EXPECT_EQ(getMainVersionWithIntegerCount("01..x", 3), "01..x");

    EXPECT_TRUE(needsToUpdateToVersion("1.2.3", "1.2.4", 2));
    EXPECT_FALSE(needsToUpdateToVersion("1.2.3", "1.3.0", 2));
    EXPECT_FALSE(needsToUpdateToVersion("1.2.3", "1.2.3", 2));
    EXPECT_FALSE(needsToUpdateToVersion("1.2.4", "1.2.3", 2));
    EXPECT_FALSE(needsToUpdateToVersion("1.2.3", "1.2.4", 4));
    // Main versions equal as versions, not as text.
    EXPECT_TRUE(needsToUpdateToVersion("1.02.3", "1.2.4", 2));
}

TEST(StringOperations, LastCharacterAndBinaryText) {
    EXPECT_EQ(stringByRemovingLastCharacter("abc"), "ab");
    EXPECT_EQ(stringByRemovingLastCharacter(""), "");
    EXPECT_EQ(stringByRemovingLastCharacter("a"), "");
    EXPECT_EQ(stringByRemovingLastCharacter("Pad\xC3\xA9"), "Pad");
    EXPECT_EQ(binaryStringFromUint8(5), "00000101");
    EXPECT_EQ(binaryStringFromUint8(0x80), "10000000");
    EXPECT_EQ(binaryStringFromUint8(255), "11111111");
}

TEST(FileType, KeysOfTheWrongKindAreIgnored) {
    // Keys of the wrong kind leave the field as it stands, silently.
    auto fileType = HVFileType::initFromDictionary(Dictionary{{"fileExtension", "hvz"}, {"version", 3}});
    EXPECT_EQ(fileType->fileExtension, "hvz");
    EXPECT_EQ(fileType->version, "");
    EXPECT_EQ(fileType->dictionary(), (Dictionary{{"fileExtension", "hvz"}, {"apiVersion", ""}, {"version", ""}}));
    fileType->copyValuesFromDictionary(Dictionary{{"version", "2.0"}, {"fileExtension", nullptr}}, {"version"}, true);
    EXPECT_EQ(fileType->version, "2.0");
    EXPECT_EQ(fileType->fileExtension, "hvz");
    EXPECT_EQ(HVFileType::initFromDictionary(Dictionary::array({1, 2}))->dictionary(), HVFileType::create()->dictionary());
}

TEST(ConnectionTypeConfiguration, DefaultsEnableAllButHardwareMIDIAndAreNeverMadeCurrent) {
    EXPECT_EQ(HVConnectionTypeConfiguration::currentConfiguration(), nullptr);

    auto plain = HVConnectionTypeConfiguration::create();
    EXPECT_FALSE(plain->usbEnabled || plain->btEnabled || plain->midiEnabled || plain->vmEnabled ||
                 plain->hardwareMIDIEnabled || plain->loggerEnabled);
    auto defaults = HVConnectionTypeConfiguration::defaultConfiguration();
    EXPECT_TRUE(defaults->usbEnabled && defaults->btEnabled && defaults->midiEnabled && defaults->vmEnabled &&
                defaults->loggerEnabled);
    EXPECT_FALSE(defaults->hardwareMIDIEnabled);
    EXPECT_NE(HVConnectionTypeConfiguration::defaultConfiguration(), defaults);
    EXPECT_EQ(HVConnectionTypeConfiguration::currentConfiguration(), nullptr);
}

}  // namespace
}  // namespace havrel
