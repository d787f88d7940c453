#include "platform/WorkQueue.hpp"

#include "platform/Assert.hpp"

#include <asio/post.hpp>

#include <algorithm>
#include <utility>

namespace havrel {

namespace {
thread_local const WorkQueue* currentQueue = nullptr;
thread_local std::uint64_t postsFromCurrentThread = 0;
}  // namespace

WorkQueue::CurrentScope::CurrentScope(const WorkQueue& queue) : previous_(currentQueue) {
    currentQueue = &queue;
}

WorkQueue::CurrentScope::~CurrentScope() {
    currentQueue = previous_;
}

WorkQueue::WorkQueue(std::string label, std::shared_ptr<Clock> clock)
    : loop_(std::make_unique<Loop>()), label_(std::move(label)), clock_(std::move(clock)) {
    HV_ASSERT(clock_ != nullptr);
}

WorkQueue::~WorkQueue() {
    if (clock_->isManual()) {
        static_cast<ManualClock&>(*clock_).detach(this);
    }
}

WorkQueue* WorkQueue::current() {
    return const_cast<WorkQueue*>(currentQueue);
}

bool WorkQueue::isCurrent() const {
    return currentQueue == this;
}

Clock::TimePoint WorkQueue::now() const {
    return clock()->now();
}

std::shared_ptr<Clock> WorkQueue::clock() const {
    std::lock_guard lock(mutex_);
    return clock_;
}

void WorkQueue::attachToClock() {
    auto clock = this->clock();
    if (clock->isManual()) {
        std::weak_ptr<WorkQueue> self = weak_from_this();
        static_cast<ManualClock&>(*clock).attach(std::move(self));
    }
}

void WorkQueue::resetLoop(std::shared_ptr<Clock> clock) {
    HV_ASSERT(clock != nullptr);
    std::vector<Delayed> discarded;
    std::shared_ptr<Clock> previous;
    {
        std::lock_guard lock(mutex_);
        discarded.swap(delayed_);
        wakeAt_ = TimePoint::max();
        previous = std::exchange(clock_, std::move(clock));
    }
    if (previous->isManual()) {
        static_cast<ManualClock&>(*previous).detach(this);
    }
    // The old loop's pending handlers are destroyed with it, outside the lock, unrun.
    std::deque<Work> discardedPosts;
    {
        std::lock_guard lock(postedMutex_);
        discardedPosts.swap(posted_);
        drainScheduled_ = false;
    }
    loop_ = std::make_unique<Loop>();
    unfinishedPosts_.store(0);
    attachToClock();
}

bool WorkQueue::later(const Delayed& a, const Delayed& b) {
    return a.due != b.due ? a.due > b.due : a.sequence > b.sequence;
}

void WorkQueue::post(Work work) {
    HV_ASSERT(work != nullptr);
    ++postsFromCurrentThread;
    unfinishedPosts_.fetch_add(1, std::memory_order_relaxed);
    bool schedule = false;
    {
        std::lock_guard lock(postedMutex_);
        posted_.push_back(std::move(work));
        schedule = !std::exchange(drainScheduled_, true);
    }
    if (schedule) {
        asio::post(loop_->io, [this] { drainPosted(); });
    }
}

// Posted items run in turns of at most kPostedPerTurn, each turn one handler of the loop: a chain
// of posts (a frame's handling posting its sends, a send posting its report) costs one pass of
// the loop's reactor, not one each, and sockets and timers still get their turn in between.
void WorkQueue::drainPosted() {
    struct NextTurn {
        WorkQueue& queue;
        // Also when an item throws: what is left keeps its turn.
        ~NextTurn() {
            std::lock_guard lock(queue.postedMutex_);
            if (queue.posted_.empty()) {
                queue.drainScheduled_ = false;
            } else {
                asio::post(queue.loop_->io, [q = &queue] { q->drainPosted(); });
            }
        }
    } nextTurn{*this};
    ++drainTurns_;
    for (std::size_t ran = 0; ran < kPostedPerTurn && !loop_->io.stopped(); ++ran) {
        Work work;
        {
            std::lock_guard lock(postedMutex_);
            if (posted_.empty()) {
                return;
            }
            work = std::move(posted_.front());
            posted_.pop_front();
        }
        struct Finished {
            std::atomic<std::size_t>& count;
            ~Finished() { count.fetch_sub(1, std::memory_order_release); }
        } finished{unfinishedPosts_};
        ++postedRun_;
        work();
    }
}

bool WorkQueue::hasWorkToRun() const {
    if (unfinishedPosts_.load(std::memory_order_acquire) > 0) {
        return true;
    }
    std::lock_guard lock(mutex_);
    return !delayed_.empty() && delayed_.front().due <= clock_->now();
}

std::uint64_t WorkQueue::postsFromThisThread() {
    return postsFromCurrentThread;
}

void WorkQueue::postAfter(Duration delay, Work work, Duration leeway) {
    if (delay <= Duration::zero()) {
        post(std::move(work));
        return;
    }
    postAt(now() + delay, std::move(work), leeway);
}

void WorkQueue::postAt(TimePoint due, Work work, Duration leeway) {
    HV_ASSERT(work != nullptr);
    bool sooner = false;
    bool manual = false;
    {
        std::lock_guard lock(mutex_);
        const TimePoint latest = due + std::max(leeway, Duration::zero());
        delayed_.push_back(Delayed{due, nextSequence_++, std::move(work), latest});
        std::push_heap(delayed_.begin(), delayed_.end(), later);
        sooner = latest < wakeAt_;
        if (sooner) {
            wakeAt_ = latest;
        }
        manual = clock_->isManual();
    }
    // A manual clock runs the heap from advance(); the steady clock needs the wake timer moved
    // forward when this item must run before the time it is armed for. The timer belongs to
    // the queue's thread.
    if (sooner && !manual) {
        asio::post(loop_->io, [this] { armWake(); });
    }
}

void WorkQueue::armWake() {
    TimePoint due = TimePoint::max();
    {
        std::lock_guard lock(mutex_);
        // The earliest time some item must run; every item due by then runs with it.
        for (const auto& item : delayed_) {
            due = std::min(due, item.latest);
        }
        wakeAt_ = due;
        if (delayed_.empty()) {
            return;
        }
    }
    loop_->wake.expires_at(due);
    loop_->wake.async_wait([this](const std::error_code& error) {
        if (!error) {
            runDueDelayed();
            armWake();
        }
    });
}

std::optional<Clock::TimePoint> WorkQueue::nextDue() const {
    std::lock_guard lock(mutex_);
    if (delayed_.empty()) {
        return std::nullopt;
    }
    return delayed_.front().due;
}

std::size_t WorkQueue::runDueDelayed() {
    std::size_t ran = 0;
    for (;;) {
        Work work;
        {
            std::lock_guard lock(mutex_);
            if (delayed_.empty() || delayed_.front().due > clock_->now()) {
                break;
            }
            std::pop_heap(delayed_.begin(), delayed_.end(), later);
            work = std::move(delayed_.back().work);
            delayed_.pop_back();
        }
        work();
        ++ran;
    }
    return ran;
}

}  // namespace havrel
