#pragma once
// The marker of the last connection that the registry leaves for the host: the date, as
// ISO-8601 text in UTC, under "com.havrelapps.handoff.lastConnectedAt" in the defaults store.
// Connections may come fast (a client can reconnect in a loop), and the store waits for the
// disk on each write, so the marker is written at most once a second, always with the date of
// the latest connection, and never on the main queue. Main queue.

#include "platform/WorkQueue.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace havrel {

class SerialQueue;

class HVHandoffMarker : public std::enable_shared_from_this<HVHandoffMarker> {
public:
    static constexpr std::chrono::seconds kMinimumInterval{1};

    static std::shared_ptr<HVHandoffMarker> create();
    HVHandoffMarker();
    // A write still waiting for its second is made now, and the writes under way are finished,
    // so the marker of the last connection survives the program's end.
    ~HVHandoffMarker();

    // Marks a connection now: written at once, or a second after the previous write.
    void markConnection();
    // The writes made so far.
    std::uint64_t writeCount() const { return *writes_; }

private:
    void writeNow();

    std::shared_ptr<SerialQueue> queue_;
    std::optional<WorkQueue::TimePoint> lastWrite_;
    bool writePending_ = false;
    std::string date_;
    // Counted on the writing queue, which may outlive this object.
    std::shared_ptr<std::atomic<std::uint64_t>> writes_ = std::make_shared<std::atomic<std::uint64_t>>(0);
};

}  // namespace havrel
