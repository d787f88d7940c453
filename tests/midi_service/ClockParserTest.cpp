#include "midi_service/HVMIDIClockParser.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace havrel {
namespace {

using MIDICore::MIDIEvent;
using Event = HVMIDIClockParser::Event;

struct Harness {
    double now = 1000.0;
    std::vector<Event> events;
    HVMIDIClockParser parser{[this](const Event& e) { events.push_back(e); }, [this] { return now; }};

    void ticks(int count, double interval) {
        for (int i = 0; i < count; ++i) {
            now += interval;
            parser.handle(MIDIEvent::timingClock());
        }
    }
    std::vector<double> tempos() const {
        std::vector<double> result;
        for (const auto& e : events) {
            if (const auto* t = std::get_if<HVMIDIClockParser::Tempo>(&e)) {
                result.push_back(t->bpm);
            }
        }
        return result;
    }
};

TEST(ClockParser, TempoFromTheTwentyFifthTickInTempoQuantumBeatOrder) {
    Harness h;
    h.ticks(30, 0.0208333);
    // Ticks 25 to 30 each give a tempo.
    ASSERT_EQ(h.tempos().size(), 6u);
    EXPECT_EQ(rounded(h.tempos()[0], 1), 120.0);
    // The 30th tick: tempo, then quantum 30, then beat.
    ASSERT_GE(h.events.size(), 3u);
    const auto n = h.events.size();
    EXPECT_TRUE(std::holds_alternative<HVMIDIClockParser::Tempo>(h.events[n - 3]));
    EXPECT_EQ(std::get<HVMIDIClockParser::Quantum>(h.events[n - 2]).total, 30u);
    EXPECT_TRUE(std::holds_alternative<HVMIDIClockParser::Beat>(h.events[n - 1]));
    EXPECT_EQ(h.parser.recentClockIntervals().size(), 24u);

    // A zero or negative interval is dropped from the average; the tick still counts.
    h.now -= 1.0;
    h.parser.handle(MIDIEvent::timingClock());
    EXPECT_EQ(h.parser.clockTickCount(), 31u);
    EXPECT_EQ(h.tempos().size(), 6u);
}

TEST(ClockParser, StartEmptiesTheWindowContinueAndStopResetNothing) {
    Harness h;
    h.ticks(30, 0.02);
    h.parser.handle(MIDIEvent::stop());
    h.parser.handle(MIDIEvent::continue_());
    EXPECT_EQ(h.parser.clockTickCount(), 30u);
    h.events.clear();
    h.parser.handle(MIDIEvent::start());
    EXPECT_TRUE(std::holds_alternative<HVMIDIClockParser::Start>(h.events.back()));
    EXPECT_EQ(h.parser.clockTickCount(), 0u);
    h.ticks(24, 0.02);
    EXPECT_TRUE(h.tempos().empty());
    h.ticks(1, 0.02);
    EXPECT_EQ(h.tempos().size(), 1u);

    // A long pause enters the average as it stands.
    h.now += 10.0;
    h.parser.handle(MIDIEvent::timingClock());
    EXPECT_LT(h.tempos().back(), 10.0);

    h.events.clear();
    h.parser.handle(MIDIEvent::songPositionPointer(MIDICore::UInt14(64)));
    h.parser.handle(MIDIEvent::activeSensing());
    ASSERT_EQ(h.events.size(), 1u);
    EXPECT_EQ(std::get<HVMIDIClockParser::SongPosition>(h.events[0]).spp, 64);
}

TEST(ClockParser, PositionHelpers) {
    EXPECT_EQ(beatComponents(0), (HVBeatComponents{1, 1, 1}));
    EXPECT_EQ(beatComponents(17), (HVBeatComponents{2, 1, 2}));
    EXPECT_EQ(beatComponents(65), (HVBeatComponents{5, 1, 2}));
    EXPECT_EQ(timeString(5.5), "2:2:3");
    EXPECT_EQ(rounded(119.95, 1), 120.0);
    EXPECT_EQ(rounded(-2.25, 1), -2.3);
    EXPECT_DEATH(HVBar(1e12), "");
}

}  // namespace
}  // namespace havrel
