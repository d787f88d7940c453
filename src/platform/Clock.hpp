#pragma once
// The clock every delayed thing in the system is measured by. Work queues and timers read
// their queue's clock, never std::chrono directly, so that a test can swap the steady clock for
// a manual one and drive every timer in virtual time, without sleeping.

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace havrel {

class Clock {
public:
    using Duration = std::chrono::steady_clock::duration;
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock() = default;
    virtual TimePoint now() const = 0;
    virtual bool isManual() const { return false; }

    // The process-wide monotonic clock (std::chrono::steady_clock).
    static std::shared_ptr<Clock> steady();
};

// A clock that stands still until a test advances it. Queues that run on it register as
// participants; advance() steps time from one due moment to the next and has each participant
// run, on its own thread, everything due at that moment (and the work that work posts), so that
// delayed work runs in due order across queues and repeating timers keep their exact period.
class ManualClock final : public Clock {
public:
    // Something that holds work by due time: a work queue.
    class Participant {
    public:
        virtual ~Participant() = default;
        // The earliest due time of the participant's delayed work, if any.
        virtual std::optional<TimePoint> nextDue() const = 0;
        // Runs everything due at the clock's current time on the participant's thread, and the
        // work posted meanwhile; returns once it has run, with the number of items run.
        virtual std::size_t runDueWork() = 0;
    };

    // Virtual time starts at the epoch of steady_clock unless told otherwise.
    static std::shared_ptr<ManualClock> create(TimePoint start = TimePoint{});
    explicit ManualClock(TimePoint start) : now_(start) {}

    TimePoint now() const override;
    bool isManual() const override { return true; }

    // Moves time forward by the duration, running everything that falls due on the way in due
    // order, then what is due at the end. A zero duration runs what is due now.
    void advance(Duration duration);

    void attach(std::weak_ptr<Participant> participant);
    void detach(const Participant* participant);

private:
    std::vector<std::shared_ptr<Participant>> participants() const;
    // Has every participant run what is due now, until a round runs nothing.
    void settle();
    void setNow(TimePoint time);

    mutable std::mutex mutex_;
    TimePoint now_;
    std::vector<std::weak_ptr<Participant>> participants_;
    std::mutex advanceMutex_;
};

}  // namespace havrel
