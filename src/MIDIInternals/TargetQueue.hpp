#pragma once
// A serial queue without a thread of its own: its work runs, in order of posting, on a target
// serial queue that many such queues share, each item marked as this queue's while it runs
// (isCurrent() is true then, and only then). Many owners thus get queues of their own at the
// cost of one thread for all of them.
//
// Work of one queue never waits for work of another on the same target (syncOn from one to the
// other would never end). Work still pending when the queue goes is dropped. Delayed work goes
// through the target's clock.

#include "MIDIInternals/DispatchQueue.hpp"

#include <memory>
#include <string>

namespace MIDIInternals {

class TargetQueue final : public DispatchQueue, public std::enable_shared_from_this<TargetQueue> {
public:
    static std::shared_ptr<TargetQueue> create(std::string label, std::shared_ptr<DispatchQueue> target);
    TargetQueue(std::string label, std::shared_ptr<DispatchQueue> target);
    ~TargetQueue() override;
    TargetQueue(const TargetQueue&) = delete;
    TargetQueue& operator=(const TargetQueue&) = delete;

    void async(Work work) override;
    void asyncAfter(Duration delay, Work work) override;
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }
    const std::shared_ptr<DispatchQueue>& target() const { return target_; }

private:
    Work marked(Work work);

    const std::string label_;
    std::shared_ptr<DispatchQueue> target_;
};

}  // namespace MIDIInternals
