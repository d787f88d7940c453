#include "midi_service/HVPeerData.hpp"

#include "MIDIServiceFixture.hpp"
#include "platform/Log.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

using nlohmann::json;

class PeerDataTest : public havrel::testing::MIDIServiceTest {
protected:
    // A new entity of the network device with the session property set to the value.
    MIDIIO::MIDIEntity entityWithSession(const std::string& name, const json& session) {
        auto entity = server->addEntity(device, name);
        server->objectSetDictionaryProperty(entity, "apple.midirtp.session", session);
        return MIDIIO::MIDIEntity(server, entity);
    }

    MIDIIO::MIDIDeviceRef device = server->addDevice("Network");
};

TEST_F(PeerDataTest, ReadsTheSessionNameAndItsPeers) {
    auto full = entityWithSession(
        "Studio", {{"dns-sd-name", "Studio Mac"},
                   {"peers", json::array({{{"name", "iPad"}, {"address", "192.168.1.20"}},
                                          {{"address", "192.168.1.21"}},
                                          {{"name", 7}, {"address", json::array()}}})}});
    EXPECT_EQ(HVPeerDataForEntity(full),
              (HVPeerData{"Studio Mac",
                          {{"iPad", "192.168.1.20"}, {std::nullopt, "192.168.1.21"}, {std::nullopt, std::nullopt}}}));

    // A session without peers, or with a name of another kind, is still a network entity.
    auto bare = entityWithSession("Bare", json::object({{"dns-sd-name", 42}}));
    EXPECT_EQ(HVPeerDataForEntity(bare), (HVPeerData{std::nullopt, {}}));

    // A peer list that is not wholly dictionaries is not taken at all.
    auto mixed = entityWithSession(
        "Mixed", {{"dns-sd-name", "Mixed"}, {"peers", json::array({{{"address", "10.0.0.2"}}, "10.0.0.3"})}});
    EXPECT_EQ(HVPeerDataForEntity(mixed), (HVPeerData{"Mixed", {}}));
    auto notAList = entityWithSession("Odd", {{"peers", {{"address", "10.0.0.2"}}}});
    EXPECT_EQ(HVPeerDataForEntity(notAList), (HVPeerData{std::nullopt, {}}));
}

TEST_F(PeerDataTest, EntitiesWithoutASessionDictionaryAreNoNetworkEntities) {
    ScopedLogCapture log;
    MIDIIO::MIDIEntity plain(server, server->addEntity(device, "Plain"));
    EXPECT_EQ(HVPeerDataForEntity(plain), std::nullopt);

    auto text = server->addEntity(device, "Text");
    server->objectSetStringProperty(text, "apple.midirtp.session", "Studio");
    EXPECT_EQ(HVPeerDataForEntity(MIDIIO::MIDIEntity(server, text)), std::nullopt);
    auto list = entityWithSession("List", json::array({{{"dns-sd-name", "Studio"}}}));
    EXPECT_EQ(HVPeerDataForEntity(list), std::nullopt);
    EXPECT_TRUE(log.lines().empty());

    // A failed read is logged with its status.
    auto gone = entityWithSession("Gone", json::object());
    server->removeObject(gone.coreMIDIObjectRef);
    EXPECT_EQ(HVPeerDataForEntity(gone), std::nullopt);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"error getting properties -10842"});

    // Whatever the top level is, only a dictionary can hold a session.
    EXPECT_EQ(HVPeerDataFromProperties(json::array({{{"apple.midirtp.session", json::object()}}})), std::nullopt);
    EXPECT_EQ(HVPeerDataFromProperties(json()), std::nullopt);
    EXPECT_EQ(HVPeerDataFromProperties({{"apple.midirtp.session", json::object()}}), (HVPeerData{}));
}

}  // namespace
}  // namespace havrel
