#pragma once
// The notification centre: observers subscribe by name and, optionally, by sender; post()
// delivers synchronously on the poster's thread to every matching observer. Thread-safe.
// Callbacks run without the centre's lock, so they may add and remove observers: a subscription
// removed during a delivery (by an earlier callback) is not called by it, one added is not
// called until the next post. Removal from another thread stops every call that has not
// started yet.

#include <nlohmann/json.hpp>

#include <cstddef>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace havrel {

// A notification's name. Text given as such is copied; a constant (a literal, or a name defined
// once for the program) can be kept by address through constant(), so that a notification posted
// for every position carries its name without copying it.
class NotificationName {
public:
    NotificationName() = default;
    NotificationName(const char* name) : owned_(name) {}
    NotificationName(std::string name) : owned_(std::move(name)) {}
    NotificationName(std::string_view name) : owned_(name) {}
    // The text must outlive every notification that carries the name.
    static NotificationName constant(std::string_view name) {
        NotificationName result;
        result.constant_ = name;
        result.isConstant_ = true;
        return result;
    }

    std::string_view view() const { return isConstant_ ? constant_ : std::string_view(owned_); }
    std::string str() const { return std::string(view()); }
    bool empty() const { return view().empty(); }
    friend bool operator==(const NotificationName& a, const NotificationName& b) { return a.view() == b.view(); }

private:
    std::string owned_;
    std::string_view constant_;
    bool isConstant_ = false;
};

// A notification's payload object: any copyable value, kept inside the object when it fits
// (kInlineSize bytes, movable without throwing), else on the heap.
class NotificationObject {
public:
    static constexpr std::size_t kInlineSize = 160;

    NotificationObject() noexcept = default;
    template <typename T, typename Stored = std::decay_t<T>>
        requires(!std::is_same_v<Stored, NotificationObject>)
    NotificationObject(T&& value) {  // NOLINT: implicit, as a payload is given in aggregates
        if constexpr (fitsInline<Stored>) {
            ::new (static_cast<void*>(buffer_)) Stored(std::forward<T>(value));
        } else {
            heap_ = new Stored(std::forward<T>(value));
        }
        ops_ = &opsFor<Stored>;
    }
    NotificationObject(const NotificationObject& other) {
        if (other.ops_ != nullptr) {
            other.ops_->copy(other, *this);
        }
    }
    NotificationObject(NotificationObject&& other) noexcept { take(other); }
    NotificationObject& operator=(const NotificationObject& other) {
        if (this != &other) {
            NotificationObject copy(other);
            reset();
            take(copy);
        }
        return *this;
    }
    NotificationObject& operator=(NotificationObject&& other) noexcept {
        if (this != &other) {
            reset();
            take(other);
        }
        return *this;
    }
    ~NotificationObject() { reset(); }

    bool hasValue() const { return ops_ != nullptr; }
    // The value as a T, or nullptr when it holds something else or nothing.
    template <typename T>
    const T* as() const {
        return ops_ == &opsFor<T> ? stored<T>(*this) : nullptr;
    }
    void reset() noexcept {
        if (ops_ != nullptr) {
            ops_->destroy(*this);
            ops_ = nullptr;
        }
    }

private:
    struct Ops {
        void (*copy)(const NotificationObject& from, NotificationObject& to);
        void (*move)(NotificationObject& from, NotificationObject& to) noexcept;  // from is left empty
        void (*destroy)(NotificationObject& self) noexcept;
    };
    alignas(std::max_align_t) unsigned char buffer_[kInlineSize];
    void* heap_ = nullptr;
    const Ops* ops_ = nullptr;

    template <typename T>
    static constexpr bool fitsInline = sizeof(T) <= kInlineSize && alignof(T) <= alignof(std::max_align_t) &&
                                       std::is_nothrow_move_constructible_v<T>;
    template <typename T>
    static T* stored(const NotificationObject& object) {
        if constexpr (fitsInline<T>) {
            return std::launder(reinterpret_cast<T*>(const_cast<unsigned char*>(object.buffer_)));
        } else {
            return static_cast<T*>(object.heap_);
        }
    }
    template <typename T>
    static const Ops opsFor;
    void take(NotificationObject& other) noexcept {
        if (other.ops_ != nullptr) {
            other.ops_->move(other, *this);
        }
    }
};

// The operations for values of type T (defined here, where the class is complete).
template <typename T>
inline const NotificationObject::Ops NotificationObject::opsFor{
    [](const NotificationObject& from, NotificationObject& to) {
        if constexpr (fitsInline<T>) {
            ::new (static_cast<void*>(to.buffer_)) T(*stored<T>(from));
        } else {
            to.heap_ = new T(*stored<T>(from));
        }
        to.ops_ = from.ops_;
    },
    [](NotificationObject& from, NotificationObject& to) noexcept {
        if constexpr (fitsInline<T>) {
            T* value = stored<T>(from);
            ::new (static_cast<void*>(to.buffer_)) T(std::move(*value));
            value->~T();
        } else {
            to.heap_ = std::exchange(from.heap_, nullptr);
        }
        to.ops_ = std::exchange(from.ops_, nullptr);
    },
    [](NotificationObject& self) noexcept {
        if constexpr (fitsInline<T>) {
            stored<T>(self)->~T();
        } else {
            delete stored<T>(self);
            self.heap_ = nullptr;
        }
    },
};

struct Notification {
    NotificationName name;
    // Identity of the sending object, compared by address; nullptr for none.
    const void* sender = nullptr;
    nlohmann::json userInfo = nlohmann::json::object();
    // Any further payload, such as a shared_ptr to an object the observers need.
    NotificationObject object{};

    // The payload as a T, or nullptr when it holds something else or nothing.
    template <typename T>
    const T* objectAs() const {
        return object.as<T>();
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
    void post(NotificationName name, const void* sender = nullptr,
              nlohmann::json userInfo = nlohmann::json::object());
    // Delivers later on the main queue, in a turn of its own or, when the calling thread has
    // posted nothing else to a work queue since its previous call here and that delivery has not
    // begun, in the same turn right after it: the order of everything a thread posts is kept,
    // and a burst of notifications costs one turn.
    void postOnMainQueue(Notification notification);

private:
    struct Subscription {
        Token token;
        const void* observer;
        std::string name;
        const void* sender;
        Callback callback;
        std::atomic<bool> active{true};
    };
    using Subscriptions = std::vector<std::shared_ptr<Subscription>>;
    // Notifications for the main queue that one turn delivers.
    struct MainQueueBatch {
        std::vector<Notification> items;  // guarded by batchMutex_
        bool started = false;             // guarded by batchMutex_
    };
    template <typename Predicate>
    void removeWhere(Predicate predicate);
    void deliver(MainQueueBatch& batch);

    // Subscriptions are replaced, never changed in place, so that a post reads them without
    // copying under the lock.
    mutable std::mutex mutex_;
    std::shared_ptr<const Subscriptions> subscriptions_ = std::make_shared<const Subscriptions>();
    Token nextToken_ = 1;

    std::mutex batchMutex_;
    std::vector<Notification> spareItems_;  // the storage of a delivered batch, for the next one
};

}  // namespace havrel
