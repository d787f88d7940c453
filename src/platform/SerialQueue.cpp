#include "platform/SerialQueue.hpp"

#include "platform/Assert.hpp"
#include "platform/MainQueue.hpp"

#include <future>

namespace havrel {

std::shared_ptr<SerialQueue> SerialQueue::create(std::string label, std::shared_ptr<Clock> clock) {
    if (!clock) {
        clock = MainQueue::shared().clock();
    }
    auto queue = std::make_shared<SerialQueue>(Key{}, std::move(label), std::move(clock));
    queue->attachToClock();
    return queue;
}

SerialQueue::SerialQueue(Key, std::string label, std::shared_ptr<Clock> clock)
    : WorkQueue(std::move(label), std::move(clock)) {
    thread_ = std::thread([this] {
        CurrentScope scope(*this);
        loop_->io.run();
    });
}

SerialQueue::~SerialQueue() {
    HV_ASSERT(!isCurrent());
    loop_->guard.reset();
    loop_->io.stop();
    thread_.join();
}

void SerialQueue::sync(const Work& work) {
    if (isCurrent()) {
        work();
        return;
    }
    std::packaged_task<void()> task(work);
    auto done = task.get_future();
    post([&task] { task(); });
    done.get();
}

std::size_t SerialQueue::runDueWork() {
    // An idle queue has nothing to run or to wait for: no round trip to its thread.
    if (!hasWorkToRun()) {
        return 0;
    }
    std::size_t ran = 0;
    sync([this, &ran] { ran = runDueDelayed(); });
    // What the due work posted runs before this returns.
    sync([] {});
    return ran;
}

}  // namespace havrel
