#include "platform/AsyncLogSink.hpp"

#include "platform/Assert.hpp"

#include <fmt/format.h>

#include <utility>

namespace havrel {

AsyncLogSink::AsyncLogSink(std::shared_ptr<LogSink> next, std::size_t capacity)
    : next_(std::move(next)), capacity_(capacity) {
    HV_ASSERT(next_ != nullptr);
    HV_ASSERT(capacity_ > 0);
    pending_.reserve(capacity_);
    thread_ = std::thread([this] { run(); });
}

AsyncLogSink::~AsyncLogSink() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void AsyncLogSink::write(std::string_view line) {
    bool first = false;
    {
        std::lock_guard lock(mutex_);
        if (count_ == capacity_) {
            ++droppedSinceReport_;
            ++droppedTotal_;
            return;
        }
        if (count_ < pending_.size()) {
            pending_[count_].assign(line);
        } else {
            pending_.emplace_back(line);
        }
        ++count_;
        ++accepted_;
        first = count_ == 1;
    }
    if (first) {
        wake_.notify_one();
    }
}

void AsyncLogSink::flush() {
    std::unique_lock lock(mutex_);
    const std::uint64_t target = accepted_;
    wake_.notify_one();
    drained_.wait(lock, [&] { return written_ >= target; });
}

std::uint64_t AsyncLogSink::droppedCount() const {
    std::lock_guard lock(mutex_);
    return droppedTotal_;
}

void AsyncLogSink::run() {
    std::vector<std::string> writing;
    writing.reserve(capacity_);
    std::unique_lock lock(mutex_);
    for (;;) {
        if (count_ == 0 && droppedSinceReport_ == 0) {
            if (stopping_) {
                return;
            }
            wake_.wait(lock);
            continue;
        }
        // Take the buffer and leave this round's emptied slots (with their storage) in its place.
        std::swap(writing, pending_);
        const std::size_t n = std::exchange(count_, 0);
        const std::uint64_t dropped = std::exchange(droppedSinceReport_, 0);
        lock.unlock();
        if (dropped > 0) {
            next_->write(fmt::format("log: {} lines dropped, the log buffer was full", dropped));
        }
        for (std::size_t i = 0; i < n; ++i) {
            next_->write(writing[i]);
        }
        lock.lock();
        written_ += n;
        drained_.notify_all();
    }
}

}  // namespace havrel
