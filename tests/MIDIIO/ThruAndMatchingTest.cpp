// Thru connections (system and proxy) and endpoint matching with a fallback name.

#include "LoopbackFixture.hpp"

#include "MIDIInternals/DispatchSync.hpp"

namespace MIDIIO::testing {
namespace {

using MIDICore::MIDIEvent;

class ThruTest : public LoopbackTest, public ::testing::WithParamInterface<bool> {};

TEST_P(ThruTest, ThruConnectionRoutesOneApplicationToTheOther) {
    // Without system thru connections the library routes through a port pair of its own.
    server = LoopbackMIDIServer::create(GetParam());
    auto a = startedManager("A");
    auto b = startedManager("B");
    a->addOutput("A Out", "out", MIDIIdentifierPersistence::adHoc());
    EventLog log;
    b->addInput("B In", "in", MIDIIdentifierPersistence::adHoc(), log.receiver());

    auto output = *a->managedOutput("out")->endpoint();
    auto input = *b->managedInput("in")->endpoint();
    auto router = startedManager("Router");
    router->addThruConnection({output}, {input}, "thru", MIDIThruConnection::Lifecycle::nonPersistent());
    auto thru = router->managedThruConnection("thru");
    ASSERT_NE(thru, nullptr);
    EXPECT_EQ(thru->proxy().has_value(), !GetParam());

    a->managedOutput("out")->send(MIDIEvent::timingClock());
    a->managedOutput("out")->send(MIDIEvent::stop());
    ASSERT_TRUE(delivered([&] { return log.count() == 2; }));
    EXPECT_EQ(log.snapshot(), (std::vector{MIDIEvent::timingClock(), MIDIEvent::stop()}));

    router->remove(ManagedType::nonPersistentThruConnection, TagSelection::all());
    EXPECT_EQ(router->managedThruConnections().size(), 0u);
    if (GetParam()) {
        // Persistent ones stay with the system and are found by their owner.
        router->addThruConnection({output}, {input}, "p", MIDIThruConnection::Lifecycle::persistent("com.havrel.test"));
        EXPECT_TRUE(router->managedThruConnections().empty());
        router->remove(ManagedType::nonPersistentThruConnection, TagSelection::all());
        EXPECT_EQ(router->unmanagedPersistentThruConnections("com.havrel.test").size(), 1u);
        EXPECT_EQ(router->removeAllUnmanagedPersistentThruConnections("com.havrel.test"), 1u);
        EXPECT_TRUE(router->unmanagedPersistentThruConnections("com.havrel.test").empty());
    } else {
        try {
            router->addThruConnection({output}, {input}, "p", MIDIThruConnection::Lifecycle::persistent("x"));
            FAIL();
        } catch (const MIDIIOError& error) {
            EXPECT_NE(error.get<MIDIIOError::NotSupported>(), nullptr);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(SystemAndProxy, ThruTest, ::testing::Bool());

TEST_F(LoopbackTest, NineSourcesCountNineWithEightInTheTable) {
    auto device = server->addDevice("Big", "Maker");
    auto entity = server->addEntity(device, "All");
    std::vector<MIDIOutputEndpoint> outputs;
    for (int i = 0; i < 9; ++i) {
        outputs.emplace_back(server, server->addSource(entity, "Out " + std::to_string(i)));
    }
    auto destination = MIDIInputEndpoint(server, server->addDestination(entity, "In"));
    auto manager = startedManager("App");
    manager->addThruConnection(outputs, {destination}, "nine", MIDIThruConnection::Lifecycle::nonPersistent());
    auto params = manager->managedThruConnection("nine")->coreMIDIParams();
    EXPECT_EQ(params.numSources, 9u);
    EXPECT_EQ(params.sources[7], outputs[7].coreMIDIObjectRef);
    EXPECT_EQ(params.numDestinations, 1u);

    // Data from the ninth source is not routed; from the eighth it is.
    server->deviceSourceSend(outputs[8].coreMIDIObjectRef, {0xFA});
    server->deviceSourceSend(outputs[7].coreMIDIObjectRef, {0xFC});
    server->flush();
    EXPECT_EQ(server->deviceDestinationLog(destination.coreMIDIObjectRef), (std::vector<std::vector<std::uint8_t>>{{0xFC}}));
}

TEST_F(LoopbackTest, FallbackDisplayNameMatchesAndTheCriterionTakesTheIDFound) {
    auto a = startedManager("A");
    a->addOutput("Clock Out", "out", MIDIIdentifierPersistence::adHoc());
    auto actualID = *a->managedOutput("out")->uniqueID();
    auto endpoints = getSystemSourceEndpoints(server);
    EXPECT_EQ(matching(endpoints, MIDIEndpointIdentity::uniqueIDWithFallback(12345, "Clock Out")).size(), 1u);
    EXPECT_TRUE(matching(endpoints, MIDIEndpointIdentity::uniqueIDWithFallback(12345, "Nothing")).empty());

    auto b = startedManager("B");
    EventLog log;
    b->addInputConnection(MIDIInputConnectionMode::outputs({MIDIEndpointIdentity::uniqueIDWithFallback(12345, "Clock Out")}),
                          "in", {}, log.receiver());
    auto criteria = b->managedInputConnection("in")->outputsCriteria();
    ASSERT_EQ(criteria.size(), 1u);
    EXPECT_EQ(criteria[0], MIDIEndpointIdentity::uniqueIDWithFallback(actualID, "Clock Out"));

    // Renamed, it is still found by its ID.
    a->managedOutput("out")->setName("Renamed");
    b->managedInputConnection("in")->refreshConnections();
    EXPECT_EQ(b->managedInputConnection("in")->endpoints().size(), 1u);

    // A filter drops what its criteria name.
    b->addInputConnection(MIDIInputConnectionMode::allOutputs(), "all",
                          MIDIEndpointFilter{false, {MIDIEndpointIdentity::uniqueID(actualID)}}, log.receiver());
    EXPECT_TRUE(b->managedInputConnection("all")->endpoints().empty());
}

// The kind of an event: its description up to the parenthesis.
std::vector<std::string> kindsOf(const std::vector<MIDIEvent>& events) {
    std::vector<std::string> kinds;
    for (const auto& event : events) {
        auto text = event.description();
        kinds.push_back(text.substr(0, text.find('(')));
    }
    return kinds;
}

TEST_F(LoopbackTest, ThruFilterFlagsKeepBackTheKindsTheyNameInEitherForm) {
    // One message of each kind, as MIDI 1.0 bytes.
    const std::vector<std::pair<std::string, std::vector<std::uint8_t>>> messages{
        {"noteOn", {0x90, 0x3C, 0x64}},        {"cc", {0xB0, 0x07, 0x64}},
        {"timingClock", {0xF8}},               {"timecodeQuarterFrame", {0xF1, 0x12}},
        {"tuneRequest", {0xF6}},               {"sysEx7", {0xF0, 0x7D, 0x01, 0x02, 0xF7}},
        {"universalSysEx7", {0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x20, 0x00, 0x00, 0x00, 0xF7}},
        {"start", {0xFA}},
    };
    std::vector<std::uint8_t> allBytes;
    for (const auto& [kind, bytes] : messages) {
        allBytes.insert(allBytes.end(), bytes.begin(), bytes.end());
    }
    auto events = MIDICore::MIDI1Parser().parsedEvents(allBytes);
    ASSERT_EQ(events.size(), messages.size());

    // Sources: a device's (packet lists) and an application's virtual output (MIDI 2.0 event
    // lists). Destinations: a device's (logs MIDI 1.0 bytes) and an application's virtual input.
    auto device = server->addDevice("Box", "Maker");
    auto entity = server->addEntity(device, "Port");
    MIDIOutputEndpoint deviceSource(server, server->addSource(entity, "Out"));
    MIDIInputEndpoint deviceDestination(server, server->addDestination(entity, "In"));
    auto sender = startedManager("Sender");
    sender->addOutput("Sender Out", "out", MIDIIdentifierPersistence::adHoc());
    auto listener = startedManager("Listener");
    EventLog log;
    listener->addInput("Listener In", "in", MIDIIdentifierPersistence::adHoc(), log.receiver());
    auto router = startedManager("Router");

    using P = MIDIThruConnection::Parameters;
    auto only = [](bool P::*flag) {
        P params;
        params.*flag = true;
        return params;
    };
    const std::vector<std::pair<P, std::vector<std::string>>> cases{
        {P{}, {}},
        {only(&P::filterOutAllControls), {"cc"}},
        {only(&P::filterOutBeatClock), {"timingClock"}},
        {only(&P::filterOutMTC), {"timecodeQuarterFrame", "universalSysEx7"}},
        {only(&P::filterOutSysEx), {"sysEx7", "universalSysEx7"}},
        {only(&P::filterOutTuneRequest), {"tuneRequest"}},
    };
    for (const auto& [params, dropped] : cases) {
        SCOPED_TRACE(dropped.empty() ? std::string("no filter") : dropped[0]);
        router->addThruConnection({deviceSource, *sender->managedOutput("out")->endpoint()},
                                  {deviceDestination, *listener->managedInput("in")->endpoint()}, "thru",
                                  MIDIThruConnection::Lifecycle::nonPersistent(), params);
        std::vector<std::string> keptKinds;
        std::vector<std::uint8_t> keptBytes;
        for (const auto& [kind, bytes] : messages) {
            if (std::find(dropped.begin(), dropped.end(), kind) == dropped.end()) {
                keptKinds.push_back(kind);
                keptBytes.insert(keptBytes.end(), bytes.begin(), bytes.end());
            }
        }
        for (bool fromApplication : {false, true}) {
            SCOPED_TRACE(fromApplication ? "event lists" : "packet lists");
            auto logged = server->deviceDestinationLog(deviceDestination.coreMIDIObjectRef).size();
            auto received = log.count();
            if (fromApplication) {
                sender->managedOutput("out")->send(events);
            } else {
                server->deviceSourceSend(deviceSource.coreMIDIObjectRef, allBytes);
            }
            ASSERT_TRUE(delivered([&] { return log.count() >= received + keptKinds.size(); }));
            server->flush();
            MIDIInternals::syncOn(*listener->managedInput("in")->queue(), [] {});
            auto all = log.snapshot();
            EXPECT_EQ(kindsOf({all.begin() + static_cast<std::ptrdiff_t>(received), all.end()}), keptKinds);
            EXPECT_EQ(destinationBytesSince(deviceDestination.coreMIDIObjectRef, logged).first, keptBytes);
        }
        router->remove(ManagedType::nonPersistentThruConnection, TagSelection::all());
    }
}

}  // namespace
}  // namespace MIDIIO::testing
