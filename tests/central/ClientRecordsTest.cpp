#include "central/HVFileRepresentation.hpp"
#include "central/RNCentral.hpp"
#include "central/RNClient.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/Log.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

Dictionary handshake() {
    return Dictionary{{"type", "RNUSBClient"},
                      {"productID", "abc"},
                      {"version", "3.1"},
                      {"apiVersion", "2.1"},
                      {"osVersion", "17.2"},
                      {"connectionName", "Pad"},
                      {"uniqueIdentifier", "u-1"},
                      {"deviceID", 12},
                      {"moreInfo", {{"anything", {1, "two"}}}},
                      {"acceptedFileTypes", {{{"fileExtension", "hvz"}, {"apiVersion", "2"}, {"version", "1.0"}}}}};
}

TEST(ClientRecords, TypeChoosesTheClassAndSurvivesTheRoundTrip) {
    EXPECT_EQ(RNClient::classNameFromType("RNUSBClient"), "RNUSBClient");
    EXPECT_EQ(RNClient::classNameFromType("RNBluetoothClient"), "RNBluetoothClient");
    EXPECT_EQ(RNClient::classNameFromType("RNCentral"), "RNClient");
    EXPECT_EQ(RNClient::classNameFromType(std::nullopt), "RNClient");

    auto client = RNClient::clientFromDictionary(handshake());
    ASSERT_TRUE(std::dynamic_pointer_cast<RNUSBClient>(client));
    EXPECT_EQ(client->dictionary(), handshake());
    ASSERT_TRUE(client->acceptedFileTypes);
    ASSERT_EQ(client->acceptedFileTypes->size(), 1u);
    EXPECT_EQ(client->acceptedFileTypes->at(0)->fileExtension, "hvz");
    EXPECT_EQ(client->deviceID, 12);

    Dictionary bluetooth = handshake();
    bluetooth["type"] = "RNBluetoothClient";
    bluetooth.erase("deviceID");
    auto wireless = RNClient::clientFromDictionary(bluetooth);
    ASSERT_TRUE(std::dynamic_pointer_cast<RNBluetoothClient>(wireless));
    EXPECT_EQ(wireless->dictionary(), bluetooth);

    // No "type", or one of another kind: a plain client, which writes its own type back.
    Dictionary untyped = handshake();
    untyped["type"] = 7;
    auto plain = RNClient::clientFromDictionary(untyped);
    EXPECT_FALSE(std::dynamic_pointer_cast<RNUSBClient>(plain));
    EXPECT_EQ(plain->dictionary().at("type"), "RNClient");
}

TEST(ClientRecords, CopiesKeepOnlyWireFields) {
    auto client = RNClient::clientFromDictionary(handshake());
    client->state = RNClientStateRefused;
    client->errorMessage = "too old";
    client->supersededByUSB = true;
    client->configuration = HVEncodedConfiguration::create();
    EXPECT_EQ(client->dictionary(), handshake());

    auto copy = client->copy();
    ASSERT_NE(copy, client);
    ASSERT_TRUE(std::dynamic_pointer_cast<RNUSBClient>(copy));
    EXPECT_TRUE(copy->isEqualToClient(*client));
    EXPECT_EQ(copy->state, RNClientStateDefault);
    EXPECT_FALSE(copy->errorMessage);
    EXPECT_EQ(copy->configuration, nullptr);
    EXPECT_FALSE(copy->supersededByUSB);
    // The file types are new objects, not shared with the original.
    EXPECT_NE(copy->acceptedFileTypes->at(0), client->acceptedFileTypes->at(0));

    copy->osVersion = "18.0";
    EXPECT_FALSE(copy->isEqualToClient(*client));
}

TEST(ClientRecords, MissingKeysAndFieldsOfTheWrongKind) {
    // A fresh client writes only its type; one read from a dictionary always has file types.
    EXPECT_EQ(RNClient::create()->dictionary(), (Dictionary{{"type", "RNClient"}}));
    auto bare = RNClient::initFromDictionary(Dictionary::object());
    ASSERT_TRUE(bare->acceptedFileTypes);
    EXPECT_TRUE(bare->acceptedFileTypes->empty());
    EXPECT_EQ(bare->dictionary(), (Dictionary{{"type", "RNClient"}, {"acceptedFileTypes", Dictionary::array()}}));

    ScopedLogCapture capture;
    auto odd = RNClient::initFromDictionary(Dictionary{{"productID", 5},
                                                       {"deviceID", "12"},
                                                       {"moreInfo", "text"},
                                                       {"acceptedFileTypes", {1, {{"version", "2"}}, nullptr}}});
    EXPECT_FALSE(odd->productID);
    EXPECT_FALSE(odd->deviceID);
    EXPECT_FALSE(odd->moreInfo);
    ASSERT_EQ(odd->acceptedFileTypes->size(), 1u);
    EXPECT_EQ(odd->acceptedFileTypes->at(0)->version, "2");
    EXPECT_EQ(capture.lines(),
              (std::vector<std::string>{"RNClient: 2 acceptedFileTypes entries are not dictionaries, skipped"}));

    // Not an object at all: an empty client, no fault.
    EXPECT_EQ(RNClient::clientFromDictionary(Dictionary::array({1}))->dictionary().size(), 2u);
}

TEST(ClientRecords, DeviceIdentityKey) {
    auto client = RNClient::create();
    EXPECT_EQ(client->deviceIdentityKey(), std::nullopt);
    client->productID = "abc";
    client->connectionName = "";
    EXPECT_EQ(client->deviceIdentityKey(), std::nullopt);
    client->connectionName = "Pad";
    EXPECT_EQ(client->deviceIdentityKey(), "Pad|abc");
    client->productID = "";
    EXPECT_EQ(client->deviceIdentityKey(), "Pad|?");
    client->productID.reset();
    EXPECT_EQ(client->deviceIdentityKey(), "Pad|?");
}

TEST(ClientRecords, CentralWritesOnlyPresentFields) {
    auto central = RNCentral::create();
    central->name = "Desk";
    central->apiVersion = "2.1";
    central->minApiVersionRequired = "2.1";
    EXPECT_EQ(central->dictionary(), (Dictionary{{"name", "Desk"}, {"apiVersion", "2.1"}, {"minApi", "2.1"}}));
    auto read = RNCentral::centralFromDictionary(
        Dictionary{{"name", "Desk"}, {"version", 2}, {"apiVersion", "2.1"}, {"minApi", "2.0"}});
    EXPECT_EQ(read->name, "Desk");
    EXPECT_FALSE(read->version);
    EXPECT_EQ(read->minApiVersionRequired, "2.0");
    EXPECT_EQ(RNCentral::create()->dictionary(), Dictionary::object());
}

TEST(FileRepresentation, Base64DataOnTheWire) {
    auto file = HVFileRepresentation::create();
    file->filename = "set.hvz";
    file->data = Bytes{0x00, 0xFF, 0x10, 0x41};
    const Dictionary wire = file->dictionary();
    EXPECT_EQ(wire, (Dictionary{{"filename", "set.hvz"}, {"data", "AP8QQQ=="}}));
    auto read = HVFileRepresentation::initFromDictionary(wire);
    EXPECT_EQ(read->filename, "set.hvz");
    EXPECT_EQ(read->data, file->data);

    for (const Bytes& bytes : {Bytes{}, Bytes{1}, Bytes{1, 2}, Bytes{1, 2, 3}, Bytes{0xFB, 0xFF, 0xBF}}) {
        EXPECT_EQ(base64DecodedData(base64EncodedString(bytes)), bytes);
    }
    EXPECT_EQ(base64EncodedString(Bytes{0xFB, 0xFF, 0xBF}), "+/+/");
    for (const char* bad : {"AP8QQQ=", "AP8Q\nQQ==", "A===", "AP=QQQ==", "AP8QQQ=A", "AP8*"}) {
        EXPECT_FALSE(base64DecodedData(bad)) << bad;
        EXPECT_FALSE(HVFileRepresentation::initFromDictionary(Dictionary{{"filename", "x"}, {"data", bad}})->data);
    }
}

TEST(FileRepresentationDeathTest, WritingWithoutDataIsAFault) {
    auto file = HVFileRepresentation::create();
    file->filename = "x";
    EXPECT_DEATH((void)file->dictionary(), "filename.has_value\\(\\) && data.has_value\\(\\)");
}

}  // namespace
}  // namespace havrel
