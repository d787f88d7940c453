#pragma once
// The MIDI service on the loopback server with the main queue on a manual clock, and the
// musical clock and sequence player made fresh for each test: the internal timer's queue is
// made at the first start, so it runs on the same manual clock.

#include "midi_service/MIDIServiceFixture.hpp"

#include "central/HVConnectionTypeConfiguration.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "musical_time/HVClock.hpp"
#include "musical_time/HVSequencePlayer.hpp"
#include "platform/DefaultsStore.hpp"

#include <chrono>
#include <cstdlib>
#include <filesystem>

namespace havrel::testing {

class MusicalTimeTest : public MIDIServiceTest {
protected:
    MusicalTimeTest() {
        char pattern[] = "/tmp/havrel-musical-time-XXXXXX";
        folder_ = ::mkdtemp(pattern);
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder_ / "defaults.json"));
        configuration_->productToSendOut = "Havrel Test";
    }
    void TearDown() override {
        if (musicalClock) {
            musicalClock->pause();
            musicalClock.reset();
        }
        player.reset();
        HVClock::setShared(nullptr);
        HVSequencePlayer::setShared(nullptr);
        if (auto manager = HVMIDIManager::shared()) {
            manager->stopTimers();
        }
        HVMIDIManager::setShared(nullptr);
        HVMIDIManager::setClockForTesting(nullptr);
        clock.advance(std::chrono::milliseconds(0));
        DefaultsStore::setStandard(nullptr);
        std::filesystem::remove_all(folder_);
        MIDIServiceTest::TearDown();
    }

    // The clock and the player, after the MIDI manager (if any) is set up.
    void makeClockAndPlayer() {
        musicalClock = HVClock::create();
        player = HVSequencePlayer::create();
    }

    // Advances virtual time in steps, letting the server's threads deliver between.
    void advance(std::chrono::nanoseconds total, std::chrono::nanoseconds step = std::chrono::milliseconds(1)) {
        for (std::chrono::nanoseconds done{0}; done < total; done += step) {
            server->flush();
            clock.advance(std::min(step, total - done));
        }
        server->flush();
        clock.advance(std::chrono::nanoseconds(0));
    }

    std::filesystem::path folder_;
    std::shared_ptr<HVConnectionTypeConfiguration> configuration_ = HVConnectionTypeConfiguration::create();
    std::shared_ptr<HVClock> musicalClock;
    std::shared_ptr<HVSequencePlayer> player;
};

}  // namespace havrel::testing
