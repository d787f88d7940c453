#pragma once
// Turns the MIDI real-time stream into musical events: a smoothed tempo, song position, a
// running tick count, transport start, stop and continue, and a beat every sixth tick.

#include "MIDICore/MIDIEvent.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <variant>
#include <vector>

namespace havrel {

class HVMIDIClockParser {
public:
    struct Tempo {
        double bpm = 0;
        bool operator==(const Tempo&) const = default;
    };
    struct SongPosition {
        std::uint16_t spp = 0;
        bool operator==(const SongPosition&) const = default;
    };
    struct Quantum {
        std::uint64_t total = 0;
        bool operator==(const Quantum&) const = default;
    };
    struct Start {
        bool operator==(const Start&) const = default;
    };
    struct Stop {
        bool operator==(const Stop&) const = default;
    };
    struct ContinueTransport {
        bool operator==(const ContinueTransport&) const = default;
    };
    struct Beat {
        bool operator==(const Beat&) const = default;
    };
    // In the order tempo, songPosition, quantum, start, stop, continueTransport, beat.
    using Event = std::variant<Tempo, SongPosition, Quantum, Start, Stop, ContinueTransport, Beat>;
    using Emit = std::function<void(const Event&)>;
    // Seconds since the reference date of the wall clock.
    using Now = std::function<double()>;

    static constexpr std::uint64_t ticksPerQuarterNote = 24;
    static constexpr std::uint64_t ticksPerBeatEvent = 6;
    static constexpr std::int64_t bpmSmoothingWindow = 24;

    // The wall clock (system_clock) unless a test gives another.
    explicit HVMIDIClockParser(Emit emit, Now now = nullptr);

    // Song position, timing clock, start, continue and stop are acted on; every other event is
    // passed over.
    void handle(const MIDICore::MIDIEvent& event);

    std::uint64_t clockTickCount() const { return clockTickCount_; }
    const std::vector<double>& recentClockIntervals() const { return recentClockIntervals_; }

private:
    void tick();

    Emit emit_;
    Now now_;
    std::uint64_t clockTickCount_ = 0;
    std::optional<double> lastClockTickTime_;
    std::vector<double> recentClockIntervals_;
};

// Number helpers on positions (x in sixteenth notes unless said otherwise). A result outside
// the signed 32-bit range, or not finite, is a programming fault.
double rounded(double x, int places);
std::int32_t HVBar(double x);
std::int32_t HVBeat(double x);
std::int32_t HVBeatDivision(double x);
struct HVBeatComponents {
    std::int32_t bar = 0;
    std::int32_t beat = 0;
    std::int32_t beatDivision = 0;
    bool operator==(const HVBeatComponents&) const = default;
};
HVBeatComponents beatComponents(double x);
// x in quarter notes: "bar:beat:quarter".
std::string timeString(double x);

}  // namespace havrel
