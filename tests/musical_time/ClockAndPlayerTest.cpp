// The musical clock and the sequence player in virtual time: the internal timer on its grid,
// cursors as a function of the tick count, pause and tempo changes, external clock from another
// application taking over, and running sequences that cannot be played left out.

#include "MusicalTimeFixture.hpp"

#include "platform/Log.hpp"

#include <map>

namespace havrel {
namespace {

using MIDICore::MIDIEvent;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Position of a sequence seen at each tick count of the player.
struct CursorLog {
    std::shared_ptr<int> owner = std::make_shared<int>(0);
    std::map<std::uint64_t, std::uint64_t> positions;
    std::size_t calls = 0;

    void follow(const HVMIDISequencePtr& sequence, const std::shared_ptr<HVSequencePlayer>& player) {
        std::weak_ptr<HVSequencePlayer> weak = player;
        sequence->registerForPositionChangeWithRegistrar(owner, [this, weak](HVMIDISequence&, std::uint64_t position) {
            ++calls;
            positions[weak.lock()->midiQN()] = position;
        });
    }
};

HVMIDISequencePtr runningSequence(std::uint64_t length, HVMIDINoteLength ticks) {
    auto sequence = HVMIDISequence::create();
    sequence->setLength(length);
    if (sequence->steps.size() >= length) {
        sequence->setPlayTickLength(ticks);
    }
    sequence->isRunning = true;
    return sequence;
}

class ClockAndPlayerTest : public testing::MusicalTimeTest {};

TEST_F(ClockAndPlayerTest, InternalClockMovesCursorsOnTheGridAndKeepsItsCountWhilePaused) {
    makeClockAndPlayer();
    std::vector<Clock::TimePoint> deadlines;
    musicalClock->internalTickObserver = [&](Clock::TimePoint deadline) { deadlines.push_back(deadline); };
    auto sixteen = runningSequence(16, 6);
    CursorLog log;
    log.follow(sixteen, player);
    player->addSequence(sixteen);
    EXPECT_EQ(log.positions, (std::map<std::uint64_t, std::uint64_t>{{0, 0}}));

    const auto start = clock.clock().now();
    musicalClock->start();
    // The first tick is at once, then one every 60 / (120 × 24) s = 20.833 ms.
    advance(milliseconds(0));
    EXPECT_EQ(musicalClock->midiQN(), 1u);
    advance(std::chrono::microseconds(20833 * 101 + 100));
    EXPECT_EQ(musicalClock->midiQN(), 102u);
    const std::map<std::uint64_t, std::uint64_t> expected = {{5, 0}, {6, 1}, {95, 15}, {96, 0}, {100, 0}, {102, 1}};
    for (const auto& [tick, position] : expected) {
        ASSERT_TRUE(log.positions.contains(tick)) << tick;
        EXPECT_EQ(log.positions[tick], position) << "at tick " << tick;
    }
    // Observers hear every tick, moved or not.
    EXPECT_EQ(log.calls, 103u);

    // A sequence started later joins in phase; one on another grid follows its own; one that is
    // not running keeps its cursor; registering again leaves the cursor alone.
    auto later = runningSequence(16, 6);
    auto coarse = runningSequence(4, 12);
    auto idle = runningSequence(16, 6);
    idle->isRunning = false;
    CursorLog laterLog, coarseLog;
    laterLog.follow(later, player);
    coarseLog.follow(coarse, player);
    player->addSequence(later);
    player->addSequence(coarse);
    player->addSequence(idle);
    idle->setPosition(9);
    later->setPosition(3);
    player->addSequence(later);
    EXPECT_EQ(later->position(), 3u);
    advance(milliseconds(500));
    for (std::uint64_t tick = 103; tick <= musicalClock->midiQN(); ++tick) {
        EXPECT_EQ(laterLog.positions.at(tick), log.positions.at(tick));
        EXPECT_EQ(coarseLog.positions.at(tick), (tick % 48) / 12);
    }
    EXPECT_EQ(idle->position(), 9u);

    // Paused, the count stays; started again, it goes on from there at once.
    musicalClock->pause();
    const auto paused = musicalClock->midiQN();
    advance(seconds(1));
    EXPECT_EQ(musicalClock->midiQN(), paused);
    EXPECT_FALSE(musicalClock->isRunning());
    musicalClock->start();
    advance(milliseconds(0));
    EXPECT_EQ(musicalClock->midiQN(), paused + 1);

    // A new tempo restarts the timer at once at the new rate: at 60 bpm a tick is 41.667 ms.
    musicalClock->setBpm(60);
    advance(milliseconds(0));
    const auto atNewTempo = musicalClock->midiQN();
    EXPECT_EQ(atNewTempo, paused + 2);
    advance(milliseconds(1000));
    EXPECT_EQ(musicalClock->midiQN(), atNewTempo + 24);

    // The grid does not drift: after a minute at 300 bpm the deadline of tick k is exactly
    // start + k × 8.333 ms, to the nanosecond of rounding.
    musicalClock->setBpm(300);
    advance(milliseconds(0));
    const auto fastIndex = deadlines.size() - 1;
    advance(seconds(60), milliseconds(50));
    EXPECT_EQ(deadlines.size() - 1 - fastIndex, 60u * 120u);
    EXPECT_EQ(deadlines.back() - deadlines[fastIndex], seconds(60));
    EXPECT_EQ(deadlines[1] - start, std::chrono::nanoseconds(20833333));
}

TEST_F(ClockAndPlayerTest, RunningSequencesThatCannotBePlayedAreLeftOutWithOneLine) {
    makeClockAndPlayer();
    auto good = runningSequence(16, 6);
    auto empty = runningSequence(0, 6);
    auto noTicks = runningSequence(16, 0);
    auto huge = runningSequence(16, 6);
    huge->setLength(std::numeric_limits<std::uint64_t>::max() / 3);
    for (const auto& sequence : {good, empty, noTicks, huge}) {
        player->addSequence(sequence);
    }
    ScopedLogCapture capture(LogLevel::info);
    musicalClock->start();
    advance(milliseconds(100));
    EXPECT_EQ(capture.count("[HVSequencePlayer] sequence"), 3u);
    EXPECT_EQ(capture.count("left out"), 3u);
    EXPECT_EQ(player->sequences().size(), 1u);
    EXPECT_TRUE(player->sequences().contains(good->identifier));
    EXPECT_EQ(good->position(), (musicalClock->midiQN() % 96) / 6);

    // A notification without an unsigned count does nothing.
    const auto before = player->midiQN();
    NotificationCenter::defaultCenter().post(HVMIDIQNNotification, nullptr, {{HVMIDIQNNotification, -4}});
    NotificationCenter::defaultCenter().post(HVMIDIQNNotification, nullptr, {{"other", 4}});
    EXPECT_EQ(player->midiQN(), before);
}

TEST(SequencePlayer, AnAbsentSequenceIsAProgrammingFault) {
    auto player = HVSequencePlayer::create();
    EXPECT_DEATH(player->addSequence(nullptr), "sequence != nullptr");
}

TEST_F(ClockAndPlayerTest, MIDIClockFromAnotherApplicationTakesOverForGood) {
    // The time the clock parser reads: each tick is sent 20.833 ms after the one before, 120 beats
    // a minute.
    auto wallClock = std::make_shared<std::atomic<double>>(1000.0);
    HVMIDIManager::setClockForTesting([wallClock] { return wallClock->load(); });
    auto manager = HVMIDIManager::initSharedClockTestWithConnectionConfiguration(configuration_);
    makeClockAndPlayer();
    auto sequence = runningSequence(16, 6);
    player->addSequence(sequence);
    auto runningChanges = std::make_shared<std::vector<bool>>();
    musicalClock->addRunningObserver([runningChanges](bool running) { runningChanges->push_back(running); });

    auto other = startedManager("Clock Source");
    other->addOutput("Clock Out", "clock", MIDIIO::MIDIIdentifierPersistence::adHoc());
    ASSERT_TRUE(delivered([&] { return manager->midiManager()->endpoints().outputs.size() == 1; }));
    musicalClock->start();
    advance(seconds(2), milliseconds(10));
    ASSERT_EQ(manager->midiManager()->managedInputConnections().size(), 1u);
    EXPECT_GT(musicalClock->midiQN(), 90u);
    EXPECT_EQ(musicalClock->clockSource(), HVClockSource::internalClock);

    ScopedLogCapture capture;
    auto out = other->managedOutput("clock");
    auto sendTicks = [&](int count) {
        for (int i = 0; i < count; ++i) {
            wallClock->store(wallClock->load() + 0.0208333);
            out->send(MIDIEvent::timingClock());
            server->flush();
        }
    };
    out->send(MIDIEvent::start());
    sendTicks(30);
    advance(milliseconds(1));
    EXPECT_EQ(musicalClock->clockSource(), HVClockSource::externalClock);
    EXPECT_FALSE(musicalClock->hasTimer());
    EXPECT_EQ(musicalClock->midiQN(), 30u);
    EXPECT_EQ(player->midiQN(), 30u);
    EXPECT_EQ(sequence->position(), 5u);
    EXPECT_EQ(manager->tempo(), 120.0);
    EXPECT_EQ(capture.count("tempo 120"), 1u);
    EXPECT_GE(capture.count("position  "), 4u);

    // The internal timer stays cancelled: time passes, the count stays.
    advance(seconds(1), milliseconds(10));
    EXPECT_EQ(musicalClock->midiQN(), 30u);

    // Start sends the count, and the cursors, back to 0.
    out->send(MIDIEvent::start());
    sendTicks(3);
    advance(milliseconds(1));
    EXPECT_EQ(musicalClock->midiQN(), 3u);
    EXPECT_EQ(sequence->position(), 0u);
    // The MIDI manager keeps transport state to itself: Stop does not reach the clock.
    out->send(MIDIEvent::stop());
    advance(milliseconds(1));
    EXPECT_FALSE(manager->isTempoStarted());
    EXPECT_TRUE(musicalClock->isRunning());
    EXPECT_EQ(*runningChanges, std::vector<bool>{true});
}

}  // namespace
}  // namespace havrel
