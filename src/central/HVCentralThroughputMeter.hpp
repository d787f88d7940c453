#pragma once
// Counts what went out during the last second and remembers the last message as text. Open to
// any thread: every operation takes the meter's own lock.

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace havrel {

class HVCentralThroughputMeter {
public:
    static std::shared_ptr<HVCentralThroughputMeter> sharedInstance();

    void recordController(std::uint64_t controller, std::uint64_t value, std::uint64_t channel);
    void recordNote(std::uint64_t note, std::uint64_t velocity, std::uint64_t channel, bool isNoteOn);
    void recordRaw(const std::string& description);
    // The same as recordRaw with "PC <program>" and "Bend <value>", without making the text.
    void recordProgramChange(std::uint64_t program);
    void recordPitchBend(std::uint64_t value);

    // Prunes at the current time and returns what is left of the last second.
    std::int64_t messagesPerSecond();
    // The last recorded text; it does not age out with the window.
    std::optional<std::string> lastMessageDescription();
    void reset();

private:
    // Seconds on the main queue's clock (virtual in tests).
    static double now();
    void prune(double now);

    // The last message as recorded; its text is made when it is read.
    struct LastMessage {
        enum class Kind { none, controller, noteOn, noteOff, programChange, pitchBend, raw } kind = Kind::none;
        std::uint64_t number = 0;
        std::uint64_t value = 0;
        std::string raw;
    };
    void record(LastMessage::Kind kind, std::uint64_t number, std::uint64_t value);

    std::mutex lock_;
    std::deque<double> timestamps_;  // in order of time
    LastMessage last_;
};

}  // namespace havrel
