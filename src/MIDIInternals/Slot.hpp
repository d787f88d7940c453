#pragma once
// A replaceable process-wide instance of the MIDI library: made by its default factory on first
// use (when it has one), settable by the host or a test, and back to the default after being set
// to nullptr. Thread-safe; a replaced instance is released after the lock.

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace MIDIInternals {

template <class T>
class Slot {
public:
    using MakeDefault = std::function<std::shared_ptr<T>()>;

    explicit Slot(MakeDefault makeDefault = nullptr) : makeDefault_(std::move(makeDefault)) {}
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

    // The instance; nullptr only when the slot is empty and has no default.
    std::shared_ptr<T> get() {
        std::lock_guard lock(mutex_);
        if (!value_ && makeDefault_) {
            value_ = makeDefault_();
        }
        return value_;
    }

    void set(std::shared_ptr<T> value) {
        std::shared_ptr<T> previous;
        std::lock_guard lock(mutex_);
        previous = std::exchange(value_, std::move(value));
    }

private:
    std::mutex mutex_;
    const MakeDefault makeDefault_;
    std::shared_ptr<T> value_;
};

}  // namespace MIDIInternals
