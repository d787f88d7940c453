#pragma once
// A serial queue on a thread of its own, made of the standard library only: work runs one item
// at a time in order of posting; delayed work waits on the steady clock. The MIDI library's
// queues are of this kind unless the host installs a factory of its own (SerialQueueFactory.hpp).
//
// Destruction stops the thread and drops pending work; it must not happen in the queue's own
// work (releaseQueue in QueueRelease.hpp hands such a last reference to another thread).

#include "MIDIInternals/DispatchQueue.hpp"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace MIDIInternals {

class StandardSerialQueue final : public DispatchQueue {
public:
    static std::shared_ptr<StandardSerialQueue> create(std::string label);
    explicit StandardSerialQueue(std::string label);
    ~StandardSerialQueue() override;
    StandardSerialQueue(const StandardSerialQueue&) = delete;
    StandardSerialQueue& operator=(const StandardSerialQueue&) = delete;

    void async(Work work) override;
    void asyncAfter(Duration delay, Work work) override;
    bool isCurrent() const override;
    const std::string& label() const override { return label_; }

private:
    using TimePoint = std::chrono::steady_clock::time_point;
    struct Delayed {
        TimePoint due;
        std::uint64_t sequence;
        Work work;
    };
    static bool later(const Delayed& a, const Delayed& b);
    void run();
    // With the mutex held: the next item to run now, or nothing.
    Work takeReady(std::unique_lock<std::mutex>& lock);

    const std::string label_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Work> ready_;
    std::vector<Delayed> delayed_;  // a heap by (due, sequence)
    std::uint64_t nextSequence_ = 0;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace MIDIInternals
