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

TEST(Log, LevelsFilterLinesAndTheCaptureRestoresTheLevel) {
    auto outer = std::make_shared<CaptureLogSink>();
    auto before = setLogSink(outer);
    auto previousLevel = setLogLevel(LogLevel::info);
    int formatted = 0;
    auto counted = [&formatted] { return ++formatted; };
    log("connected");
    logDiag("per message");
    logDiagf("per message {}", 1);
    EXPECT_FALSE(logEnabled(LogLevel::diag));
    EXPECT_EQ(outer->lines(), std::vector<std::string>{"connected"});
    {
        ScopedLogCapture capture;
        EXPECT_TRUE(logEnabled(LogLevel::diag));
        logDiagf("per message {}", counted());
        EXPECT_EQ(capture.lines(), std::vector<std::string>{"per message 1"});
    }
    EXPECT_EQ(logLevel(), LogLevel::info);
    setLogLevel(LogLevel::quiet);
    log("connected");
    logf("error {}", 2);
    EXPECT_FALSE(logEnabled(LogLevel::quiet));
    EXPECT_EQ(outer->lines().size(), 1u);
    EXPECT_EQ(logLevelFromName("diag"), LogLevel::diag);
    EXPECT_EQ(logLevelFromName("quiet"), LogLevel::quiet);
    EXPECT_EQ(logLevelFromName("loud"), std::nullopt);
    setLogLevel(previousLevel);
    setLogSink(before);
}

}  // namespace
}  // namespace havrel
