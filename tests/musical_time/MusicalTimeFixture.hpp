#pragma once
// The MIDI service on the loopback server with the main queue on a manual clock, and the
// musical clock and sequence player made fresh for each test: the internal timer's queue is
// made at the first start, so it runs on the same manual clock.

#include "midi_service/MIDIServiceFixture.hpp"

#include "musical_time/HVClock.hpp"
#include "musical_time/HVSequencePlayer.hpp"

#include <algorithm>
#include <chrono>

namespace havrel::testing {

class MusicalTimeTest : public HVMIDIServiceTest {
protected:
    void TearDown() override {
        if (musicalClock) {
            musicalClock->pause();
            musicalClock.reset();
        }
        player.reset();
        HVClock::setShared(nullptr);
        HVSequencePlayer::setShared(nullptr);
        HVMIDIServiceTest::TearDown();
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

    std::shared_ptr<HVClock> musicalClock;
    std::shared_ptr<HVSequencePlayer> player;
};

}  // namespace havrel::testing
