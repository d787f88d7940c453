#pragma once
// The notification centre: observers subscribe by name and, optionally, by sender; post()
// delivers synchronously on the poster's thread to every matching observer. Thread-safe.
// Callbacks run without the centre's lock, so they may add and remove observers: a subscription
// removed during a delivery (by an earlier callback) is not called by it, one added is not
// called until the next post. Removal from another thread stops every call that has not
// started yet.

#include <nlohmann/json.hpp>

#include <any>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace havrel {

struct Notification {
    std::string name;
    // Identity of the sending object, compared by address; nullptr for none.
    const void* sender = nullptr;
    nlohmann::json userInfo = nlohmann::json::object();
    // Any further payload, such as a shared_ptr to an object the observers need.
    std::any object{};

    // The payload as a T, or nullptr when it holds something else or nothing.
    template <typename T>
    const T* objectAs() const {
        return std::any_cast<T>(&object);
    }
};

class NotificationCenter {
public:
    using Callback = std::function<void(const Notification&)>;
    using Token = std::uint64_t;

    NotificationCenter() = default;
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    static NotificationCenter& defaultCenter();

    // Subscribes the observer (any address that identifies it, used only for removal) to
    // notifications of the name (empty: every name) from the sender (nullptr: any sender).
    Token addObserver(const void* observer, std::string name, const void* sender,
                      Callback callback);
    // Removes every subscription of the observer.
    void removeObserver(const void* observer);
    // Removes the observer's subscriptions to the name (and to the sender, when given).
    void removeObserver(const void* observer, std::string_view name,
                        const void* sender = nullptr);
    // Removes one subscription.
    void removeSubscription(Token token);
    // For tests: forgets every subscription.
    void removeAllObservers();

    // Delivers now, on this thread, in order of subscription.
    void post(const Notification& notification);
    void post(std::string name, const void* sender = nullptr,
              nlohmann::json userInfo = nlohmann::json::object());
    // Delivers later on the main queue.
    void postOnMainQueue(Notification notification);

private:
    struct Subscription {
        Token token;
        const void* observer;
        std::string name;
        const void* sender;
        Callback callback;
        bool active = true;  // guarded by the centre's mutex
    };
    template <typename Predicate>
    void removeWhere(Predicate predicate);

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Subscription>> subscriptions_;
    Token nextToken_ = 1;
};

}  // namespace havrel
