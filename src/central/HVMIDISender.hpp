#pragma once
// What the transmission manager needs of the application's MIDI manager: the five send
// operations of the virtual and network paths. The MIDI service registers its shared manager
// here, so the central core sends MIDI without linking the MIDI service.

#include <cstdint>
#include <memory>
#include <string>

namespace havrel {

class HVMIDISender {
public:
    virtual ~HVMIDISender() = default;

    virtual void sendWithController(std::uint8_t controller, std::uint8_t value, std::uint8_t channel,
                                    bool sendVirtual) = 0;
    virtual void sendWithNoteOn(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool sendVirtual) = 0;
    virtual void sendWithNoteOff(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool sendVirtual) = 0;
    virtual void sendWithProgramChange(std::uint8_t program, std::uint8_t channel, bool sendVirtual) = 0;
    virtual void sendWithPitchBend(std::uint16_t value, std::uint8_t channel, bool sendVirtual) = 0;

    // For log lines: the object's address and kind.
    virtual std::string description() const = 0;

    // The registered sender, or nullptr while there is none (sends then go nowhere).
    static std::shared_ptr<HVMIDISender> shared();
    static void setShared(std::shared_ptr<HVMIDISender> sender);
};

// "(null)" for no sender.
std::string describe(const std::shared_ptr<HVMIDISender>& sender);

}  // namespace havrel
