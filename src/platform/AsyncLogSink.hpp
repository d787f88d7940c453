#pragma once
// A log sink that hands each line to a thread of its own, which writes it to the next sink.
// The caller copies the line into a bounded buffer under a lock and returns. The writer sleeps
// on a condition variable while the buffer is empty, so an idle program never wakes for its
// log; the caller that puts the first line into an empty buffer wakes it, and the lines that
// follow while it writes join the next round without a wake. When the buffer is full the line
// is dropped and counted;
// the writer reports the count in one line of its own before the lines that follow.
// Destruction writes what is buffered and joins the thread.

#include "platform/Log.hpp"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace havrel {

class AsyncLogSink final : public LogSink {
public:
    explicit AsyncLogSink(std::shared_ptr<LogSink> next, std::size_t capacity = 8192);
    ~AsyncLogSink() override;
    AsyncLogSink(const AsyncLogSink&) = delete;
    AsyncLogSink& operator=(const AsyncLogSink&) = delete;

    void write(std::string_view line) override;
    // Returns when every line written before the call has reached the next sink.
    void flush();
    // Lines dropped because the buffer was full, in all.
    std::uint64_t droppedCount() const;

private:
    void run();

    const std::shared_ptr<LogSink> next_;
    const std::size_t capacity_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable drained_;
    // Lines waiting, in slots whose storage is kept between rounds: pending_[0, count_).
    std::vector<std::string> pending_;
    std::size_t count_ = 0;
    std::uint64_t droppedSinceReport_ = 0;
    std::uint64_t droppedTotal_ = 0;
    std::uint64_t accepted_ = 0;  // lines taken into the buffer, in all
    std::uint64_t written_ = 0;   // of those, handed to the next sink
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace havrel
