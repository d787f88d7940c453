// The line writer over a pipe that nobody reads, as the MIDI print's stdout may be: writers never
// wait, what does not fit is dropped and counted, and the writer ends without waiting for a reader.

#include "platform/DescriptorLineWriter.hpp"
#include "platform/Log.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <string>

namespace havrel {
namespace {

TEST(DescriptorLineWriterTest, APipeNobodyReadsCostsDroppedLinesNotMemoryOrWaiting) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ScopedLogCapture capture;
    // The buffer holds more than the pipe, so the writer finds the pipe full.
    auto writer = std::make_unique<DescriptorLineWriter>(ends[1], "test print", 2048);
    const std::string line(99, 'x');
    for (int i = 0; i < 100000; ++i) {
        writer->write(line);
        ASSERT_LE(writer->waitingCount(), 2048u);
    }
    // Ten megabytes offered; the pipe holds some tens of kilobytes (under a thousand lines), and
    // the writer at most the buffer's worth in the round it is writing.
    EXPECT_GT(writer->droppedCount(), 100000u - 2 * 2048 - 1000);
    writer.reset();
    EXPECT_EQ(capture.count("test print: the output is not being read; dropping lines until it is"), 1u);

    // What did get through is whole lines.
    ::close(ends[1]);
    std::string received;
    char buffer[65536];
    for (ssize_t n; (n = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
        received.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(ends[0]);
    ASSERT_FALSE(received.empty());
    ASSERT_EQ(received.size() % (line.size() + 1), 0u);
    for (std::size_t at = 0; at < received.size(); at += line.size() + 1) {
        ASSERT_EQ(received.substr(at, line.size() + 1), line + "\n") << at;
    }
}

}  // namespace
}  // namespace havrel
