// Two applications on one loopback server: endpoints found by name, events in order on the
// receiver's queue and in its protocol, late endpoints, removal notices.

#include "LoopbackFixture.hpp"

namespace MIDIIO::testing {
namespace {

using MIDICore::ChanVoice7Bit16BitValue;
using MIDICore::ChanVoice7Bit32BitValue;
using MIDICore::MIDIEvent;
using MIDICore::UInt4;
using MIDICore::UInt7;

TEST_F(LoopbackTest, EventsFromOneApplicationReachTheOtherInOrderAndInItsProtocol) {
    auto a = startedManager("App A");
    auto b = startedManager("App B");
    // A speaks MIDI 1.0 bytes; B listens with MIDI 2.0 event lists.
    a->setPreferredAPI(CoreMIDIAPIVersion::legacyCoreMIDI());
    a->addOutput("A Out", "out", MIDIIdentifierPersistence::adHoc());

    EventLog log;
    b->addInputConnection(MIDIInputConnectionMode::outputs({MIDIEndpointIdentity::name("A Out")}), "in", {},
                          log.receiver());
    auto connection = b->managedInputConnection("in");
    log.expectedQueue = connection->queue();
    ASSERT_EQ(connection->endpoints().size(), 1u);
    EXPECT_EQ(connection->endpoints()[0].name, "A Out");

    auto output = a->managedOutput("out");
    output->send(MIDIEvent::noteOn(UInt7(60), ChanVoice7Bit16BitValue::midi1(UInt7(100)), UInt4(2)));
    output->send(MIDIEvent::cc(UInt7(7), ChanVoice7Bit32BitValue::midi1(UInt7(64)), UInt4(2)));
    output->send(MIDIEvent::noteOff(UInt7(60), ChanVoice7Bit16BitValue::midi1(UInt7(0)), UInt4(2)));
    ASSERT_TRUE(delivered([&] { return log.count() == 3; }));

    auto events = log.snapshot();
    const auto* on = events[0].get<MIDIEvent::NoteOn>();
    ASSERT_NE(on, nullptr);
    EXPECT_EQ(on->note.number(), UInt7(60));
    EXPECT_EQ(on->channel, UInt4(2));
    // Delivered as MIDI 2.0: the velocity arrives in its 16-bit form.
    EXPECT_EQ(on->velocity().kind(), ChanVoice7Bit16BitValue::Case::midi2);
    EXPECT_EQ(on->velocity().midi1Value(), UInt7(100));
    ASSERT_NE(events[1].get<MIDIEvent::CC>(), nullptr);
    EXPECT_EQ(events[1].get<MIDIEvent::CC>()->value().midi1Value(), UInt7(64));
    EXPECT_NE(events[2].get<MIDIEvent::NoteOff>(), nullptr);
    EXPECT_TRUE(log.allOnQueue);
    ASSERT_TRUE(log.sources[0].has_value());
    EXPECT_EQ(log.sources[0]->name, "A Out");

    // An endpoint that appears later is connected by the criteria.
    b->managedInputConnection("in")->add(std::vector{MIDIEndpointIdentity::name("Late Out")});
    a->setPreferredAPI(CoreMIDIAPIVersion::newCoreMIDI(MIDIProtocolVersion::midi2_0));
    a->addOutput("Late Out", "late", MIDIIdentifierPersistence::adHoc());
    ASSERT_TRUE(delivered([&] { return connection->endpoints().size() == 2; }));
    a->managedOutput("late")->send(MIDIEvent::start());
    ASSERT_TRUE(delivered([&] { return log.count() == 4; }));
    EXPECT_EQ(log.snapshot()[3], MIDIEvent::start());

    // A removed endpoint leaves the connection.
    a->remove(ManagedType::output, TagSelection::withTag("out"));
    ASSERT_TRUE(delivered([&] { return connection->endpoints().size() == 1; }));
    EXPECT_EQ(connection->endpoints()[0].name, "Late Out");
}

TEST_F(LoopbackTest, OutputConnectionReachesVirtualInputAndFollowsItsRemoval) {
    auto a = startedManager("A");
    auto b = startedManager("B");
    EventLog log;
    b->setPreferredAPI(CoreMIDIAPIVersion::newCoreMIDI(MIDIProtocolVersion::midi1_0));
    b->addInput("B In", "in", MIDIIdentifierPersistence::adHoc(), log.receiver());
    log.expectedQueue = b->managedInput("in")->queue();
    EXPECT_EQ(b->managedInput("in")->queue()->label(), "MIDIInput-B In");

    // The owned filter keeps A from reaching its own input of the same name.
    a->addInput("B In", "own", MIDIIdentifierPersistence::adHoc(), MIDIReceiver::rawData([](const AnyMIDIPacketData&) {}));
    a->addOutputConnection(MIDIOutputConnectionMode::inputs({MIDIEndpointIdentity::name("B In")}), "to-b",
                           MIDIEndpointFilter::ownedOnly());
    auto connection = a->managedOutputConnection("to-b");
    ASSERT_EQ(connection->endpoints().size(), 1u);
    EXPECT_EQ(connection->endpoints()[0].uniqueID, *b->managedInput("in")->uniqueID());

    connection->send(std::vector{MIDIEvent::songPositionPointer(MIDICore::UInt14(300)), MIDIEvent::continue_()});
    ASSERT_TRUE(delivered([&] { return log.count() == 2; }));
    EXPECT_EQ(log.snapshot()[0], MIDIEvent::songPositionPointer(MIDICore::UInt14(300)));
    EXPECT_TRUE(log.allOnQueue);
    EXPECT_FALSE(log.sources[0].has_value());  // a virtual input does not look up sources

    // Raw bytes belong to the legacy API only.
    EXPECT_THROW(connection->send(std::vector<std::uint8_t>{0xF8}), MIDIIOError);

    b->remove(ManagedType::input, TagSelection::withTag("in"));
    ASSERT_TRUE(delivered([&] { return connection->endpoints().empty(); }));
    // No destination: nothing sent and no error.
    EXPECT_NO_THROW(connection->send(MIDIEvent::stop()));
}

TEST_F(LoopbackTest, OneEventGoesOutAsItsPacketsOnEveryAPI) {
    auto device = server->addDevice("Synth", "Maker");
    auto entity = server->addEntity(device, "Port");
    MIDIInputEndpoint destination(server, server->addDestination(entity, "In"));

    // Four control changes on MIDI 1.0; a SysEx of four UMP packets; a MIDI 2.0-only event.
    auto rpn = MIDIEvent::rpn(MIDICore::UInt7Pair{UInt7(0), UInt7(5)}, MIDICore::DataEntryBytes{UInt7(10), UInt7(0)},
                              MIDICore::MIDI2ParameterNumberChange::absolute, UInt4(1));
    std::vector<std::uint8_t> data(20);
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<std::uint8_t>(i);
    }
    auto sysEx = MIDIEvent::sysEx7(MIDICore::SysExManufacturer::educational(), data);
    ASSERT_EQ(sysEx.umpRawWords(MIDIProtocolVersion::midi2_0).size(), 4u);
    auto perNote = MIDIEvent::noteCC(UInt7(60), MIDICore::PerNoteController::assignable(1),
                                     MIDICore::ChanVoice32BitValue::midi2(7), UInt4(1));
    std::vector<std::uint8_t> expected = rpn.midi1RawBytes();
    auto sysExBytes = sysEx.midi1RawBytes();
    expected.insert(expected.end(), sysExBytes.begin(), sysExBytes.end());
    expected.push_back(0xF8);

    // What reaches the device, as packets with bytes: the packet counts show how each API cut
    // the events into lists (the SysEx joins up again on the way to a MIDI 1.0 device).
    const std::vector<std::pair<CoreMIDIAPIVersion, std::size_t>> apis{
        {CoreMIDIAPIVersion::legacyCoreMIDI(), 3},
        {CoreMIDIAPIVersion::newCoreMIDI(MIDIProtocolVersion::midi1_0), 6},
        {CoreMIDIAPIVersion::newCoreMIDI(MIDIProtocolVersion::midi2_0), 3},
    };
    for (const auto& [api, packetCount] : apis) {
        SCOPED_TRACE(api.description());
        auto manager = startedManager("App");
        manager->setPreferredAPI(api);
        manager->addOutputConnection(MIDIOutputConnectionMode::inputs({MIDIEndpointIdentity::name("In")}), "out", {});
        auto logged = server->deviceDestinationLog(destination.coreMIDIObjectRef).size();
        auto connection = manager->managedOutputConnection("out");
        connection->send(rpn);
        connection->send(sysEx);
        connection->send(perNote);  // nothing of it on MIDI 1.0, and no error
        connection->send(MIDIEvent::timingClock());
        server->flush();
        auto [bytes, count] = destinationBytesSince(destination.coreMIDIObjectRef, logged);
        EXPECT_EQ(bytes, expected);
        EXPECT_EQ(count, packetCount);
    }
}

}  // namespace
}  // namespace MIDIIO::testing
