#pragma once
// A value guarded by its own read-write lock (std::shared_mutex, the library's one read-write
// lock): reads copy under the read lock, writes and
// modifications run under the write lock. Access is atomic per field, not per operation: a read
// followed by a write is two steps.
//
// PThreadMutex is the reference form (not copyable; share it by pointer). PThreadMutexValue is
// the value form: a copy takes the value as it is now and gets a lock of its own.

#include <mutex>
#include <shared_mutex>

#include <utility>

namespace MIDIInternals {

template <class T>
class PThreadMutex {
public:
    PThreadMutex() = default;
    explicit PThreadMutex(T initial) : value(std::move(initial)) {}
    PThreadMutex(const PThreadMutex&) = delete;
    PThreadMutex& operator=(const PThreadMutex&) = delete;

    T wrappedValue() const {
        std::shared_lock guard(lock);
        return value;
    }

    void setWrappedValue(T newValue) {
        std::unique_lock guard(lock);
        value = std::move(newValue);
    }

    // Runs `mutation(T&)` with the write lock held. Nothing called in it may use this holder.
    template <class F>
    decltype(auto) modify(F&& mutation) {
        std::unique_lock guard(lock);
        return std::forward<F>(mutation)(value);
    }

    // Runs `reader(const T&)` with the read lock held, without copying the value. Nothing called
    // in it may change this holder.
    template <class F>
    decltype(auto) read(F&& reader) const {
        std::shared_lock guard(lock);
        return std::forward<F>(reader)(static_cast<const T&>(value));
    }

protected:
    T value{};
    mutable std::shared_mutex lock;
};

template <class T>
class PThreadMutexValue : public PThreadMutex<T> {
public:
    PThreadMutexValue() = default;
    explicit PThreadMutexValue(T initial) : PThreadMutex<T>(std::move(initial)) {}
    PThreadMutexValue(const PThreadMutexValue& other) : PThreadMutex<T>(other.wrappedValue()) {}
    PThreadMutexValue& operator=(const PThreadMutexValue& other) {
        if (this != &other) {
            this->setWrappedValue(other.wrappedValue());
        }
        return *this;
    }
};

}  // namespace MIDIInternals
