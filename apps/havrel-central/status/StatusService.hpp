#pragma once
// The status page of havrel-central: the server on the main queue's io_context, the page's
// model, the MIDI monitor on the virtual output and the log lines it keeps. At most 20 state
// messages a second go to the open pages, and only when something changed; the throughput plot
// takes one sample a second.

#include "StatusModel.hpp"
#include "StatusServer.hpp"
#include "StatusSources.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace havrel {

class HVMIDIOutputMonitor;
class Timer;

class StatusService {
public:
    struct Options {
        std::uint16_t port = 4700;  // 0: any free port
        bool allowControl = false;
        // The endpoint whose messages the monitor shows; empty: no monitor.
        std::string monitoredOutput;
    };
    static constexpr int kUpdatesPerSecond = 20;

    // Starts on the main queue; nullptr (after a log line) when the port cannot be listened on.
    static std::unique_ptr<StatusService> start(const Options& options, std::shared_ptr<StatusSources> sources);
    ~StatusService();

    std::uint16_t port() const { return port_; }
    StatusModel& model() { return *model_; }
    StatusServer& server() { return *server_; }
    // One turn of the update timer.
    void tick();
    // Starts the monitor again on the process's MIDI platform (after the host changed it).
    void restartMonitor();
    // State messages broadcast so far (greetings not counted).
    std::uint64_t statesSent() const { return statesSent_; }

    // The embedded page: "/", "/status.css", "/status.js".
    static std::vector<StatusServer::Resource> pageResources();

private:
    StatusService() = default;

    std::shared_ptr<StatusModel> model_;
    std::unique_ptr<StatusServer> server_;
    std::string monitoredOutput_;
    std::unique_ptr<HVMIDIOutputMonitor> monitor_;
    std::shared_ptr<LogSink> logSink_;
    std::shared_ptr<Timer> timer_;
    std::uint16_t port_ = 0;
    unsigned ticks_ = 0;
    std::string lastSent_;
    std::uint64_t statesSent_ = 0;
};

}  // namespace havrel
