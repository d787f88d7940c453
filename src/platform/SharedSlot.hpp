#pragma once
// A replaceable process-wide instance: made by its factory on first use, settable by the host or
// a test, and back to the factory's instance after being set to nullptr. Thread-safe.

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace havrel {

template <typename T>
class SharedSlot {
public:
    explicit SharedSlot(std::function<std::shared_ptr<T>()> makeDefault)
        : makeDefault_(std::move(makeDefault)) {}

    std::shared_ptr<T> get() {
        std::lock_guard lock(mutex_);
        if (!value_) {
            value_ = makeDefault_();
        }
        return value_;
    }

    void set(std::shared_ptr<T> value) {
        std::shared_ptr<T> previous;  // released after the lock
        std::lock_guard lock(mutex_);
        previous = std::exchange(value_, std::move(value));
    }

private:
    std::mutex mutex_;
    const std::function<std::shared_ptr<T>()> makeDefault_;
    std::shared_ptr<T> value_;
};

}  // namespace havrel
