#include "platform/Log.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace havrel {
namespace {

TEST(Log, CaptureKeepsWholeLinesFromManyThreadsAndRestoresPreviousSink) {
    auto outer = std::make_shared<CaptureLogSink>();
    auto before = setLogSink(outer);
    {
        ScopedLogCapture capture;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < 250; ++i) {
                    logf("thread {} line {}", t, i);
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(capture.lines().size(), 1000u);
        EXPECT_EQ(capture.count("thread 3 line"), 250u);
        EXPECT_TRUE(capture.contains("thread 0 line 249"));
    }
    log("after the scope");
    EXPECT_EQ(outer->lines(), std::vector<std::string>{"after the scope"});
    setLogSink(before);
}

}  // namespace
}  // namespace havrel
