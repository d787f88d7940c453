// Lateness of the notes the step output sounds against the ideal grid, in real time: the
// internal clock at 120 bpm, the sequence player and the step output on the main queue, as in
// the host, playing a running 16-step row of sixteenth notes. Each note on is stamped as it is
// sent; its ideal time is the deadline of the tick that began its grid position (the clock's
// deadlines lie on start + k × 20.833 ms). Prints p50, p99 and max.
//
// Run: build/default/bench/bench_step_note_lateness [seconds, default 60]
#include "BenchSupport.hpp"

#include "central/HVMIDISender.hpp"
#include "musical_output/HVStepOutput.hpp"
#include "platform/MainQueue.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

using namespace havrel;

// Stamps each note on with the time and the tick count it was sent at.
class StampingSender final : public HVMIDISender {
public:
    struct Stamp {
        Clock::TimePoint at;
        std::uint64_t count;
    };
    StampingSender(std::shared_ptr<HVSequencePlayer> player, std::size_t expected) : player_(std::move(player)) {
        stamps.reserve(expected);
    }
    std::vector<Stamp> stamps;
    void sendWithNoteOn(std::uint8_t, std::uint8_t, std::uint8_t, bool) override {
        stamps.push_back({MainQueue::shared().now(), player_->midiQN()});
    }
    void sendWithController(std::uint8_t, std::uint8_t, std::uint8_t, bool) override {}
    void sendWithNoteOff(std::uint8_t, std::uint8_t, std::uint8_t, bool) override {}
    void sendWithProgramChange(std::uint8_t, std::uint8_t, bool) override {}
    void sendWithPitchBend(std::uint16_t, std::uint8_t, bool) override {}
    std::string description() const override { return "<StampingSender>"; }

private:
    std::shared_ptr<HVSequencePlayer> player_;
};

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 60;
    setLogSink(std::make_shared<bench::DiscardingSink>());
    auto& mainQueue = MainQueue::shared();

    auto clock = HVClock::create();
    // The deadline of every tick, by its count (a late first tick skips deadlines, so counts and
    // deadlines are paired as they happen).
    std::vector<Clock::TimePoint> deadlines(static_cast<std::size_t>(seconds) * 48 + 256);
    std::atomic<std::size_t> ticks{0};
    clock->internalTickObserver = [&](Clock::TimePoint deadline) {
        const auto index = ticks.load();
        if (index < deadlines.size()) {
            deadlines[index] = deadline;
            ticks.store(index + 1);
        }
    };
    auto player = HVSequencePlayer::create();
    auto sender = std::make_shared<StampingSender>(player, static_cast<std::size_t>(seconds) * 8 + 16);
    HVMIDISender::setShared(sender);
    auto output = HVStepOutput::install(player, clock);
    auto sequence = HVMIDISequence::create();
    sequence->setLength(16);
    sequence->setPlayTickLength(6);
    for (std::size_t i = 0; i < 16; ++i) {
        sequence->steps[i]->ccNumberOrNote = HVCCOrNote::withValue(static_cast<std::uint8_t>(48 + i));
        sequence->steps[i]->setValue(100);
    }
    sequence->isRunning = true;
    player->addSequence(sequence);

    clock->start();
    mainQueue.runFor(std::chrono::seconds(seconds));
    clock->pause();
    mainQueue.runFor(std::chrono::milliseconds(50));

    std::vector<double> lateness;
    for (const auto& stamp : sender->stamps) {
        // The tick that began the note's grid position (count 1 for the first).
        const std::uint64_t ideal = std::max<std::uint64_t>(stamp.count / 6 * 6, 1);
        if (ideal <= ticks.load()) {
            lateness.push_back(std::chrono::duration<double, std::micro>(stamp.at - deadlines[ideal - 1]).count());
        }
    }
    std::sort(lateness.begin(), lateness.end());
    std::printf("step output, internal clock at 120 bpm, sixteenth notes for %d s\n", seconds);
    std::printf("note-on lateness against the grid  n=%zu  p50=%.1f us  p99=%.1f us  max=%.1f us\n", lateness.size(),
                bench::percentile(lateness, 0.5), bench::percentile(lateness, 0.99),
                lateness.empty() ? 0.0 : lateness.back());
    output.reset();
    HVMIDISender::setShared(nullptr);
    setLogSink(nullptr);
    return 0;
}
