#include "MIDIInternals/StandardSerialQueue.hpp"

#include <algorithm>
#include <utility>

namespace MIDIInternals {

std::shared_ptr<StandardSerialQueue> StandardSerialQueue::create(std::string label) {
    return std::make_shared<StandardSerialQueue>(std::move(label));
}

StandardSerialQueue::StandardSerialQueue(std::string label) : label_(std::move(label)) {
    thread_ = std::thread([this] { run(); });
}

StandardSerialQueue::~StandardSerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

bool StandardSerialQueue::later(const Delayed& a, const Delayed& b) {
    return a.due != b.due ? a.due > b.due : a.sequence > b.sequence;
}

void StandardSerialQueue::async(Work work) {
    {
        std::lock_guard lock(mutex_);
        ready_.push_back(std::move(work));
    }
    wake_.notify_all();
}

void StandardSerialQueue::asyncAfter(Duration delay, Work work) {
    if (delay <= Duration::zero()) {
        async(std::move(work));
        return;
    }
    {
        std::lock_guard lock(mutex_);
        delayed_.push_back(Delayed{std::chrono::steady_clock::now() + delay, nextSequence_++, std::move(work)});
        std::push_heap(delayed_.begin(), delayed_.end(), later);
    }
    wake_.notify_all();
}

bool StandardSerialQueue::isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

StandardSerialQueue::Work StandardSerialQueue::takeReady(std::unique_lock<std::mutex>&) {
    // Delayed items that fell due join the ready ones in due order.
    const auto now = std::chrono::steady_clock::now();
    while (!delayed_.empty() && delayed_.front().due <= now) {
        std::pop_heap(delayed_.begin(), delayed_.end(), later);
        ready_.push_back(std::move(delayed_.back().work));
        delayed_.pop_back();
    }
    if (ready_.empty()) {
        return nullptr;
    }
    auto work = std::move(ready_.front());
    ready_.pop_front();
    return work;
}

void StandardSerialQueue::run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (auto work = takeReady(lock)) {
            lock.unlock();
            work();
            work = nullptr;  // released before the lock is taken again
            lock.lock();
            continue;
        }
        if (delayed_.empty()) {
            wake_.wait(lock);
        } else {
            wake_.wait_until(lock, delayed_.front().due);
        }
    }
}

}  // namespace MIDIInternals
