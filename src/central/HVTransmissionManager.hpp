#pragma once
// Where a mapped control position goes: the four broadcast operations. All numbers are
// unsigned 64-bit; channels are wire channels counted from 0.

#include <cstdint>
#include <memory>

namespace havrel {

class HVTransmissionManager {
public:
    virtual ~HVTransmissionManager() = default;

    virtual void broadcastController(std::uint64_t controller, std::uint64_t value, std::uint64_t channel) = 0;
    virtual void broadcastNote(std::uint64_t note, std::uint64_t velocity, std::uint64_t channel) = 0;
    virtual void broadcastProgramChange(std::uint64_t program, std::uint64_t channel) = 0;
    virtual void broadcastPitchBendWithChannel(std::uint64_t channel, std::uint64_t lsb, std::uint64_t msb) = 0;

    // The manager the range dispatch sends to: the central transmission manager unless one was
    // set. nullptr restores it.
    static std::shared_ptr<HVTransmissionManager> shared();
    static void setShared(std::shared_ptr<HVTransmissionManager> manager);
};

}  // namespace havrel
