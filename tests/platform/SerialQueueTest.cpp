#include "platform/SerialQueue.hpp"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace havrel {
namespace {

using namespace std::chrono_literals;

TEST(SerialQueue, RunsWorkInOrderOnItsOwnThread) {
    auto queue = SerialQueue::create("com.havrelapps.test.serial", Clock::steady());
    EXPECT_EQ(queue->label(), "com.havrelapps.test.serial");
    EXPECT_FALSE(queue->isCurrent());

    std::vector<std::vector<int>> seen(3);
    std::vector<std::thread> posters;
    for (int t = 0; t < 3; ++t) {
        posters.emplace_back([&, t] {
            for (int i = 0; i < 1000; ++i) {
                queue->async([&, t, i] { seen[static_cast<std::size_t>(t)].push_back(i); });
            }
        });
    }
    for (auto& poster : posters) {
        poster.join();
    }
    std::thread::id queueThread;
    queue->sync([&] {
        queueThread = std::this_thread::get_id();
        EXPECT_TRUE(queue->isCurrent());
        EXPECT_EQ(WorkQueue::current(), queue.get());
        // sync on itself runs inline instead of waiting for itself.
        bool inner = false;
        queue->sync([&] { inner = true; });
        EXPECT_TRUE(inner);
    });
    EXPECT_NE(queueThread, std::this_thread::get_id());
    for (const auto& list : seen) {
        ASSERT_EQ(list.size(), 1000u);
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(list[static_cast<std::size_t>(i)], i);
        }
    }
    EXPECT_THROW(queue->sync([] { throw std::runtime_error("work failed"); }),
                 std::runtime_error);

    // Delays on the steady clock come in due order.
    std::promise<std::vector<int>> done;
    auto order = std::make_shared<std::vector<int>>();
    queue->asyncAfter(20ms, [&, order] { order->push_back(2); done.set_value(*order); });
    queue->asyncAfter(1ms, [order] { order->push_back(1); });
    EXPECT_EQ(done.get_future().get(), (std::vector<int>{1, 2}));
}

TEST(SerialQueue, ManualClockWaitsForWorkStillRunningAndWhatItPosts) {
    auto clock = ManualClock::create();
    auto first = SerialQueue::create("com.havrelapps.test.first", clock);
    auto second = SerialQueue::create("com.havrelapps.test.second", clock);
    std::vector<std::string> order;  // written by one queue at a time, read after advance
    std::promise<void> started;
    std::promise<void> release;
    auto released = release.get_future().share();
    first->post([&, released] {
        started.set_value();
        released.wait();
        order.push_back("slow");
        second->post([&] {
            order.push_back("posted to second");
            first->postAfter(1s, [&] { order.push_back("1s on first"); });
        });
    });
    started.get_future().wait();
    std::thread releaser([&] {
        std::this_thread::sleep_for(30ms);
        release.set_value();
    });
    // Nothing is due by the clock, but the first queue is busy: advance must wait for it and
    // for what it hands on, and leave the delayed item for later.
    clock->advance(0s);
    releaser.join();
    EXPECT_EQ(order, (std::vector<std::string>{"slow", "posted to second"}));
    clock->advance(1s);
    EXPECT_EQ(order, (std::vector<std::string>{"slow", "posted to second", "1s on first"}));
    // With both queues idle, a further advance runs nothing more.
    clock->advance(5s);
    EXPECT_EQ(order.size(), 3u);
}

TEST(SerialQueue, DestructionDropsPendingWork) {
    auto clock = ManualClock::create();
    auto ran = std::make_shared<int>(0);
    {
        auto queue = SerialQueue::create("com.havrelapps.test.dropped", clock);
        queue->postAfter(1s, [ran] { ++*ran; });
    }
    clock->advance(2s);
    EXPECT_EQ(*ran, 0);
    EXPECT_EQ(ran.use_count(), 1);
}

}  // namespace
}  // namespace havrel
