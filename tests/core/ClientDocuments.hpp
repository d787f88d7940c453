#pragma once
// What a client sends into the core in tests: a one-fader configuration and range commands.

#include "central/HVEncodedRangeCommand.hpp"
#include "model/HVDataHelpers.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "model/HVMidiAxisDataWrapper.hpp"
#include "model/HVMidiRangeContainer.hpp"

#include <string>

namespace havrel::testing {

// A document with one fader: wrapper 1, axis 0, the controller on the channel (stored from 1),
// gzipped as a client sends it.
inline Bytes faderDocument(std::uint8_t controller, std::uint8_t channel = 1) {
    auto axis = HVMidiAxisData::create();
    axis->addRangeContainer(HVMidiRangeContainer::containerWithDefaultValuesAndChannel(channel, controller, false));
    auto wrapper = HVMidiAxisDataWrapper::midiAxisWrapperWithAxisArray({axis});
    wrapper->numericID = 1;
    auto configuration = HVEncodedConfiguration::create();
    configuration->dataWrappers = {wrapper};
    const std::string json = configuration->dictionary().dump();
    return *gzipDeflate(Bytes(json.begin(), json.end()));
}

inline Bytes range(double position) {
    return *HVEncodedRangeCommand::rangeCommandWithRangeValues(
                {HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, position)})
                .data();
}

}  // namespace havrel::testing
