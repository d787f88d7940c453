#pragma once
// Polls a connection string once a second on its own serial queue and reports when it goes
// away. Nothing in the system supplies the current string, so the observer reports, once, the
// disappearance of a string that was set from outside, and is otherwise silent after its first
// (none, none) report.
//
// The change block runs on the queue "com.havrel.midimonitoring". The connection string is read
// and written under a lock, so it may be set from any thread. The observer must not be
// destroyed from its own change block.

#include "platform/SerialQueue.hpp"
#include "platform/Timer.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace havrel {

class HVMIDIEntityObserver {
public:
    using ChangeBlock =
        std::function<void(std::optional<std::string> newValue, std::optional<std::string> oldValue)>;

    // Starts the observer: asynchronously on its queue, clears the string, reports (none, none)
    // and starts the repeating 1.0 second check.
    explicit HVMIDIEntityObserver(ChangeBlock changeBlock);
    // Stops the check. Start-up work still pending on the queue runs first.
    ~HVMIDIEntityObserver();
    HVMIDIEntityObserver(const HVMIDIEntityObserver&) = delete;
    HVMIDIEntityObserver& operator=(const HVMIDIEntityObserver&) = delete;

    // Takes and clears the stored string; a string that was set is reported as (none, old).
    void checkConnection();

    std::optional<std::string> connectionString() const;
    void setConnectionString(std::optional<std::string> connectionString);

private:
    const ChangeBlock changeBlock_;
    mutable std::mutex mutex_;
    std::optional<std::string> connectionString_;
    std::shared_ptr<Timer> timer_;  // on the queue only
    std::shared_ptr<SerialQueue> dispatchQueue_;
};

}  // namespace havrel
