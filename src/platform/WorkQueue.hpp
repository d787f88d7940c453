#pragma once
// A queue of work that runs one item at a time, in order of posting, on an Asio io_context,
// with delayed work measured by the queue's clock. MainQueue (run by the host's main thread) and
// SerialQueue (a thread of its own) are the two kinds; both serve the MIDI library as its
// DispatchQueue.
//
// Delayed work sits in one heap ordered by due time. On the steady clock one asio::steady_timer
// wakes the queue at the earliest due time; on a manual clock the clock's advance() runs it.

#include "MIDIInternals/DispatchQueue.hpp"
#include "platform/Clock.hpp"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class WorkQueue : public MIDIInternals::DispatchQueue,
                  public ManualClock::Participant,
                  public std::enable_shared_from_this<WorkQueue> {
public:
    using TimePoint = Clock::TimePoint;

    ~WorkQueue() override;
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    // Runs the work later on this queue, after everything posted before it. Any thread.
    void post(Work work);
    // Runs the work once the delay has passed on the queue's clock; a delay of zero or less is
    // a plain post. Items due at the same time run in order of posting. With a leeway the item
    // may run up to that much later, never earlier: on the steady clock the queue wakes at the
    // earliest time some item must run and runs everything due by then, so that items with
    // leeway share wake-ups (a manual clock runs each at its due time).
    void postAfter(Duration delay, Work work, Duration leeway = Duration::zero());
    void postAt(TimePoint due, Work work, Duration leeway = Duration::zero());

    // MIDIInternals::DispatchQueue.
    void async(Work work) override { post(std::move(work)); }
    void asyncAfter(Duration delay, Work work) override { postAfter(delay, std::move(work)); }
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }

    TimePoint now() const;
    std::shared_ptr<Clock> clock() const;

    // The Asio context of the queue, for sockets and other Asio objects whose completions must
    // run on this queue. Delays go through postAfter or Timer, not through Asio timers, so that
    // a manual clock governs them.
    asio::io_context& context() { return loop_->io; }

    // The queue whose work is running on this thread, or nullptr.
    static WorkQueue* current();
    // How many items the calling thread has posted to work queues so far: code that joins later
    // work to an item it posted earlier does so only while this has not moved.
    static std::uint64_t postsFromThisThread();

protected:
    WorkQueue(std::string label, std::shared_ptr<Clock> clock);

    // Joins a manual clock when the queue has one; called once the queue is owned by a
    // shared_ptr.
    void attachToClock();
    // Replaces the clock and discards every pending item, immediate and delayed. Only while
    // no thread runs the queue.
    void resetLoop(std::shared_ptr<Clock> clock);

    // Marks this thread as running the queue for the lifetime of the object.
    class CurrentScope {
    public:
        explicit CurrentScope(const WorkQueue& queue);
        ~CurrentScope();
        CurrentScope(const CurrentScope&) = delete;
        CurrentScope& operator=(const CurrentScope&) = delete;

    private:
        const WorkQueue* previous_;
    };

    // Runs, on the calling thread, the delayed items that are due by the clock.
    std::size_t runDueDelayed();
    // Whether a posted item has not finished yet or a delayed item is due by the clock. Work
    // posted by another thread at the same moment may or may not be seen.
    bool hasWorkToRun() const;

    // What a run of the loop's handlers did, counted as the items and other handlers it ran
    // rather than as turns: `ran` is what asio reported for the same run.
    template <typename Run>
    std::size_t countingItems(Run run) {
        const auto items = postedRun_;
        const auto turns = drainTurns_;
        const std::size_t ran = run();
        return ran - (drainTurns_ - turns) + (postedRun_ - items);
    }
    // ManualClock::Participant.
    std::optional<TimePoint> nextDue() const override;

    struct Loop {
        asio::io_context io{1};
        asio::steady_timer wake{io};
        asio::executor_work_guard<asio::io_context::executor_type> guard{io.get_executor()};
    };
    std::unique_ptr<Loop> loop_;

private:
    struct Delayed {
        TimePoint due;
        std::uint64_t sequence;
        Work work;
        TimePoint latest;  // due + leeway
    };
    static bool later(const Delayed& a, const Delayed& b);
    // On the queue's thread: runs a turn of the posted items.
    void drainPosted();
    static constexpr std::size_t kPostedPerTurn = 64;
    // On the queue's thread: arms the wake timer at the earliest due time (steady clock only).
    void armWake();

    const std::string label_;
    mutable std::mutex mutex_;
    std::shared_ptr<Clock> clock_;
    std::vector<Delayed> delayed_;  // a heap by (due, sequence)
    TimePoint wakeAt_ = TimePoint::max();  // what the wake timer is armed for (steady clock)
    std::uint64_t nextSequence_ = 0;
    std::mutex postedMutex_;
    std::deque<Work> posted_;      // posted items in order of posting
    bool drainScheduled_ = false;  // a turn of posted_ is in the loop
    std::size_t postedRun_ = 0;    // on the queue's thread: posted items run so far
    std::size_t drainTurns_ = 0;   // and the turns they ran in
    std::atomic<std::size_t> unfinishedPosts_{0};  // posted items not yet run to their end
};

}  // namespace havrel
