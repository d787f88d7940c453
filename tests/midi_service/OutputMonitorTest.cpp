// The MIDI print: the line of each kind of event, and a monitor hearing an output like any
// other application.

#include "MIDIServiceFixture.hpp"

#include "midi_service/HVMIDIOutputMonitor.hpp"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

namespace havrel {
namespace {

using MIDICore::ChanVoice14Bit32BitValue;
using MIDICore::ChanVoice7Bit16BitValue;
using MIDICore::ChanVoice7Bit32BitValue;
using MIDICore::MIDIEvent;
using MIDICore::UInt4;
using MIDICore::UInt7;

TEST(OutputMonitorLineTest, WordsAsSentAtMIDI2AndTheMIDI1BytesOfTheSameEvent) {
    const auto cc = MIDIEvent::cc(UInt7(7), ChanVoice7Bit32BitValue::midi1(UInt7(64)), UInt4(0));
    EXPECT_EQ(HVMIDIOutputMonitor::lineForEvent("Havrel Output", cc),
              "midi-out \"Havrel Output\" ump=40B00700 80000000 midi1=B0 07 40");
    const auto on = MIDIEvent::noteOn(UInt7(60), ChanVoice7Bit16BitValue::midi1(UInt7(127)), UInt4(1));
    EXPECT_EQ(HVMIDIOutputMonitor::lineForEvent("X", on), "midi-out \"X\" ump=40913C00 FFFF0000 midi1=91 3C 7F");
    const auto pc = MIDIEvent::programChange(UInt7(5), UInt4(2));
    EXPECT_EQ(HVMIDIOutputMonitor::lineForEvent("X", pc), "midi-out \"X\" ump=40C20000 05000000 midi1=C2 05");
    // An event that exists only in MIDI 2.0 has nothing after "midi1=".
    const auto perNote = MIDIEvent::noteManagement(MIDICore::MIDINote(UInt7(60)), {}, UInt4(0));
    const std::string line = HVMIDIOutputMonitor::lineForEvent("X", perNote);
    EXPECT_TRUE(line.ends_with(" midi1=")) << line;
}

class OutputMonitorTest : public havrel::testing::MIDIServiceTest {};

TEST_F(OutputMonitorTest, HearsWhatLeavesThroughTheNamedOutput) {
    std::mutex mutex;
    std::vector<std::string> lines;
    auto app = startedManager("Central");
    app->addOutput("Havrel Output", "out", MIDIIO::MIDIIdentifierPersistence::adHoc());
    app->addOutput("Other Output", "other", MIDIIO::MIDIIdentifierPersistence::adHoc());
    auto monitor = HVMIDIOutputMonitor::start("monitor", "Havrel Output", [&](const std::string& line) {
        std::lock_guard lock(mutex);
        lines.push_back(line);
    });
    ASSERT_NE(monitor, nullptr);
    app->managedOutput("other")->send(MIDIEvent::cc(UInt7(1), ChanVoice7Bit32BitValue::midi1(UInt7(1)), UInt4(0)));
    app->managedOutput("out")->send(MIDIEvent::cc(UInt7(7), ChanVoice7Bit32BitValue::midi1(UInt7(64)), UInt4(0)));
    app->managedOutput("out")->send(
        MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(MIDICore::UInt14::fromStorage(8192)), UInt4(3)));
    ASSERT_TRUE(delivered([&] {
        std::lock_guard lock(mutex);
        return lines.size() >= 2;
    }));
    server->flush();
    std::lock_guard lock(mutex);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "midi-out \"Havrel Output\" ump=40B00700 80000000 midi1=B0 07 40");
    EXPECT_TRUE(lines[1].starts_with("midi-out \"Havrel Output\" ump=40E30000 80000000 midi1=E3 00 40")) << lines[1];
}

}  // namespace
}  // namespace havrel
