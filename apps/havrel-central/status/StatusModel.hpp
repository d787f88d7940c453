#pragma once
// The status page's model: the last MIDI messages that left and the last log lines (both fed
// from any thread), the throughput of the last 60 seconds, and the JSON the page receives. It
// also reads and checks the page's change requests.
//
// Messages to the page:
//   {"type":"state","full":<bool>,"control":<bool>,"clients":[...],"throughput":{...},
//    "outputs":[...],"alerts":[...],"files":[...],"clock":{...},"monitor":[...],"log":[...]}
// A full state carries every kept monitor entry and log line; the others carry those added
// since the previous state. Answers to requests: {"type":"reply","id":...,"ok":<bool>[,"error":"..."]}.
//
// Requests from the page (only with control allowed):
//   {"id":1,"op":"setOutput","name":"<hardware output>","on":true}
//   {"id":2,"op":"setClockRunning","running":true}
//   {"id":3,"op":"setTempo","bpm":120}

#include "StatusSources.hpp"

#include "MIDICore/MIDIEvent.hpp"
#include "platform/Log.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace havrel {

struct StatusMonitorEntry {
    std::uint64_t sequence = 0;
    std::string time;      // local wall-clock time, HH:MM:SS.mmm
    std::string endpoint;
    std::string kind;      // "note on", "note off", "cc", "program", "pitch bend", ...
    int channel = 0;       // 1 to 16; 0 for messages without a channel
    std::string values;    // "note 60 vel 100", "cc 7 value 64", ...
};

class StatusModel {
public:
    static constexpr std::size_t kMonitorEntries = 200;
    static constexpr std::size_t kLogLines = 100;
    static constexpr std::size_t kThroughputSeconds = 60;
    static constexpr double kMinimumTempo = 20.0;
    static constexpr double kMaximumTempo = 300.0;

    StatusModel(std::shared_ptr<StatusSources> sources, bool controlAllowed);

    // Any thread.
    void addMonitorEvent(const std::string& endpoint, const MIDICore::MIDIEvent& event);
    void addMonitorBytes(const std::string& endpoint, const std::vector<std::uint8_t>& midi1Bytes);
    void addLogLine(std::string_view line);

    // Main queue: once a second, the meter's count goes into the running plot.
    void sampleThroughput();
    // Main queue: the state for the page. A partial state also moves the "sent up to" marks.
    std::string state(bool full);
    // Main queue: reads one request from the page and answers it.
    std::string handleRequest(const std::string& text);

    bool controlAllowed() const { return controlAllowed_; }

    // Kind, channel and values of one MIDI 1.0 message (status byte first).
    static StatusMonitorEntry decode(const std::vector<std::uint8_t>& bytes);

private:
    nlohmann::json answer(const nlohmann::json& id, const std::string& error);
    std::string refuse(const nlohmann::json& id, const std::string& error);
    static std::string timeNow();

    const std::shared_ptr<StatusSources> sources_;
    const bool controlAllowed_;

    std::mutex mutex_;  // the two rings and their sequence numbers
    std::deque<StatusMonitorEntry> monitor_;
    std::uint64_t nextMonitorSequence_ = 1;
    struct LogEntry {
        std::uint64_t sequence;
        std::string time;
        std::string line;
    };
    std::deque<LogEntry> log_;
    std::uint64_t nextLogSequence_ = 1;

    // Main queue.
    std::uint64_t monitorSentUpTo_ = 0;
    std::uint64_t logSentUpTo_ = 0;
    std::deque<std::int64_t> throughput_;
};

// Passes every line on to the sink it wraps and keeps the info-level lines in the model.
class StatusLogSink final : public LogSink {
public:
    StatusLogSink(std::shared_ptr<LogSink> next, std::weak_ptr<StatusModel> model);
    void write(std::string_view line) override;
    void writeAtLevel(LogLevel level, std::string_view line) override;
    const std::shared_ptr<LogSink>& next() const { return next_; }

private:
    std::shared_ptr<LogSink> next_;
    std::weak_ptr<StatusModel> model_;
};

}  // namespace havrel
