// Error texts, packet building limits, identifier persistence forms, the not-started refusal of
// every add, an output connection's own add and remove of destinations, property reads and the
// legacy receive path.

#include "LoopbackFixture.hpp"
#include "MIDIIO/MIDIEventPacket.hpp"
#include "MIDIInternals/InMemoryKeyValueStore.hpp"

#include <algorithm>
#include <map>

namespace MIDIIO::testing {
namespace {

TEST(MIDIIOErrorTest, StatusCasesFollowTheTableAndUnknownNumbersKeepTheirValue) {
    EXPECT_EQ(MIDIOSStatus(-10842).kind(), MIDIOSStatus::Case::objectNotFound);
    EXPECT_EQ(MIDIOSStatus::of(MIDIOSStatus::Case::notPermitted).rawValue(), -10844);
    MIDIOSStatus unknown(-12345);
    EXPECT_EQ(unknown.kind(), MIDIOSStatus::Case::other);
    EXPECT_EQ(unknown.rawValue(), -12345);
    EXPECT_EQ(unknown.description(), "Unknown OSStatus error: -12345");
    EXPECT_EQ(CoreMIDIAPIVersion::legacyCoreMIDI().midiProtocol(), MIDIProtocolVersion::midi1_0);
    EXPECT_EQ(MIDIIOObjectProperty::fromKey("connUniqueID")->displayName(), "Connection Unique ID");

    EXPECT_NO_THROW(MIDIIOError::check(noErr));
    try {
        MIDIIOError::check(-10835);
        FAIL() << "a failing status throws";
    } catch (const MIDIIOError& error) {
        ASSERT_NE(error.get<MIDIIOError::OSStatusError>(), nullptr);
        EXPECT_EQ(error.get<MIDIIOError::OSStatusError>()->status.kind(), MIDIOSStatus::Case::unknownProperty);
    }
}

TEST(MIDIEventPacketTest, WordCountAndPacketListSizeLimits) {
    std::vector<std::uint32_t> words(64);
    for (std::size_t i = 0; i < words.size(); ++i) {
        words[i] = static_cast<std::uint32_t>(0x20900000 + i);
    }
    for (auto make : {makeMIDIEventPacket, makeMIDIEventPacketUsingBuilder}) {
        auto packet = make(words, 42);
        EXPECT_EQ(packet.wordCount, 64u);
        EXPECT_EQ(packet.timeStamp, 42u);
        EXPECT_EQ(packet.words[63], 0x2090003Fu);
        try {
            make({}, 0);
            FAIL() << "no words";
        } catch (const MIDIInternalError& error) {
            EXPECT_EQ(error.kind(), MIDIInternalError::Case::umpEmpty);
        }
        words.push_back(0);
        try {
            make(words, 0);
            FAIL() << "65 words";
        } catch (const MIDIInternalError& error) {
            EXPECT_EQ(error.kind(), MIDIInternalError::Case::umpTooLarge);
        }
        words.pop_back();
    }

    // The limit weighs the bytes of all packets together: ten a byte plus the four of the list.
    EXPECT_NO_THROW(makeMIDIPacketList({std::vector<std::uint8_t>(6000, 0x01), std::vector<std::uint8_t>(553, 0x02)}));
    try {
        makeMIDIPacketList({std::vector<std::uint8_t>(6000, 0x01), std::vector<std::uint8_t>(554, 0x02)});
        FAIL() << "too large";
    } catch (const MIDIInternalError& error) {
        EXPECT_EQ(error.kind(), MIDIInternalError::Case::packetTooLarge);
        EXPECT_EQ(error.bufferByteCount(), 65544u);
    }

    auto list = makeMIDIPacketList({std::vector<std::uint8_t>(300, 0x01), {0xF8}});
    auto read = readPacketList(list, nullptr, std::nullopt);
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(read[0].bytes.size(), 300u);
    EXPECT_EQ(read[1].bytes, std::vector<std::uint8_t>{0xF8});
    EXPECT_EQ(UniversalMIDIPacketData::fromWords(std::vector<std::uint32_t>{0x20903C40}, 0, std::nullopt).bytes,
              (std::vector<std::uint8_t>{0x20, 0x90, 0x3C, 0x40}));
    // A list that claims more than it holds yields what fits; a cut event list yields nothing.
    list[0] = 9;
    EXPECT_EQ(readPacketList(list, nullptr, std::nullopt).size(), 2u);
    auto eventList = makeMIDIEventList(MIDIProtocolID::midi1_0, std::vector<std::uint32_t>{0x20903C40}, 3);
    auto bytes = eventList.bytes();
    std::vector<std::uint8_t> cut(bytes.begin(), bytes.end() - 1);
    EXPECT_TRUE(readEventList(cut, nullptr, std::nullopt).second.empty());
    auto [protocol, universal] = readEventList(bytes, nullptr, std::nullopt);
    EXPECT_EQ(protocol, MIDIProtocolVersion::midi1_0);
    ASSERT_EQ(universal.size(), 1u);
    EXPECT_EQ(universal[0].timeStamp, 3u);
}

// A store whose values may be integers or text, as a settings file may be.
class TextValuedStore final : public MIDIInternals::KeyValueStore {
public:
    bool contains(const std::string& key) const override { return values_.contains(key); }
    std::optional<std::int64_t> integer(const std::string& key) const override {
        auto it = values_.find(key);
        return it == values_.end() ? std::nullopt : it->second;
    }
    void setInteger(const std::string& key, std::int64_t value) override { values_[key] = value; }
    void remove(const std::string& key) override { values_.erase(key); }
    void setText(const std::string& key) { values_[key] = std::nullopt; }

private:
    std::map<std::string, std::optional<std::int64_t>> values_;  // nothing: a text
};

TEST(MIDIIdentifierPersistenceTest, EachFormReadsAndWritesItsOwnStore) {
    EXPECT_EQ(MIDIIdentifierPersistence::unmanaged(77).readID(), 77);
    EXPECT_EQ(MIDIIdentifierPersistence::adHoc().readID(), std::nullopt);

    auto store = std::make_shared<TextValuedStore>();
    auto stored = MIDIIdentifierPersistence::userDefaultsManaged("out", store);
    EXPECT_EQ(stored.readID(), std::nullopt);
    stored.writeID(-5);
    EXPECT_EQ(stored.readID(), -5);
    EXPECT_EQ(store->integer("out"), -5);
    stored.writeID(std::nullopt);
    EXPECT_FALSE(store->contains("out"));
    // A number that does not fit 32 bits, or no number at all, reads as absent.
    store->setInteger("out", std::int64_t{1} << 40);
    EXPECT_EQ(stored.readID(), std::nullopt);
    store->setText("out");
    EXPECT_TRUE(store->contains("out"));
    EXPECT_EQ(stored.readID(), std::nullopt);
    // Without a store of its own, the process's standard store.
    auto standard = std::make_shared<MIDIInternals::InMemoryKeyValueStore>();
    MIDIInternals::KeyValueStore::setStandard(standard);
    MIDIIdentifierPersistence::userDefaultsManaged("in").writeID(3);
    EXPECT_EQ(standard->integer("in"), 3);
    MIDIInternals::KeyValueStore::setStandard(nullptr);
    EXPECT_FALSE(MIDIInternals::KeyValueStore::standard()->contains("in"));

    std::optional<MIDIUniqueID> slot = 9;
    int stores = 0;
    auto handled = MIDIIdentifierPersistence::managedStorage([&] { return slot; },
                                                             [&](std::optional<MIDIUniqueID> id) {
                                                                 slot = id;
                                                                 ++stores;
                                                             });
    EXPECT_EQ(handled.readID(), 9);
    handled.writeID(12);
    EXPECT_EQ(slot, 12);
    EXPECT_EQ(handled.readID(), 12);
    // The other forms store nowhere.
    MIDIIdentifierPersistence::unmanaged(77).writeID(1);
    EXPECT_EQ(MIDIIdentifierPersistence::unmanaged(77).readID(), 77);
    EXPECT_EQ(stores, 1);
}

TEST_F(LoopbackTest, EveryAddRefusesBeforeStart) {
    auto manager = MIDIManager::create(server, "Idle", "Havrel", "HavrelApps");
    auto refuses = [](const std::function<void()>& add) {
        try {
            add();
        } catch (const MIDIIOError& error) {
            return error.get<MIDIIOError::ManagerNotStarted>() != nullptr;
        }
        return false;
    };
    EXPECT_TRUE(refuses([&] { manager->addOutput("Out", "o", MIDIIdentifierPersistence::adHoc()); }));
    EXPECT_TRUE(refuses([&] { manager->addInput("In", "i", MIDIIdentifierPersistence::adHoc(), MIDIReceiver::eventsLogging()); }));
    EXPECT_TRUE(refuses([&] {
        manager->addInputConnection(MIDIInputConnectionMode::allOutputs(), "ic", MIDIEndpointFilter::default_(),
                                    MIDIReceiver::rawData([](const AnyMIDIPacketData&) {}));
    }));
    EXPECT_TRUE(refuses([&] {
        manager->addOutputConnection(MIDIOutputConnectionMode::allInputs(), "oc", MIDIEndpointFilter::default_());
    }));
    EXPECT_TRUE(refuses([&] { manager->addThruConnection({}, {}, "t", MIDIThruConnection::Lifecycle::nonPersistent()); }));
    EXPECT_TRUE(manager->managedOutputs().empty());
    EXPECT_TRUE(manager->managedOutputConnections().empty());
    EXPECT_EQ(server->getNumberOfSources(), 0u);
}

TEST_F(LoopbackTest, OutputConnectionAddsAndRemovesDestinationsWithinModeAndFilter) {
    auto a = startedManager("A");
    auto b = startedManager("B");
    auto noReceive = [] { return MIDIReceiver::rawData([](const AnyMIDIPacketData&) {}); };
    b->addInput("X", "x", MIDIIdentifierPersistence::adHoc(), noReceive());
    b->addInput("Y", "y", MIDIIdentifierPersistence::adHoc(), noReceive());
    a->addInput("X", "own", MIDIIdentifierPersistence::adHoc(), noReceive());
    auto x = *b->managedInput("x")->endpoint();
    auto y = *b->managedInput("y")->endpoint();

    a->addOutputConnection(MIDIOutputConnectionMode::inputs({}), "c", MIDIEndpointFilter::ownedOnly());
    auto connection = a->managedOutputConnection("c");
    EXPECT_TRUE(connection->endpoints().empty());
    connection->add(std::vector{MIDIEndpointIdentity::name("X")});
    ASSERT_EQ(connection->endpoints().size(), 1u);  // A's own "X" is filtered out
    EXPECT_EQ(connection->endpoints()[0].uniqueID, x.uniqueID);
    connection->add(std::vector{y});
    EXPECT_EQ(connection->endpoints().size(), 2u);
    EXPECT_EQ(connection->inputsCriteria().size(), 2u);
    // Adding the same criterion again changes nothing.
    connection->add(std::vector{MIDIEndpointIdentity::name("X")});
    EXPECT_EQ(connection->inputsCriteria().size(), 2u);
    connection->remove(std::vector{MIDIEndpointIdentity::name("X")});
    ASSERT_EQ(connection->endpoints().size(), 1u);
    EXPECT_EQ(connection->endpoints()[0].uniqueID, y.uniqueID);
    EXPECT_EQ(connection->coreMIDIInputEndpointRefs(), std::set<MIDIEndpointRef>{y.coreMIDIObjectRef});
    connection->removeAllInputs();
    EXPECT_TRUE(connection->endpoints().empty());
    EXPECT_TRUE(connection->inputsCriteria().empty());

    // All inputs, less those the filter names and A's own.
    a->addOutputConnection(MIDIOutputConnectionMode::allInputs(), "all",
                           MIDIEndpointFilter{true, {MIDIEndpointIdentity::uniqueID(y.uniqueID)}});
    auto all = a->managedOutputConnection("all");
    ASSERT_EQ(all->endpoints().size(), 1u);
    EXPECT_EQ(all->endpoints()[0].uniqueID, x.uniqueID);
    // The target lists as the network-session test of the application reads them.
    EXPECT_EQ(description(std::vector{MIDIEndpointIdentity::name("Studio"), MIDIEndpointIdentity::uniqueID(5)}),
              "[name(\"Studio\"), uniqueID(5)]");
    EXPECT_EQ(description(std::set<MIDIEndpointRef>{7, 3}), "[3, 7]");
    // Without the owned flag A's own input is a destination as well.
    a->addOutputConnection(MIDIOutputConnectionMode::allInputs(), "every", MIDIEndpointFilter::default_());
    EXPECT_EQ(a->managedOutputConnection("every")->endpoints().size(), 3u);
}

TEST_F(LoopbackTest, PropertyReadsGiveTypedValuesAndDisplayTexts) {
    auto manager = startedManager("App");
    manager->addOutput("Out", "o", MIDIIdentifierPersistence::adHoc());
    auto endpoint = *manager->managedOutput("o")->endpoint();
    auto ref = endpoint.coreMIDIObjectRef;

    // Nothing set: typed reads are empty or false, the display text is "-".
    EXPECT_EQ(endpoint.getDriverVersion(), std::nullopt);
    EXPECT_FALSE(endpoint.getIsEmbeddedEntity());
    EXPECT_EQ(endpoint.propertyStringValue(MIDIIOObjectProperty::Case::isEmbeddedEntity), "-");
    try {
        endpoint.getStringPropertyThrowing("driver");
        FAIL() << "no driver owner is set";
    } catch (const MIDIIOError& error) {
        EXPECT_NE(error.get<MIDIIOError::ReadError>(), nullptr);
        EXPECT_EQ(error.description(), "Got nil while reading MIDIEndpointRef property value driver");
    }

    ASSERT_EQ(server->objectSetIntegerProperty(ref, "embedded", 2), noErr);
    ASSERT_EQ(server->objectSetIntegerProperty(ref, "scheduleAheadMuSec", 1500), noErr);
    ASSERT_EQ(server->objectSetIntegerProperty(ref, "private", 0), noErr);
    ASSERT_EQ(server->objectSetStringProperty(ref, "driver", "com.example.driver"), noErr);
    EXPECT_TRUE(endpoint.getIsEmbeddedEntity());
    EXPECT_FALSE(endpoint.getIsPrivate());
    EXPECT_EQ(endpoint.getAdvanceScheduleTimeMuSec(), 1500);
    EXPECT_EQ(endpoint.getDriverOwner(), "com.example.driver");
    EXPECT_EQ(endpoint.propertyStringValue(MIDIIOObjectProperty::Case::isEmbeddedEntity), "Yes");
    EXPECT_EQ(endpoint.propertyStringValue(MIDIIOObjectProperty::Case::isPrivate), "No");

    auto rows = endpoint.propertiesAsStrings();
    ASSERT_EQ(rows.size(), MIDIIOObjectProperty::caseCount);
    auto row = [&](const std::string& display) {
        auto it = std::find_if(rows.begin(), rows.end(), [&](const auto& r) { return r.first == display; });
        return it == rows.end() ? std::string("missing") : it->second;
    };
    EXPECT_EQ(rows[0], (std::pair<std::string, std::string>{"Name", "Out"}));
    EXPECT_EQ(row("Advance Schedule Time (μs)"), "1500");
    EXPECT_EQ(row("Driver Owner"), "com.example.driver");
    EXPECT_EQ(row("Max Receive Channels"), "-");
}

TEST_F(LoopbackTest, LegacyReceiveKeepsRunningStatusAcrossPackets) {
    auto a = startedManager("A");
    auto b = startedManager("B");
    a->setPreferredAPI(CoreMIDIAPIVersion::legacyCoreMIDI());
    b->setPreferredAPI(CoreMIDIAPIVersion::legacyCoreMIDI());
    a->addOutput("A Out", "out", MIDIIdentifierPersistence::adHoc());
    EventLog log;
    b->addInputConnection(MIDIInputConnectionMode::outputs({MIDIEndpointIdentity::name("A Out")}), "from-a",
                          MIDIEndpointFilter::default_(), log.receiver());
    ASSERT_EQ(b->managedInputConnection("from-a")->endpoints().size(), 1u);

    auto output = a->managedOutput("out");
    output->send(std::vector<std::uint8_t>{0x90, 0x3C, 0x40});
    // A later packet continues the note on status, with a clock byte in between.
    output->send(std::vector<std::uint8_t>{0x3D, 0xF8, 0x41});
    output->send(std::vector<std::uint8_t>{0x3E, 0x42, 0xB1, 0x07, 0x64});
    ASSERT_TRUE(delivered([&] { return log.count() >= 5; }));
    auto events = log.snapshot();
    ASSERT_EQ(events.size(), 5u);
    EXPECT_EQ(events[0], MIDIEvent::noteOn(MIDICore::UInt7(0x3C), MIDICore::ChanVoice7Bit16BitValue::midi1(MIDICore::UInt7(0x40)), MIDICore::UInt4(0)));
    EXPECT_EQ(events[1], MIDIEvent::timingClock());
    EXPECT_EQ(events[2], MIDIEvent::noteOn(MIDICore::UInt7(0x3D), MIDICore::ChanVoice7Bit16BitValue::midi1(MIDICore::UInt7(0x41)), MIDICore::UInt4(0)));
    EXPECT_EQ(events[3], MIDIEvent::noteOn(MIDICore::UInt7(0x3E), MIDICore::ChanVoice7Bit16BitValue::midi1(MIDICore::UInt7(0x42)), MIDICore::UInt4(0)));
    EXPECT_EQ(events[4], MIDIEvent::cc(MIDICore::UInt7(7), MIDICore::ChanVoice7Bit32BitValue::midi1(MIDICore::UInt7(0x64)), MIDICore::UInt4(1)));
}

TEST_F(LoopbackTest, NotificationsTranslateAndWhatCannotBeFoundDrops) {
    auto manager = startedManager("App");
    manager->addOutput("Out", "o", MIDIIdentifierPersistence::adHoc());
    auto endpoint = *manager->managedOutput("o")->endpoint();
    MIDIObjectCache emptyCache;
    auto translate = [&](const MIDINotificationMessage& message) {
        return MIDIIONotification::from(MIDIIOInternalNotification(message), emptyCache, server);
    };

    MIDINotificationMessage added;
    added.messageID = static_cast<std::int32_t>(MIDINotificationMessageID::objectAdded);
    added.child = endpoint.coreMIDIObjectRef;
    added.childType = MIDIObjectType::source;
    auto addedNotice = translate(added);
    ASSERT_TRUE(addedNotice);
    ASSERT_NE(addedNotice->get<MIDIIONotification::Added>(), nullptr);
    auto* source = addedNotice->get<MIDIIONotification::Added>()->object.get<MIDIOutputEndpoint>();
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(source->uniqueID, endpoint.uniqueID);
    // An added object the system does not know is dropped.
    added.child = endpoint.coreMIDIObjectRef + 1000;
    EXPECT_FALSE(translate(added));

    MIDINotificationMessage changed;
    changed.messageID = static_cast<std::int32_t>(MIDINotificationMessageID::propertyChanged);
    changed.object = endpoint.coreMIDIObjectRef;
    changed.objectType = MIDIObjectType::source;
    changed.propertyName = "connUniqueID";
    auto changedNotice = translate(changed);
    ASSERT_TRUE(changedNotice);
    ASSERT_NE(changedNotice->get<MIDIIONotification::PropertyChanged>(), nullptr);
    EXPECT_EQ(changedNotice->get<MIDIIONotification::PropertyChanged>()->property,
              MIDIIOObjectProperty(MIDIIOObjectProperty::Case::connectionUniqueID));
    changed.propertyName = "Connection Unique ID";  // a display name is not a key
    EXPECT_FALSE(translate(changed));
    changed.propertyName = "connUniqueID";
    changed.object = endpoint.coreMIDIObjectRef + 1000;
    EXPECT_FALSE(translate(changed));

    MIDINotificationMessage ioError;
    ioError.messageID = static_cast<std::int32_t>(MIDINotificationMessageID::ioError);
    ioError.driverDevice = endpoint.coreMIDIObjectRef + 1000;
    ioError.errorCode = 7;
    EXPECT_FALSE(translate(ioError));
    MIDINotificationMessage removed;
    removed.messageID = static_cast<std::int32_t>(MIDINotificationMessageID::objectRemoved);
    removed.child = endpoint.coreMIDIObjectRef + 1000;
    removed.childType = MIDIObjectType::source;
    EXPECT_FALSE(translate(removed));
    // A message the table does not know keeps its number.
    MIDINotificationMessage unknown;
    unknown.messageID = 99;
    auto other = translate(unknown);
    ASSERT_TRUE(other && other->get<MIDIIONotification::Other>());
    EXPECT_EQ(other->get<MIDIIONotification::Other>()->messageIDRawValue, 99);
}

}  // namespace
}  // namespace MIDIIO::testing
