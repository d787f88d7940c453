#pragma once
// The host's choice of transports and MIDI facilities.

#include <memory>
#include <string>

namespace havrel {

class HVConnectionTypeConfiguration final : public std::enable_shared_from_this<HVConnectionTypeConfiguration> {
public:
    // Every switch off.
    static std::shared_ptr<HVConnectionTypeConfiguration> create();
    // A new object per call: every switch on except hardwareMIDIEnabled.
    static std::shared_ptr<HVConnectionTypeConfiguration> defaultConfiguration();

    // The configuration the host made current, or nullptr until the first setAsCurrent. There
    // is no fallback to defaultConfiguration.
    static std::shared_ptr<HVConnectionTypeConfiguration> currentConfiguration();
    // Stores this object in the process-wide slot.
    void setAsCurrent();

    bool usbEnabled = false;
    bool btEnabled = false;
    bool midiEnabled = false;
    bool vmEnabled = false;
    // Read by the MIDI manager when it sets up hardware outputs.
    bool hardwareMIDIEnabled = false;
    bool loggerEnabled = false;
    // The product name the MIDI endpoint names are made from.
    std::string productToSendOut;
};

}  // namespace havrel
