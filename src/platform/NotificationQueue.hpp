#pragma once
// The notification queue: notifications to be posted a little later, on the main queue,
// coalesced. enqueue() never delivers inside itself (except with PostingStyle::Now, which
// asks for exactly that). Queued notifications go out from one flush handler posted on the
// main queue behind the work already there, so a burst within one turn gives one delivery per
// coalescing key, and what is enqueued during the flush goes out in a later turn.
//
// Coalescing: a new notification replaces the queued ones it matches (same name, and same sender
// when coalescing on the sender too), and takes its place at the end of the queue, so the
// observers see the latest state.

#include "platform/NotificationCenter.hpp"

#include <memory>
#include <mutex>
#include <vector>

namespace havrel {

class MainQueue;

enum class PostingStyle {
    WhenIdle,  // at the end of the main queue's current turn
    ASAP,      // the same flush, ahead of the WhenIdle ones
    Now,       // synchronously, after dropping the queued ones it coalesces with
};

enum class Coalescing : unsigned {
    None = 0,
    OnName = 1,
    OnSender = 2,
    OnNameAndSender = 3,
};

class NotificationQueue {
public:
    NotificationQueue(NotificationCenter& center, MainQueue& queue);
    NotificationQueue(const NotificationQueue&) = delete;
    NotificationQueue& operator=(const NotificationQueue&) = delete;

    // On the default centre and the shared main queue.
    static NotificationQueue& defaultQueue();

    // Any thread; delivery is on the main queue.
    void enqueue(Notification notification, PostingStyle style = PostingStyle::WhenIdle,
                 Coalescing coalescing = Coalescing::OnNameAndSender);
    // Drops the queued notifications that match (same rules as coalescing).
    void dequeueNotificationsMatching(const Notification& notification, Coalescing coalescing);

private:
    struct Queued {
        Notification notification;
        PostingStyle style;
    };
    // The notifications of one flush; it lives in the flush handler, so work the main queue
    // discards (a reset in tests) takes its notifications with it.
    struct Batch {
        std::vector<Queued> items;
    };
    struct State {
        std::mutex mutex;
        std::weak_ptr<Batch> pending;
    };
    static bool matches(const Notification& queued, const Notification& notification,
                        Coalescing coalescing);
    // With the state's mutex held: moves the queued notifications that match into dropped.
    void dropMatching(const Notification& notification, Coalescing coalescing,
                      std::vector<Queued>& dropped);
    static void flush(NotificationCenter& center, State& state, Batch& batch);

    NotificationCenter& center_;
    MainQueue& queue_;
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace havrel
