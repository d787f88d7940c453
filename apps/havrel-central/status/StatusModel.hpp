#pragma once
// The status page's model: the last MIDI messages that left and the last log lines (both fed
// from any thread), the throughput of the last 60 seconds, and the JSON the page receives. It
// also reads and checks the page's change requests.
//
// The monitor and the log lines reach the model through two bounded queues that never wait: the
// thread that hears a message or writes a line copies a few bytes into a slot and goes on, and
// when the page's side has not taken the slots out in time the item is dropped and counted (the
// counts are on the page). Decoding, time of day and text are made on the main queue when the
// page's side drains the queues, and only for the entries it keeps.
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
#include "platform/DropQueue.hpp"
#include "platform/Log.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

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
    // What the queues hold between two drains (a drain runs 20 times a second while a page is
    // open or messages flow), and the longest log line kept.
    static constexpr std::size_t kMonitorQueued = 4096;
    static constexpr std::size_t kLogQueued = 256;
    static constexpr std::size_t kLogLineBytes = 496;
    static constexpr double kMinimumTempo = 20.0;
    static constexpr double kMaximumTempo = 300.0;

    StatusModel(std::shared_ptr<StatusSources> sources, bool controlAllowed);

    // Any thread; never waits. False when the item was dropped for a full queue.
    bool addMonitorEvent(const MIDICore::MIDIEvent& event);
    bool addMonitorBytes(std::span<const std::uint8_t> midi1Bytes);
    bool addLogLine(std::string_view line);
    // Items dropped so far because the page's side had not drained the queue.
    std::uint64_t monitorDropped() const { return monitorQueue_.dropped(); }
    std::uint64_t logDropped() const { return logQueue_.dropped(); }

    // Main queue: the name shown beside each monitored message.
    void setMonitoredEndpoint(std::string name) { monitoredEndpoint_ = std::move(name); }
    // Main queue: takes what the queues hold into the kept entries. The number of items taken.
    std::size_t drain();

    // Main queue: once a second, the meter's count goes into the running plot.
    void sampleThroughput();
    // Main queue: the state for the page (after a drain). A partial state also moves the "sent
    // up to" marks.
    std::string state(bool full);
    // Main queue: reads one request from the page and answers it.
    std::string handleRequest(const std::string& text);

    bool controlAllowed() const { return controlAllowed_; }

    // Kind, channel and values of one MIDI 1.0 message (status byte first).
    static StatusMonitorEntry decode(std::span<const std::uint8_t> bytes);

private:
    nlohmann::json answer(const nlohmann::json& id, const std::string& error);
    std::string refuse(const nlohmann::json& id, const std::string& error);
    // As queued: the wall-clock time and the first bytes of the message (a SysEx keeps its size).
    struct MonitorItem {
        std::int64_t time;  // nanoseconds since the epoch
        std::uint32_t size;
        std::uint8_t bytes[3];
    };
    struct LogItem {
        std::int64_t time;
        std::uint32_t size;
        char text[kLogLineBytes];
    };
    static std::int64_t timeNow();
    // HH:MM:SS.mmm, local time; the calendar is worked out once a second.
    std::string timeOfDay(std::int64_t time);

    const std::shared_ptr<StatusSources> sources_;
    const bool controlAllowed_;

    DropQueue<MonitorItem> monitorQueue_{kMonitorQueued};
    DropQueue<LogItem> logQueue_{kLogQueued};

    // Main queue from here on.
    std::string monitoredEndpoint_;
    std::int64_t cachedSecond_ = -1;
    std::string cachedClock_;  // HH:MM:SS of cachedSecond_
    std::deque<StatusMonitorEntry> monitor_;
    std::vector<MonitorItem> drainScratch_;
    std::uint64_t nextMonitorSequence_ = 1;
    struct LogEntry {
        std::uint64_t sequence;
        std::string time;
        std::string line;
    };
    std::deque<LogEntry> log_;
    std::uint64_t nextLogSequence_ = 1;

    std::uint64_t monitorSentUpTo_ = 0;
    std::uint64_t logSentUpTo_ = 0;
    std::deque<std::int64_t> throughput_;
};

// Passes every line on to the sink it wraps and queues the info-level lines for the model.
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
