#pragma once
// The two settings of the system's default network session, for a backend that has no network
// session of its own to ask: kept as they were last set. Any thread.

#include <atomic>
#include <cstdint>

namespace MIDIIO {

class MIDINetworkSessionSettings {
public:
    bool enabled() const { return enabled_.load(); }
    void setEnabled(bool enabled) { enabled_.store(enabled); }
    std::uint32_t connectionPolicy() const { return policy_.load(); }
    void setConnectionPolicy(std::uint32_t policy) { policy_.store(policy); }

private:
    std::atomic<bool> enabled_{false};
    std::atomic<std::uint32_t> policy_{0};
};

}  // namespace MIDIIO
