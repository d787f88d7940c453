#include "platform/NotificationQueue.hpp"

#include "platform/MainQueue.hpp"

#include <algorithm>

namespace havrel {

NotificationQueue::NotificationQueue(NotificationCenter& center, MainQueue& queue)
    : center_(center), queue_(queue) {}

NotificationQueue& NotificationQueue::defaultQueue() {
    static auto* const queue =
        new NotificationQueue(NotificationCenter::defaultCenter(), MainQueue::shared());
    return *queue;
}

bool NotificationQueue::matches(const Notification& queued, const Notification& notification,
                                Coalescing coalescing) {
    const auto mask = static_cast<unsigned>(coalescing);
    if (mask == 0) {
        return false;
    }
    if ((mask & static_cast<unsigned>(Coalescing::OnName)) && queued.name != notification.name) {
        return false;
    }
    if ((mask & static_cast<unsigned>(Coalescing::OnSender)) &&
        queued.sender != notification.sender) {
        return false;
    }
    return true;
}

void NotificationQueue::dropMatching(const Notification& notification, Coalescing coalescing,
                                     std::vector<Queued>& dropped) {
    if (auto batch = state_->pending.lock()) {
        auto kept = std::stable_partition(
            batch->items.begin(), batch->items.end(), [&](const Queued& item) {
                return !matches(item.notification, notification, coalescing);
            });
        std::move(kept, batch->items.end(), std::back_inserter(dropped));
        batch->items.erase(kept, batch->items.end());
    }
}

void NotificationQueue::dequeueNotificationsMatching(const Notification& notification,
                                                     Coalescing coalescing) {
    std::vector<Queued> dropped;  // destroyed after the lock is released
    std::lock_guard lock(state_->mutex);
    dropMatching(notification, coalescing, dropped);
}

void NotificationQueue::enqueue(Notification notification, PostingStyle style,
                                Coalescing coalescing) {
    std::vector<Queued> dropped;  // destroyed after the lock is released
    std::unique_lock lock(state_->mutex);
    dropMatching(notification, coalescing, dropped);
    if (style == PostingStyle::Now) {
        lock.unlock();
        center_.post(notification);
        return;
    }
    auto batch = state_->pending.lock();
    if (!batch) {
        batch = std::make_shared<Batch>();
        state_->pending = batch;
        std::weak_ptr<State> state = state_;
        queue_.post([&center = center_, state, batch] {
            if (auto alive = state.lock()) {
                flush(center, *alive, *batch);
            }
        });
    }
    batch->items.push_back(Queued{std::move(notification), style});
}

void NotificationQueue::flush(NotificationCenter& center, State& state, Batch& batch) {
    std::vector<Queued> items;
    {
        std::lock_guard lock(state.mutex);
        state.pending.reset();
        items.swap(batch.items);
    }
    std::stable_partition(items.begin(), items.end(),
                          [](const Queued& item) { return item.style == PostingStyle::ASAP; });
    for (const auto& item : items) {
        center.post(item.notification);
    }
}

}  // namespace havrel
