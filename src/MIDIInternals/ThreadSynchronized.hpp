#pragma once
// Values whose access is serialised through a serial queue.
//
// ThreadSynchronized: reads and writes run on `queue`, synchronously.
// ThreadSynchronizedPThreadMutex: reads copy under the read lock; writes run on `queue` under
// the write lock.
// MainThreadSynchronizedPThreadMutex: as above with the main queue (MainThread.hpp). A write takes
// the write lock first, writes directly when already on the main thread, and otherwise runs
// synchronously on the main queue before it unlocks.
//
// Each has a value form (suffix Value): a copy shares the queue, copies the value as it is now
// and gets a lock of its own. The reference forms are not copyable.

#include "MIDIInternals/DispatchSync.hpp"
#include "MIDIInternals/MainThread.hpp"

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace MIDIInternals {

template <class T>
class ThreadSynchronized {
public:
    explicit ThreadSynchronized(std::shared_ptr<DispatchQueue> queue, T initial = T{})
        : queue(std::move(queue)), storage(std::move(initial)) {}
    ThreadSynchronized(const ThreadSynchronized&) = delete;
    ThreadSynchronized& operator=(const ThreadSynchronized&) = delete;

    T wrappedValue() const {
        return syncOn(*queue, [this] { return storage; });
    }
    void setWrappedValue(T newValue) {
        syncOn(*queue, [this, &newValue] { storage = std::move(newValue); });
    }
    template <class F>
    decltype(auto) modify(F&& mutation) {
        return syncOn(*queue, [this, &mutation]() -> decltype(auto) { return mutation(storage); });
    }
    const std::shared_ptr<DispatchQueue>& dispatchQueue() const { return queue; }

protected:
    std::shared_ptr<DispatchQueue> queue;
    T storage;
};

template <class T>
class ThreadSynchronizedPThreadMutex {
public:
    explicit ThreadSynchronizedPThreadMutex(std::shared_ptr<DispatchQueue> queue, T initial = T{})
        : queue(std::move(queue)), storage(std::move(initial)) {}
    ThreadSynchronizedPThreadMutex(const ThreadSynchronizedPThreadMutex&) = delete;
    ThreadSynchronizedPThreadMutex& operator=(const ThreadSynchronizedPThreadMutex&) = delete;

    T wrappedValue() const {
        std::shared_lock guard(lock);
        return storage;
    }
    void setWrappedValue(T newValue) {
        syncOn(*queue, [this, &newValue] {
            std::unique_lock guard(lock);
            storage = std::move(newValue);
        });
    }
    const std::shared_ptr<DispatchQueue>& dispatchQueue() const { return queue; }

protected:
    std::shared_ptr<DispatchQueue> queue;
    mutable std::shared_mutex lock;
    T storage;
};

template <class T>
class MainThreadSynchronizedPThreadMutex {
public:
    // The queue is the main queue at construction time.
    explicit MainThreadSynchronizedPThreadMutex(T initial = T{})
        : MainThreadSynchronizedPThreadMutex(mainQueue(), std::move(initial)) {}
    MainThreadSynchronizedPThreadMutex(const MainThreadSynchronizedPThreadMutex&) = delete;
    MainThreadSynchronizedPThreadMutex& operator=(const MainThreadSynchronizedPThreadMutex&) = delete;

    T wrappedValue() const {
        std::shared_lock guard(lock);
        return storage;
    }
    void setWrappedValue(T newValue) {
        std::unique_lock guard(lock);
        if (queue == nullptr || queue->isCurrent()) {
            storage = std::move(newValue);
        } else {
            syncOn(*queue, [this, &newValue] { storage = std::move(newValue); });
        }
    }
    const std::shared_ptr<DispatchQueue>& dispatchQueue() const { return queue; }

protected:
    MainThreadSynchronizedPThreadMutex(std::shared_ptr<DispatchQueue> queue, T initial)
        : queue(std::move(queue)), storage(std::move(initial)) {}

    std::shared_ptr<DispatchQueue> queue;
    mutable std::shared_mutex lock;
    T storage;
};

// The value form of a queue-synchronised holder: copies share the queue and copy the value.
template <class Holder>
class CopyableSynchronized : public Holder {
public:
    using Holder::Holder;
    CopyableSynchronized(const CopyableSynchronized& other)
        : Holder(other.queue, other.wrappedValue()) {}
    CopyableSynchronized& operator=(const CopyableSynchronized& other) {
        if (this != &other) {
            this->setWrappedValue(other.wrappedValue());
        }
        return *this;
    }
};

template <class T>
using ThreadSynchronizedValue = CopyableSynchronized<ThreadSynchronized<T>>;
template <class T>
using ThreadSynchronizedPThreadMutexValue = CopyableSynchronized<ThreadSynchronizedPThreadMutex<T>>;
template <class T>
using MainThreadSynchronizedPThreadMutexValue =
    CopyableSynchronized<MainThreadSynchronizedPThreadMutex<T>>;

}  // namespace MIDIInternals
