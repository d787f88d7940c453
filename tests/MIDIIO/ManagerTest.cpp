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

TEST_F(LoopbackTest, StartMakesOneClientOnTheMainQueue) {
    auto manager = MIDIManager::create(server, "Test App!", "Havrel", "HavrelApps");
    EXPECT_EQ(manager->managementQueue().label(), "TestApp-management");
    EXPECT_FALSE(manager->isStarted());
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
}

TEST_F(LoopbackTest, DevicesAndEndpointsOfTheHardwareSideAndTheirNotifications) {
    NotificationLog log;
    auto manager = startedManager("App", log.handler());
    std::mutex mutex;
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

    // Offline devices keep their place in the device list, their endpoints leave.
    server->objectSetIntegerProperty(device, "offline", 1);
    ASSERT_TRUE(delivered([&] { return manager->endpoints().outputs.empty(); }));
    EXPECT_EQ(manager->devices().devices.size(), 1u);

    EXPECT_TRUE(delivered([&] { return log.noticed("propertyChanged(property: driverOwner, forObject: MIDIDevice(name: \"Synth\""); }));
    server->removeObject(device);
    // The device is gone from the system; its name comes from the cache.
    EXPECT_TRUE(delivered([&] { return log.noticed("removed(object: MIDIDevice(name: \"Synth\""); }));
    std::lock_guard lock(mutex);
    EXPECT_GE(deviceCounts.size(), 2u);
    EXPECT_EQ(deviceCounts.front(), 0u);  // the stream starts with the present state
    EXPECT_NE(source, 0u);
}

// A cache update queued ahead of a removal runs after the object is already gone from the
// system (the system does not wait for the manager): the removal is still reported, with the
// object as it was.
TEST_F(LoopbackTest, ARemovalIsReportedWhenAnEarlierUpdateAlreadyFoundTheObjectGone) {
    NotificationLog log;
    auto manager = startedManager("App", log.handler());
    std::mutex mutex;
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
    EXPECT_TRUE(delivered([&] { return manager->endpoints().outputs.empty(); }));
    EXPECT_TRUE(log.noticed("removed(object: MIDIOutputEndpoint(name: \"Out\""));
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

}  // namespace
}  // namespace MIDIIO::testing
