#include "platform/MainQueue.hpp"
#include "platform/NotificationQueue.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace havrel {
namespace {

class NotificationQueueTest : public ::testing::Test {
protected:
    NotificationQueueTest() {
        for (const char* name : {"IsTransmitting", "StoppedTransmitting"}) {
            center.addObserver(this, name, nullptr, [this](const Notification& n) {
                delivered.push_back(n.name.str() + (n.userInfo.contains("client")
                                                  ? ":" + n.userInfo["client"].get<std::string>()
                                                  : ""));
            });
        }
    }
    static Notification named(const std::string& name, const std::string& client = "",
                              const void* sender = nullptr) {
        Notification n{name, sender, nlohmann::json::object(), {}};
        if (!client.empty()) {
            n.userInfo["client"] = client;
        }
        return n;
    }

    ManualClockScope scope;
    NotificationCenter center;
    NotificationQueue queue{center, MainQueue::shared()};
    std::vector<std::string> delivered;
};

TEST_F(NotificationQueueTest, CoalescesOnNameAndSenderIntoOneDeliveryPerTurn) {
    // Three enqueues of one name in one turn: nothing inside enqueue, one delivery later.
    MainQueue::shared().post([&] {
        queue.enqueue(named("IsTransmitting", "a"));
        queue.enqueue(named("IsTransmitting", "b"));
        queue.enqueue(named("IsTransmitting", "c"));
        EXPECT_TRUE(delivered.empty());
    });
    MainQueue::shared().poll();
    EXPECT_EQ(delivered, std::vector<std::string>{"IsTransmitting:c"});
    delivered.clear();

    // Two names give two deliveries; a replaced notification moves to the end, so the last
    // state reported is the latest one.
    queue.enqueue(named("IsTransmitting"));
    queue.enqueue(named("StoppedTransmitting"));
    queue.enqueue(named("IsTransmitting"));
    MainQueue::shared().poll();
    EXPECT_EQ(delivered, (std::vector<std::string>{"StoppedTransmitting", "IsTransmitting"}));
    delivered.clear();

    // Different senders are kept apart unless coalescing on the name only.
    int senderA = 0;
    int senderB = 0;
    queue.enqueue(named("IsTransmitting", "a", &senderA));
    queue.enqueue(named("IsTransmitting", "b", &senderB));
    queue.enqueue(named("StoppedTransmitting", "a", &senderA), PostingStyle::WhenIdle,
                  Coalescing::OnName);
    queue.enqueue(named("StoppedTransmitting", "b", &senderB), PostingStyle::WhenIdle,
                  Coalescing::OnName);
    MainQueue::shared().poll();
    EXPECT_EQ(delivered, (std::vector<std::string>{"IsTransmitting:a", "IsTransmitting:b",
                                                   "StoppedTransmitting:b"}));
}

TEST_F(NotificationQueueTest, WhatIsEnqueuedDuringDeliveryGoesOutInALaterTurn) {
    int turns = 0;
    center.addObserver(&turns, "IsTransmitting", nullptr, [&](const Notification&) {
        if (++turns < 3) {
            queue.enqueue(named("IsTransmitting"));
        }
    });
    queue.enqueue(named("IsTransmitting"));
    // Work posted before the enqueue runs before the flush; work posted after runs after it.
    std::vector<int> order;
    MainQueue::shared().post([&] { order.push_back(turns); });
    EXPECT_EQ(MainQueue::shared().poll(), 4u);  // three flushes and the probe
    EXPECT_EQ(turns, 3);
    EXPECT_EQ(order, std::vector<int>{1});

    // ASAP goes ahead of WhenIdle in the same flush; Now is the one synchronous style.
    delivered.clear();
    queue.enqueue(named("StoppedTransmitting"), PostingStyle::WhenIdle);
    queue.enqueue(named("IsTransmitting", "x"), PostingStyle::ASAP, Coalescing::None);
    queue.enqueue(named("StoppedTransmitting", "now"), PostingStyle::Now);
    EXPECT_EQ(delivered, std::vector<std::string>{"StoppedTransmitting:now"});
    MainQueue::shared().poll();
    EXPECT_EQ(delivered, (std::vector<std::string>{"StoppedTransmitting:now", "IsTransmitting:x"}));
}

// Enqueues from several threads while the main queue flushes: nothing is lost or delivered
// twice, each thread's notifications keep their order, and coalescing on the sender leaves the
// last one of each thread.
TEST_F(NotificationQueueTest, EnqueuesFromSeveralThreadsWhileTheMainQueueFlushes) {
    constexpr int threadCount = 3;
    constexpr int perThread = 400;
    int senders[threadCount] = {};
    std::vector<std::vector<int>> seen(threadCount);  // written on the main queue only
    std::vector<int> lastCoalesced(threadCount, -1);
    center.addObserver(&seen, "Step", nullptr, [&](const Notification& n) {
        seen[n.userInfo["thread"].get<std::size_t>()].push_back(n.userInfo["i"].get<int>());
    });
    center.addObserver(&seen, "Latest", nullptr, [&](const Notification& n) {
        lastCoalesced[n.userInfo["thread"].get<std::size_t>()] = n.userInfo["i"].get<int>();
    });
    std::atomic<int> finished{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                nlohmann::json info{{"thread", t}, {"i", i}};
                queue.enqueue({"Step", &senders[t], info, {}}, i % 2 ? PostingStyle::ASAP : PostingStyle::WhenIdle,
                              Coalescing::None);
                queue.enqueue({"Latest", &senders[t], info, {}});
            }
            ++finished;
        });
    }
    while (finished.load() < threadCount) {
        MainQueue::shared().poll();
    }
    for (auto& thread : threads) {
        thread.join();
    }
    MainQueue::shared().poll();
    for (int t = 0; t < threadCount; ++t) {
        const auto& steps = seen[static_cast<std::size_t>(t)];
        ASSERT_EQ(steps.size(), static_cast<std::size_t>(perThread));
        // ASAP ones go ahead of WhenIdle ones within one flush, so order holds per style.
        std::vector<int> odd;
        std::vector<int> even;
        for (int i : steps) {
            (i % 2 ? odd : even).push_back(i);
        }
        EXPECT_TRUE(std::is_sorted(odd.begin(), odd.end()));
        EXPECT_TRUE(std::is_sorted(even.begin(), even.end()));
        EXPECT_EQ(odd.size() + even.size(), static_cast<std::size_t>(perThread));
        EXPECT_EQ(std::set<int>(steps.begin(), steps.end()).size(), static_cast<std::size_t>(perThread));
        EXPECT_EQ(lastCoalesced[static_cast<std::size_t>(t)], perThread - 1);
    }
}

TEST(NotificationQueue, DefaultQueueDeliversAfterAMainQueueReset) {
    int observer = 0;
    int deliveries = 0;
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(&observer, "HVCentralTransmissionManagerIsTransmitting", nullptr,
                       [&](const Notification&) { ++deliveries; });
    {
        ManualClockScope scope;
        NotificationQueue::defaultQueue().enqueue({"HVCentralTransmissionManagerIsTransmitting"});
    }  // the pending flush is discarded with the queue's work
    ManualClockScope scope;
    NotificationQueue::defaultQueue().enqueue({"HVCentralTransmissionManagerIsTransmitting"});
    MainQueue::shared().poll();
    EXPECT_EQ(deliveries, 1);
    center.removeObserver(&observer);
}

}  // namespace
}  // namespace havrel
