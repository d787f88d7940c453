#include "platform/NotificationCenter.hpp"

#include "platform/Assert.hpp"
#include "platform/MainQueue.hpp"

namespace havrel {

NotificationCenter& NotificationCenter::defaultCenter() {
    static auto* const center = new NotificationCenter();
    return *center;
}

NotificationCenter::Token NotificationCenter::addObserver(const void* observer, std::string name,
                                                          const void* sender,
                                                          Callback callback) {
    HV_ASSERT(callback != nullptr);
    std::lock_guard lock(mutex_);
    const Token token = nextToken_++;
    subscriptions_.push_back(std::make_shared<Subscription>(
        Subscription{token, observer, std::move(name), sender, std::move(callback)}));
    return token;
}

template <typename Predicate>
void NotificationCenter::removeWhere(Predicate predicate) {
    std::vector<std::shared_ptr<Subscription>> removed;
    std::lock_guard lock(mutex_);
    std::erase_if(subscriptions_, [&](const std::shared_ptr<Subscription>& subscription) {
        if (!predicate(*subscription)) {
            return false;
        }
        subscription->active = false;
        removed.push_back(subscription);
        return true;
    });
    // Callbacks are destroyed after the lock is released (declared before the guard).
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
    std::vector<std::shared_ptr<Subscription>> matching;
    {
        std::lock_guard lock(mutex_);
        for (const auto& subscription : subscriptions_) {
            if ((subscription->name.empty() || subscription->name == notification.name) &&
                (!subscription->sender || subscription->sender == notification.sender)) {
                matching.push_back(subscription);
            }
        }
    }
    for (const auto& subscription : matching) {
        {
            std::lock_guard lock(mutex_);
            if (!subscription->active) {
                continue;
            }
        }
        subscription->callback(notification);
    }
}

void NotificationCenter::post(std::string name, const void* sender, nlohmann::json userInfo) {
    post(Notification{std::move(name), sender, std::move(userInfo), {}});
}

void NotificationCenter::postOnMainQueue(Notification notification) {
    MainQueue::shared().post(
        [this, notification = std::move(notification)] { post(notification); });
}

}  // namespace havrel
