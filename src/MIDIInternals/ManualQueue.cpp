#include "MIDIInternals/ManualQueue.hpp"

namespace MIDIInternals {

ManualQueue::ManualQueue(std::string label) : label_(std::move(label)), thread_(std::this_thread::get_id()) {}

void ManualQueue::asyncAfter(Duration delay, Work work) {
    std::lock_guard lock(mutex_);
    pending_.emplace(std::make_pair(now_ + std::max(delay, Duration::zero()), sequence_++), std::move(work));
}

bool ManualQueue::isCurrent() const {
    std::lock_guard lock(mutex_);
    return thread_ == std::this_thread::get_id();
}

std::size_t ManualQueue::poll() { return runUntil(now()); }

std::size_t ManualQueue::advance(Duration by) { return runUntil(now() + by); }

ManualQueue::Duration ManualQueue::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

std::size_t ManualQueue::pendingCount() const {
    std::lock_guard lock(mutex_);
    return pending_.size();
}

std::size_t ManualQueue::runUntil(Duration until) {
    std::size_t ran = 0;
    std::unique_lock lock(mutex_);
    thread_ = std::this_thread::get_id();
    while (!pending_.empty() && pending_.begin()->first.first <= until) {
        auto entry = pending_.extract(pending_.begin());
        now_ = std::max(now_, entry.key().first);
        lock.unlock();
        entry.mapped()();
        ++ran;
        entry = {};
        lock.lock();
    }
    now_ = std::max(now_, until);
    return ran;
}

}  // namespace MIDIInternals
