#pragma once
// Counts what went out during the last second and remembers the last message as text. Open to
// any thread: every operation takes the meter's own lock.

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HVCentralThroughputMeter {
public:
    static std::shared_ptr<HVCentralThroughputMeter> sharedInstance();

    void recordController(std::uint64_t controller, std::uint64_t value, std::uint64_t channel);
    void recordNote(std::uint64_t note, std::uint64_t velocity, std::uint64_t channel, bool isNoteOn);
    void recordRaw(const std::string& description);

    // Prunes at the current time and returns what is left of the last second.
    std::int64_t messagesPerSecond();
    // The last recorded text; it does not age out with the window.
    std::optional<std::string> lastMessageDescription();
    void reset();

private:
    // Seconds on the main queue's clock (virtual in tests).
    static double now();
    void prune(double now);

    std::mutex lock_;
    std::vector<double> timestamps_;
    std::optional<std::string> lastDescription_;
};

}  // namespace havrel
