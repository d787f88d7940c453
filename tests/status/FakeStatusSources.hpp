#pragma once
// Status sources with fixed contents that record the changes asked of them.

#include "StatusSources.hpp"

#include <functional>
#include <string>
#include <vector>

namespace havrel::testing {

class FakeStatusSources final : public StatusSources {
public:
    std::vector<StatusClient> clientList;
    std::int64_t rate = 0;
    std::vector<StatusOutput> outputList{{"Havrel Output", "virtual", true, false},
                                         {"Synth A", "hardware", true, true}};
    StatusClock clockState{"external", 120.0, 2, 1, 3, true, false};
    std::vector<StatusAlert> alertList;
    std::vector<StatusReceivedFile> fileList;
    std::string refusal;  // what every change answers
    std::vector<std::string> calls;
    std::function<void()> onChange;  // runs after each change is recorded

    std::vector<StatusClient> clients() override { return clientList; }
    std::int64_t messagesPerSecond() override { return rate; }
    std::string lastMessageDescription() override { return "CC 7 · 64"; }
    std::vector<StatusOutput> outputs() override { return outputList; }
    StatusClock clock() override { return clockState; }
    std::vector<StatusAlert> alerts() override { return alertList; }
    std::vector<StatusReceivedFile> receivedFiles() override { return fileList; }
    std::string setOutputEnabled(const std::string& name, bool on) override {
        record("output " + name + (on ? " on" : " off"));
        return refusal;
    }
    std::string setClockRunning(bool running) override {
        record(running ? "clock run" : "clock pause");
        return refusal;
    }
    std::string setTempo(double bpm) override {
        record("tempo " + std::to_string(bpm));
        return refusal;
    }

private:
    void record(std::string call) {
        calls.push_back(std::move(call));
        if (onChange) onChange();
    }
};

}  // namespace havrel::testing
