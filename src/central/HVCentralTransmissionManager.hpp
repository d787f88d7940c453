#pragma once
// The one object through which control traffic leaves for MIDI, and the per-client activity
// indicator beside it. This part holds the indicator: a command from a client raises it, and
// 0.1 seconds of quiet lowers it again.

#include "platform/Timer.hpp"

#include <map>
#include <memory>

namespace havrel {

class RNClient;

inline constexpr const char* HVCentralTransmissionManagerIsTransmitting = "HVCentralTransmissionManagerIsTransmitting";
inline constexpr const char* HVCentralTransmissionManagerStoppedTransmitting =
    "HVCentralTransmissionManagerStoppedTransmitting";

class HVCentralTransmissionManager : public std::enable_shared_from_this<HVCentralTransmissionManager> {
public:
    static std::shared_ptr<HVCentralTransmissionManager> sharedInstance();

    bool isMIDITransmitting = false;
    bool isBluetoothTransmitting = false;

    // Operations with nothing to do.
    void toggleMIDITransmittion() {}
    void setMIDIOffTransmitting() {}

    // On the main queue. Without a client: one log line and nothing else.
    void didReceiveCommandForClient(const std::shared_ptr<RNClient>& client);
    void toggleTransmittionForClient(const std::shared_ptr<RNClient>& client);
    void clientTimerDidFire(const std::shared_ptr<RNClient>& client);

    // The running indicator timers (for the host and tests).
    std::size_t activeIndicatorCount() const { return timers_.size(); }

    // For tests: invalidates every indicator timer and forgets them.
    void resetForTesting();

private:
    // Each entry keeps its client alive until the timer fires.
    std::map<std::shared_ptr<RNClient>, std::shared_ptr<Timer>> timers_;
};

}  // namespace havrel
