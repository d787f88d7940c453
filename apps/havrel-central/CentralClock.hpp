#pragma once
// The host's hold on the musical clock. Once MIDI clock has taken the clock over, the clock
// never returns to its own timer; after MIDI clock has stayed away for two seconds the host
// offers to hand the timer back: a new clock replaces the shared one, at the tempo the old one
// held, paused, registered afresh for MIDI clock (which takes it over again should it return).
// The step output follows the new clock; what sounded ends. Main queue.

#include "musical_output/HVStepOutput.hpp"
#include "platform/Clock.hpp"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace havrel {

class CentralClock : public std::enable_shared_from_this<CentralClock> {
public:
    static constexpr std::chrono::seconds kQuietBeforeHandBack{2};

    static std::shared_ptr<CentralClock> create(std::shared_ptr<HVStepOutput> output);
    ~CentralClock();

    // The clock follows MIDI clock and none has come for kQuietBeforeHandBack.
    bool canHandBack() const;
    // Empty on success, else why not.
    std::string handBack();

    explicit CentralClock(std::shared_ptr<HVStepOutput> output) : output_(std::move(output)) {}

private:
    std::shared_ptr<HVStepOutput> output_;
    std::optional<Clock::TimePoint> lastExternalTick_;
};

}  // namespace havrel
