#pragma once
// A queue that runs only when its owner says so, on the owner's thread, by a clock that moves
// only when told: poll() runs what is due now, advance(d) moves the clock on by d and runs what
// falls due on the way, in due order, including what that work posts. For hosts without an event
// loop of their own and for tests, which then need no sleeping for delayed work.
//
// Its thread is the one that made it or last ran it: isCurrent() is true there, inside work and
// out, so that work meant for this queue and started on that thread runs in place. Any thread
// may post.

#include "MIDIInternals/DispatchQueue.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace MIDIInternals {

class ManualQueue final : public DispatchQueue {
public:
    explicit ManualQueue(std::string label = "manual");

    void async(Work work) override { asyncAfter(Duration::zero(), std::move(work)); }
    void asyncAfter(Duration delay, Work work) override;
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }

    // Runs everything due by the clock now; returns how many items ran.
    std::size_t poll();
    // Moves the clock on, running everything that falls due on the way; returns how many ran.
    std::size_t advance(Duration by);
    // The time of the queue's clock since it was made.
    Duration now() const;
    std::size_t pendingCount() const;

private:
    std::size_t runUntil(Duration until);

    const std::string label_;
    mutable std::mutex mutex_;
    std::thread::id thread_;
    Duration now_{};
    std::uint64_t sequence_ = 0;
    std::map<std::pair<Duration, std::uint64_t>, Work> pending_;
};

}  // namespace MIDIInternals
