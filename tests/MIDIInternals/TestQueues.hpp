#pragma once
// Queues for tests: ThreadQueue is a real serial queue on a thread of its own that counts the
// work it ran; MIDIInternals::ManualQueue runs nothing until the test advances its clock.

#include "MIDIInternals/DispatchQueue.hpp"
#include "MIDIInternals/ManualQueue.hpp"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace MIDIInternals::testing {

class ThreadQueue : public DispatchQueue {
public:
    ThreadQueue() : worker([this] { run(); }) {}
    ~ThreadQueue() override {
        {
            std::lock_guard lock(mutex);
            stopping = true;
        }
        wake.notify_all();
        worker.join();
    }
    void async(Work work) override {
        {
            std::lock_guard lock(mutex);
            jobs.push_back(std::move(work));
        }
        wake.notify_all();
    }
    void asyncAfter(Duration, Work work) override { async(std::move(work)); }
    bool isCurrent() const override { return std::this_thread::get_id() == worker.get_id(); }
    const std::string& label() const override { return name; }
    int executed() const {
        std::lock_guard lock(mutex);
        return executedCount;
    }

private:
    void run() {
        std::unique_lock lock(mutex);
        while (true) {
            wake.wait(lock, [this] { return stopping || !jobs.empty(); });
            if (jobs.empty()) {
                return;
            }
            auto job = std::move(jobs.front());
            jobs.pop_front();
            ++executedCount;  // counted on start, so a caller that waited for the job sees it
            lock.unlock();
            job();
            lock.lock();
        }
    }

    std::string name = "thread";
    mutable std::mutex mutex;
    std::condition_variable wake;
    std::deque<Work> jobs;
    bool stopping = false;
    int executedCount = 0;
    std::thread worker;
};

}  // namespace MIDIInternals::testing
