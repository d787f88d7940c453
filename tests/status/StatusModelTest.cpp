// The status page's model: what it checks in a change request, how it decodes the monitor's
// messages, and what a state carries.

#include "FakeStatusSources.hpp"
#include "StatusModel.hpp"

#include "platform/Log.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace havrel::testing {
namespace {

using nlohmann::json;

json ask(StatusModel& model, const std::string& text) {
    return json::parse(model.handleRequest(text));
}

TEST(StatusModelTest, ChangesNeedControlAndAreCheckedBeforeTheyReachTheSystem) {
    ScopedLogCapture capture(LogLevel::info);
    auto sources = std::make_shared<FakeStatusSources>();
    StatusModel readOnly(sources, false);
    auto reply = ask(readOnly, R"({"id":1,"op":"setTempo","bpm":120})");
    EXPECT_EQ(reply["ok"], false);
    EXPECT_EQ(reply["id"], 1);
    EXPECT_NE(reply["error"].get<std::string>().find("--status-control"), std::string::npos);
    EXPECT_TRUE(sources->calls.empty());
    EXPECT_EQ(capture.count("status page: request refused: read-only"), 1u);

    StatusModel model(sources, true);
    struct Case {
        const char* request;
        const char* error;  // nullptr: passed on
    };
    const Case cases[] = {
        {R"({"id":2,"op":"setTempo","bpm":120})", nullptr},
        {R"({"op":"setTempo","bpm":20})", nullptr},
        {R"({"op":"setTempo","bpm":300})", nullptr},
        {R"({"op":"setTempo","bpm":19.99})", "the tempo must be between 20 and 300"},
        {R"({"op":"setTempo","bpm":300.5})", "the tempo must be between 20 and 300"},
        {R"({"op":"setTempo","bpm":1e999})", "the request is not a JSON object"},
        {R"({"op":"setTempo","bpm":"120"})", "setTempo needs \"bpm\" (a number)"},
        {R"({"op":"setOutput","name":"Synth A","on":false})", nullptr},
        {R"({"op":"setOutput","name":"Havrel Output","on":false})", "unknown output \"Havrel Output\""},
        {R"({"op":"setOutput","name":"Synth B","on":true})", "unknown output \"Synth B\""},
        {R"({"op":"setOutput","name":"Synth A","on":"yes"})", "setOutput needs \"name\" (text) and \"on\" (true or false)"},
        {R"({"op":"setClockRunning","running":true})", nullptr},
        {R"({"op":"setClockRunning"})", "setClockRunning needs \"running\" (true or false)"},
        {R"({"op":"reboot"})", "unknown request \"reboot\""},
        {R"({"bpm":120})", "the request has no \"op\""},
        {R"([1,2,3])", "the request is not a JSON object"},
        {"{\"op\":", "the request is not a JSON object"},
    };
    for (const auto& testCase : cases) {
        reply = ask(model, testCase.request);
        if (testCase.error) {
            EXPECT_EQ(reply["ok"], false) << testCase.request;
            EXPECT_EQ(reply.value("error", ""), testCase.error) << testCase.request;
        } else {
            EXPECT_EQ(reply["ok"], true) << testCase.request << " " << reply.dump();
        }
    }
    EXPECT_EQ(sources->calls, (std::vector<std::string>{"tempo 120.000000", "tempo 20.000000", "tempo 300.000000",
                                                        "output Synth A off", "clock run"}));
    EXPECT_EQ(ask(model, R"({"id":2,"op":"setTempo","bpm":99})")["id"], 2);

    // What the system itself refuses comes back as the answer's error.
    sources->refusal = "no internal clock";
    reply = ask(model, R"({"id":"x","op":"setClockRunning","running":false})");
    EXPECT_EQ(reply["ok"], false);
    EXPECT_EQ(reply["error"], "no internal clock");
    EXPECT_EQ(reply["id"], "x");
}

TEST(StatusModelTest, DecodesEachKindOfMessage) {
    struct Case {
        std::vector<std::uint8_t> bytes;
        const char* kind;
        int channel;
        const char* values;
    };
    const Case cases[] = {
        {{0x90, 60, 100}, "note on", 1, "note 60 vel 100"},
        {{0x8F, 61, 0}, "note off", 16, "note 61 vel 0"},
        {{0xB3, 74, 33}, "cc", 4, "cc 74 value 33"},
        {{0xC0, 5}, "program", 1, "program 5"},
        {{0xE1, 0x00, 0x40}, "pitch bend", 2, "value 8192"},
        {{0xA0, 60, 9}, "poly pressure", 1, "note 60 pressure 9"},
        {{0xD0, 70}, "channel pressure", 1, "pressure 70"},
        {{0xF2, 0x10, 0x01}, "system", 0, "song position 144"},
        {{0xF8}, "system", 0, "clock"},
        {{0xF0, 0x7E, 0x01, 0xF7}, "sysex", 0, "4 bytes"},
        {{0xB0}, "cc", 1, "cc 0 value 0"},  // cut short: what is missing reads 0
        {{}, "other", 0, ""},
        {{0x40, 0x40}, "other", 0, ""},  // a data byte where the status belongs
    };
    for (const auto& testCase : cases) {
        const auto entry = StatusModel::decode(std::span<const std::uint8_t>(testCase.bytes));
        EXPECT_EQ(entry.kind, testCase.kind);
        EXPECT_EQ(entry.channel, testCase.channel) << testCase.kind;
        EXPECT_EQ(entry.values, testCase.values) << testCase.kind;
    }
}

TEST(StatusModelTest, StatesCarryWhatIsNewAndTheRingsKeepTheirBounds) {
    auto sources = std::make_shared<FakeStatusSources>();
    sources->clientList.push_back({"Pad", "abc", "local path", "2.1", "heard", "", true});
    sources->alertList.push_back({"10:00:00", "Update required.", "text"});
    sources->fileList.push_back({"song (2).mid", 6, "Pad", "10:00:01"});
    StatusModel model(sources, false);
    model.setMonitoredEndpoint("Havrel Output");
    for (int i = 0; i < 250; ++i) {
        const std::uint8_t cc[] = {0xB0, 7, static_cast<std::uint8_t>(i % 128)};
        model.addMonitorBytes(cc);
        model.addLogLine("line " + std::to_string(i));
    }
    auto full = json::parse(model.state(true));
    EXPECT_EQ(full["type"], "state");
    EXPECT_EQ(full["clients"][0]["name"], "Pad");
    EXPECT_EQ(full["clients"][0]["transmitting"], true);
    EXPECT_EQ(full["clock"]["bar"], 2);
    EXPECT_EQ(full["alerts"][0]["message"], "Update required.");
    EXPECT_EQ(full["files"][0], (json{{"name", "song (2).mid"}, {"size", 6}, {"client", "Pad"}, {"time", "10:00:01"}}));
    ASSERT_EQ(full["monitor"].size(), StatusModel::kMonitorEntries);
    EXPECT_EQ(full["monitor"][0]["seq"], 51);  // the oldest 50 have gone
    EXPECT_EQ(full["monitor"].back()["values"], "cc 7 value 121");
    EXPECT_EQ(full["monitor"].back()["endpoint"], "Havrel Output");
    ASSERT_EQ(full["log"].size(), StatusModel::kLogLines);
    EXPECT_EQ(full["log"].back()["line"], "line 249");

    // A full state moves nothing: the next partial one still has everything; then only news.
    EXPECT_EQ(json::parse(model.state(false))["monitor"].size(), StatusModel::kMonitorEntries);
    EXPECT_TRUE(json::parse(model.state(false))["monitor"].empty());
    const std::uint8_t noteOn[] = {0x90, 61, 99};
    model.addMonitorBytes(noteOn);
    auto partial = json::parse(model.state(false));
    ASSERT_EQ(partial["monitor"].size(), 1u);
    EXPECT_EQ(partial["monitor"][0]["kind"], "note on");
    EXPECT_TRUE(partial["log"].empty());

    // The plot keeps the last 60 samples of the meter.
    for (int second = 0; second < 70; ++second) {
        sources->rate = second;
        model.sampleThroughput();
    }
    const auto history = json::parse(model.state(false))["throughput"]["history"];
    ASSERT_EQ(history.size(), StatusModel::kThroughputSeconds);
    EXPECT_EQ(history[0], 10);
    EXPECT_EQ(history.back(), 69);

    // Bytes that are not UTF-8 (a client's name) do not stop the state.
    sources->clientList[0].name = "Pad\xff";
    EXPECT_NO_THROW(json::parse(model.state(false)));
}

TEST(StatusModelTest, TheLogSinkKeepsInfoLinesAndPassesEveryLineOn) {
    auto sources = std::make_shared<FakeStatusSources>();
    auto model = std::make_shared<StatusModel>(sources, false);
    ScopedLogCapture capture(LogLevel::diag);
    auto previous = setLogSink(nullptr);
    auto sink = std::make_shared<StatusLogSink>(previous, model);
    setLogSink(sink);
    log("connected");
    logDiag("[HVCentralTxDiag] broadcastController");
    setLogSink(previous);
    EXPECT_TRUE(capture.contains("connected"));
    EXPECT_TRUE(capture.contains("[HVCentralTxDiag] broadcastController"));
    const auto lines = json::parse(model->state(true))["log"];
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["line"], "connected");
}

// The page's side stops draining (a stalled main queue, a slow page) while threads keep sending
// and logging: every call returns, what does not fit is dropped and counted, and no more than
// the queues' capacity is ever held. Once the page drains again, new items get through.
TEST(StatusModelTest, TapsDropAndCountInsteadOfWaitingForThePage) {
    auto sources = std::make_shared<FakeStatusSources>();
    auto model = std::make_shared<StatusModel>(sources, false);
    ScopedLogCapture capture(LogLevel::info);
    auto previous = setLogSink(nullptr);
    setLogSink(std::make_shared<StatusLogSink>(previous, model));

    constexpr int kThreads = 4;
    constexpr int kEach = 3000;
    std::atomic<std::uint64_t> monitorAccepted{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                const std::uint8_t noteOn[] = {0x90, static_cast<std::uint8_t>(t), static_cast<std::uint8_t>(i % 128)};
                monitorAccepted += model->addMonitorBytes(noteOn) ? 1 : 0;
                if (i % 10 == 0) {
                    log("line from thread " + std::to_string(t));
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    setLogSink(previous);
    const std::uint64_t total = kThreads * kEach;
    const std::uint64_t lines = kThreads * kEach / 10;
    EXPECT_EQ(monitorAccepted.load(), StatusModel::kMonitorQueued);
    EXPECT_EQ(model->monitorDropped(), total - StatusModel::kMonitorQueued);
    EXPECT_EQ(model->logDropped(), lines - StatusModel::kLogQueued);
    // Every line still reached the sink behind the page's.
    EXPECT_EQ(capture.count("line from thread"), lines);

    const auto state = json::parse(model->state(false));
    EXPECT_EQ(state["throughput"]["monitorDropped"], total - StatusModel::kMonitorQueued);
    EXPECT_EQ(state["throughput"]["logDropped"], lines - StatusModel::kLogQueued);
    EXPECT_EQ(state["monitor"].size(), StatusModel::kMonitorEntries);
    EXPECT_EQ(state["log"].size(), StatusModel::kLogLines);

    const std::uint8_t programChange[] = {0xC3, 9};
    EXPECT_TRUE(model->addMonitorBytes(programChange));
    EXPECT_TRUE(model->addLogLine(std::string(2000, 'x')));
    const auto next = json::parse(model->state(false));
    ASSERT_EQ(next["monitor"].size(), 1u);
    EXPECT_EQ(next["monitor"][0]["values"], "program 9");
    EXPECT_EQ(next["log"][0]["line"].get<std::string>().size(), StatusModel::kLogLineBytes);
    EXPECT_EQ(model->monitorDropped(), total - StatusModel::kMonitorQueued);
}

}  // namespace
}  // namespace havrel::testing
