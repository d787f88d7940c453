// An input connection's sources change under it: by identity and by endpoint, added and
// removed, and a source that appears later under a criterion already held.

#include "LoopbackFixture.hpp"

#include "MIDIInternals/DispatchSync.hpp"
#include "MIDIInternals/TargetQueue.hpp"

#include <atomic>
#include <deque>
#include <thread>

namespace MIDIIO::testing {
namespace {

using MIDICore::MIDIEvent;

std::vector<std::string> namesOf(const std::vector<MIDIOutputEndpoint>& endpoints) {
    std::vector<std::string> names;
    for (const auto& endpoint : endpoints) {
        names.push_back(endpoint.name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST_F(LoopbackTest, InputConnectionAddsAndRemovesSourcesByIdentityAndByEndpoint) {
    auto device = server->addDevice("Box", "Maker");
    auto entity = server->addEntity(device, "Port");
    MIDIOutputEndpoint keys(server, server->addSource(entity, "Keys"));
    MIDIOutputEndpoint pads(server, server->addSource(entity, "Pads"));
    auto app = startedManager("App");
    EventLog log;
    app->addInputConnection(MIDIInputConnectionMode::outputs({MIDIEndpointIdentity::name("Keys")}), "in", {},
                            log.receiver());
    auto connection = app->managedInputConnection("in");
    EXPECT_EQ(namesOf(connection->endpoints()), std::vector<std::string>{"Keys"});
    // The connection's queue is its own, on the manager's one receive queue: no thread of its own.
    auto ownQueue = std::dynamic_pointer_cast<MIDIInternals::TargetQueue>(connection->queue());
    ASSERT_NE(ownQueue, nullptr);
    EXPECT_EQ(ownQueue->target(), app->receiveQueue());

    // Each source plays its own program change; the sources of what arrived are named.
    auto play = [&](std::size_t expected) {
        std::size_t before = log.count();
        server->deviceSourceSend(keys.coreMIDIObjectRef, {0xC0, 0x01});
        server->deviceSourceSend(pads.coreMIDIObjectRef, {0xC0, 0x02});
        EXPECT_TRUE(delivered([&] { return log.count() >= before + expected; }));
        server->flush();
        MIDIInternals::syncOn(*connection->queue(), [] {});
        std::lock_guard lock(log.mutex);
        std::vector<std::string> from;
        for (std::size_t i = log.sources.size() - (log.events.size() - before); i < log.sources.size(); ++i) {
            from.push_back(log.sources[i] ? log.sources[i]->name : "?");
        }
        return from;
    };
    EXPECT_EQ(play(1), std::vector<std::string>{"Keys"});

    // By endpoint: the criterion is the endpoint's ID with its display name to fall back on.
    connection->add(std::vector<MIDIOutputEndpoint>{pads});
    connection->add(std::vector<MIDIOutputEndpoint>{pads});  // held once
    EXPECT_EQ(connection->outputsCriteria(),
              (std::vector{MIDIEndpointIdentity::name("Keys"), MIDIEndpointIdentity::uniqueIDWithFallback(
                                                                    pads.uniqueID, pads.displayName)}));
    EXPECT_EQ(namesOf(connection->endpoints()), (std::vector<std::string>{"Keys", "Pads"}));
    EXPECT_EQ(connection->coreMIDIOutputEndpointRefs(), (std::set{keys.coreMIDIObjectRef, pads.coreMIDIObjectRef}));
    EXPECT_EQ(play(2), (std::vector<std::string>{"Keys", "Pads"}));

    // Removed by identity: Keys is no longer heard; what it sends first does not arrive.
    connection->remove(std::vector{MIDIEndpointIdentity::name("Keys")});
    EXPECT_EQ(namesOf(connection->endpoints()), std::vector<std::string>{"Pads"});
    EXPECT_EQ(play(1), std::vector<std::string>{"Pads"});

    // Removed by endpoint: nothing is left.
    connection->remove(std::vector<MIDIOutputEndpoint>{pads});
    EXPECT_TRUE(connection->outputsCriteria().empty());
    EXPECT_TRUE(connection->endpoints().empty());

    // A criterion for a source not there yet connects when the source appears.
    connection->add(std::vector{MIDIEndpointIdentity::name("Later"), MIDIEndpointIdentity::name("Keys")});
    EXPECT_EQ(namesOf(connection->endpoints()), std::vector<std::string>{"Keys"});
    MIDIOutputEndpoint later(server, server->addSource(entity, "Later"));
    ASSERT_TRUE(delivered([&] { return connection->endpoints().size() == 2; }));
    std::size_t before = log.count();
    server->deviceSourceSend(later.coreMIDIObjectRef, {0xFC});
    ASSERT_TRUE(delivered([&] { return log.count() == before + 1; }));
    EXPECT_EQ(log.snapshot().back(), MIDIEvent::stop());

    connection->removeAllOutputs();
    EXPECT_TRUE(connection->outputsCriteria().empty());
    EXPECT_TRUE(connection->coreMIDIOutputEndpointRefs().empty());
    EXPECT_EQ(play(0), std::vector<std::string>{});

    // Once the manager has disposed of the port there is nothing to disconnect from.
    app->remove(ManagedType::inputConnection, TagSelection::withTag("in"));
    EXPECT_FALSE(connection->coreMIDIInputPortRef());
    try {
        connection->remove(std::vector{MIDIEndpointIdentity::name("Keys")});
        FAIL() << "remove without a port";
    } catch (const MIDIIOError& error) {
        EXPECT_NE(error.get<MIDIIOError::ConnectionError>(), nullptr);
    }
}

// A device keeps playing on a thread of its own while the application adds and removes its
// input connection over and over: each connection's receiver gets only what arrived while it
// was there, and nothing once its removal has been drained.
TEST_F(LoopbackTest, InputConnectionsTornDownWhilePacketsArrive) {
    auto device = server->addDevice("Box", "Maker");
    auto entity = server->addEntity(device, "Port");
    const auto source = server->addSource(entity, "Clock");
    auto app = startedManager("App");

    constexpr int rounds = 40;
    constexpr int sends = 2000;
    std::deque<EventLog> logs;  // outlive every delivery
    std::atomic<bool> stop{false};
    std::atomic<int> sent{0};
    std::thread player([&] {
        while (!stop.load() && sent.load() < sends) {
            server->deviceSourceSend(source, {0xF8});
            ++sent;
        }
    });
    for (int round = 0; round < rounds; ++round) {
        auto& log = logs.emplace_back();
        app->addInputConnection(MIDIInputConnectionMode::outputs({MIDIEndpointIdentity::name("Clock")}), "in", {},
                                log.receiver());
        std::this_thread::yield();
        app->remove(ManagedType::inputConnection, TagSelection::withTag("in"));
    }
    stop = true;
    player.join();
    // A list the server had already handed to a port may still land after the removal; once
    // everything in flight is delivered, the removed receivers hear nothing more.
    ASSERT_TRUE(delivered([] { return true; }));
    std::vector<std::size_t> counts;
    std::size_t total = 0;
    for (auto& log : logs) {
        counts.push_back(log.count());
        total += counts.back();
        for (const auto& event : log.snapshot()) {
            EXPECT_EQ(event, MIDIEvent::timingClock());
        }
    }
    EXPECT_LE(total, static_cast<std::size_t>(sent.load()));
    server->deviceSourceSend(source, {0xF8});
    ASSERT_TRUE(delivered([] { return true; }));
    for (std::size_t i = 0; i < logs.size(); ++i) {
        EXPECT_EQ(logs[i].count(), counts[i]) << "round " << i << " received after its removal";
    }
    EXPECT_EQ(app->managedInputConnection("in"), nullptr);
}

}  // namespace
}  // namespace MIDIIO::testing
