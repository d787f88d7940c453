#include "platform/MainQueue.hpp"
#include "platform/SerialQueue.hpp"
#include "platform/Timer.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace havrel {
namespace {

using namespace std::chrono_literals;

TEST(Timer, RepeatingTimerKeepsItsPeriodInVirtualTime) {
    ManualClockScope scope;
    auto& queue = MainQueue::shared();
    int fires = 0;
    auto timer = Timer::scheduled(queue, 1s, true, [&] { ++fires; });
    scope.advance(999ms);
    EXPECT_EQ(fires, 0);
    scope.advance(4000ms);
    EXPECT_EQ(fires, 4);
    scope.advance(1ms);
    EXPECT_EQ(fires, 5);
    EXPECT_TRUE(timer->isValid());

    // Re-armed with a new period, the timer counts from now.
    timer->rearm(2s);
    scope.advance(1s);
    EXPECT_EQ(fires, 5);
    scope.advance(5s);
    EXPECT_EQ(fires, 8);
    timer->invalidate();
    EXPECT_FALSE(timer->isValid());
    scope.advance(10s);
    EXPECT_EQ(fires, 8);
}

TEST(Timer, OneShotFiresOnceAndCanBeScheduledAgainWithoutAHolder) {
    ManualClockScope scope;
    auto& queue = MainQueue::shared();
    int fires = 0;
    std::weak_ptr<Timer> weak;
    {
        auto timer = Timer::create(queue, 100ms, false, [&] { ++fires; });
        weak = timer;
        EXPECT_FALSE(timer->isValid());
        timer->schedule();
        // Re-scheduling restarts the count instead of adding a second fire.
        scope.advance(60ms);
        timer->schedule();
    }
    // The queue keeps a scheduled timer alive.
    ASSERT_FALSE(weak.expired());
    scope.advance(60ms);
    EXPECT_EQ(fires, 0);
    scope.advance(40ms);
    EXPECT_EQ(fires, 1);
    scope.advance(1s);
    EXPECT_EQ(fires, 1);
    EXPECT_TRUE(weak.expired());

    // A zero initial delay fires on the next turn, not inside schedule().
    auto timer = Timer::create(queue, 1s, false, [&] { ++fires; });
    timer->schedule(0s);
    EXPECT_EQ(fires, 1);
    queue.poll();
    EXPECT_EQ(fires, 2);
    EXPECT_FALSE(timer->isValid());
}

TEST(Timer, PushedBackOneShotFiresOnceAtTheLastDueTimeAndAnEarlierScheduleStillHolds) {
    ManualClockScope scope;
    auto& queue = MainQueue::shared();
    int fires = 0;
    auto timer = Timer::scheduled(queue, 100ms, false, [&] { ++fires; });
    for (int i = 0; i < 50; ++i) {
        scope.advance(10ms);
        timer->schedule();
    }
    // The first due time (100 ms) is long past; the last schedule is due at 600 ms.
    EXPECT_EQ(fires, 0);
    scope.advance(99ms);
    EXPECT_EQ(fires, 0);
    scope.advance(1ms);
    EXPECT_EQ(fires, 1);
    EXPECT_FALSE(timer->isValid());

    // Pushed back and then brought forward: the earlier time wins, and it fires once.
    timer->schedule(500ms);
    timer->schedule(1s);
    timer->schedule(20ms);
    scope.advance(20ms);
    EXPECT_EQ(fires, 2);
    scope.advance(2s);
    EXPECT_EQ(fires, 2);

    // A pushed-back repeating timer keeps its period from the new due time.
    int repeats = 0;
    auto repeating = Timer::scheduled(queue, 100ms, true, [&] { ++repeats; });
    scope.advance(50ms);
    repeating->schedule();
    scope.advance(99ms);
    EXPECT_EQ(repeats, 0);
    scope.advance(1ms);
    EXPECT_EQ(repeats, 1);
    scope.advance(100ms);
    EXPECT_EQ(repeats, 2);
    repeating->invalidate();
}

TEST(Timer, InvalidateOnTheQueueStopsATimerThatIsAlreadyDue) {
    ManualClockScope scope;
    auto& queue = MainQueue::shared();
    int secondFires = 0;
    std::shared_ptr<Timer> second;
    int firstFires = 0;
    auto first = Timer::scheduled(queue, 1s, true, [&] {
        ++firstFires;
        // Both are due at the same instant; the second must not run after this returns.
        second->invalidate();
        EXPECT_FALSE(second->isValid());
    });
    second = Timer::scheduled(queue, 1s, true, [&] { ++secondFires; });
    scope.advance(1s);
    EXPECT_EQ(firstFires, 1);
    EXPECT_EQ(secondFires, 0);

    // A callback may invalidate its own timer.
    int selfFires = 0;
    std::shared_ptr<Timer> self;
    self = Timer::scheduled(queue, 10ms, true, [&] {
        if (++selfFires == 3) {
            self->invalidate();
        }
    });
    scope.advance(1s);
    EXPECT_EQ(selfFires, 3);
    first->invalidate();
}

TEST(Timer, ManualClockDrivesAMillisecondTimerOnASerialQueue) {
    ManualClockScope scope;
    auto queue = SerialQueue::create("com.havrelapps.test.playback");
    std::atomic<int> fires{0};
    std::atomic<int> offQueue{0};
    auto timer = Timer::scheduled(*queue, 1ms, true, [&] {
        if (!queue->isCurrent()) {
            ++offQueue;
        }
        ++fires;
    });
    scope.advance(10ms);
    // advance() returns after the serial queue has run its due work.
    EXPECT_EQ(fires.load(), 10);
    scope.advance(990ms);
    EXPECT_EQ(fires.load(), 1000);
    EXPECT_EQ(offQueue.load(), 0);
    timer->invalidate();
    scope.advance(10ms);
    EXPECT_EQ(fires.load(), 1000);
}

TEST(Timer, InvalidateFromAnotherThreadStopsFurtherCallbacks) {
    auto clock = ManualClock::create();
    auto queue = SerialQueue::create("com.havrelapps.test.race", clock);
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> fires{0};
        auto timer = Timer::scheduled(*queue, 1ms, true, [&] { ++fires; });
        std::atomic<bool> running{true};
        std::thread driver([&] {
            while (running) {
                clock->advance(1ms);
            }
        });
        while (fires.load() < 5) {
            std::this_thread::yield();
        }
        timer->invalidate();
        // A callback that had started may finish; once the queue has passed it, none follows.
        queue->sync([] {});
        const int atInvalidate = fires.load();
        const auto seen = clock->now();
        while (clock->now() - seen < 20ms) {
            std::this_thread::yield();
        }
        running = false;
        driver.join();
        EXPECT_EQ(fires.load(), atInvalidate) << "round " << round;
        EXPECT_FALSE(timer->isValid());
    }
}

TEST(Timer, SteadyClockTimerFiresOnItsSerialQueue) {
    auto queue = SerialQueue::create("com.havrelapps.test.steady", Clock::steady());
    std::promise<bool> fired;
    auto timer = Timer::scheduled(*queue, 1ms, false, [&] { fired.set_value(queue->isCurrent()); });
    EXPECT_TRUE(fired.get_future().get());
    EXPECT_FALSE(timer->isValid());
}

}  // namespace
}  // namespace havrel
