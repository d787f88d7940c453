#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace havrel {
namespace {

TEST(NotificationCenter, DeliversByNameAndSenderAndRemovesEverySubscriptionOfAnObserver) {
    NotificationCenter center;
    int senderA = 0;
    int senderB = 0;
    int observer = 0;
    int other = 0;
    std::vector<std::string> seen;
    center.addObserver(&observer, "Changed", nullptr,
                       [&](const Notification& n) { seen.push_back("any:" + n.name); });
    center.addObserver(&observer, "Changed", &senderA,
                       [&](const Notification&) { seen.push_back("fromA"); });
    center.addObserver(&other, "", nullptr,
                       [&](const Notification& n) { seen.push_back("all:" + n.name); });

    center.post("Changed", &senderB, {{"value", 3}});
    EXPECT_EQ(seen, (std::vector<std::string>{"any:Changed", "all:Changed"}));
    seen.clear();
    center.post(Notification{"Changed", &senderA, nlohmann::json::object(),
                             std::make_shared<std::string>("payload")});
    EXPECT_EQ(seen, (std::vector<std::string>{"any:Changed", "fromA", "all:Changed"}));
    seen.clear();
    center.post("Other");
    EXPECT_EQ(seen, std::vector<std::string>{"all:Other"});
    seen.clear();

    center.removeObserver(&observer, "Changed", &senderA);
    center.post("Changed", &senderA);
    EXPECT_EQ(seen, (std::vector<std::string>{"any:Changed", "all:Changed"}));
    seen.clear();
    center.removeObserver(&observer);
    center.post("Changed", &senderA);
    EXPECT_EQ(seen, std::vector<std::string>{"all:Changed"});

    // The payload travels with the notification.
    std::string received;
    auto token = center.addObserver(&observer, "Payload", nullptr, [&](const Notification& n) {
        ASSERT_NE(n.objectAs<std::shared_ptr<std::string>>(), nullptr);
        EXPECT_EQ(n.objectAs<int>(), nullptr);
        received = **n.objectAs<std::shared_ptr<std::string>>() + n.userInfo["k"].get<std::string>();
    });
    center.post(Notification{"Payload", nullptr, {{"k", "!"}}, std::make_shared<std::string>("hi")});
    EXPECT_EQ(received, "hi!");
    center.removeSubscription(token);
    received.clear();
    center.post(Notification{"Payload", nullptr, {{"k", "?"}}, std::make_shared<std::string>("x")});
    EXPECT_EQ(received, "");
}

TEST(NotificationCenter, ObserversChangedDuringDeliveryAreHandledSafely) {
    NotificationCenter center;
    int first = 0;
    int second = 0;
    int added = 0;
    int calls = 0;
    center.addObserver(&first, "N", nullptr, [&](const Notification&) {
        ++calls;
        center.removeObserver(&second);
        center.removeObserver(&first);  // itself, while its callback runs
        center.addObserver(&added, "N", nullptr, [&](const Notification&) { ++calls; });
    });
    center.addObserver(&second, "N", nullptr, [&](const Notification&) { calls += 100; });
    center.post("N");
    EXPECT_EQ(calls, 1);  // second was removed before its turn; the new one waits
    center.post("N");
    EXPECT_EQ(calls, 2);
}

TEST(NotificationCenter, ConcurrentPostsAndSubscriptionsAreSafe) {
    NotificationCenter center;
    std::atomic<int> delivered{0};
    std::atomic<bool> running{true};
    int stable = 0;
    center.addObserver(&stable, "Tick", nullptr, [&](const Notification&) { ++delivered; });
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                center.post("Tick");
            }
        });
    }
    std::thread churn([&] {
        int churner = 0;
        while (running) {
            center.addObserver(&churner, "Tick", nullptr, [](const Notification&) {});
            center.removeObserver(&churner);
        }
    });
    for (auto& thread : threads) {
        thread.join();
    }
    running = false;
    churn.join();
    EXPECT_EQ(delivered.load(), 6000);
}

TEST(NotificationCenter, PostOnMainQueueDeliversInALaterTurnOnTheMainQueue) {
    ManualClockScope scope;
    NotificationCenter center;
    int observer = 0;
    std::vector<bool> onMain;
    center.addObserver(&observer, "Later", nullptr, [&](const Notification&) {
        onMain.push_back(MainQueue::shared().isCurrent());
    });
    std::thread([&] { center.postOnMainQueue(Notification{"Later"}); }).join();
    EXPECT_TRUE(onMain.empty());
    MainQueue::shared().poll();
    EXPECT_EQ(onMain, std::vector<bool>{true});
}

}  // namespace
}  // namespace havrel
