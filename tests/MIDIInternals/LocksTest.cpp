#include "MIDIInternals/Exception.hpp"
#include "MIDIInternals/PThreadMutex.hpp"
#include "MIDIInternals/PThreadRWLock.hpp"
#include "MIDIInternals/ThreadSynchronized.hpp"
#include "TestQueues.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <thread>
#include <vector>

namespace MIDIInternals {
namespace {

TEST(Exception, CarriesNameAndReason) {
    try {
        Exception::raise(Exception::overflow, "UInt7 integer overflowed");
        FAIL() << "raise returned";
    } catch (const Exception& e) {
        EXPECT_EQ(e.name(), Exception::nameOf(Exception::overflow));
        EXPECT_EQ(e.reason(), "UInt7 integer overflowed");
        EXPECT_STREQ(e.what(), "UInt7 integer overflowed");
    }
    try {
        Exception::raiseException("Custom", std::nullopt);
    } catch (const Exception& e) {
        EXPECT_EQ(e.name(), "Custom");
        EXPECT_EQ(e.reason(), "");
    }
}

TEST(PThreadChecks, AFailedCallEndsTheProcessNamingTheCallAndTheError) {
    EXPECT_EQ(pthreadFailureText("pthread_mutex_lock(&mutex)", 9999),
              "'pthread_mutex_lock(&mutex)' failed with error '<unknown>'(9999)\n");
    EXPECT_DEATH(checkPThreadCall(EINVAL, "pthread_rwlock_unlock(&rwlock)"),
                 "'pthread_rwlock_unlock\\(&rwlock\\)' failed with error 'EINVAL'");
}

TEST(PThreadRWLock, ReadersShareAndExcludeWriters) {
    PThreadRWLock lock;
    lock.readLock();
    auto otherReader = std::async(std::launch::async, [&] {
        bool gotRead = lock.tryReadLock();
        if (gotRead) {
            lock.unlock();
        }
        bool gotWrite = lock.tryWriteLock();
        return std::make_pair(gotRead, gotWrite);
    });
    auto [gotRead, gotWrite] = otherReader.get();
    EXPECT_TRUE(gotRead);
    EXPECT_FALSE(gotWrite);
    lock.unlock();
    EXPECT_TRUE(lock.tryWriteLock());
    EXPECT_FALSE(lock.tryReadLock());
    lock.unlock();
}

TEST(PThreadMutex, ModificationsFromManyThreadsAreNotLostAndValueCopiesAreIndependent) {
    PThreadMutex<int> counter(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                counter.modify([](int& value) { ++value; });
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter.wrappedValue(), 4000);

    PThreadMutexValue<std::string> original(std::string("a"));
    PThreadMutexValue<std::string> copy = original;
    copy.setWrappedValue("b");
    EXPECT_EQ(original.wrappedValue(), "a");
    EXPECT_EQ(copy.wrappedValue(), "b");
}

TEST(ThreadSynchronized, WritesRunOnTheQueue) {
    auto queue = std::make_shared<testing::ThreadQueue>();
    ThreadSynchronized<std::vector<bool>> onQueue(queue);
    onQueue.modify([&](std::vector<bool>& seen) { seen.push_back(queue->isCurrent()); });
    onQueue.modify([&](std::vector<bool>& seen) { seen.push_back(queue->isCurrent()); });
    EXPECT_EQ(onQueue.wrappedValue(), (std::vector<bool>{true, true}));

    ThreadSynchronizedPThreadMutexValue<int> locked(queue, 1);
    int before = queue->executed();
    locked.setWrappedValue(2);
    EXPECT_EQ(queue->executed(), before + 1);
    auto copy = locked;
    copy.setWrappedValue(3);
    EXPECT_EQ(locked.wrappedValue(), 2);
    EXPECT_EQ(copy.wrappedValue(), 3);
}

TEST(MainThreadSynchronizedPThreadMutex, WritesDirectlyOnTheMainThreadElseThroughTheMainQueue) {
    // A manual queue's thread is the one that runs it: this one.
    auto main = std::make_shared<ManualQueue>("main");
    setMainQueue(main);

    MainThreadSynchronizedPThreadMutexValue<int> value(0);
    value.setWrappedValue(1);
    EXPECT_EQ(main->pendingCount(), 0u);
    EXPECT_EQ(value.wrappedValue(), 1);

    auto elsewhere = std::async(std::launch::async, [&] { value.setWrappedValue(2); });
    std::size_t ran = 0;
    while (elsewhere.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        ran += main->poll();
    }
    EXPECT_EQ(ran, 1u);
    EXPECT_EQ(value.wrappedValue(), 2);

    setMainQueue(nullptr);
}

TEST(MainThread, IsWhereTheMainQueueIsCurrent) {
    auto main = std::make_shared<ManualQueue>("main");
    setMainQueue(main);
    EXPECT_TRUE(isMainThread());
    EXPECT_FALSE(std::async(std::launch::async, [] { return isMainThread(); }).get());

    // The library's own main queue, until the host installs one: a thread of its own.
    setMainQueue(nullptr);
    EXPECT_NE(mainQueue(), main);
    EXPECT_FALSE(isMainThread());
    EXPECT_TRUE(syncOn(*mainQueue(), [] { return isMainThread(); }));
}

}  // namespace
}  // namespace MIDIInternals
