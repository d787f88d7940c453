// Lateness of the internal musical clock against its ideal grid, and of glide steps on the
// one-millisecond scheduler during the same run, in real time.
//
// The clock runs at 120 bpm (a tick every 20.833 ms) with the sequence player moving a running
// 16-step sequence on the main queue, as in the host. Meanwhile a glide of 10 ms steps repeats on
// the gesture scheduler. Tick lateness: when the tick ran minus start + k × period. Glide step
// lateness: when the step ran minus the time its delay says. Prints p50, p99 and max of each, and
// whether the clock thread got real-time priority.
//
// Run: build/default/bench/bench_musical_clock_lateness [seconds, default 60]
#include "BenchSupport.hpp"

#include "musical_time/HVClock.hpp"
#include "musical_time/HVSequencePlayer.hpp"
#include "platform/MainQueue.hpp"
#include "sequencing/HVSequence.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using namespace havrel;

// Keeps the lines for the report, drops nothing.
class KeepingSink final : public LogSink {
public:
    void write(std::string_view line) override {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
    }
    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

void report(const char* what, std::vector<double> sample) {
    std::sort(sample.begin(), sample.end());
    std::printf("%-28s n=%zu  p50=%.1f us  p99=%.1f us  max=%.1f us\n", what, sample.size(),
                bench::percentile(sample, 0.5), bench::percentile(sample, 0.99), sample.empty() ? 0.0 : sample.back());
}

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 60;
    auto sink = std::make_shared<KeepingSink>();
    setLogSink(sink);
    auto& mainQueue = MainQueue::shared();

    // The clock: each tick's lateness is recorded on its own thread.
    std::vector<double> tickLateness;
    tickLateness.reserve(static_cast<std::size_t>(seconds) * 48 + 64);
    auto clock = HVClock::create();
    clock->internalTickObserver = [&tickLateness, &mainQueue](Clock::TimePoint deadline) {
        const auto late = mainQueue.now() - deadline;
        tickLateness.push_back(std::chrono::duration<double, std::micro>(late).count());
    };
    auto player = HVSequencePlayer::create();
    auto sequence = HVMIDISequence::create();
    sequence->setLength(16);
    sequence->setPlayTickLength(6);
    sequence->isRunning = true;
    player->addSequence(sequence);

    // A glide on the gesture scheduler: 100 steps 10 ms apart, repeating.
    constexpr double kStep = 0.010;
    auto glide = std::make_shared<HVSequence>();
    glide->autoRepeats = true;
    for (int i = 0; i < 100; ++i) {
        glide->timeSlices.push_back(HVMIDISequenceTimeslice::create(std::vector<double>{i / 99.0}, kStep));
    }
    std::vector<double> glideLateness;
    glideLateness.reserve(static_cast<std::size_t>(seconds) * 100 + 64);
    auto scheduler = HVSequenceManager::sharedInstance();
    double glideStart = 0;
    std::uint64_t played = 0;
    glide->playWithPlayerCallback([&](const HVMIDISequenceTimeslice&) {
        ++played;
        const double due = glideStart + static_cast<double>(played) * kStep;
        glideLateness.push_back((scheduler->currentTime() - due) * 1e6);
    });
    glideStart = glide->previousPlayedSliceTime;

    clock->start();
    mainQueue.runFor(std::chrono::seconds(seconds));
    clock->pause();
    glide->stopPlayback();
    mainQueue.runFor(std::chrono::milliseconds(50));

    std::printf("internal clock at 120 bpm and a 10 ms glide for %d s\n", seconds);
    report("clock tick lateness", tickLateness);
    report("glide step lateness", glideLateness);
    std::printf("ticks %llu (ideal %d), cursor moves seen by the player at tick %llu\n",
                static_cast<unsigned long long>(clock->midiQN()), seconds * 48 + 1,
                static_cast<unsigned long long>(player->midiQN()));
    bool refused = false;
    for (const auto& line : sink->lines()) {
        if (line.find("[HVClock]") != std::string::npos) {
            std::printf("%s\n", line.c_str());
            refused = true;
        }
    }
    if (!refused) {
        std::printf("clock thread at real-time priority\n");
    }
    setLogSink(nullptr);
    HVSequenceManager::resetSharedInstanceForTesting();
    return 0;
}
