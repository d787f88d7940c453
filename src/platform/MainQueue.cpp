#include "platform/MainQueue.hpp"

#include "platform/Assert.hpp"

namespace havrel {

MainQueue::MainQueue(Key, std::shared_ptr<Clock> clock) : WorkQueue("main", std::move(clock)) {}

MainQueue& MainQueue::shared() {
    // Never destroyed: work of other long-lived objects may still post to it at exit.
    static auto* const instance = new std::shared_ptr<MainQueue>([] {
        auto queue = std::make_shared<MainQueue>(Key{}, Clock::steady());
        queue->attachToClock();
        return queue;
    }());
    return **instance;
}

bool MainQueue::isCurrent() const {
    return WorkQueue::isCurrent() || thread_.load() == std::this_thread::get_id();
}

void MainQueue::adoptCallingThread() {
    thread_.store(std::this_thread::get_id());
}

void MainQueue::run() {
    adoptCallingThread();
    CurrentScope scope(*this);
    loop_->io.run();
    loop_->io.restart();
}

std::size_t MainQueue::runFor(Duration duration) {
    if (auto manual = manualClock()) {
        // Count what ran through the participant hook during the advance.
        const std::size_t before = executed_;
        manual->advance(duration);
        return executed_ - before;
    }
    adoptCallingThread();
    CurrentScope scope(*this);
    const std::size_t ran = countingItems([&] { return loop_->io.run_for(duration); });
    if (loop_->io.stopped()) {
        loop_->io.restart();
    }
    return ran;
}

std::size_t MainQueue::poll() {
    return runDueWork();
}

std::size_t MainQueue::pollReady() {
    const std::size_t ran = countingItems([&] { return loop_->io.poll(); });
    if (loop_->io.stopped()) {
        loop_->io.restart();
    }
    return ran;
}

std::size_t MainQueue::runDueWork() {
    adoptCallingThread();
    CurrentScope scope(*this);
    std::size_t total = 0;
    for (;;) {
        const std::size_t ran = pollReady() + runDueDelayed();
        if (ran == 0) {
            break;
        }
        total += ran;
    }
    executed_ += total;
    return total;
}

void MainQueue::stop() {
    loop_->io.stop();
}

std::shared_ptr<ManualClock> MainQueue::enableManualClock() {
    auto clock = ManualClock::create();
    resetLoop(clock);
    return clock;
}

std::shared_ptr<ManualClock> MainQueue::manualClock() const {
    auto clock = this->clock();
    return clock->isManual() ? std::static_pointer_cast<ManualClock>(clock) : nullptr;
}

void MainQueue::advance(Duration duration) {
    auto manual = manualClock();
    HV_ASSERT(manual != nullptr);
    manual->advance(duration);
}

void MainQueue::resetForTesting() {
    resetLoop(Clock::steady());
}

ManualClockScope::ManualClockScope() : clock_(MainQueue::shared().enableManualClock()) {}

ManualClockScope::~ManualClockScope() {
    MainQueue::shared().resetForTesting();
}

}  // namespace havrel
