#include "platform/AsyncLogSink.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

namespace havrel {
namespace {

// Holds the writer thread inside its first line until the test opens the gate.
class GateSink final : public LogSink {
public:
    explicit GateSink(std::shared_ptr<CaptureLogSink> next) : next_(std::move(next)) {}
    void write(std::string_view line) override {
        if (first_) {
            first_ = false;
            entered.set_value();
            open.get_future().wait();
        }
        next_->write(line);
    }
    std::promise<void> entered;
    std::promise<void> open;

private:
    bool first_ = true;
    std::shared_ptr<CaptureLogSink> next_;
};

TEST(AsyncLogSink, KeepsOrderAcrossThreadsAndFlushesOnDestruction) {
    auto capture = std::make_shared<CaptureLogSink>();
    {
        AsyncLogSink sink(capture, 64);
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&sink, t] {
                for (int i = 0; i < 20; ++i) {
                    sink.write(fmt::format("thread {} line {}", t, i));
                    if (i % 5 == 4) {
                        sink.flush();
                    }
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        sink.flush();
        EXPECT_EQ(capture->lines().size(), 60u);
        EXPECT_EQ(sink.droppedCount(), 0u);
        for (int t = 0; t < 3; ++t) {
            int expected = 0;
            for (const auto& line : capture->lines()) {
                if (line.starts_with(fmt::format("thread {} ", t))) {
                    EXPECT_EQ(line, fmt::format("thread {} line {}", t, expected));
                    ++expected;
                }
            }
            EXPECT_EQ(expected, 20);
        }
        // The writer sleeps until a line comes, and wakes for it without a flush.
        sink.write("unflushed");
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (capture->lines().back() != "unflushed" && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        EXPECT_EQ(capture->lines().back(), "unflushed");
        sink.write("last words");
    }
    EXPECT_EQ(capture->lines().back(), "last words");
}

TEST(AsyncLogSink, AFullBufferDropsLinesAndTheWriterReportsHowMany) {
    auto capture = std::make_shared<CaptureLogSink>();
    auto gate = std::make_shared<GateSink>(capture);
    auto entered = gate->entered.get_future();
    {
        AsyncLogSink sink(gate, 4);
        sink.write("first");
        entered.wait();
        for (int i = 0; i < 7; ++i) {
            sink.write(fmt::format("line {}", i));
        }
        EXPECT_EQ(sink.droppedCount(), 3u);
        gate->open.set_value();
        sink.flush();
        EXPECT_EQ(capture->lines(), (std::vector<std::string>{"first", "log: 3 lines dropped, the log buffer was full",
                                                              "line 0", "line 1", "line 2", "line 3"}));
        sink.write("line 7");
        sink.flush();
        EXPECT_EQ(capture->lines().back(), "line 7");
        EXPECT_EQ(sink.droppedCount(), 3u);
    }
}

}  // namespace
}  // namespace havrel
