#include "StatusModel.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>

namespace havrel {

namespace {

using nlohmann::json;

const char* systemMessageName(std::uint8_t status) {
    switch (status) {
        case 0xF1: return "time code";
        case 0xF2: return "song position";
        case 0xF3: return "song select";
        case 0xF6: return "tune request";
        case 0xF8: return "clock";
        case 0xFA: return "start";
        case 0xFB: return "continue";
        case 0xFC: return "stop";
        case 0xFE: return "active sensing";
        case 0xFF: return "reset";
        default: return "system";
    }
}

}  // namespace

StatusModel::StatusModel(std::shared_ptr<StatusSources> sources, bool controlAllowed)
    : sources_(std::move(sources)), controlAllowed_(controlAllowed) {}

std::int64_t StatusModel::timeNow() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string StatusModel::timeOfDay(std::int64_t time) {
    const std::int64_t second = time / 1'000'000'000;
    if (second != cachedSecond_) {
        cachedClock_ = fmt::format("{:%H:%M:%S}", fmt::localtime(static_cast<std::time_t>(second)));
        cachedSecond_ = second;
    }
    return fmt::format("{}.{:03}", cachedClock_, (time / 1'000'000) % 1000);
}

StatusMonitorEntry StatusModel::decode(std::span<const std::uint8_t> bytes) {
    // Channel messages by the high nibble of the status, 0x8 to 0xE. Pitch bend shows its
    // 14-bit value as the first number.
    struct ChannelMessage {
        const char* kind;
        const char* format;
    };
    static constexpr ChannelMessage kChannelMessages[] = {
        {"note off", "note {} vel {}"}, {"note on", "note {} vel {}"}, {"poly pressure", "note {} pressure {}"},
        {"cc", "cc {} value {}"},       {"program", "program {}"},     {"channel pressure", "pressure {}"},
        {"pitch bend", "value {}"},
    };
    StatusMonitorEntry entry;
    if (bytes.empty() || bytes[0] < 0x80) {
        entry.kind = "other";
        return entry;
    }
    const std::uint8_t status = bytes[0];
    auto data = [&](std::size_t index) -> unsigned { return index < bytes.size() ? bytes[index] & 0x7F : 0; };
    const unsigned fourteenBits = data(1) | (data(2) << 7);
    if (status < 0xF0) {
        const ChannelMessage& message = kChannelMessages[(status >> 4) - 0x8];
        entry.kind = message.kind;
        entry.channel = (status & 0x0F) + 1;
        entry.values = fmt::format(fmt::runtime(message.format), status >= 0xE0 ? fourteenBits : data(1), data(2));
    } else if (status == 0xF0) {
        entry.kind = "sysex";
        entry.values = fmt::format("{} bytes", bytes.size());
    } else {
        entry.kind = "system";
        entry.values = systemMessageName(status);
        if (status == 0xF2) {
            entry.values += fmt::format(" {}", fourteenBits);
        }
    }
    return entry;
}

bool StatusModel::addMonitorEvent(const MIDICore::MIDIEvent& event) {
    return addMonitorBytes(event.midi1RawBytes());
}

bool StatusModel::addMonitorBytes(std::span<const std::uint8_t> midi1Bytes) {
    const std::int64_t time = timeNow();
    return monitorQueue_.pushWith([&](MonitorItem& item) {
        item.time = time;
        item.size = static_cast<std::uint32_t>(midi1Bytes.size());
        for (std::size_t i = 0; i < sizeof(item.bytes); ++i) {
            item.bytes[i] = i < midi1Bytes.size() ? midi1Bytes[i] : 0;
        }
    });
}

bool StatusModel::addLogLine(std::string_view line) {
    const std::int64_t time = timeNow();
    return logQueue_.pushWith([&](LogItem& item) {
        item.time = time;
        item.size = static_cast<std::uint32_t>(std::min(line.size(), sizeof(item.text)));
        std::memcpy(item.text, line.data(), item.size);
    });
}

std::size_t StatusModel::drain() {
    // Only the newest kMonitorEntries of a drain can be kept: the older ones are taken out of
    // the queue and passed over without being decoded.
    std::size_t taken = 0;
    std::vector<MonitorItem>& recent = drainScratch_;
    recent.resize(kMonitorEntries);
    std::size_t count = 0;
    MonitorItem item{};
    while (monitorQueue_.pop(item)) {
        recent[count % kMonitorEntries] = item;
        ++count;
    }
    taken += count;
    nextMonitorSequence_ += count > kMonitorEntries ? count - kMonitorEntries : 0;
    for (std::size_t i = count > kMonitorEntries ? count - kMonitorEntries : 0; i < count; ++i) {
        const MonitorItem& queued = recent[i % kMonitorEntries];
        const std::size_t stored = std::min<std::size_t>(queued.size, sizeof(queued.bytes));
        StatusMonitorEntry entry = decode(std::span<const std::uint8_t>(queued.bytes, stored));
        if (entry.kind == "sysex") {
            entry.values = fmt::format("{} bytes", queued.size);
        }
        entry.sequence = nextMonitorSequence_++;
        entry.time = timeOfDay(queued.time);
        entry.endpoint = monitoredEndpoint_;
        monitor_.push_back(std::move(entry));
    }
    while (monitor_.size() > kMonitorEntries) {
        monitor_.pop_front();
    }
    LogItem line{};
    while (logQueue_.pop(line)) {
        ++taken;
        log_.push_back({nextLogSequence_++, timeOfDay(line.time), std::string(line.text, line.size)});
        if (log_.size() > kLogLines) {
            log_.pop_front();
        }
    }
    return taken;
}

void StatusModel::sampleThroughput() {
    throughput_.push_back(sources_->messagesPerSecond());
    while (throughput_.size() > kThroughputSeconds) {
        throughput_.pop_front();
    }
}

std::string StatusModel::state(bool full) {
    drain();
    json clients = json::array();
    for (const auto& client : sources_->clients()) {
        clients.push_back({{"name", client.name},
                           {"product", client.product},
                           {"transport", client.transport},
                           {"apiVersion", client.apiVersion},
                           {"state", client.state},
                           {"reason", client.reason},
                           {"transmitting", client.transmitting}});
    }
    json outputs = json::array();
    for (const auto& output : sources_->outputs()) {
        outputs.push_back(
            {{"name", output.name}, {"kind", output.kind}, {"on", output.on}, {"switchable", output.switchable}});
    }
    json alerts = json::array();
    for (const auto& alert : sources_->alerts()) {
        alerts.push_back({{"time", alert.time}, {"message", alert.message}, {"text", alert.text}});
    }
    json files = json::array();
    for (const auto& file : sources_->receivedFiles()) {
        files.push_back({{"name", file.name}, {"size", file.size}, {"client", file.client}, {"time", file.time}});
    }
    const StatusClock clock = sources_->clock();
    json history = json::array();
    for (auto count : throughput_) {
        history.push_back(count);
    }
    json message = {
        {"type", "state"},
        {"full", full},
        {"control", controlAllowed_},
        {"clients", std::move(clients)},
        {"throughput",
         {{"rate", sources_->messagesPerSecond()},
          {"last", sources_->lastMessageDescription()},
          {"history", history},
          {"receivedDropped", sources_->receivedMIDIDropped()},
          {"monitorDropped", monitorDropped()},
          {"logDropped", logDropped()}}},
        {"outputs", std::move(outputs)},
        {"alerts", std::move(alerts)},
        {"files", std::move(files)},
        {"clock",
         {{"source", clock.source},
          {"tempo", clock.tempo},
          {"bar", clock.bar},
          {"beat", clock.beat},
          {"division", clock.beatDivision},
          {"running", clock.running},
          {"controllable", clock.controllable},
          {"canUseInternal", clock.canUseInternal}}},
        {"sequencer", sources_->sequences()},
    };
    json monitor = json::array();
    json log = json::array();
    {
        const std::uint64_t monitorFrom = full ? 0 : monitorSentUpTo_;
        for (const auto& entry : monitor_) {
            if (entry.sequence > monitorFrom) {
                monitor.push_back({{"seq", entry.sequence},
                                   {"time", entry.time},
                                   {"endpoint", entry.endpoint},
                                   {"kind", entry.kind},
                                   {"channel", entry.channel},
                                   {"values", entry.values}});
            }
        }
        const std::uint64_t logFrom = full ? 0 : logSentUpTo_;
        for (const auto& entry : log_) {
            if (entry.sequence > logFrom) {
                log.push_back({{"seq", entry.sequence}, {"time", entry.time}, {"line", entry.line}});
            }
        }
        if (!full) {
            monitorSentUpTo_ = nextMonitorSequence_ - 1;
            logSentUpTo_ = nextLogSequence_ - 1;
        }
    }
    message["monitor"] = std::move(monitor);
    message["log"] = std::move(log);
    // Text from outside (client names, log lines) may hold invalid UTF-8: replaced, not thrown.
    return message.dump(-1, ' ', false, json::error_handler_t::replace);
}

json StatusModel::answer(const json& id, const std::string& error) {
    json reply = {{"type", "reply"}, {"id", id}, {"ok", error.empty()}};
    if (!error.empty()) {
        reply["error"] = error;
    }
    return reply;
}

std::string StatusModel::refuse(const json& id, const std::string& error) {
    logf("status page: request refused: {}", error);
    return answer(id, error).dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string StatusModel::handleRequest(const std::string& text) {
    const json request = json::parse(text, nullptr, false);
    if (request.is_discarded() || !request.is_object()) {
        return refuse(nullptr, "the request is not a JSON object");
    }
    json id = nullptr;
    if (auto found = request.find("id"); found != request.end() && (found->is_number_integer() || found->is_string())) {
        id = *found;
        if (id.is_string() && id.get_ref<const std::string&>().size() > 64) {
            id = nullptr;
        }
    }
    if (!controlAllowed_) {
        return refuse(id, "read-only: havrel-central runs without --status-control");
    }
    const auto op = request.find("op");
    if (op == request.end() || !op->is_string()) {
        return refuse(id, "the request has no \"op\"");
    }
    const std::string& name = op->get_ref<const std::string&>();
    std::string error;
    if (name == "setOutput") {
        const auto output = request.find("name");
        const auto on = request.find("on");
        if (output == request.end() || !output->is_string() || on == request.end() || !on->is_boolean()) {
            return refuse(id, "setOutput needs \"name\" (text) and \"on\" (true or false)");
        }
        const std::string& outputName = output->get_ref<const std::string&>();
        bool known = false;
        for (const auto& candidate : sources_->outputs()) {
            known = known || (candidate.switchable && candidate.name == outputName);
        }
        if (!known) {
            return refuse(id, fmt::format("unknown output \"{}\"", outputName.substr(0, 200)));
        }
        error = sources_->setOutputEnabled(outputName, on->get<bool>());
    } else if (name == "setClockRunning") {
        const auto running = request.find("running");
        if (running == request.end() || !running->is_boolean()) {
            return refuse(id, "setClockRunning needs \"running\" (true or false)");
        }
        error = sources_->setClockRunning(running->get<bool>());
    } else if (name == "editSequences") {
        error = sources_->editSequences(request);
    } else if (name == "useInternalClock") {
        error = sources_->useInternalClock();
    } else if (name == "setTempo") {
        const auto bpm = request.find("bpm");
        if (bpm == request.end() || !bpm->is_number()) {
            return refuse(id, "setTempo needs \"bpm\" (a number)");
        }
        const double value = bpm->get<double>();
        if (!std::isfinite(value) || value < kMinimumTempo || value > kMaximumTempo) {
            return refuse(id, "the tempo must be between 20 and 300");
        }
        error = sources_->setTempo(value);
    } else {
        return refuse(id, fmt::format("unknown request \"{}\"", name.substr(0, 64)));
    }
    if (!error.empty()) {
        return refuse(id, error);
    }
    return answer(id, "").dump();
}

StatusLogSink::StatusLogSink(std::shared_ptr<LogSink> next, std::weak_ptr<StatusModel> model)
    : next_(std::move(next)), model_(std::move(model)) {}

void StatusLogSink::write(std::string_view line) {
    writeAtLevel(LogLevel::info, line);
}

void StatusLogSink::writeAtLevel(LogLevel level, std::string_view line) {
    if (level == LogLevel::info) {
        if (auto model = model_.lock()) {
            model->addLogLine(line);
        }
    }
    if (next_) {
        next_->writeAtLevel(level, line);
    }
}

}  // namespace havrel
