// The MIDI side of the program when its MIDI platform goes away under it.

#include "../midi_service/MIDIServiceFixture.hpp"

#include "CentralMIDI.hpp"
#include "backends/midi_loopback/LoopbackMIDIServer.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/Log.hpp"
#include "platform/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace havrel {
namespace {

class CentralMIDITest : public testing::MIDIServiceTest {
protected:
    CentralMIDITest() {
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder_ / "defaults.json"));
    }
    void TearDown() override {
        HVMIDIManager::setShared(nullptr);
        DefaultsStore::setStandard(nullptr);
        MIDIServiceTest::TearDown();
    }
    std::size_t printed() {
        std::lock_guard lock(mutex_);
        return lines_.size();
    }
    std::string lastPrinted() {
        std::lock_guard lock(mutex_);
        return lines_.empty() ? std::string() : lines_.back();
    }

    testing::TemporaryFolder temporary_;
    const std::filesystem::path folder_ = temporary_.path();
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

TEST_F(CentralMIDITest, ALostPlatformIsReplacedOnceAndTheServicePrintAndSendsGoOnThere) {
    ScopedLogCapture capture;
    const auto fallback = MIDIIO::LoopbackMIDIServer::create();
    int fallbacksMade = 0;
    CentralMIDI::Options options;
    options.configuration = HVConnectionTypeConfiguration::create();
    options.configuration->productToSendOut = "Havrel";
    options.printLine = [this](const std::string& line) {
        std::lock_guard lock(mutex_);
        lines_.push_back(line);
    };
    options.fallbackPlatform = [&] {
        ++fallbacksMade;
        return fallback;
    };
    CentralMIDI midi(options);
    int rebuilt = 0;
    midi.addRebuiltHandler([&] { ++rebuilt; });
    const auto first = midi.service();
    first->sendWithController(7, 64, 0, true);
    ASSERT_TRUE(delivered([&] { return printed() == 1; }));

    // The loss is told on the backend's own thread, once more on the main queue.
    std::thread([lost = midi.lossHandler()] { lost("client removed"); }).join();
    ASSERT_TRUE(delivered([&] { return midi.isOnFallback(); }));
    midi.platformLost("client removed");
    EXPECT_EQ(fallbacksMade, 1);
    EXPECT_EQ(rebuilt, 1);
    EXPECT_TRUE(midi.isOnFallback());
    EXPECT_EQ(capture.count("the MIDI backend went away (client removed) — going on with the loopback MIDI server"),
              1u);
    ASSERT_NE(midi.service(), first);
    EXPECT_EQ(HVMIDIManager::shared(), midi.service());
    EXPECT_EQ(MIDIIO::MIDIPlatform::shared(), fallback);
    EXPECT_EQ(midi.service()->midiManager()->platform(), fallback);

    // What the clients play now leaves through the fallback's endpoints, and the print hears it.
    server = fallback;
    HVMIDIManager::shared()->sendWithController(7, 65, 0, true);
    ASSERT_TRUE(delivered([&] { return printed() == 2; }));
    EXPECT_TRUE(lastPrinted().ends_with("midi1=B0 07 41")) << lastPrinted();

    // After the orderly end a late loss changes nothing, however it arrives.
    const auto lost = midi.lossHandler();
    midi.stop();
    midi.platformLost("late");
    lost("late");
    delivered([] { return true; });
    EXPECT_EQ(fallbacksMade, 1);
}

}  // namespace
}  // namespace havrel
