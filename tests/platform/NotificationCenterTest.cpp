#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
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
                       [&](const Notification& n) { seen.push_back("any:" + n.name.str()); });
    center.addObserver(&observer, "Changed", &senderA,
                       [&](const Notification&) { seen.push_back("fromA"); });
    center.addObserver(&other, "", nullptr,
                       [&](const Notification& n) { seen.push_back("all:" + n.name.str()); });

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

// Counts the live copies of itself; large ones do not fit inside a notification's object.
template <std::size_t Size>
struct Counted {
    static inline int alive = 0;
    std::array<char, Size> bytes{};
    int value = 0;
    explicit Counted(int v) : value(v) { ++alive; }
    Counted(const Counted& other) : bytes(other.bytes), value(other.value) { ++alive; }
    Counted(Counted&& other) noexcept : bytes(other.bytes), value(other.value) { ++alive; }
    ~Counted() { --alive; }
};

TEST(NotificationObject, KeepsSmallAndLargeValuesThroughCopiesAndMovesAndDestroysEachOnce) {
    using Small = Counted<8>;
    using Large = Counted<NotificationObject::kInlineSize + 64>;
    {
        NotificationObject small{Small(1)};
        NotificationObject large{Large(2)};
        ASSERT_NE(small.as<Small>(), nullptr);
        EXPECT_EQ(small.as<Small>()->value, 1);
        EXPECT_EQ(small.as<Large>(), nullptr);
        EXPECT_EQ(large.as<Large>()->value, 2);
        EXPECT_EQ(large.as<int>(), nullptr);

        NotificationObject copies[] = {small, large};
        EXPECT_NE(copies[0].as<Small>(), small.as<Small>());  // a copy, not a shared value
        EXPECT_EQ(copies[1].as<Large>()->value, 2);
        EXPECT_EQ(Small::alive, 2);
        EXPECT_EQ(Large::alive, 2);

        NotificationObject moved = std::move(copies[0]);
        EXPECT_FALSE(copies[0].hasValue());
        EXPECT_EQ(moved.as<Small>()->value, 1);
        moved = std::move(copies[1]);  // the small value goes, the large one arrives
        EXPECT_EQ(moved.as<Large>()->value, 2);
        EXPECT_EQ(Small::alive, 1);
        moved = small;
        EXPECT_EQ(moved.as<Small>()->value, 1);
        EXPECT_EQ(Large::alive, 1);
        moved = moved;  // NOLINT: assignment to itself keeps the value
        EXPECT_EQ(moved.as<Small>()->value, 1);
        moved.reset();
        EXPECT_FALSE(moved.hasValue());
        EXPECT_EQ(Small::alive, 1);
    }
    EXPECT_EQ(Small::alive, 0);
    EXPECT_EQ(Large::alive, 0);
}

TEST(NotificationCenter, MainQueueDeliveriesKeepEachPostersOrderAndABurstTakesOneTurn) {
    ManualClockScope scope;
    auto& queue = MainQueue::shared();
    NotificationCenter center;
    int observer = 0;
    std::vector<std::string> order;
    bool allOnMainQueue = true;
    center.addObserver(&observer, "", nullptr, [&](const Notification& n) {
        allOnMainQueue = allOnMainQueue && queue.isCurrent();
        order.push_back(n.name.str());
        if (n.name == NotificationName("x")) {
            center.postOnMainQueue(Notification{"posted during x"});
        }
    });
    for (const char* name : {"a", "b", "c"}) {
        center.postOnMainQueue(Notification{NotificationName::constant(name)});
    }
    queue.post([&] { order.push_back("work"); });
    center.postOnMainQueue(Notification{"d"});
    std::thread([&] {
        center.postOnMainQueue(Notification{"other 1"});
        center.postOnMainQueue(Notification{"other 2"});
    }).join();
    EXPECT_TRUE(order.empty());
    // a, b and c in one turn, the work, d, the other thread's two in one turn.
    EXPECT_EQ(queue.poll(), 4u);
    EXPECT_EQ(order, (std::vector<std::string>{"a", "b", "c", "work", "d", "other 1", "other 2"}));
    EXPECT_TRUE(allOnMainQueue);

    // What is posted while a batch is being delivered waits for a turn of its own.
    order.clear();
    center.postOnMainQueue(Notification{"x"});
    EXPECT_EQ(queue.poll(), 2u);
    EXPECT_EQ(order, (std::vector<std::string>{"x", "posted during x"}));

    // Work the main queue discards takes its notifications with it; later ones still arrive.
    order.clear();
    center.postOnMainQueue(Notification{"lost"});
    queue.resetForTesting();
    queue.enableManualClock();
    center.postOnMainQueue(Notification{"after reset"});
    queue.poll();
    EXPECT_EQ(order, std::vector<std::string>{"after reset"});
}

}  // namespace
}  // namespace havrel
