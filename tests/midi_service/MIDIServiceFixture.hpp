#pragma once
// The loopback fixture as the application runs the MIDI library: the application's services
// installed (its main queue, on a manual clock, as the library's main queue; its serial queues;
// its log sink and defaults store) over the loopback fixture's.

#include "../MIDIIO/LoopbackFixture.hpp"

#include "central/HVConnectionTypeConfiguration.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "platform/MainQueue.hpp"
#include "platform/TemporaryFolder.hpp"

namespace havrel::testing {

class MIDIServiceTest : public MIDIIO::testing::LoopbackTest {
protected:
    MIDIServiceTest() { installMIDILibraryServices(); }
    std::size_t pollMainQueue() override { return MainQueue::shared().poll(); }

    ManualClockScope clock;
};

// The application's MIDI manager as a test makes it: its identifiers kept in a defaults file of
// the test's own, its virtual endpoints named "Havrel Test", and the shared manager gone after.
class HVMIDIServiceTest : public MIDIServiceTest {
protected:
    HVMIDIServiceTest() {
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder_.path() / "defaults.json"));
        configuration_->productToSendOut = "Havrel Test";
    }
    void TearDown() override {
        if (auto manager = HVMIDIManager::shared()) {
            manager->stopTimers();
        }
        HVMIDIManager::setShared(nullptr);
        HVMIDIManager::setClockForTesting(nullptr);
        clock.advance(std::chrono::milliseconds(0));
        DefaultsStore::setStandard(nullptr);
        MIDIServiceTest::TearDown();
    }

    // Another application with an input connection to the manager's output.
    std::shared_ptr<MIDIIO::MIDIManager> listener(MIDIIO::testing::EventLog& log) {
        auto app = startedManager("Listener");
        app->addInputConnection(
            MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::name("Havrel Test Output")}), "in",
            {}, log.receiver());
        return app;
    }

    TemporaryFolder folder_;
    std::shared_ptr<HVConnectionTypeConfiguration> configuration_ = HVConnectionTypeConfiguration::create();
};

}  // namespace havrel::testing
