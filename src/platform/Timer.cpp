#include "platform/Timer.hpp"

#include "platform/Assert.hpp"

namespace havrel {

Timer::Timer(std::weak_ptr<WorkQueue> queue, Duration interval, bool repeats, Callback callback)
    : queue_(std::move(queue)), repeats_(repeats), callback_(std::move(callback)),
      interval_(interval) {
    HV_ASSERT(callback_ != nullptr);
    HV_ASSERT(interval >= Duration::zero());
    HV_ASSERT(!repeats || interval > Duration::zero());
}

std::shared_ptr<Timer> Timer::create(WorkQueue& queue, Duration interval, bool repeats,
                                     Callback callback) {
    return std::make_shared<Timer>(queue.weak_from_this(), interval, repeats, std::move(callback));
}

std::shared_ptr<Timer> Timer::scheduled(WorkQueue& queue, Duration interval, bool repeats,
                                        Callback callback) {
    auto timer = create(queue, interval, repeats, std::move(callback));
    timer->schedule();
    return timer;
}

void Timer::schedule() {
    schedule(interval());
}

void Timer::schedule(Duration initialDelay) {
    auto queue = queue_.lock();
    if (!queue) {
        return;
    }
    std::lock_guard lock(mutex_);
    const auto due = queue->now() + std::max(initialDelay, Duration::zero());
    if (valid_ && posted_ && due >= postedDue_) {
        due_ = due;
        return;
    }
    valid_ = true;
    arm(queue, due, ++generation_);
}

void Timer::rearm(Duration interval) {
    HV_ASSERT(interval >= Duration::zero());
    HV_ASSERT(!repeats_ || interval > Duration::zero());
    {
        std::lock_guard lock(mutex_);
        interval_ = interval;
    }
    schedule(interval);
}

void Timer::invalidate() {
    std::lock_guard lock(mutex_);
    valid_ = false;
    posted_ = false;
    ++generation_;
}

bool Timer::isValid() const {
    std::lock_guard lock(mutex_);
    return valid_;
}

Timer::Duration Timer::interval() const {
    std::lock_guard lock(mutex_);
    return interval_;
}

// With the mutex held.
void Timer::arm(std::shared_ptr<WorkQueue> queue, Clock::TimePoint due, std::uint64_t generation) {
    due_ = due;
    postedDue_ = due;
    posted_ = true;
    // A timer of a second or more may fire a tenth of its interval late, so that the slow
    // timers of an idle program share their wake-ups.
    const auto leeway = interval_ >= std::chrono::seconds(1) ? interval_ / 10 : Duration::zero();
    queue->postAt(due, [self = shared_from_this(), generation] { self->fire(generation); }, leeway);
}

void Timer::fire(std::uint64_t generation) {
    {
        std::lock_guard lock(mutex_);
        if (!valid_ || generation != generation_) {
            return;
        }
        posted_ = false;
        auto queue = queue_.lock();
        if (queue && queue->now() < due_) {
            // Scheduled again for later while this fire waited.
            arm(std::move(queue), due_, generation);
            return;
        }
        if (repeats_) {
            if (!queue) {
                return;
            }
            const auto now = queue->now();
            auto next = due_ + interval_;
            if (next <= now) {
                next += (now - due_) / interval_ * interval_;
            }
            arm(std::move(queue), next, generation);
        } else {
            valid_ = false;
        }
    }
    callback_();
}

}  // namespace havrel
