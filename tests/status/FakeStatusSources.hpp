#pragma once
// Status sources with fixed contents that record the changes asked of them.

#include "StatusSources.hpp"

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

    std::vector<StatusClient> clients() override { return clientList; }
    std::int64_t messagesPerSecond() override { return rate; }
    std::string lastMessageDescription() override { return "CC 7 · 64"; }
    std::vector<StatusOutput> outputs() override { return outputList; }
    StatusClock clock() override { return clockState; }
    std::vector<StatusAlert> alerts() override { return alertList; }
    std::vector<StatusReceivedFile> receivedFiles() override { return fileList; }
    std::string setOutputEnabled(const std::string& name, bool on) override {
        calls.push_back("output " + name + (on ? " on" : " off"));
        return refusal;
    }
    std::string setClockRunning(bool running) override {
        calls.push_back(running ? "clock run" : "clock pause");
        return refusal;
    }
    std::string setTempo(double bpm) override {
        calls.push_back("tempo " + std::to_string(bpm));
        return refusal;
    }
};

}  // namespace havrel::testing
