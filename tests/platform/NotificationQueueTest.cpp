#include "platform/MainQueue.hpp"
#include "platform/NotificationQueue.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace havrel {
namespace {

class NotificationQueueTest : public ::testing::Test {
protected:
    NotificationQueueTest() {
        for (const char* name : {"IsTransmitting", "StoppedTransmitting"}) {
            center.addObserver(this, name, nullptr, [this](const Notification& n) {
                delivered.push_back(n.name + (n.userInfo.contains("client")
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
