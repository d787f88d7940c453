// The manager's life: start, the not-started refusal, queue labels, identifier persistence,
// removal, devices of the hardware side and notification translation.

#include "LoopbackFixture.hpp"

#include "MIDIInternals/InMemoryKeyValueStore.hpp"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace MIDIIO::testing {
namespace {

TEST_F(LoopbackTest, StartMakesOneClientAndAddsNeedAStartedManager) {
    auto manager = MIDIManager::create(server, "Test App!", "Havrel", "HavrelApps");
    EXPECT_EQ(manager->managementQueue().label(), "TestApp-management");
    EXPECT_FALSE(manager->isStarted());
    try {
        manager->addInput("In", "in", MIDIIdentifierPersistence::adHoc(), MIDIReceiver::eventsLogging());
        FAIL() << "addInput before start";
    } catch (const MIDIIOError& error) {
        EXPECT_EQ(error.description(), "Manager has not yet been started.");
    }
    manager->start();
    auto client = manager->coreMIDIClientRef();
    EXPECT_NE(client, 0u);
    manager->start();
    EXPECT_EQ(manager->coreMIDIClientRef(), client);

    // From another thread the client is made on the main queue, which this thread runs.
    auto second = MIDIManager::create(server, "", "Havrel", "HavrelApps");
    EXPECT_TRUE(second->managementQueue().label().ends_with("-management"));
    EXPECT_EQ(second->managementQueue().label().size(), 36 + 11);
    std::thread starter([&] { second->start(); });
    // The starter waits for this thread to run the client's creation: run the main queue until
    // that work has come and gone.
    while (mainQueue->poll() == 0) {
        std::this_thread::yield();
    }
    starter.join();
    EXPECT_TRUE(second->isStarted());
    EXPECT_NE(second->coreMIDIClientRef(), client);
}

TEST_F(LoopbackTest, VirtualEndpointsCarryModelAndManufacturerAndReplaceByTag) {
    auto manager = startedManager("App");
    manager->addOutput("Out", "x", MIDIIdentifierPersistence::adHoc());
    auto first = manager->managedOutput("x");
    auto endpoint = first->endpoint();
    ASSERT_TRUE(endpoint);
    EXPECT_EQ(endpoint->getModel(), "Havrel");
    EXPECT_EQ(endpoint->getManufacturer(), "HavrelApps");
    EXPECT_EQ(endpoint->getUniqueID(), first->uniqueID());
    EXPECT_EQ(first->description(), "MIDIOutput(name: \"Out\", uniqueID: " + std::to_string(*first->uniqueID()) + ")");
    first->hide();
    EXPECT_TRUE(endpoint->getIsPrivate());

    manager->addOutput("Out 2", "x", MIDIIdentifierPersistence::adHoc());
    EXPECT_NE(manager->managedOutput("x"), first);
    EXPECT_EQ(manager->managedOutputs().size(), 1u);
    // The former one goes with its last holder.
    EXPECT_EQ(server->getNumberOfSources(), 2u);
    first.reset();
    EXPECT_EQ(server->getNumberOfSources(), 1u);
    manager->remove(ManagedType::output, TagSelection::withTag("unknown"));
    EXPECT_EQ(manager->managedOutputs().size(), 1u);
    manager->removeAll();
    EXPECT_TRUE(manager->managedOutputs().empty());
    EXPECT_EQ(server->getNumberOfSources(), 0u);
}

TEST_F(LoopbackTest, PersistedUniqueIDSurvivesARestartAndIsReplacedWhenTaken) {
    auto store = std::make_shared<MIDIInternals::InMemoryKeyValueStore>();
    EXPECT_FALSE(MIDIIdentifierPersistence::userDefaultsManaged("output", store).readID());

    MIDIUniqueID first = 0;
    {
        auto manager = startedManager("App");
        manager->addOutput("Out", "out", MIDIIdentifierPersistence::userDefaultsManaged("output", store));
        first = *manager->managedOutput("out")->uniqueID();
        EXPECT_EQ(store->integer("output"), first);
        // Nothing in flight holds the manager when this run ends.
        server->flush();
    }
    // A new run reads the store and keeps the ID, which is free again.
    const auto& reread = store;
    auto manager = startedManager("App");
    manager->addOutput("Out", "out", MIDIIdentifierPersistence::userDefaultsManaged("output", reread));
    EXPECT_EQ(manager->managedOutput("out")->uniqueID(), first);

    // Another object holding the ID: the new endpoint gets a fresh one, which is stored.
    reread->setInteger("input", first);
    manager->addInput("In", "in", MIDIIdentifierPersistence::userDefaultsManaged("input", reread),
                      MIDIReceiver::rawDataLogging());
    auto replaced = manager->managedInput("in")->uniqueID();
    ASSERT_TRUE(replaced);
    EXPECT_NE(*replaced, first);
    EXPECT_EQ(reread->integer("input"), *replaced);

    // A value that does not fit 32 bits reads as absent; the managed form goes through its handlers.
    reread->setInteger("big", std::int64_t{1} << 40);
    EXPECT_FALSE(MIDIIdentifierPersistence::userDefaultsManaged("big", reread).readID());
    std::optional<MIDIUniqueID> stored;
    auto managed = MIDIIdentifierPersistence::managedStorage([] { return std::optional<MIDIUniqueID>(7); },
                                                             [&](std::optional<MIDIUniqueID> id) { stored = id; });
    EXPECT_EQ(managed.readID(), 7);
    managed.writeID(9);
    EXPECT_EQ(stored, 9);
}

TEST_F(LoopbackTest, DevicesAndEndpointsOfTheHardwareSideAndTheirNotifications) {
    std::mutex mutex;
    std::vector<std::string> notifications;
    auto manager = startedManager("App", [&](const MIDIIONotification& notification) {
        std::lock_guard lock(mutex);
        notifications.push_back(notification.description());
    });
    std::vector<std::size_t> deviceCounts;
    auto subscription = manager->devicesStream([&](const MIDIDevices& devices) {
        std::lock_guard lock(mutex);
        deviceCounts.push_back(devices.devices.size());
    });
    auto device = server->addDevice("Synth", "Maker", "Model 1");
    auto entity = server->addEntity(device, "Port 1");
    auto source = server->addSource(entity, "Out");
    server->addDestination(entity, "In");
    server->objectSetDictionaryProperty(device, "apple.midirtp.session", {{"name", "Session 1"}});
    server->objectSetStringProperty(device, "driver", "com.example.driver");
    ASSERT_TRUE(delivered([&] { return manager->endpoints().outputs.size() == 1 && manager->endpoints().inputs.size() == 1; }));

    auto out = manager->endpoints().outputs[0];
    EXPECT_EQ(out.displayName, "Synth Out");
    EXPECT_EQ(out.getManufacturer(), "Maker");  // taken from the device
    EXPECT_EQ(out.getDriverOwner(), "com.example.driver");
    ASSERT_TRUE(out.device());
    EXPECT_EQ(out.device()->name, "Synth");
    EXPECT_EQ(manager->devices().devices[0].entities().size(), 1u);
    EXPECT_EQ(manager->devices().devices[0].getDictionaryProperty("apple.midirtp.session")->at("name"), "Session 1");
    EXPECT_EQ(out.propertyStringValue(MIDIIOObjectProperty::Case::isOffline), "-");
    EXPECT_EQ(MIDIIOObjectProperty(MIDIIOObjectProperty::Case::advanceScheduleTimeMuSec).displayName(),
              "Advance Schedule Time (μs)");

    // Offline devices keep their place in the device list, their endpoints leave.
    server->objectSetIntegerProperty(device, "offline", 1);
    ASSERT_TRUE(delivered([&] { return manager->endpoints().outputs.empty(); }));
    EXPECT_EQ(manager->devices().devices.size(), 1u);

    auto noticed = [&](const std::string& prefix) {
        std::lock_guard lock(mutex);
        return std::any_of(notifications.begin(), notifications.end(),
                           [&](const std::string& text) { return text.starts_with(prefix); });
    };
    EXPECT_TRUE(delivered([&] { return noticed("propertyChanged(property: driverOwner, forObject: MIDIDevice(name: \"Synth\""); }));
    server->removeObject(device);
    // The device is gone from the system; its name comes from the cache.
    EXPECT_TRUE(delivered([&] { return noticed("removed(object: MIDIDevice(name: \"Synth\""); }));
    std::lock_guard lock(mutex);
    EXPECT_GE(deviceCounts.size(), 2u);
    EXPECT_EQ(deviceCounts.front(), 0u);  // the stream starts with the present state
    EXPECT_NE(source, 0u);
}

// A cache update queued ahead of a removal runs after the object is already gone from the
// system (the system does not wait for the manager): the removal is still reported, with the
// object as it was.
TEST_F(LoopbackTest, ARemovalIsReportedWhenAnEarlierUpdateAlreadyFoundTheObjectGone) {
    std::mutex mutex;
    std::vector<std::string> notifications;
    auto manager = startedManager("App", [&](const MIDIIONotification& notification) {
        std::lock_guard lock(mutex);
        notifications.push_back(notification.description());
    });
    auto device = server->addDevice("Synth", "Maker");
    auto entity = server->addEntity(device, "Port 1");
    auto source = server->addSource(entity, "Out");
    ASSERT_TRUE(delivered([&] { return manager->endpoints().outputs.size() == 1; }));

    // The next cache update holds the management queue until the source has gone.
    std::condition_variable changed;
    bool armed = false;
    bool holding = false;
    bool released = false;
    auto subscription = manager->devicesStream([&](const MIDIDevices&) {
        std::unique_lock lock(mutex);
        if (!armed) {
            return;
        }
        armed = false;
        holding = true;
        changed.notify_all();
        changed.wait_for(lock, std::chrono::seconds(30), [&] { return released; });
    });
    {
        std::lock_guard lock(mutex);
        armed = true;  // after the stream's first, immediate call
    }
    server->objectSetStringProperty(device, "driver", "com.example.one");
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(30), [&] { return holding; }));
    }
    // Queued behind the held update: a second update, then the removal.
    server->objectSetStringProperty(device, "driver", "com.example.two");
    server->removeObject(source);
    {
        std::lock_guard lock(mutex);
        released = true;
        changed.notify_all();
    }
    auto noticed = [&](const std::string& prefix) {
        std::lock_guard lock(mutex);
        return std::any_of(notifications.begin(), notifications.end(),
                           [&](const std::string& text) { return text.starts_with(prefix); });
    };
    EXPECT_TRUE(delivered([&] { return manager->endpoints().outputs.empty(); }));
    EXPECT_TRUE(noticed("removed(object: MIDIOutputEndpoint(name: \"Out\"")) << [&] {
        std::lock_guard lock(mutex);
        std::string all;
        for (const auto& text : notifications) {
            all += text + "\n";
        }
        return all;
    }();
}

// The system changes on a thread of its own (sources appear, go offline, go away) while readers
// on two other threads copy the manager's caches: every copy is whole, and the caches end in
// step with the system.
TEST_F(LoopbackTest, CachesReadFromOtherThreadsWhileSystemNotificationsUpdateThem) {
    std::atomic<int> notified{0};
    auto manager = startedManager("App", [&](const MIDIIONotification&) { ++notified; });
    auto device = server->addDevice("Box", "Maker");
    auto entity = server->addEntity(device, "Port");

    constexpr int changes = 60;
    std::atomic<bool> done{false};
    std::thread system([&] {
        std::vector<MIDIEndpointRef> kept;
        for (int i = 0; i < changes; ++i) {
            const auto source = server->addSource(entity, "Src " + std::to_string(i));
            if (i % 3 == 0) {
                server->objectSetIntegerProperty(source, "offline", 1);
            } else if (i % 3 == 1) {
                server->removeObject(source);
            } else {
                kept.push_back(source);
            }
        }
        done = true;
    });
    auto reader = [&] {
        while (!done.load()) {
            for (const auto& output : manager->endpoints().outputs) {
                EXPECT_TRUE(output.name.starts_with("Src ")) << output.name;
            }
            for (const auto& each : manager->devices().devices) {
                EXPECT_EQ(each.name, "Box");
            }
        }
    };
    std::thread first(reader);
    std::thread second(reader);
    system.join();
    first.join();
    second.join();
    ASSERT_TRUE(delivered([&] { return manager->endpoints().outputs.size() == changes / 3; }));
    EXPECT_GT(notified.load(), 0);
    for (const auto& output : manager->endpoints().outputs) {
        const int index = std::stoi(output.name.substr(4));
        EXPECT_EQ(index % 3, 2) << output.name;
    }
}

TEST(MIDIIONotificationTranslation, DropsWhatCannotBeFoundAndKeepsUnknownIDs) {
    auto server = LoopbackMIDIServer::create();
    MIDIObjectCache emptyCache;
    MIDINotificationMessage removed;
    removed.messageID = static_cast<std::int32_t>(MIDINotificationMessageID::objectRemoved);
    removed.child = 1234;
    removed.childType = MIDIObjectType::source;
    EXPECT_FALSE(MIDIIONotification::from(MIDIIOInternalNotification(removed), emptyCache, server));

    MIDINotificationMessage unknown;
    unknown.messageID = 99;
    auto other = MIDIIONotification::from(MIDIIOInternalNotification(unknown), emptyCache, server);
    ASSERT_TRUE(other);
    ASSERT_NE(other->get<MIDIIONotification::Other>(), nullptr);
    EXPECT_EQ(other->get<MIDIIONotification::Other>()->messageIDRawValue, 99);
    MIDINotificationMessage thru;
    thru.messageID = static_cast<std::int32_t>(MIDINotificationMessageID::thruConnectionsChanged);
    EXPECT_EQ(MIDIIONotification::from(MIDIIOInternalNotification(thru), emptyCache, server)->description(),
              "thruConnectionChanged");
}

}  // namespace
}  // namespace MIDIIO::testing
