// The running steps heard: a note sequence played by the internal clock reaching another
// application as note on/off pairs, and what a recording sender sees of controllers, mutes,
// rests, stops, pauses and a tick count that goes back.

#include "central/RecordingSender.hpp"
#include "musical_output/HVStepOutput.hpp"
#include "musical_time/MusicalTimeFixture.hpp"

#include "midi_service/HVMIDIManager.hpp"

namespace havrel {
namespace {

using MIDICore::MIDIEvent;
using MIDIIO::testing::EventLog;
using std::chrono::milliseconds;

HVMIDISequencePtr noteSequence(std::vector<std::uint8_t> notes, HVMIDINoteLength ticks, std::uint8_t velocity) {
    auto sequence = HVMIDISequence::create();
    sequence->setLength(notes.size());
    sequence->setPlayTickLength(ticks);
    sequence->steps.resize(notes.size());
    for (std::size_t i = 0; i < notes.size(); ++i) {
        sequence->steps[i]->ccNumberOrNote = HVCCOrNote::withValue(notes[i]);
        sequence->steps[i]->setValue(velocity);
    }
    sequence->isRunning = true;
    return sequence;
}

class StepOutputTest : public testing::MusicalTimeTest {
protected:
    void TearDown() override {
        output.reset();
        HVMIDISender::setShared(nullptr);
        MusicalTimeTest::TearDown();
    }

    // Ticks as the clock posts them.
    void tick(std::uint64_t count) {
        NotificationCenter::defaultCenter().postOnMainQueue(
            Notification{HVMIDIQNNotification, nullptr, {{HVMIDIQNNotification, count}}});
        clock.advance(milliseconds(0));
    }

    std::shared_ptr<HVStepOutput> output;
};

TEST_F(StepOutputTest, ABarAt120BpmReachesAnotherApplicationAsNotePairsInOrder) {
    auto manager = HVMIDIManager::initSharedMinimalWithConnectionConfiguration(configuration_);
    EventLog log;
    auto app = listener(log);
    makeClockAndPlayer();
    output = HVStepOutput::install(player, musicalClock);
    // Quarter notes: four steps fill one bar of 96 ticks.
    auto sequence = noteSequence({60, 62, 64, 65}, 24, 100);
    sequence->steps[1]->ccNumberOrNote.channel = 2;
    player->addSequence(sequence);

    musicalClock->start();
    // Up to tick 95, the last of the bar (tick k falls at (k − 1) × 20.833 ms); the pause then
    // ends the last note.
    advance(milliseconds(1960), milliseconds(10));
    EXPECT_EQ(musicalClock->midiQN(), 95u);
    EXPECT_EQ(output->soundingNoteCount(), 1u);
    musicalClock->pause();
    advance(milliseconds(1));
    EXPECT_EQ(output->soundingNoteCount(), 0u);
    ASSERT_TRUE(delivered([&] { return log.count() >= 8; }));
    server->flush();

    const auto events = log.snapshot();
    ASSERT_EQ(events.size(), 8u);
    const std::uint8_t notes[] = {60, 62, 64, 65};
    for (std::size_t i = 0; i < 4; ++i) {
        const auto* on = events[2 * i].get<MIDIEvent::NoteOn>();
        const auto* off = events[2 * i + 1].get<MIDIEvent::NoteOff>();
        ASSERT_NE(on, nullptr) << i;
        ASSERT_NE(off, nullptr) << i;
        EXPECT_EQ(on->note.number(), MIDICore::UInt7(notes[i]));
        EXPECT_EQ(off->note.number(), MIDICore::UInt7(notes[i]));
        EXPECT_EQ(on->velocity().midi1Value(), MIDICore::UInt7(100));
        EXPECT_EQ(on->channel, MIDICore::UInt4::fromStorage(i == 1 ? 1 : 0));
        EXPECT_EQ(off->channel, on->channel);
    }
}

TEST_F(StepOutputTest, ControllersMutesRestsStopsAndATickCountThatGoesBack) {
    auto sender = std::make_shared<testing::RecordingSender>();
    HVMIDISender::setShared(sender);
    player = HVSequencePlayer::create();
    output = HVStepOutput::install(player, nullptr);

    // A matrix sequence drives its container: controller 7 on stored channel 3.
    auto matrix = HVMatrixSequence::create();
    matrix->rangeContainer = HVMidiRangeContainer::containerWithChannel(3, 7, false);
    matrix->stepSequence = noteSequence({7, 7}, 6, 0);
    matrix->stepSequence->steps[0]->setValue(10);
    matrix->stepSequence->steps[1]->setValue(90);
    output->playMatrixSequence(*matrix);
    // Notes with a rest (velocity 0) in the middle, steps two ticks long on a 6-tick grid.
    auto notes = noteSequence({48, 50, 52}, 6, 80);
    notes->steps[1]->setValue(0);
    for (auto& step : notes->steps) {
        step->length = 2;
    }
    player->addSequence(notes);
    ASSERT_EQ(player->sequences().size(), 2u);
    // Registering sets the cursors to 0 without a sound: sounding waits for the ticks.
    EXPECT_TRUE(sender->calls.empty());

    // The two sequences move in an order of their own: each one's sends are checked apart.
    auto sent = [&](const char* prefix) {
        std::vector<std::string> result;
        for (const auto& call : sender->calls) {
            if (call.rfind(prefix, 0) == 0 || (prefix[0] == 'N' && call.rfind("O", 0) == 0)) {
                result.push_back(call);
            }
        }
        return result;
    };
    for (std::uint64_t t = 1; t <= 12; ++t) {
        tick(t);
    }
    // Both at position 0 at tick 1, position 1 at tick 6, back to 0 at tick 12.
    EXPECT_EQ(sent("CC"), (std::vector<std::string>{"CC 7 10 ch2 virtual=true", "CC 7 90 ch2 virtual=true",
                                                    "CC 7 10 ch2 virtual=true"}));
    // The note ends two ticks after its grid position began; the rest sounds nothing.
    EXPECT_EQ(sent("N"), (std::vector<std::string>{"On 48 80 ch0 virtual=true", "Off 48 0 ch0 virtual=true",
                                                   "On 52 80 ch0 virtual=true"}));
    sender->calls.clear();

    // MIDI Start: the count goes back to 0 and what sounds ends; the cursor starts afresh.
    tick(1);
    EXPECT_EQ(sent("CC"), (std::vector<std::string>{"CC 7 10 ch2 virtual=true"}));
    EXPECT_EQ(sent("N"), (std::vector<std::string>{"Off 52 0 ch0 virtual=true", "On 48 80 ch0 virtual=true"}));
    sender->calls.clear();

    // Muted: the cursor moves, nothing sounds. Stopped: what sounds ends at the next tick.
    matrix->stepSequence->isMuted = true;
    tick(6);
    EXPECT_EQ(sender->calls, (std::vector<std::string>{"Off 48 0 ch0 virtual=true"}));
    sender->calls.clear();
    tick(12);
    EXPECT_EQ(sender->calls, (std::vector<std::string>{"On 52 80 ch0 virtual=true"}));
    sender->calls.clear();
    notes->isRunning = false;
    tick(13);
    EXPECT_EQ(sender->calls, (std::vector<std::string>{"Off 52 0 ch0 virtual=true"}));
    EXPECT_EQ(output->soundingNoteCount(), 0u);
}

}  // namespace
}  // namespace havrel
