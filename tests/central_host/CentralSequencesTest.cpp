// What the Central plays on its own: a sequences document on the internal clock, changed on
// disk while it plays, and the arpeggiator fed by a keyboard on "<product> Input".

#include "musical_time/MusicalTimeFixture.hpp"

#include "CentralClock.hpp"
#include "CentralMIDI.hpp"
#include "CentralSequences.hpp"
#include "model/HVMidiRangeContainer.hpp"
#include "platform/Log.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

namespace havrel {
namespace {

using MIDICore::ChanVoice7Bit16BitValue;
using MIDICore::MIDIEvent;
using MIDICore::UInt4;
using MIDICore::UInt7;
using std::chrono::milliseconds;

// Every send with the tick count the player had reached.
class TickStampedSender final : public HVMIDISender {
public:
    explicit TickStampedSender(std::shared_ptr<HVSequencePlayer> player) : player_(std::move(player)) {}
    std::vector<std::string> calls;
    void sendWithController(std::uint8_t controller, std::uint8_t value, std::uint8_t channel, bool) override {
        calls.push_back(fmt::format("{} CC {} {} ch{}", player_->midiQN(), controller, value, channel));
    }
    void sendWithNoteOn(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool) override {
        calls.push_back(fmt::format("{} On {} {} ch{}", player_->midiQN(), note, velocity, channel));
    }
    void sendWithNoteOff(std::uint8_t note, std::uint8_t, std::uint8_t channel, bool) override {
        calls.push_back(fmt::format("{} Off {} ch{}", player_->midiQN(), note, channel));
    }
    void sendWithProgramChange(std::uint8_t, std::uint8_t, bool) override {}
    void sendWithPitchBend(std::uint16_t, std::uint8_t, bool) override {}
    std::string description() const override { return "<TickStampedSender>"; }

private:
    std::shared_ptr<HVSequencePlayer> player_;
};

// A bar of four quarter-note steps driving the container: notes an eighth long, or controller values.
Dictionary matrixEntry(std::shared_ptr<HVMidiRangeContainer> container, std::vector<int> values, int velocity) {
    Dictionary steps = Dictionary::array();
    for (int value : values) {
        steps.push_back({{"ccNumberOrNote", container->signalType == HVSignalTypeNote ? value : 7},
                         {"value", container->signalType == HVSignalTypeNote ? velocity : value},
                         {"length", 12}});
    }
    return {{"rangeContainer", container->dictionary()},
            {"stepSequence", {{"playTickLength", 24}, {"length", values.size()}, {"steps", steps}}}};
}

class CentralSequencesTest : public testing::MusicalTimeTest {
protected:
    void TearDown() override {
        sequences.reset();
        output.reset();
        HVMIDISender::setShared(nullptr);
        MusicalTimeTest::TearDown();
    }

    void write(const std::string& text) {
        std::ofstream(folder_.path() / CentralSequences::kFileName, std::ios::trunc) << text;
    }
    // Lets the folder watcher's event reach the main queue (real time: the kernel tells it).
    template <class Condition>
    bool heard(Condition condition) {
        for (int i = 0; i < 200 && !condition(); ++i) {
            MainQueue::shared().poll();
            std::this_thread::sleep_for(milliseconds(5));
        }
        return condition();
    }
    std::shared_ptr<CentralSequences> startSequences(const std::string& inputName = "Havrel Test Input") {
        output = HVStepOutput::install(player, musicalClock);
        return CentralSequences::start({folder_.path() / CentralSequences::kFileName, inputName, player, output, true, nullptr});
    }

    std::shared_ptr<HVStepOutput> output;
    std::shared_ptr<CentralSequences> sequences;
};

TEST_F(CentralSequencesTest, ADocumentPlaysOnTheGridAndAnEditOnDiskTakesOverAtTheNextStepUnlessItIsBroken) {
    makeClockAndPlayer();
    auto sender = std::make_shared<TickStampedSender>(player);
    HVMIDISender::setShared(sender);
    const auto notes = HVMidiRangeContainer::containerWithChannel(1, 0, true);
    const auto volume = HVMidiRangeContainer::containerWithChannel(2, 7, false);
    Dictionary document{{"sequences", {matrixEntry(notes, {60, 62, 64, 65}, 100), matrixEntry(volume, {0, 40, 80, 127}, 0)}}};
    write(document.dump());
    sequences = startSequences();
    ASSERT_EQ(sequences->sequences().size(), 2u);

    // Tick k falls at (k − 1) × 20.833 ms: up to tick 95, the last of the bar.
    musicalClock->start();
    advance(milliseconds(1960), milliseconds(10));
    ASSERT_EQ(player->midiQN(), 95u);
    std::vector<std::string> notesSent;
    std::vector<std::string> controllersSent;
    for (const auto& call : sender->calls) {
        (call.find(" CC ") != std::string::npos ? controllersSent : notesSent).push_back(call);
    }
    EXPECT_EQ(notesSent, (std::vector<std::string>{"1 On 60 100 ch0", "12 Off 60 ch0", "24 On 62 100 ch0", "36 Off 62 ch0",
                                                   "48 On 64 100 ch0", "60 Off 64 ch0", "72 On 65 100 ch0", "84 Off 65 ch0"}));
    EXPECT_EQ(controllersSent,
              (std::vector<std::string>{"1 CC 7 0 ch1", "24 CC 7 40 ch1", "48 CC 7 80 ch1", "72 CC 7 127 ch1"}));

    // New notes on disk while the first step of the next bar sounds: they are heard from the
    // next step on, and the note already sounding ends as it was to.
    advance(milliseconds(125), milliseconds(10));  // to tick 101
    sender->calls.clear();
    document["sequences"][0] = matrixEntry(notes, {67, 69, 71, 72}, 90);
    document["sequences"][1]["isRunning"] = false;
    write(document.dump());
    ASSERT_TRUE(heard([&] { return !sequences->document().sequences[1].isRunning; }));
    advance(milliseconds(500), milliseconds(10));  // to tick 125
    EXPECT_EQ(sender->calls, (std::vector<std::string>{"108 Off 60 ch0", "120 On 69 90 ch0"}));

    // A broken document: one line, and the edit before it plays on.
    ScopedLogCapture capture(LogLevel::info);
    sender->calls.clear();
    write(R"({"sequences": [{"stepSequence": {"playTickLength": 0}}]})");
    ASSERT_TRUE(heard([&] { return capture.count("refused") > 0; }));
    write("{\"sequences\": [");
    ASSERT_TRUE(heard([&] { return capture.count("refused") > 1; }));
    EXPECT_EQ(capture.lines().size(), 2u);
    EXPECT_TRUE(capture.contains("sequence 1: \"playTickLength\" is 0"));
    advance(milliseconds(500), milliseconds(10));  // to tick 149
    EXPECT_EQ(sender->calls, (std::vector<std::string>{"132 Off 69 ch0", "144 On 71 90 ch0"}));
}

TEST_F(CentralSequencesTest, APageEditIsCheckedPlayedAndWrittenBackWhole) {
    makeClockAndPlayer();
    auto sender = std::make_shared<TickStampedSender>(player);
    HVMIDISender::setShared(sender);
    const auto notes = HVMidiRangeContainer::containerWithChannel(1, 0, true);
    write(Dictionary{{"sequences", {matrixEntry(notes, {60, 62, 64, 65}, 100)}}}.dump());
    sequences = startSequences();

    // Refused edits change nothing, on disk or in play.
    EXPECT_EQ(sequences->edit({{"action", "setStep"}, {"sequence", 1}, {"step", 0}, {"value", 0}}),
              "setStep needs \"sequence\" (one of the 1 sequences, counted from 0)");
    EXPECT_EQ(sequences->edit({{"action", "setStep"}, {"sequence", 0}, {"step", 1}, {"note", 200}}),
              "\"note\" must be 0 to 127");
    EXPECT_EQ(sequences->edit({{"action", "setArpeggiator"}, {"settings", {{"octaves", 12}}}}),
              "arpeggiator: \"octaves\" 12 is out of range for notes from a keyboard (at most 11)");
    // Step 1 silenced, step 2 another note, the row cut to three steps.
    ASSERT_EQ(sequences->edit({{"action", "setStep"}, {"sequence", 0}, {"step", 1}, {"value", 0}}), "");
    ASSERT_EQ(sequences->edit({{"action", "setStep"}, {"sequence", 0}, {"step", 2}, {"note", 67}}), "");
    ASSERT_EQ(sequences->edit({{"action", "setLength"}, {"sequence", 0}, {"length", 3}}), "");
    musicalClock->start();
    advance(milliseconds(1500), milliseconds(10));  // to tick 73
    EXPECT_EQ(sender->calls, (std::vector<std::string>{"1 On 60 100 ch0", "12 Off 60 ch0", "48 On 67 100 ch0",
                                                       "60 Off 67 ch0", "72 On 60 100 ch0"}));
    std::ifstream file(folder_.path() / CentralSequences::kFileName);
    const auto onDisk = Dictionary::parse(file);
    const auto& steps = onDisk["sequences"][0]["stepSequence"]["steps"];
    ASSERT_EQ(steps.size(), 3u);
    EXPECT_EQ(steps[1]["value"], 0);
    EXPECT_EQ(steps[2]["ccNumberOrNote"], 67);
    // The temporary file became the document: none is left beside it.
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
        EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
    }
}

TEST_F(CentralSequencesTest, AKeyboardOnTheInputPlaysTheArpeggioUntilReleasedAndStopEndsItsNote) {
    // The arpeggio: up over two octaves, sixteenths, each note half a sixteenth, on channel 3.
    write(R"({"arpeggiator": {"style": 0, "octaves": 2, "length": 6, "noteDurationInPercentageFromLength": 0.5,
              "channel": 3, "input": "Havrel Test Input"}})");
    CentralMIDI::Options midiOptions;
    midiOptions.configuration = configuration_;
    CentralMIDI midi(std::move(midiOptions));
    makeClockAndPlayer();
    auto sender = std::make_shared<TickStampedSender>(player);
    HVMIDISender::setShared(sender);
    sequences = startSequences();
    midi.setReceivedEventsObserver(sequences->receivedEventsObserver());
    // The one input offered is the Central's own.
    const std::string other = R"({"arpeggiator": {"input": "Other Input"}})";
    EXPECT_EQ(std::get<std::string>(HVSequencesDocument::read(
                  ByteView(reinterpret_cast<const std::uint8_t*>(other.data()), other.size()), "Havrel Test Input")),
              "arpeggiator: \"input\" \"Other Input\" is not an input of this Central (it offers \"Havrel Test Input\")");

    delivered([] { return true; });
    auto keyboard = startedManager("Keyboard");
    keyboard->addOutputConnection(
        MIDIIO::MIDIOutputConnectionMode::inputs({MIDIIO::MIDIEndpointIdentity::name("Havrel Test Input")}), "keys", {});
    auto keys = keyboard->managedOutputConnection("keys");
    ASSERT_EQ(keys->endpoints().size(), 1u);
    auto play = [&](std::vector<MIDIEvent> events) {
        keys->send(events);
        delivered([] { return true; });
    };

    musicalClock->start();
    advance(milliseconds(10));  // tick 1
    const auto velocity = ChanVoice7Bit16BitValue::midi1(UInt7(90));
    play({MIDIEvent::noteOn(UInt7(67), velocity, UInt4(0)), MIDIEvent::noteOn(UInt7(60), velocity, UInt4(0)),
          MIDIEvent::noteOn(UInt7(64), velocity, UInt4(0))});
    EXPECT_EQ(sequences->heldNotes(), (std::vector<std::uint8_t>{67, 60, 64}));
    // Ticks 2 to 37: the arpeggio joins the grid at once (its note ends as its grid position
    // would), then one note each six ticks, all six, and position 0 again at tick 36.
    advance(milliseconds(750), milliseconds(5));
    ASSERT_EQ(player->midiQN(), 37u);
    EXPECT_EQ(sender->calls,
              (std::vector<std::string>{"2 On 60 90 ch2", "3 Off 60 ch2", "6 On 64 90 ch2", "9 Off 64 ch2", "12 On 67 90 ch2", "15 Off 67 ch2",
                                        "18 On 72 90 ch2", "21 Off 72 ch2", "24 On 76 90 ch2", "27 Off 76 ch2",
                                        "30 On 79 90 ch2", "33 Off 79 ch2", "36 On 60 90 ch2"}));

    // MIDI Stop from the keyboard's application ends the note at once, and nothing sounds until
    // Continue; releasing every key then stops the arpeggio.
    sender->calls.clear();
    play({MIDIEvent::stop()});
    EXPECT_EQ(sender->calls, (std::vector<std::string>{"37 Off 60 ch2"}));
    advance(milliseconds(250), milliseconds(5));
    EXPECT_EQ(sender->calls.size(), 1u);
    play({MIDIEvent::continue_()});
    advance(milliseconds(125), milliseconds(5));  // to tick 55: the step of tick 54
    EXPECT_EQ(sender->calls.back(), "54 On 72 90 ch2");
    play({MIDIEvent::noteOff(UInt7(60), velocity, UInt4(0)), MIDIEvent::noteOff(UInt7(64), velocity, UInt4(0)),
          MIDIEvent::noteOn(UInt7(67), ChanVoice7Bit16BitValue::midi1(UInt7(0)), UInt4(0))});
    EXPECT_TRUE(sequences->heldNotes().empty());
    advance(milliseconds(250), milliseconds(5));
    EXPECT_EQ(sender->calls.back(), "55 Off 72 ch2");
    EXPECT_EQ(output->soundingNoteCount(), 0u);
    midi.stop();
}

TEST_F(CentralSequencesTest, TheClockIsHandedBackToItsTimerTwoSecondsAfterMIDIClockStops) {
    auto wallClock = std::make_shared<std::atomic<double>>(1000.0);
    HVMIDIManager::setClockForTesting([wallClock] { return wallClock->load(); });
    auto manager = HVMIDIManager::initSharedClockTestWithConnectionConfiguration(configuration_);
    makeClockAndPlayer();
    HVClock::setShared(musicalClock);
    musicalClock->setBpm(132);
    output = HVStepOutput::install(player, musicalClock);
    auto central = CentralClock::create(output);
    EXPECT_EQ(central->handBack(), "the clock already runs on its own timer");

    auto other = startedManager("Clock Source");
    other->addOutput("Clock Out", "clock", MIDIIO::MIDIIdentifierPersistence::adHoc());
    advance(std::chrono::milliseconds(1100));
    ASSERT_EQ(manager->midiManager()->managedInputConnections().size(), 1u);
    auto tick = [&] {
        other->managedOutput("clock")->send(MIDIEvent::timingClock());
        delivered([] { return true; });
    };
    tick();
    ASSERT_EQ(musicalClock->clockSource(), HVClockSource::externalClock);
    advance(std::chrono::milliseconds(1900));
    EXPECT_FALSE(central->canHandBack());
    EXPECT_EQ(central->handBack(), "MIDI clock still arrives; the clock follows it");
    advance(std::chrono::milliseconds(100));
    ASSERT_TRUE(central->canHandBack());
    ASSERT_EQ(central->handBack(), "");

    // A new clock on its own timer, at the old tempo, paused; MIDI clock takes it over again.
    const auto fresh = HVClock::shared();
    ASSERT_NE(fresh, musicalClock);
    EXPECT_EQ(fresh->clockSource(), HVClockSource::internalClock);
    EXPECT_EQ(fresh->bpm(), 132.0);
    EXPECT_FALSE(fresh->isRunning());
    EXPECT_FALSE(central->canHandBack());
    fresh->start();
    advance(std::chrono::milliseconds(100));
    EXPECT_GT(fresh->midiQN(), 0u);
    tick();
    EXPECT_EQ(fresh->clockSource(), HVClockSource::externalClock);
    EXPECT_FALSE(fresh->hasTimer());
}

}  // namespace
}  // namespace havrel
