#pragma once
// The one object through which control traffic leaves for MIDI, and the per-client activity
// indicator beside it. Broadcasts go to the registered MIDI sender with the virtual path and
// are counted on the throughput meter. A command from a client raises the indicator, and 0.1
// seconds of quiet lowers it again.

#include "central/HVTransmissionManager.hpp"
#include "platform/Timer.hpp"
#include "platform/Types.hpp"

#include <map>
#include <memory>

namespace havrel {

class RNClient;
class RNMIDIControllerSignal;

inline constexpr const char* HVCentralTransmissionManagerIsTransmitting = "HVCentralTransmissionManagerIsTransmitting";
inline constexpr const char* HVCentralTransmissionManagerStoppedTransmitting =
    "HVCentralTransmissionManagerStoppedTransmitting";

class HVCentralTransmissionManager final : public HVTransmissionManager,
                                           public std::enable_shared_from_this<HVCentralTransmissionManager> {
public:
    static std::shared_ptr<HVCentralTransmissionManager> sharedInstance();

    // Each logs, sends with the virtual path (arguments cut to 8 bits, the pitch value to 16)
    // and records the uncut numbers on the meter.
    void broadcastController(std::uint64_t controller, std::uint64_t value, std::uint64_t channel) override;
    void broadcastNote(std::uint64_t note, std::uint64_t velocity, std::uint64_t channel) override;
    void broadcastProgramChange(std::uint64_t program, std::uint64_t channel) override;
    void broadcastPitchBendWithChannel(std::uint64_t channel, std::uint64_t lsb, std::uint64_t msb) override;

    // Control change and note signals are broadcast; the other kinds send nothing.
    void sendSignal(const RNMIDIControllerSignal& signal);
    // A three-byte message from a client, without range mapping or repeat suppression.
    void sendPureCommandWithData(ByteView data);
    void sendPureCommand(std::uint8_t status, std::uint8_t data1, std::uint8_t data2);

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
