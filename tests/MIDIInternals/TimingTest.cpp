#include "MIDIInternals/MonotonicTime.hpp"
#include "MIDIInternals/SafeDispatchTimer.hpp"
#include "TestQueues.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

namespace MIDIInternals {
namespace {

using namespace std::chrono_literals;

struct TimerFixture : ::testing::Test {
    std::shared_ptr<ManualQueue> queue = std::make_shared<ManualQueue>();
    int fired = 0;
    std::unique_ptr<SafeDispatchTimer> timer = std::make_unique<SafeDispatchTimer>(
        SafeDispatchTimer::Rate::hertz(10.0), queue, 0ms, [this] { ++fired; });
};

TEST_F(TimerFixture, FiresOncePerPeriodAndStartingTwiceResumesOnce) {
    queue->advance(1s);
    EXPECT_EQ(fired, 0);
    timer->start();
    timer->start();
    EXPECT_TRUE(timer->running());
    queue->advance(0ms);
    EXPECT_EQ(fired, 1);
    queue->advance(1s);
    EXPECT_EQ(fired, 11);
}

TEST_F(TimerFixture, StopHaltsFiringAndStartContinuesAfterAPeriod) {
    timer->start();
    queue->advance(250ms);
    EXPECT_EQ(fired, 3);
    timer->stop();
    timer->stop();
    queue->advance(1s);
    EXPECT_EQ(fired, 3);
    timer->start();
    queue->advance(50ms);
    EXPECT_EQ(fired, 3);
    queue->advance(50ms);
    EXPECT_EQ(fired, 4);
}

TEST_F(TimerFixture, RestartAndRateChangeReschedule) {
    timer->start();
    queue->advance(0ms);
    EXPECT_EQ(fired, 1);
    timer->restart(false);
    queue->advance(99ms);
    EXPECT_EQ(fired, 1);
    queue->advance(1ms);
    EXPECT_EQ(fired, 2);
    timer->setRate(SafeDispatchTimer::Rate::seconds(0.5));
    queue->advance(0ms);
    EXPECT_EQ(fired, 3);
    queue->advance(400ms);
    EXPECT_EQ(fired, 3);
    queue->advance(100ms);
    EXPECT_EQ(fired, 4);
    int replaced = 0;
    timer->setEventHandler([&] { ++replaced; });
    queue->advance(500ms);
    EXPECT_EQ(fired, 4);
    EXPECT_EQ(replaced, 1);
}

TEST_F(TimerFixture, DestructionRunningOrStoppedCancelsWorkAlreadyPosted) {
    timer->start();
    queue->advance(0ms);
    timer->stop();
    timer.reset();
    queue->advance(1s);
    EXPECT_EQ(fired, 1);

    timer = std::make_unique<SafeDispatchTimer>(SafeDispatchTimer::Rate::hertz(10.0), queue, 0ms,
                                                [this] { ++fired; });
    timer->start();
    EXPECT_GT(queue->pendingCount(), 0u);
    timer.reset();
    queue->advance(1s);
    EXPECT_EQ(fired, 1);
}

TEST(Timespec, ArithmeticCarriesAndKeepsNanosecondsInRange) {
    timespec a{5, 100};
    timespec b{3, 200};
    timespec difference = a - b;
    EXPECT_EQ(difference.tv_sec, 1);
    EXPECT_EQ(difference.tv_nsec, 999'999'900);
    timespec sum = timespec{1, 600'000'000} + timespec{2, 500'000'000};
    EXPECT_EQ(sum.tv_sec, 4);
    EXPECT_EQ(sum.tv_nsec, 100'000'000);
    timespec negative = b - a;
    EXPECT_EQ(negative.tv_sec, -2);
    EXPECT_EQ(negative.tv_nsec, 100);

    EXPECT_TRUE(timespecFromSeconds(1.5) == (timespec{1, 500'000'000}));
    EXPECT_TRUE(timespecFromSeconds(-0.25) == (timespec{-1, 750'000'000}));
    EXPECT_TRUE(timespecFromSeconds(3) == (timespec{3, 0}));
    EXPECT_DOUBLE_EQ(doubleValue(timespec{2, 250'000'000}), 2.25);
    EXPECT_TRUE(b < a);
    EXPECT_TRUE(a > b);
    EXPECT_TRUE(a != b);
    EXPECT_FALSE((timespec{1, 5} < timespec{1, 5}));
}

}  // namespace
}  // namespace MIDIInternals
