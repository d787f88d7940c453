#include "central/RNClient.hpp"
#include "havrel-client-sim/HVSimError.hpp"
#include "havrel-client-sim/HVSimHandshake.hpp"
#include "platform/PropertyList.hpp"

#include <gtest/gtest.h>

#include <string>

namespace havrel {
namespace {

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

TEST(SimHandshake, DeviceInfoIsABinaryPropertyListOfAUSBClient) {
    HVSimIdentity identity;
    identity.connectionName = "Stage Left #2";
    identity.osVersion = "TestOS 1";
    auto payload = HVSimHandshake::deviceInfoPayload(identity);
    ASSERT_GE(payload.size(), 8u);
    EXPECT_EQ(std::string(payload.begin(), payload.begin() + 6), "bplist");

    auto decoded = propertyListFromData(payload);
    ASSERT_TRUE(decoded.has_value());
    ASSERT_TRUE(decoded->contains("usbClient"));
    auto client = RNClient::clientFromDictionary((*decoded)["usbClient"]);
    ASSERT_NE(std::dynamic_pointer_cast<RNUSBClient>(client), nullptr);
    EXPECT_EQ(client->connectionName, "Stage Left #2");
    EXPECT_EQ(client->productID, "havrel-client-sim");
    EXPECT_EQ(client->apiVersion, "2.1");
    EXPECT_EQ(client->version, "0.1.0");
    EXPECT_EQ(client->osVersion, "TestOS 1");
    EXPECT_EQ(client->uniqueIdentifier, "havrel-client-sim:stage-left-2");

    identity.uniqueIdentifier = "given";
    identity.osVersion.clear();
    auto dictionary = HVSimHandshake::clientDictionary(identity);
    EXPECT_EQ(dictionary["uniqueIdentifier"], "given");
    EXPECT_FALSE(dictionary["osVersion"].get<std::string>().empty());
    EXPECT_EQ(HVSimHandshake::uniqueIdentifierForName("  Simulated   Pad! "), "havrel-client-sim:simulated-pad");
}

TEST(SimHandshake, CentralRefusesAClientNewerThanItself) {
    struct Case {
        const char* central;
        const char* client;
        bool refused;
    };
    for (const auto& [central, client, refused] : {Case{"2.1", "2.1", false}, Case{"2.1", "2.1.0", false},
                                                    Case{"2.10", "2.9", false}, Case{"3", "2.1", false},
                                                    Case{"2.1", "2.2", true}, Case{"2.9", "2.10", true},
                                                    Case{"2.1", "2.1.1", true}}) {
        auto json = Dictionary{{"name", "Desk"}, {"version", "1.0"}, {"apiVersion", central}, {"minApi", "2.1"}};
        auto info = HVSimHandshake::readCentralInfo(bytesOf(json.dump()), client);
        EXPECT_EQ(info.refusal.has_value(), refused) << central << " vs " << client;
        EXPECT_EQ(info.line(), "central-info " + json.dump());
    }
}

TEST(SimHandshake, UnreadableCentralInfoIsAnError) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "the Central's identity (frame 110) is not a JSON object"},
        {"not json", "the Central's identity (frame 110) is not a JSON object"},
        {"[\"2.1\"]", "the Central's identity (frame 110) is not a JSON object"},
        {R"({"name": "Desk"})", "the Central's identity (frame 110) has no \"apiVersion\" text"},
        {R"({"apiVersion": 2.1})", "the Central's identity (frame 110) has no \"apiVersion\" text"},
    };
    for (const auto& [payload, message] : cases) {
        try {
            HVSimHandshake::readCentralInfo(bytesOf(payload), "2.1");
            ADD_FAILURE() << payload << " accepted";
        } catch (const HVSimError& error) {
            EXPECT_EQ(std::string(error.what()), message);
        }
    }
}

}  // namespace
}  // namespace havrel
