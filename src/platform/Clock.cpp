#include "platform/Clock.hpp"

#include "platform/Assert.hpp"

#include <algorithm>

namespace havrel {

namespace {

class SteadyClock final : public Clock {
public:
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
};

}  // namespace

std::shared_ptr<Clock> Clock::steady() {
    static const std::shared_ptr<Clock> clock = std::make_shared<SteadyClock>();
    return clock;
}

std::shared_ptr<ManualClock> ManualClock::create(TimePoint start) {
    return std::make_shared<ManualClock>(start);
}

Clock::TimePoint ManualClock::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

void ManualClock::setNow(TimePoint time) {
    std::lock_guard lock(mutex_);
    now_ = std::max(now_, time);
}

void ManualClock::attach(std::weak_ptr<Participant> participant) {
    std::lock_guard lock(mutex_);
    participants_.push_back(std::move(participant));
}

void ManualClock::detach(const Participant* participant) {
    std::lock_guard lock(mutex_);
    std::erase_if(participants_, [participant](const std::weak_ptr<Participant>& entry) {
        auto strong = entry.lock();
        return !strong || strong.get() == participant;
    });
}

std::vector<std::shared_ptr<ManualClock::Participant>> ManualClock::participants() const {
    std::lock_guard lock(mutex_);
    std::vector<std::shared_ptr<Participant>> result;
    for (const auto& entry : participants_) {
        if (auto strong = entry.lock()) {
            result.push_back(std::move(strong));
        }
    }
    return result;
}

void ManualClock::settle() {
    std::size_t ran = 0;
    do {
        ran = 0;
        for (const auto& participant : participants()) {
            ran += participant->runDueWork();
        }
    } while (ran > 0);
}

void ManualClock::advance(Duration duration) {
    HV_ASSERT(duration >= Duration::zero());
    std::lock_guard advancing(advanceMutex_);
    const TimePoint target = now() + duration;
    for (;;) {
        settle();
        std::optional<TimePoint> earliest;
        for (const auto& participant : participants()) {
            auto due = participant->nextDue();
            if (due && (!earliest || *due < *earliest)) {
                earliest = due;
            }
        }
        if (!earliest || *earliest > target) {
            break;
        }
        setNow(*earliest);
    }
    setNow(target);
    settle();
}

}  // namespace havrel
