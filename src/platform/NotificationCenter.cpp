#include "platform/NotificationCenter.hpp"

#include "platform/Assert.hpp"
#include "platform/MainQueue.hpp"

namespace havrel {

namespace {

// The batch the calling thread opened last, while it may still take more notifications.
struct OpenBatch {
    const void* center = nullptr;
    std::weak_ptr<void> batch;
    std::uint64_t postsAfterOpening = 0;
};
thread_local OpenBatch openBatch;

}  // namespace

NotificationCenter& NotificationCenter::defaultCenter() {
    static auto* const center = new NotificationCenter();
    return *center;
}

NotificationCenter::Token NotificationCenter::addObserver(const void* observer, std::string name,
                                                          const void* sender,
                                                          Callback callback) {
    HV_ASSERT(callback != nullptr);
    auto subscription = std::make_shared<Subscription>();
    subscription->observer = observer;
    subscription->name = std::move(name);
    subscription->sender = sender;
    subscription->callback = std::move(callback);
    std::shared_ptr<const Subscriptions> previous;  // released after the lock
    std::lock_guard lock(mutex_);
    subscription->token = nextToken_++;
    auto next = std::make_shared<Subscriptions>(*subscriptions_);
    next->push_back(std::move(subscription));
    previous = std::exchange(subscriptions_, std::move(next));
    return nextToken_ - 1;
}

template <typename Predicate>
void NotificationCenter::removeWhere(Predicate predicate) {
    // Declared before the guard: the removed callbacks are destroyed after the lock is released
    // (or later, by a post that still holds the old list).
    std::shared_ptr<const Subscriptions> previous;
    std::lock_guard lock(mutex_);
    auto next = std::make_shared<Subscriptions>();
    next->reserve(subscriptions_->size());
    bool removed = false;
    for (const auto& subscription : *subscriptions_) {
        if (predicate(*subscription)) {
            subscription->active = false;
            removed = true;
        } else {
            next->push_back(subscription);
        }
    }
    if (removed) {
        previous = std::exchange(subscriptions_, std::move(next));
    }
}

void NotificationCenter::removeObserver(const void* observer) {
    removeWhere([observer](const Subscription& s) { return s.observer == observer; });
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name,
                                        const void* sender) {
    removeWhere([&](const Subscription& s) {
        return s.observer == observer && s.name == name && (!sender || s.sender == sender);
    });
}

void NotificationCenter::removeSubscription(Token token) {
    removeWhere([token](const Subscription& s) { return s.token == token; });
}

void NotificationCenter::removeAllObservers() {
    removeWhere([](const Subscription&) { return true; });
}

void NotificationCenter::post(const Notification& notification) {
    std::shared_ptr<const Subscriptions> subscriptions;
    {
        std::lock_guard lock(mutex_);
        subscriptions = subscriptions_;
    }
    const std::string_view name = notification.name.view();
    for (const auto& subscription : *subscriptions) {
        if ((!subscription->name.empty() && subscription->name != name) ||
            (subscription->sender && subscription->sender != notification.sender)) {
            continue;
        }
        // Removed by an earlier callback of this post, or by another thread meanwhile.
        if (!subscription->active) {
            continue;
        }
        subscription->callback(notification);
    }
}

void NotificationCenter::post(NotificationName name, const void* sender, nlohmann::json userInfo) {
    post(Notification{std::move(name), sender, std::move(userInfo), {}});
}

void NotificationCenter::postOnMainQueue(Notification notification) {
    std::unique_lock lock(batchMutex_);
    if (openBatch.center == this && openBatch.postsAfterOpening == WorkQueue::postsFromThisThread()) {
        if (auto open = std::static_pointer_cast<MainQueueBatch>(openBatch.batch.lock()); open && !open->started) {
            open->items.push_back(std::move(notification));
            return;
        }
    }
    // A new batch, on the storage a delivered one gave back. The delivery holds the batch: when
    // the main queue discards its work (a reset in tests), the batch goes with it.
    auto batch = std::make_shared<MainQueueBatch>();
    batch->items.swap(spareItems_);
    batch->items.push_back(std::move(notification));
    lock.unlock();
    MainQueue::shared().post([this, batch] { deliver(*batch); });
    openBatch = OpenBatch{this, batch, WorkQueue::postsFromThisThread()};
}

void NotificationCenter::deliver(MainQueueBatch& batch) {
    std::vector<Notification> items;
    {
        std::lock_guard lock(batchMutex_);
        batch.started = true;
        items.swap(batch.items);
    }
    for (const auto& notification : items) {
        post(notification);
    }
    items.clear();
    std::lock_guard lock(batchMutex_);
    if (items.capacity() > spareItems_.capacity()) {
        spareItems_.swap(items);
    }
}

}  // namespace havrel
