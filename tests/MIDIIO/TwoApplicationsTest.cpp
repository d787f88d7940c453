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
    std::mutex notificationsMutex;
    std::vector<std::string> notifications;
    auto a = startedManager("App A");
    auto b = startedManager("App B", [&](const MIDIIONotification& notification) {
        std::lock_guard lock(notificationsMutex);
        notifications.push_back(notification.description());
    });
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
    ASSERT_TRUE(waitFor([&] { return log.count() == 3; }));

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
    ASSERT_TRUE(waitFor([&] { return connection->endpoints().size() == 2; }));
    a->managedOutput("late")->send(MIDIEvent::start());
    ASSERT_TRUE(waitFor([&] { return log.count() == 4; }));
    EXPECT_EQ(log.snapshot()[3], MIDIEvent::start());

    // A removed endpoint is reported with its name, though the system no longer knows it.
    a->remove(ManagedType::output, TagSelection::withTag("out"));
    ASSERT_TRUE(waitFor([&] {
        std::lock_guard lock(notificationsMutex);
        return std::any_of(notifications.begin(), notifications.end(), [](const std::string& text) {
            return text.starts_with("removed(object: MIDIOutputEndpoint(name: \"A Out\"");
        });
    }));
    ASSERT_TRUE(waitFor([&] { return connection->endpoints().size() == 1; }));
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
    ASSERT_TRUE(waitFor([&] { return log.count() == 2; }));
    EXPECT_EQ(log.snapshot()[0], MIDIEvent::songPositionPointer(MIDICore::UInt14(300)));
    EXPECT_TRUE(log.allOnQueue);
    EXPECT_FALSE(log.sources[0].has_value());  // a virtual input does not look up sources

    // Raw bytes belong to the legacy API only.
    EXPECT_THROW(connection->send(std::vector<std::uint8_t>{0xF8}), MIDIIOError);

    b->remove(ManagedType::input, TagSelection::withTag("in"));
    ASSERT_TRUE(waitFor([&] { return connection->endpoints().empty(); }));
    // No destination: nothing sent and no error.
    EXPECT_NO_THROW(connection->send(MIDIEvent::stop()));
}

}  // namespace
}  // namespace MIDIIO::testing
