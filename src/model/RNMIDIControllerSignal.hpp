#pragma once
// One addressed MIDI signal, and the attribute that names a control's signal kind.

#include "model/HVSerializeable.hpp"
#include "model/HVSignalType.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace havrel {

class RNMIDIControllerSignal;

class HVMIDIAttribute final : public HVSerializeable {
public:
    static std::shared_ptr<HVMIDIAttribute> create();
    static std::shared_ptr<HVMIDIAttribute> initFromDictionary(const Dictionary& dictionary);

    HVSignalType signalType = HVSignalTypeCC;
    std::string title;
    std::shared_ptr<RNMIDIControllerSignal> signal;

    // The signal's long name followed by a hyphen: "Control Change-".
    std::string uniqueIdentifier() const;

    // Only "signalType" travels; title and signal stay in memory.
    Dictionary dictionary() const override;
    std::string className() const override { return "HVMIDIAttribute"; }
};

class RNMIDIControllerSignal final : public HVSerializeable {
public:
    static std::shared_ptr<RNMIDIControllerSignal> create();
    static std::shared_ptr<RNMIDIControllerSignal> RNMIDIControllerSignalWithChannel(std::uint64_t channel,
                                                                                     std::uint64_t controller);
    static std::shared_ptr<RNMIDIControllerSignal> RNMIDIControllerSignalWithChannel(std::uint64_t channel,
                                                                                     std::uint64_t controller,
                                                                                     std::uint64_t value);
    static std::shared_ptr<RNMIDIControllerSignal> RNMIDIControllerSignalWithChannel(
        std::uint64_t channel, std::uint64_t controller, std::uint64_t value, std::string uniqueID);
    // Note the reading of "controllerNumber": it lands in channelNumber, overwriting it, and
    // controllerNumber stays 0. Integers are read at 32 bits and extended with their sign.
    static std::shared_ptr<RNMIDIControllerSignal> initFromDictionary(const Dictionary& dictionary);

    HVSignalType type = HVSignalTypeCC;
    std::uint64_t channelNumber = 0;
    std::uint64_t controllerNumber = 0;
    std::uint64_t value = 0;
    std::shared_ptr<HVMIDIAttribute> attribute;
    // Of the caller's choosing; not serialised.
    std::optional<std::string> uniqueID;

    Dictionary dictionary() const override;
    std::string className() const override { return "RNMIDIControllerSignal"; }
    std::string description() const;
};

}  // namespace havrel
