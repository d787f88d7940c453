#pragma once
// The status page's view of the running system: the client registry, the transmission
// indicator, the throughput meter, the MIDI manager (outputs, and tempo and position followed
// from MIDI clock) and the musical clock: while it runs on its own timer the page may start and
// pause it and set its tempo; once it follows MIDI clock it shows what it follows.
//
// Also hears from the registry of the USB clients it refuses for their API version, which it
// does not keep: the last few are shown as refused. Main queue.

#include "StatusSources.hpp"


#include <deque>
#include <functional>
#include <memory>
#include <set>

namespace havrel {

class RNClient;

class CoreStatusSources final : public StatusSources, public std::enable_shared_from_this<CoreStatusSources> {
public:
    static constexpr std::size_t kRefusalsKept = 8;

    // Follows the transmission indicator and the registry's notifications of USB clients that
    // leave or are refused (the registry's delegate slot stays the host's).
    static std::shared_ptr<CoreStatusSources> create();
    ~CoreStatusSources() override;

    std::vector<StatusClient> clients() override;
    std::int64_t messagesPerSecond() override;
    std::string lastMessageDescription() override;
    std::uint64_t receivedMIDIDropped() override;
    std::vector<StatusOutput> outputs() override;
    StatusClock clock() override;
    std::vector<StatusAlert> alerts() override;
    std::vector<StatusReceivedFile> receivedFiles() override;
    std::string setOutputEnabled(const std::string& name, bool on) override;
    std::string setClockRunning(bool running) override;
    std::string setTempo(double bpm) override;
    std::string useInternalClock() override;
    nlohmann::json sequences() override { return sequencesState ? sequencesState() : nullptr; }
    std::string editSequences(const nlohmann::json& request) override {
        return sequencesEdit ? sequencesEdit(request) : StatusSources::editSequences(request);
    }

    // The host's hand-back of the clock to its own timer: whether it is offered, and doing it.
    std::function<bool()> clockHandBackOffered;
    std::function<std::string()> clockHandBack;
    // The host's sequences: their rows, and an edit of them.
    std::function<nlohmann::json()> sequencesState;
    std::function<std::string(const nlohmann::json&)> sequencesEdit;


private:
    static StatusClient describe(const RNClient& client);
    void addRefusal(const RNClient& client);
    std::set<const RNClient*> transmitting_;
    std::deque<StatusClient> refusals_;
};

}  // namespace havrel
