#include "MIDIInternals/TargetQueue.hpp"

#include "MIDIInternals/QueueRelease.hpp"

#include <utility>

namespace MIDIInternals {

namespace {
thread_local const TargetQueue* currentTargetQueue = nullptr;

class CurrentScope {
public:
    explicit CurrentScope(const TargetQueue* queue) : previous_(std::exchange(currentTargetQueue, queue)) {}
    ~CurrentScope() { currentTargetQueue = previous_; }
    CurrentScope(const CurrentScope&) = delete;
    CurrentScope& operator=(const CurrentScope&) = delete;

private:
    const TargetQueue* previous_;
};
}  // namespace

std::shared_ptr<TargetQueue> TargetQueue::create(std::string label, std::shared_ptr<DispatchQueue> target) {
    return std::make_shared<TargetQueue>(std::move(label), std::move(target));
}

TargetQueue::TargetQueue(std::string label, std::shared_ptr<DispatchQueue> target)
    : label_(std::move(label)), target_(std::move(target)) {}

// The last holder of the target may be work running on it.
TargetQueue::~TargetQueue() { releaseQueue(std::move(target_)); }

TargetQueue::Work TargetQueue::marked(Work work) {
    return [weakSelf = weak_from_this(), work = std::move(work)] {
        auto self = weakSelf.lock();
        if (!self) {
            return;
        }
        CurrentScope scope(self.get());
        work();
    };
}

void TargetQueue::async(Work work) { target_->async(marked(std::move(work))); }

void TargetQueue::asyncAfter(Duration delay, Work work) { target_->asyncAfter(delay, marked(std::move(work))); }

bool TargetQueue::isCurrent() const { return currentTargetQueue == this; }

}  // namespace MIDIInternals
