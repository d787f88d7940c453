#pragma once
// A named serial queue with a thread of its own: work runs one item at a time, in order of
// posting. Delayed work follows the queue's clock; by default that is the main queue's clock at
// creation, so in test mode the main queue's manual clock drives serial queues too, running
// their due work on their own thread and returning once it has run.

#include "platform/WorkQueue.hpp"

#include <memory>
#include <string>
#include <thread>

namespace havrel {

class SerialQueue final : public WorkQueue {
public:
    // clock nullptr: the main queue's clock.
    static std::shared_ptr<SerialQueue> create(std::string label,
                                               std::shared_ptr<Clock> clock = nullptr);

    // Stops the thread; pending work is dropped. Must not be destroyed by its own work.
    ~SerialQueue() override;

    // Runs the work on the queue and waits for it; runs it inline when called on the queue.
    // An exception of the work is thrown here.
    void sync(const Work& work);

private:
    struct Key {};  // only create() makes serial queues: they must be owned by a shared_ptr

public:
    SerialQueue(Key, std::string label, std::shared_ptr<Clock> clock);

private:
    std::size_t runDueWork() override;

    std::thread thread_;
};

}  // namespace havrel
