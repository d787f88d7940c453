// The library's own queues: the standard serial queue, the manual queue, queues that share a
// target, and the factory that the host may replace.

#include "MIDIInternals/DispatchSync.hpp"
#include "MIDIInternals/ManualQueue.hpp"
#include "MIDIInternals/SerialQueueFactory.hpp"
#include "MIDIInternals/StandardSerialQueue.hpp"
#include "MIDIInternals/TargetQueue.hpp"
#include "TestQueues.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace MIDIInternals {
namespace {

using namespace std::chrono_literals;

TEST(StandardSerialQueue, RunsInPostingOrderAndDelayedWorkByDueTime) {
    auto queue = StandardSerialQueue::create("standard");
    std::vector<int> order;  // touched on the queue only
    std::promise<void> done;
    queue->asyncAfter(20ms, [&] {
        order.push_back(3);
        done.set_value();
    });
    queue->asyncAfter(5ms, [&] { order.push_back(2); });
    queue->async([&] { order.push_back(1); });
    done.get_future().wait();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_FALSE(queue->isCurrent());
    EXPECT_TRUE(syncOn(*queue, [&] { return queue->isCurrent(); }));
    EXPECT_EQ(queue->label(), "standard");
}

TEST(ManualQueue, RunsOnlyWhenAdvancedInDueOrderOnTheThreadThatRunsIt) {
    ManualQueue queue("manual");
    std::vector<int> order;
    queue.asyncAfter(10ms, [&] { order.push_back(2); });
    queue.async([&] {
        order.push_back(1);
        queue.asyncAfter(5ms, [&] { order.push_back(3); });  // due at 5 ms, after the first
    });
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(queue.poll(), 1u);
    EXPECT_EQ(queue.advance(9ms), 1u);
    EXPECT_EQ(order, (std::vector<int>{1, 3}));
    EXPECT_EQ(queue.advance(1ms), 1u);
    EXPECT_EQ(order, (std::vector<int>{1, 3, 2}));
    EXPECT_EQ(queue.now(), 10ms);
    EXPECT_TRUE(queue.isCurrent());
    EXPECT_FALSE(std::async(std::launch::async, [&] { return queue.isCurrent(); }).get());
}

TEST(TargetQueue, QueuesOnOneTargetShareItsThreadEachCurrentOnlyInItsOwnWork) {
    auto target = std::make_shared<testing::ThreadQueue>();
    auto first = TargetQueue::create("first", target);
    auto second = TargetQueue::create("second", target);
    std::vector<std::string> seen;  // touched on the target only
    for (int i = 0; i < 3; ++i) {
        first->async([&] {
            seen.push_back(first->isCurrent() && !second->isCurrent() && target->isCurrent() ? "first" : "wrong");
        });
        second->async([&] { seen.push_back(second->isCurrent() && !first->isCurrent() ? "second" : "wrong"); });
    }
    syncOn(*second, [] {});
    EXPECT_EQ(seen, (std::vector<std::string>{"first", "second", "first", "second", "first", "second"}));
    EXPECT_FALSE(first->isCurrent());

    // Work of a queue that has gone is dropped.
    bool ran = false;
    std::promise<void> release;
    target->async([future = release.get_future().share()] { future.wait(); });
    first->async([&] { ran = true; });
    first.reset();
    release.set_value();
    syncOn(*second, [] {});
    EXPECT_FALSE(ran);
}

TEST(SerialQueueFactory, TheInstalledFactoryMakesTheQueuesElseTheStandardOne) {
    std::vector<std::string> asked;
    setSerialQueueFactory([&](std::string label) {
        asked.push_back(label);
        return std::make_shared<ManualQueue>(label);
    });
    auto made = makeSerialQueue("mine");
    EXPECT_NE(std::dynamic_pointer_cast<ManualQueue>(made), nullptr);
    EXPECT_EQ(asked, std::vector<std::string>{"mine"});
    setSerialQueueFactory(nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<StandardSerialQueue>(makeSerialQueue("standard")), nullptr);
}

}  // namespace
}  // namespace MIDIInternals
