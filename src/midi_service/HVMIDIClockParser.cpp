#include "midi_service/HVMIDIClockParser.hpp"

#include "platform/Assert.hpp"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <numeric>

namespace havrel {

namespace {

double wallClockSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

template <typename Integer>
Integer checkedFloor(double x) {
    HV_ASSERT(std::isfinite(x));
    double f = std::floor(x);
    HV_ASSERT(f >= static_cast<double>(std::numeric_limits<Integer>::min()) &&
              f <= static_cast<double>(std::numeric_limits<Integer>::max()));
    return static_cast<Integer>(f);
}

}  // namespace

HVMIDIClockParser::HVMIDIClockParser(Emit emit, Now now)
    : emit_(std::move(emit)), now_(now ? std::move(now) : Now(wallClockSeconds)) {}

void HVMIDIClockParser::handle(const MIDICore::MIDIEvent& event) {
    using MIDICore::MIDIEvent;
    if (const auto* position = event.get<MIDIEvent::SongPositionPointer>()) {
        emit_(SongPosition{position->midiBeat.storage()});
    } else if (event.get<MIDIEvent::TimingClock>() != nullptr) {
        tick();
    } else if (event.get<MIDIEvent::Start>() != nullptr) {
        clockTickCount_ = 0;
        recentClockIntervals_.clear();
        lastClockTickTime_.reset();
        emit_(Start{});
    } else if (event.get<MIDIEvent::Continue>() != nullptr) {
        emit_(ContinueTransport{});
    } else if (event.get<MIDIEvent::Stop>() != nullptr) {
        emit_(Stop{});
    }
}

void HVMIDIClockParser::tick() {
    const double now = now_();
    if (lastClockTickTime_) {
        const double interval = now - *lastClockTickTime_;
        if (interval > 0) {
            recentClockIntervals_.push_back(interval);
            const auto window = static_cast<std::size_t>(bpmSmoothingWindow);
            if (recentClockIntervals_.size() > window) {
                recentClockIntervals_.erase(recentClockIntervals_.begin(),
                                            recentClockIntervals_.end() - static_cast<std::ptrdiff_t>(window));
            }
            if (recentClockIntervals_.size() == window) {
                const double mean =
                    std::accumulate(recentClockIntervals_.begin(), recentClockIntervals_.end(), 0.0) /
                    static_cast<double>(window);
                emit_(Tempo{60.0 / (mean * static_cast<double>(ticksPerQuarterNote))});
            }
        }
    }
    lastClockTickTime_ = now;
    clockTickCount_ += 1;
    emit_(Quantum{clockTickCount_});
    if (clockTickCount_ % ticksPerBeatEvent == 0) {
        emit_(Beat{});
    }
}

double rounded(double x, int places) {
    const double scale = std::pow(10.0, places);
    return std::round(x * scale) / scale;
}

std::int32_t HVBar(double x) {
    return checkedFloor<std::int32_t>(x * 0.0625) + 1;
}

std::int32_t HVBeat(double x) {
    return checkedFloor<std::int32_t>(std::fmod(x * 0.25, 4)) + 1;
}

std::int32_t HVBeatDivision(double x) {
    return checkedFloor<std::int32_t>(std::fmod(x, 4)) + 1;
}

HVBeatComponents beatComponents(double x) {
    return HVBeatComponents{HVBar(x), HVBeat(x), HVBeatDivision(x)};
}

std::string timeString(double x) {
    return fmt::format("{}:{}:{}", checkedFloor<std::int64_t>(x * 0.25) + 1, checkedFloor<std::int64_t>(std::fmod(x, 4)) + 1,
                       checkedFloor<std::int64_t>(std::fmod(x, 1) * 4) + 1);
}

}  // namespace havrel
