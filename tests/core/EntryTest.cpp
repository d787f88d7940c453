// The entry of the core on the loopback MIDI server: one call brings up the registry and a
// virtual output, and a client's positions then reach another application as MIDI.

#include "../midi_service/MIDIServiceFixture.hpp"
#include "../central/RangeCommandBuilders.hpp"

#include "central/HVCentralConnectionTypeManager.hpp"
#include "central/HVCentralTransmissionManager.hpp"
#include "central/HVConnectionTypeConfiguration.hpp"
#include "central/RNClient.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "core/HavrelCoreBaseMac.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/DefaultsStore.hpp"
#include "sequencing/HVSequence.hpp"
#include "TransportScope.hpp"

#include <cstdlib>
#include <filesystem>

namespace havrel {
namespace {

using MIDICore::MIDIEvent;
using MIDICore::UInt7;

class EntryTest : public havrel::testing::MIDIServiceTest {
protected:
    EntryTest() {
        char pattern[] = "/tmp/havrel-entry-XXXXXX";
        folder_ = ::mkdtemp(pattern);
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder_ / "defaults.json"));
        HVSequenceManager::resetSharedInstanceForTesting();
    }
    void TearDown() override {
        if (auto manager = HVMIDIManager::shared()) {
            manager->stopTimers();
        }
        HVMIDIManager::setShared(nullptr);
        HVTransmissionManager::setShared(nullptr);
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
        DefaultsStore::setStandard(nullptr);
        std::filesystem::remove_all(folder_);
        MIDIServiceTest::TearDown();
    }

    testing::TransportScope transports_;
    std::filesystem::path folder_;
};

TEST_F(EntryTest, OneCallBringsUpTheRegistryAndAVirtualOutputThatCarriesClientPositions) {
    EXPECT_FALSE(HavrelCoreBaseMac::isInitiated());
    HavrelCoreBaseMac::instantiateWithProductToSendOut("Havrel Test", "3.1", "9.9");
    EXPECT_TRUE(HavrelCoreBaseMac::isInitiated());

    auto registry = HVCentralConnectionManager::sharedInstance();
    ASSERT_NE(registry, nullptr);
    EXPECT_EQ(registry->productToSendOut(), "Havrel Test");
    EXPECT_EQ(registry->versionToSendOut(), "3.1");
    auto midi = HVMIDIManager::shared();
    ASSERT_NE(midi, nullptr);
    EXPECT_EQ(midi->outputName(), "Havrel Test Output");
    // The entry's configuration is not made current behind the host's back.
    EXPECT_EQ(HVConnectionTypeConfiguration::currentConfiguration(), nullptr);

    MIDIIO::testing::EventLog events;
    auto app = startedManager("Listener");
    app->addInputConnection(
        MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::name("Havrel Test Output")}), "in", {},
        events.receiver());
    ASSERT_EQ(app->managedInputConnection("in")->endpoints().size(), 1u);

    // A client syncs a fader and moves it: no set-up beyond the entry is needed for the MIDI.
    auto configuration = HVEncodedConfiguration::create();
    configuration->dataWrappers = {
        testing::wrapperWith(1, HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 7, false))};
    const std::string text = configuration->dictionary().dump();
    HVCentralConnectionTypeManager receiver;
    auto client = RNUSBClient::create();
    receiver.didReceiveSyncData(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), client);
    receiver.didReceiveRangeData(
        testing::rangeCommand({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 1.0)}), client);
    clock.advance(std::chrono::milliseconds(0));
    ASSERT_TRUE(delivered([&] { return events.count() >= 1; }));
    const auto received = events.snapshot();
    const auto* cc = received[0].get<MIDIEvent::CC>();
    ASSERT_NE(cc, nullptr);
    EXPECT_EQ(cc->controller.number(), UInt7(7));
    EXPECT_EQ(cc->value().midi1Value(), UInt7(127));

    // A host with a MIDI service of its own: the registry starts afresh, no MIDI client does.
    midi->stopTimers();
    HVMIDIManager::setShared(nullptr);
    HavrelCoreBaseMac::instantiateWithProductToSendOut("Havrel Host", "3.2", "9.9",
                                                       HavrelCoreBaseMac::MIDIService::fromHost);
    EXPECT_EQ(HVCentralConnectionManager::sharedInstance()->productToSendOut(), "Havrel Host");
    EXPECT_EQ(HVMIDIManager::shared(), nullptr);
}

}  // namespace
}  // namespace havrel
