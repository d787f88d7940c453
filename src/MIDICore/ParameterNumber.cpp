#include "MIDICore/ParameterNumber.hpp"

#include "MIDIInternals/Fatal.hpp"

namespace MIDICore {

std::pair<Controller, Controller> controllers(MIDIParameterNumberType type) {
    return type == MIDIParameterNumberType::registered ? std::pair{Controller::rpnMSB, Controller::rpnLSB}
                                                       : std::pair{Controller::nrpnMSB, Controller::nrpnLSB};
}

namespace {
using Case = RegisteredController::Case;

constexpr int firstThreeDimensional = static_cast<int>(Case::threeDimensionalAzimuthAngle);
constexpr int lastThreeDimensional = static_cast<int>(Case::threeDimensionalRollAngle);

std::string optionalText(const std::optional<UInt7>& value) {
    return value ? value->description() : "nil";
}

std::string dataText(const DataEntryBytes& data) {
    return "dataEntryMSB: " + optionalText(data.msb) + ", dataEntryLSB: " + optionalText(data.lsb);
}
}  // namespace

RegisteredController RegisteredController::threeDimensional(Case kind, UInt7 dataEntryMSB, UInt7 dataEntryLSB) {
    int index = static_cast<int>(kind);
    if (index < firstThreeDimensional || index > lastThreeDimensional) {
        MIDIInternals::fatalError("RegisteredController::threeDimensional needs a threeDimensional case");
    }
    return {kind, dataEntryMSB, dataEntryLSB};
}

RegisteredController::RegisteredController(UInt7Pair parameter, DataEntryBytes data) : data_(data) {
    UInt7 msb = data.msb.value_or(UInt7(0));
    UInt7 lsb = data.lsb.value_or(UInt7(0));
    auto p = parameter.lsb.storage();
    if (parameter.msb == 0 && p <= 6) {
        switch (p) {
            case 0: *this = pitchBendSensitivity(msb, lsb); return;
            case 1: *this = channelFineTuning(UInt14(UInt7Pair{msb, lsb})); return;
            case 2: *this = channelCoarseTuning(msb); return;
            case 3: *this = tuningProgramChange(msb); return;
            case 4: *this = tuningBankSelect(msb); return;
            case 5: *this = modulationDepthRange(data.msb, data.lsb); return;
            default: *this = mpeConfigurationMessage(data.msb, data.lsb); return;
        }
    }
    if (parameter.msb == 61 && p <= 8) {
        *this = RegisteredController(static_cast<Case>(firstThreeDimensional + p), msb, lsb);
        return;
    }
    if (parameter.msb == 127 && p == 127) {
        *this = null();
        return;
    }
    *this = raw(parameter, data.msb, data.lsb);
}

UInt7Pair RegisteredController::parameterBytes() const {
    auto pair = [](int msb, int lsb) {
        return UInt7Pair{UInt7::fromStorage(static_cast<std::uint8_t>(msb)), UInt7::fromStorage(static_cast<std::uint8_t>(lsb))};
    };
    int index = static_cast<int>(case_);
    if (case_ == Case::raw) {
        return rawParameter_;
    }
    if (case_ == Case::null) {
        return pair(127, 127);
    }
    if (index >= firstThreeDimensional) {
        return pair(61, index - firstThreeDimensional);
    }
    return pair(0, index);  // pitchBendSensitivity 0 ... mpeConfigurationMessage 6
}

std::string RegisteredController::description() const {
    static constexpr const char* names[] = {
        "pitchBendSensitivity", "channelFineTuning", "channelCoarseTuning", "tuningProgramChange",
        "tuningBankSelect", "modulationDepthRange", "mpeConfigurationMessage", "raw",
        "threeDimensionalAzimuthAngle", "threeDimensionalElevationAngle", "threeDimensionalGain",
        "threeDimensionalDistanceRatio", "threeDimensionalMaximumDistance",
        "threeDimensionalGainAtMaximumDistance", "threeDimensionalReferenceDistanceRatio",
        "threeDimensionalPanSpreadAngle", "threeDimensionalRollAngle", "null"};
    std::string name = names[static_cast<int>(case_)];
    if (case_ == Case::null) {
        return name;
    }
    if (case_ == Case::raw) {
        return name + "(parameter: " + rawParameter_.description() + ", " + dataText(data_) + ")";
    }
    return name + "(" + dataText(data_) + ")";
}

AssignableController::AssignableController(UInt7Pair parameter, DataEntryBytes data) {
    if (parameter.msb == 127 && parameter.lsb == 127) {
        return;
    }
    *this = raw(parameter, data.msb, data.lsb);
}

std::string AssignableController::description() const {
    if (case_ == Case::null) {
        return "null";
    }
    return "raw(parameter: " + parameter_.description() + ", " + dataText(data_) + ")";
}

}  // namespace MIDICore
