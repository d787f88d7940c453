#pragma once
// What the status page shows and may change, gathered from the running system. The page's
// model asks through this interface only, so parts that join the system later (an internal
// clock, the Bluetooth transport) add their state here without touching the server or the page.
// Called on the main queue.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace havrel {

struct StatusClient {
    std::string name;
    std::string product;
    std::string transport;   // "USB tunnel", "local path", "Bluetooth"
    std::string apiVersion;
    std::string state;       // "heard", "muted" or "refused"
    std::string reason;      // why it is muted or refused
    bool transmitting = false;
};

struct StatusOutput {
    std::string name;
    std::string kind;  // "virtual", "network" or "hardware"
    bool on = true;
    bool switchable = false;
};

struct StatusClock {
    std::string source;  // "internal" or "external"
    double tempo = 0.0;  // beats a minute; 0 before any is known
    std::int32_t bar = 1;
    std::int32_t beat = 1;
    std::int32_t beatDivision = 1;
    bool running = false;
    bool controllable = false;  // whether start, pause and tempo can be set from the page
    bool canUseInternal = false;  // follows MIDI clock, which has stopped: the timer can take over
};

struct StatusAlert {
    std::string time;  // HH:MM:SS
    std::string message;
    std::string text;
};

struct StatusReceivedFile {
    std::string name;
    std::uint64_t size = 0;
    std::string client;
    std::string time;  // HH:MM:SS
};

class StatusSources {
public:
    virtual ~StatusSources() = default;

    virtual std::vector<StatusClient> clients() = 0;
    virtual std::int64_t messagesPerSecond() = 0;
    virtual std::string lastMessageDescription() = 0;
    // Received MIDI dropped on its way to the main queue because it fell behind.
    virtual std::uint64_t receivedMIDIDropped() { return 0; }
    virtual std::vector<StatusOutput> outputs() = 0;
    virtual StatusClock clock() = 0;
    // The last alerts shown to the user and files received from clients, oldest first.
    virtual std::vector<StatusAlert> alerts() { return {}; }
    virtual std::vector<StatusReceivedFile> receivedFiles() { return {}; }

    // Changes, with arguments already checked (a known switchable output, a tempo within
    // range). Each returns an empty text on success, else the reason it could not be done.
    virtual std::string setOutputEnabled(const std::string& name, bool on) = 0;
    virtual std::string setClockRunning(bool running) = 0;
    virtual std::string setTempo(double bpm) = 0;
    // The sequences the Central plays on its own, as rows of steps (null: none to show), and an
    // edit of them (the request as the page sent it; the edit checks it).
    virtual nlohmann::json sequences() { return nullptr; }
    virtual std::string editSequences(const nlohmann::json&) { return "sequences cannot be edited here"; }
    // Hands the clock back to its own timer (offered by canUseInternal).
    virtual std::string useInternalClock() { return "the clock cannot be handed back here"; }
};

}  // namespace havrel
