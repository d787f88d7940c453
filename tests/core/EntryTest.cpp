// The entry of the core on the loopback MIDI server: one call brings up the registry and a
// virtual output (the path tests drive client positions through it into MIDI), or only the
// registry for a host with a MIDI service of its own.

#include "../midi_service/MIDIServiceFixture.hpp"

#include "central/HVCentralTransmissionManager.hpp"
#include "central/HVConnectionTypeConfiguration.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "core/HavrelCoreBaseMac.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/TemporaryFolder.hpp"
#include "sequencing/HVSequence.hpp"
#include "TransportScope.hpp"

#include <filesystem>

namespace havrel {
namespace {

class EntryTest : public havrel::testing::MIDIServiceTest {
protected:
    EntryTest() {
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
        MIDIServiceTest::TearDown();
    }

    testing::TransportScope transports_;
    testing::TemporaryFolder temporary_;
    const std::filesystem::path folder_ = temporary_.path();
};

TEST_F(EntryTest, OneCallBringsUpTheRegistryAndAVirtualOutputUnlessTheHostHasAMIDIService) {
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
