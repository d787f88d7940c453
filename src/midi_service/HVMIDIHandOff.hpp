#pragma once
// Hands work from a MIDI receive queue to another queue, the main queue in this system, with a
// bound on what waits there. Received MIDI comes at the sender's pace: a main queue that falls
// behind (or a sender that floods) must not make it pile up. Work past the bound is dropped and
// counted, here and in one count for the whole process, which the status page shows; the first
// drop after work went through again says so in one log line.

#include "platform/WorkQueue.hpp"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace havrel {

class HVMIDIHandOff {
public:
    // Enough for a second of MIDI clock at 300 beats a minute, several times over.
    static constexpr std::size_t kDefaultLimit = 1024;

    explicit HVMIDIHandOff(WorkQueue& target, std::size_t limit = kDefaultLimit);

    // Any thread. False when the work was dropped.
    bool post(std::function<void()> work);

    // Posted and not yet started.
    std::size_t waiting() const { return state_->waiting.load(); }
    std::uint64_t dropped() const { return state_->dropped.load(); }
    // Dropped by every hand-off of the process.
    static std::uint64_t totalDropped();

private:
    struct State {
        std::atomic<std::size_t> waiting{0};
        std::atomic<std::uint64_t> dropped{0};
        std::atomic<bool> dropping{false};
    };

    WorkQueue& target_;
    const std::size_t limit_;
    // Shared with the posted work, which may run after the hand-off is gone.
    const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace havrel
