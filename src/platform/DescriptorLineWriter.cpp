#include "platform/DescriptorLineWriter.hpp"

#include "platform/Log.hpp"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace havrel {

DescriptorLineWriter::DescriptorLineWriter(int fileDescriptor, std::string name, std::size_t capacity)
    : fd_(fileDescriptor), name_(std::move(name)), capacity_(capacity), thread_([this] { run(); }) {}

DescriptorLineWriter::~DescriptorLineWriter() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void DescriptorLineWriter::write(std::string_view line) {
    {
        std::lock_guard lock(mutex_);
        if (pending_.size() >= capacity_) {
            ++dropped_;
            return;
        }
        std::string text;
        text.reserve(line.size() + 1);
        text.append(line);
        text.push_back('\n');
        pending_.push_back(std::move(text));
    }
    wake_.notify_one();
}

std::uint64_t DescriptorLineWriter::droppedCount() const {
    std::lock_guard lock(mutex_);
    return dropped_;
}

std::size_t DescriptorLineWriter::waitingCount() const {
    std::lock_guard lock(mutex_);
    return pending_.size();
}

void DescriptorLineWriter::dropped(std::uint64_t count) {
    std::lock_guard lock(mutex_);
    dropped_ += count;
}

void DescriptorLineWriter::run() {
    // The lines waiting go out together, whole lines in writes of at most kChunkBytes: under
    // load a write carries many lines rather than one, and a pipe that polls writable takes
    // such a write without blocking.
    std::deque<std::string> taken;
    std::string text;
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !pending_.empty(); });
        if (pending_.empty()) {
            return;  // stopping, and everything is out
        }
        std::swap(taken, pending_);
        const bool last = stopping_;
        lock.unlock();
        std::size_t next = 0;
        while (next < taken.size()) {
            text.clear();
            std::size_t lines = 0;
            while (next < taken.size() && (lines == 0 || text.size() + taken[next].size() <= kChunkBytes)) {
                text += taken[next++];
                ++lines;
            }
            // While stalled, and at the end, lines go only if the descriptor takes them at once.
            const auto timeout = stalled_ || last ? std::chrono::milliseconds(0) : kStallTimeout;
            if (writeAll(text, timeout)) {
                stalled_ = false;
            } else {
                dropped(lines);
                if (!stalled_) {
                    stalled_ = true;
                    logf("{}: the output is not being read; dropping lines until it is", name_);
                }
            }
        }
        taken.clear();
        lock.lock();
    }
}

bool DescriptorLineWriter::writeAll(std::string_view text, std::chrono::milliseconds timeout) {
    while (!text.empty()) {
        pollfd ready{fd_, POLLOUT, 0};
        const int polled = ::poll(&ready, 1, static_cast<int>(timeout.count()));
        if (polled < 0 && errno == EINTR) {
            continue;
        }
        if (polled <= 0 || (ready.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
            return false;
        }
        const ssize_t written = ::write(fd_, text.data(), text.size());
        if (written < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace havrel
