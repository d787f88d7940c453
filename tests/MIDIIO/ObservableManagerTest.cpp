// The observable managers republish devices and endpoints as they come and go; one tells its
// observers after the new values are in place, the other just before.

#include "LoopbackFixture.hpp"

#include "MIDIInternals/DispatchSync.hpp"
#include "MIDIIO/ObservableMIDIManager.hpp"

namespace MIDIIO::testing {
namespace {

// What an observer saw of the published endpoints at each of its calls.
struct Seen {
    std::vector<std::vector<std::string>> outputs;
    void record(const MIDIEndpoints& endpoints) {
        std::vector<std::string> names;
        for (const auto& output : endpoints.outputs) {
            names.push_back(output.name);
        }
        outputs.push_back(std::move(names));
    }
};

class ObservableManagerTest : public LoopbackTest {
protected:
    // Lets every change so far reach the managers and their main-queue republishing.
    void settle(const std::vector<std::shared_ptr<MIDIManager>>& managers) {
        for (int round = 0; round < 2; ++round) {
            server->flush();
            for (const auto& manager : managers) {
                MIDIInternals::syncOn(manager->managementQueue(), [] {});
            }
            mainQueue->poll();
        }
    }
};

TEST_F(ObservableManagerTest, DevicesAndEndpointsAreRepublishedAsTheyComeAndGo) {
    auto observable = ObservableMIDIManager::create(server, "Observing", "Havrel", "HavrelApps");
    auto object = ObservableObjectMIDIManager::create(server, "ObservingObject", "Havrel", "HavrelApps");
    Seen after;
    Seen before;
    auto afterSubscription = observable->observe([&] { after.record(observable->observableEndpoints()); });
    auto beforeSubscription = object->objectWillChange([&] { before.record(object->observableEndpoints()); });
    observable->start();
    object->start();
    const std::vector<std::shared_ptr<MIDIManager>> managers{observable, object};

    auto device = server->addDevice("Synth", "Maker");
    auto entity = server->addEntity(device, "Port");
    auto source = server->addSource(entity, "Out");
    auto published = [&](const auto& manager, std::size_t devices, std::size_t outputs) {
        return manager->observableDevices().devices.size() == devices &&
               manager->observableEndpoints().outputs.size() == outputs;
    };
    ASSERT_TRUE(delivered([&] { return published(observable, 1, 1) && published(object, 1, 1); }));
    EXPECT_EQ(observable->observableDevices(), observable->devices());
    EXPECT_EQ(object->observableEndpoints(), object->endpoints());
    settle(managers);

    // One property change is one cache update: the observers of the one manager see the new
    // name, those of the other the name it replaces.
    after.outputs.clear();
    before.outputs.clear();
    server->objectSetStringProperty(source, "name", "Renamed");
    ASSERT_TRUE(delivered([&] {
        return !observable->observableEndpoints().outputs.empty() &&
               observable->observableEndpoints().outputs[0].name == "Renamed" &&
               !object->observableEndpoints().outputs.empty() &&
               object->observableEndpoints().outputs[0].name == "Renamed";
    }));
    settle(managers);
    EXPECT_EQ(after.outputs, (std::vector<std::vector<std::string>>{{"Renamed"}}));
    EXPECT_EQ(before.outputs, (std::vector<std::vector<std::string>>{{"Out"}}));

    // Gone again, from both; a cancelled observer is not called any more.
    beforeSubscription.cancel();
    before.outputs.clear();
    server->removeObject(device);
    ASSERT_TRUE(delivered([&] { return published(observable, 0, 0) && published(object, 0, 0); }));
    settle(managers);
    EXPECT_EQ(after.outputs.back(), std::vector<std::string>{});
    EXPECT_TRUE(before.outputs.empty());
}

}  // namespace
}  // namespace MIDIIO::testing
