#include "model/HVMidiAxisDataWrapper.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"
#include "sequencing/HVRangeContainerSequence.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace havrel {
namespace {

using std::chrono::milliseconds;

// Every test here forgets the sequence scheduler when it ends (and CTest runs each in a process of
// its own): nothing has made the scheduler when this test starts, and the axis must find the
// glide maker by itself.
class FreshProcessTest : public ::testing::Test {
protected:
    void TearDown() override { HVSequenceManager::resetSharedInstanceForTesting(); }

    ManualClockScope scope_;
};

class SequencingTest : public ::testing::Test {
protected:
    void TearDown() override {
        HVSequenceManager::sharedInstance()->cancelAllSequences();
        HVSequenceManager::resetSharedInstanceForTesting();
        NotificationCenter::defaultCenter().removeObserver(this);
    }

    ManualClockScope scope_;
};

HVMidiRangeContainerPtr fader() {
    return HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 7, false);
}

TEST_F(SequencingTest, LinearGlideStepArithmetic) {
    auto container = fader();
    container->setCurrentRangePosition({0.0}, false, nullptr);
    auto full = HVMIDILinearSequence::sequenceWithRangeContainer(container, nullptr, 0.0, 1.0, 2.0);
    EXPECT_EQ(full->timeSlices.size(), 127u);
    EXPECT_NEAR(full->timeSlices[1]->timePositionInLoop, 2.0 / 127, 1e-12);
    EXPECT_EQ(full->timeSlices.back()->rangePosition, std::vector<double>{1.0});
    EXPECT_EQ(container->sequences().size(), 1u);

    container->setCurrentRangePosition({0.5}, false, nullptr);
    auto half = HVMIDILinearSequence::sequenceWithRangeContainer(container, nullptr, 0.0, 1.0, 2.0);
    EXPECT_LE(half->timeSlices.size(), 64u);
    EXPECT_GE(half->timeSlices.size(), 60u);
    double total = 0;
    for (const auto& slice : half->timeSlices) {
        total += slice->timePositionInLoop;
    }
    EXPECT_NEAR(total, 1.0, 1e-9);

    container->setCurrentRangePosition({0.0}, false, nullptr);
    auto quick = HVMIDILinearSequence::sequenceWithRangeContainer(container, nullptr, 0.0, 1.0, 0.01);
    EXPECT_EQ(quick->timeSlices.size(), 10u);

    // Already at the end: one slice, no delay, at the end.
    container->setCurrentRangePosition({1.0}, false, nullptr);
    auto none = HVMIDILinearSequence::sequenceWithRangeContainer(container, nullptr, 0.0, 1.0, 1.0);
    ASSERT_EQ(none->timeSlices.size(), 1u);
    EXPECT_EQ(none->timeSlices[0]->timePositionInLoop, 0.0);
    EXPECT_EQ(none->timeSlices[0]->rangePosition, std::vector<double>{1.0});

    // Two MIDI values only: one change, whose slice ends carrying the end position.
    auto toggle = HVMidiRangeContainer::containerWithChannel(
        1, 1, false, {HVMidiRangeValue::valueWithRangePosition(0.0, 0), HVMidiRangeValue::valueWithRangePosition(1.0, 1)});
    toggle->transitionBetweenValues = false;
    toggle->setCurrentRangePosition({0.0}, false, nullptr);
    auto flip = HVMIDILinearSequence::sequenceWithRangeContainer(toggle, nullptr, 0.0, 1.0, 1.0);
    ASSERT_EQ(flip->timeSlices.size(), 1u);
    EXPECT_EQ(flip->timeSlices[0]->rangePosition, std::vector<double>{1.0});

    auto lfo = HVMIDILFOSequence::sequenceWithRangeContainer(container, nullptr, 0.0, 1.0, 0.0);
    EXPECT_TRUE(lfo->timeSlices.empty());
    lfo->playWithPlayerCallback([](const HVMIDISequenceTimeslice&) { FAIL(); });
    EXPECT_EQ(lfo->state, HVSequenceStateIdle);
    auto sweep = HVMIDILFOSequence::sequenceWithRangeContainer(container, nullptr, 0.0, 1.0, 200.0);
    EXPECT_GT(sweep->timeSlices.size(), 100u);
    EXPECT_EQ(sweep->timeSlices[0]->timePositionInLoop, 0.0);
    EXPECT_EQ(sweep->timeSlices[1]->timePositionInLoop, 0.001);
}

// One axis with one fader whose top stop is reached by a glide of 0.5 seconds.
struct GlidingFader {
    HVMidiRangeContainerPtr container = HVMidiRangeContainer::containerWithChannel(
        1, 7, false,
        {HVMidiRangeValue::valueWithRangePosition(0.0, 0), HVMidiRangeValue::valueWithRangePosition(1.0, 127, 0.5)});
    HVMidiAxisDataWrapperPtr wrapper = [this] {
        auto axis = HVMidiAxisData::create();
        axis->addRangeContainer(container);
        return HVMidiAxisDataWrapper::midiAxisWrapperWithAxisArray({axis});
    }();
};

TEST_F(SequencingTest, GlideToAStopPlaysInVirtualTime) {
    GlidingFader fader;
    auto& container = fader.container;
    auto& wrapper = fader.wrapper;

    std::vector<HVRangeContainerChange> posted;
    NotificationCenter::defaultCenter().addObserver(this, NotificationRangeContainerDidChangeValue, nullptr,
                                                    [&](const Notification& n) {
                                                        posted.push_back(*n.objectAs<HVRangeContainerChange>());
                                                    });
    wrapper->setCurrentRangePosition(0.2, 0, true);
    scope_.advance(milliseconds(0));
    ASSERT_EQ(posted.size(), 1u);
    posted.clear();

    wrapper->setCurrentRangePosition(1.0, 0, true);
    // The container does not jump: a glide starts from where it is.
    EXPECT_EQ(container->currentRangePosition(), std::vector<double>{0.2});
    ASSERT_EQ(container->sequences().size(), 1u);
    auto glide = container->sequences().front();
    scope_.advance(milliseconds(100));
    // Setting the same target again does not restart it.
    wrapper->setCurrentRangePosition(1.0, 0, true);
    EXPECT_EQ(container->sequences().front(), glide);
    scope_.advance(milliseconds(500));

    ASSERT_GT(posted.size(), 10u);
    EXPECT_TRUE(posted.front().transitionTarget);
    for (std::size_t i = 1; i < posted.size(); ++i) {
        EXPECT_TRUE(posted[i].transitionStep) << i;
    }
    EXPECT_EQ(posted.back().newValue, std::vector<double>{1.0});
    EXPECT_EQ(container->currentRangePosition(), std::vector<double>{1.0});
    EXPECT_TRUE(container->sequences().empty());
    EXPECT_TRUE(HVSequenceManager::sharedInstance()->timerIsPaused());
    // The one-millisecond timer stopped with the glide: idle time passes without a fire.
    const auto manager = HVSequenceManager::sharedInstance();
    EXPECT_EQ(manager->timerStarts(), 1u);
    const auto fires = manager->timerFires();
    EXPECT_GT(fires, 100u);
    scope_.advance(milliseconds(1000));
    EXPECT_LE(manager->timerFires(), fires + 1);

    // A position between stops during a glide stops it and applies at once.
    wrapper->setCurrentRangePosition(0.0, 0, false);
    wrapper->setCurrentRangePosition(1.0, 0, false);
    ASSERT_EQ(container->sequences().size(), 1u);
    scope_.advance(milliseconds(50));
    wrapper->setCurrentRangePosition(0.5, 0, false);
    EXPECT_TRUE(container->sequences().empty());
    EXPECT_EQ(container->currentRangePosition(), std::vector<double>{0.5});
    scope_.advance(milliseconds(500));
    EXPECT_EQ(container->currentRangePosition(), std::vector<double>{0.5});
}

// A recorded gesture replays through the axis setter on the scheduler's thread while the
// client's own positions reach the same setter from another thread. The scheduler's lock makes
// each setter call whole: the axis position and the glide it starts or stops go together, so a
// container never carries two glides, and the client's last position wins once the replay
// stops.
TEST_F(SequencingTest, GestureReplayAndClientPositionsShareTheAxisSetter) {
    GlidingFader fader;
    auto& container = fader.container;
    auto& wrapper = fader.wrapper;
    wrapper->setCurrentRangePosition(0.2, 0, false);

    auto gesture = HVComponentSequence::sequenceWithDataWrapper(wrapper, wrapper->midiAxis().front(), true);
    for (double position : {1.0, 0.3, 0.0, 1.0, 0.6}) {
        gesture->timeSlices.push_back(HVMIDISequenceTimeslice::create(std::vector<double>{position}, 0.001));
    }
    std::weak_ptr<HVMidiAxisDataWrapper> weakWrapper = wrapper;
    gesture->playWithPlayerCallback([weakWrapper](const HVMIDISequenceTimeslice& slice) {
        if (auto target = weakWrapper.lock(); target && slice.rangePosition) {
            target->setCurrentRangePosition(slice.rangePosition->front(), 0, false);
        }
    });

    std::atomic<bool> done{false};
    std::atomic<std::size_t> mostGlides{0};
    std::thread client([&] {
        const double positions[] = {1.0, 0.0, 0.4, 1.0, 1.0, 0.7};
        for (int i = 0; i < 400; ++i) {
            wrapper->setCurrentRangePosition(positions[i % 6], 0, false);
            std::lock_guard lock(HVSequenceManagerLock());
            mostGlides = std::max(mostGlides.load(), container->sequences().size());
        }
        done = true;
    });
    int steps = 0;
    while (!done.load() && steps < 20000) {
        scope_.advance(milliseconds(1));  // the scheduler's timer, on the playback thread
        ++steps;
    }
    client.join();
    gesture->stopPlayback();
    wrapper->setCurrentRangePosition(0.5, 0, false);
    scope_.advance(milliseconds(600));

    EXPECT_LE(mostGlides.load(), 1u);
    EXPECT_EQ(container->currentRangePosition(), std::vector<double>{0.5});
    EXPECT_EQ(wrapper->midiAxis().front()->currentRangePosition(), 0.5);
    EXPECT_TRUE(container->sequences().empty());
    EXPECT_TRUE(HVSequenceManager::sharedInstance()->playingSequences().empty());
    EXPECT_TRUE(HVSequenceManager::sharedInstance()->timerIsPaused());
}

TEST_F(FreshProcessTest, AStopWithATransitionTimeGlidesBeforeAnythingMadeTheScheduler) {
    GlidingFader fader;
    fader.wrapper->setCurrentRangePosition(0.2, 0, false);
    fader.wrapper->setCurrentRangePosition(1.0, 0, false);
    EXPECT_EQ(fader.container->currentRangePosition(), std::vector<double>{0.2});
    ASSERT_EQ(fader.container->sequences().size(), 1u);

    scope_.advance(milliseconds(600));
    EXPECT_EQ(fader.container->currentRangePosition(), std::vector<double>{1.0});
    EXPECT_TRUE(fader.container->sequences().empty());
}

TEST_F(SequencingTest, RecordingKeepsDelaysAndReplaysInALoop) {
    auto wrapper = HVMidiAxisDataWrapper::midiAxisWithNumberOfAxes(1);
    auto sequence = HVComponentSequence::sequenceWithDataWrapper(wrapper, wrapper->midiAxis()[0], true);
    sequence->startRecording();
    EXPECT_EQ(sequence->state, HVSequenceStateRecording);
    sequence->addPosition(std::vector<double>{0.1});
    scope_.advance(milliseconds(500));
    sequence->addPosition(std::vector<double>{0.2});
    scope_.advance(milliseconds(300));
    sequence->addPosition(std::vector<double>{0.3});
    scope_.advance(milliseconds(200));
    sequence->stopRecording();
    ASSERT_EQ(sequence->timeSlices.size(), 4u);
    EXPECT_NEAR(sequence->timeSlices[0]->timePositionInLoop, 0.0, 1e-9);
    EXPECT_NEAR(sequence->timeSlices[1]->timePositionInLoop, 0.5, 1e-9);
    EXPECT_NEAR(sequence->timeSlices[2]->timePositionInLoop, 0.3, 1e-9);
    EXPECT_NEAR(sequence->timeSlices[3]->timePositionInLoop, 0.2, 1e-9);
    EXPECT_FALSE(sequence->timeSlices[3]->rangePosition.has_value());
    EXPECT_TRUE(HVSequenceManager::sharedInstance()->timerIsPaused());

    std::vector<std::pair<double, double>> played;  // time, position
    auto manager = HVSequenceManager::sharedInstance();
    const double start = manager->currentTime();
    sequence->playWithPlayerCallback([&](const HVMIDISequenceTimeslice& slice) {
        played.emplace_back(manager->currentTime() - start, slice.rangePosition->front());
    });
    scope_.advance(milliseconds(2100));
    // 0.0, 0.5, 0.8, then the closing slice at 1.0 plays silently and the loop starts again.
    ASSERT_EQ(played.size(), 7u);
    EXPECT_NEAR(played[1].first - played[0].first, 0.5, 0.0015);
    EXPECT_NEAR(played[2].first - played[1].first, 0.3, 0.0015);
    EXPECT_NEAR(played[3].first - played[0].first, 1.0, 0.0015);
    EXPECT_EQ(played[3].second, 0.1);
    sequence->stopPlayback();
    EXPECT_EQ(sequence->state, HVSequenceStateIdle);
    EXPECT_TRUE(manager->timerIsPaused());

    // Stopping a recording that never started still closes it with a slice.
    auto fresh = HVComponentSequence::sequenceWithDataWrapper(wrapper, wrapper->midiAxis()[0]);
    fresh->stopRecording();
    EXPECT_EQ(fresh->timeSlices.size(), 1u);
}

}  // namespace
}  // namespace havrel
