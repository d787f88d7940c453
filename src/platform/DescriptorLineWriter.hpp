#pragma once
// Writes lines to a file descriptor (standard output, say) on a thread of its own, so that no
// caller ever waits for the descriptor. A caller copies the line into a bounded buffer and
// returns; when the buffer is full the line is dropped and counted. The writer takes the whole
// buffer at a time, so at most twice its capacity is held. The writer never blocks on
// the descriptor for long either: a line that cannot be written within kStallTimeout (nobody
// reads the pipe, the terminal is stopped) is dropped and counted, and so is every line while
// the descriptor stays unwritable. The first drop of each stall is told in one log line.
// Destruction writes what it still can without waiting, and joins the thread.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace havrel {

class DescriptorLineWriter {
public:
    static constexpr std::chrono::milliseconds kStallTimeout{100};
    // The most one write carries (a pipe's atomic write); a longer line goes alone.
    static constexpr std::size_t kChunkBytes = 4096;

    // name: what the log line calls the output ("--print-midi").
    DescriptorLineWriter(int fileDescriptor, std::string name, std::size_t capacity = 4096);
    ~DescriptorLineWriter();
    DescriptorLineWriter(const DescriptorLineWriter&) = delete;
    DescriptorLineWriter& operator=(const DescriptorLineWriter&) = delete;

    // Any thread: the line and a newline, later.
    void write(std::string_view line);
    // Lines dropped so far, for a full buffer or a stalled descriptor.
    std::uint64_t droppedCount() const;
    // Lines waiting in the buffer.
    std::size_t waitingCount() const;

private:
    void run();
    // The whole text, or false once the descriptor stays unwritable for the timeout.
    bool writeAll(std::string_view text, std::chrono::milliseconds timeout);
    void dropped(std::uint64_t count);

    const int fd_;
    const std::string name_;
    const std::size_t capacity_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::string> pending_;
    std::uint64_t dropped_ = 0;
    bool stalled_ = false;  // writer thread only
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace havrel
