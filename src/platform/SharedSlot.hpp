#pragma once
// A replaceable process-wide instance: made by its factory on first use, settable by the host or
// a test, and back to the factory's instance after being set to nullptr. A slot made without a
// factory holds nothing until set. Thread-safe.

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace havrel {

template <typename T>
class SharedSlot {
public:
    SharedSlot() = default;
    explicit SharedSlot(std::function<std::shared_ptr<T>()> makeDefault)
        : makeDefault_(std::move(makeDefault)) {}

    std::shared_ptr<T> get() {
        std::lock_guard lock(mutex_);
        return currentLocked();
    }

    void set(std::shared_ptr<T> value) {
        std::shared_ptr<T> previous;  // released after the lock
        std::lock_guard lock(mutex_);
        previous = std::exchange(value_, std::move(value));
    }

    // The instance there is; when there is none, the one `make` returns becomes it. `make` runs
    // under the slot's lock, so two callers never both make one.
    std::shared_ptr<T> getOrMake(const std::function<std::shared_ptr<T>()>& make) {
        std::lock_guard lock(mutex_);
        if (auto current = currentLocked()) {
            return current;
        }
        value_ = make();
        return value_;
    }

    // Empties the slot and hands back what it held (not the default), so the caller can shut
    // it down outside the lock.
    std::shared_ptr<T> take() {
        std::lock_guard lock(mutex_);
        return std::exchange(value_, nullptr);
    }

private:
    std::shared_ptr<T> currentLocked() {
        if (!value_ && makeDefault_) {
            value_ = makeDefault_();
        }
        return value_;
    }

    std::mutex mutex_;
    const std::function<std::shared_ptr<T>()> makeDefault_;
    std::shared_ptr<T> value_;
};

}  // namespace havrel
