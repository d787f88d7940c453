#pragma once
// Registered (RPN) and assignable (NRPN) parameter numbers with their data entry bytes.

#include "MIDICore/Controller.hpp"
#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace MIDICore {

enum class MIDI2ParameterNumberChange : std::uint8_t { absolute, relative };

enum class MIDIParameterNumberType : std::uint8_t { registered, assignable };
// (rpnMSB, rpnLSB) or (nrpnMSB, nrpnLSB).
std::pair<Controller, Controller> controllers(MIDIParameterNumberType type);

// The data entry MSB and LSB of a parameter number; either may be absent.
struct DataEntryBytes {
    std::optional<UInt7> msb;
    std::optional<UInt7> lsb;
    friend constexpr bool operator==(const DataEntryBytes&, const DataEntryBytes&) = default;
};

class RegisteredController {
public:
    enum class Case : std::uint8_t {
        pitchBendSensitivity,
        channelFineTuning,
        channelCoarseTuning,
        tuningProgramChange,
        tuningBankSelect,
        modulationDepthRange,
        mpeConfigurationMessage,
        raw,
        threeDimensionalAzimuthAngle,
        threeDimensionalElevationAngle,
        threeDimensionalGain,
        threeDimensionalDistanceRatio,
        threeDimensionalMaximumDistance,
        threeDimensionalGainAtMaximumDistance,
        threeDimensionalReferenceDistanceRatio,
        threeDimensionalPanSpreadAngle,
        threeDimensionalRollAngle,
        null,
    };

    static RegisteredController pitchBendSensitivity(UInt7 semitones, UInt7 cents) {
        return {Case::pitchBendSensitivity, semitones, cents};
    }
    static RegisteredController channelFineTuning(UInt14 value) {
        auto pair = value.midiUInt7Pair();
        return {Case::channelFineTuning, pair.msb, pair.lsb};
    }
    static RegisteredController channelCoarseTuning(UInt7 value) { return {Case::channelCoarseTuning, value, std::nullopt}; }
    static RegisteredController tuningProgramChange(UInt7 number) { return {Case::tuningProgramChange, number, std::nullopt}; }
    static RegisteredController tuningBankSelect(UInt7 number) { return {Case::tuningBankSelect, number, std::nullopt}; }
    static RegisteredController modulationDepthRange(std::optional<UInt7> dataEntryMSB, std::optional<UInt7> dataEntryLSB) {
        return {Case::modulationDepthRange, dataEntryMSB, dataEntryLSB};
    }
    static RegisteredController mpeConfigurationMessage(std::optional<UInt7> dataEntryMSB, std::optional<UInt7> dataEntryLSB) {
        return {Case::mpeConfigurationMessage, dataEntryMSB, dataEntryLSB};
    }
    static RegisteredController raw(UInt7Pair parameter, std::optional<UInt7> dataEntryMSB, std::optional<UInt7> dataEntryLSB) {
        RegisteredController result{Case::raw, dataEntryMSB, dataEntryLSB};
        result.rawParameter_ = parameter;
        return result;
    }
    // One of the nine threeDimensional... cases (LSB 0...8 of MSB 61).
    static RegisteredController threeDimensional(Case kind, UInt7 dataEntryMSB, UInt7 dataEntryLSB);
    static RegisteredController null() { return {Case::null, std::nullopt, std::nullopt}; }

    // Recognises the named cases by parameter number; an absent byte of a case that needs it is 0.
    RegisteredController(UInt7Pair parameter, DataEntryBytes data);

    Case kind() const { return case_; }
    static constexpr MIDIParameterNumberType type() { return MIDIParameterNumberType::registered; }
    UInt7Pair parameterBytes() const;
    DataEntryBytes dataEntryBytes() const { return data_; }
    std::string description() const;
    friend bool operator==(const RegisteredController&, const RegisteredController&) = default;

private:
    RegisteredController(Case kind, std::optional<UInt7> msb, std::optional<UInt7> lsb) : case_(kind), data_{msb, lsb} {}

    Case case_ = Case::null;
    UInt7Pair rawParameter_{};
    DataEntryBytes data_;
};

class AssignableController {
public:
    enum class Case : std::uint8_t { raw, null };

    static AssignableController raw(UInt7Pair parameter, std::optional<UInt7> dataEntryMSB, std::optional<UInt7> dataEntryLSB) {
        AssignableController result;
        result.case_ = Case::raw;
        result.parameter_ = parameter;
        result.data_ = DataEntryBytes{dataEntryMSB, dataEntryLSB};
        return result;
    }
    static AssignableController null() { return AssignableController(); }
    // Parameter 127, 127 is null, and its data are dropped.
    AssignableController(UInt7Pair parameter, DataEntryBytes data);

    Case kind() const { return case_; }
    static constexpr MIDIParameterNumberType type() { return MIDIParameterNumberType::assignable; }
    UInt7Pair parameterBytes() const { return case_ == Case::null ? UInt7Pair{UInt7(127), UInt7(127)} : parameter_; }
    DataEntryBytes dataEntryBytes() const { return data_; }
    std::string description() const;
    friend bool operator==(const AssignableController&, const AssignableController&) = default;

private:
    AssignableController() = default;
    Case case_ = Case::null;
    UInt7Pair parameter_{};
    DataEntryBytes data_;
};

}  // namespace MIDICore
