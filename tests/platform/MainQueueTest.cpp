#include "platform/MainQueue.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

namespace havrel {
namespace {

using namespace std::chrono_literals;

class MainQueueTest : public ::testing::Test {
protected:
    void SetUp() override { MainQueue::shared().resetForTesting(); }
    void TearDown() override { MainQueue::shared().resetForTesting(); }
};

TEST_F(MainQueueTest, WorkFromManyThreadsRunsOnTheMainThreadInPostingOrderPerPoster) {
    auto& queue = MainQueue::shared();
    constexpr int kThreads = 4;
    constexpr int kPerThread = 2000;
    std::vector<std::vector<int>> seen(kThreads);
    std::atomic<int> offQueue{0};
    int total = 0;  // touched only on the main queue

    std::vector<std::thread> posters;
    for (int t = 0; t < kThreads; ++t) {
        posters.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                queue.post([&, t, i] {
                    if (!queue.isCurrent()) {
                        ++offQueue;
                    }
                    seen[static_cast<std::size_t>(t)].push_back(i);
                    if (++total == kThreads * kPerThread) {
                        queue.stop();
                    }
                });
            }
        });
    }
    // Until this thread runs it, the main queue's thread is the one that made it (the first to
    // ask for it); a poster's is never.
    EXPECT_FALSE(std::async(std::launch::async, [&] { return queue.isCurrent(); }).get());
    queue.run();
    EXPECT_TRUE(queue.isCurrent());
    for (auto& poster : posters) {
        poster.join();
    }
    EXPECT_EQ(offQueue.load(), 0);
    for (const auto& list : seen) {
        ASSERT_EQ(list.size(), static_cast<std::size_t>(kPerThread));
        for (int i = 0; i < kPerThread; ++i) {
            EXPECT_EQ(list[static_cast<std::size_t>(i)], i);
        }
    }
    // run() may be entered again after stop().
    bool again = false;
    queue.post([&] { again = true; queue.stop(); });
    queue.run();
    EXPECT_TRUE(again);
}

TEST_F(MainQueueTest, SteadyClockDelaysRunInDueOrderOnTheQueue) {
    auto& queue = MainQueue::shared();
    std::vector<std::string> order;
    queue.postAfter(30ms, [&] { order.push_back("late"); queue.stop(); });
    queue.postAfter(2ms, [&] { order.push_back("early"); });
    queue.post([&] { order.push_back("now"); });
    EXPECT_FALSE(queue.clock()->isManual());
    queue.run();
    EXPECT_EQ(order, (std::vector<std::string>{"now", "early", "late"}));

    // An item with leeway never runs early, and waits for the wake-up of an item due within
    // its leeway instead of waking the queue by itself.
    const auto start = queue.now();
    MainQueue::Duration lenient{};
    queue.postAfter(20ms, [&] { lenient = queue.now() - start; }, 40ms);
    queue.postAfter(45ms, [&] { queue.stop(); });
    queue.run();
    EXPECT_GE(lenient, 45ms);
}

TEST_F(MainQueueTest, ManualClockRunsDueWorkInVirtualTimeAndWorkItPosts) {
    ManualClockScope scope;
    auto& queue = MainQueue::shared();
    const auto start = queue.now();
    std::vector<std::string> order;
    queue.postAfter(2s, [&] { order.push_back("2s"); });
    queue.postAfter(1s, [&] {
        order.push_back("1s");
        EXPECT_EQ(queue.now() - start, 1s);
        queue.post([&] { order.push_back("posted by 1s"); });
        queue.postAfter(500ms, [&] { order.push_back("1.5s"); });
    });
    queue.postAfter(2s, [&] { order.push_back("2s second"); });
    queue.post([&] { order.push_back("now"); });

    EXPECT_EQ(queue.poll(), 1u);
    EXPECT_EQ(order, std::vector<std::string>{"now"});
    scope.advance(999ms);
    EXPECT_EQ(order.size(), 1u);
    scope.advance(1ms);
    EXPECT_EQ(order, (std::vector<std::string>{"now", "1s", "posted by 1s"}));
    EXPECT_EQ(queue.runFor(5s), 3u);
    EXPECT_EQ(order, (std::vector<std::string>{"now", "1s", "posted by 1s", "1.5s", "2s",
                                               "2s second"}));
    EXPECT_EQ(queue.now() - start, 6s);
}

TEST_F(MainQueueTest, ResetDropsPendingWorkAndLeavesTestMode) {
    bool ran = false;
    {
        ManualClockScope scope;
        MainQueue::shared().post([&] { ran = true; });
        MainQueue::shared().postAfter(1s, [&] { ran = true; });
    }
    EXPECT_EQ(MainQueue::shared().manualClock(), nullptr);
    EXPECT_EQ(MainQueue::shared().poll(), 0u);
    EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace havrel
