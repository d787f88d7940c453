#pragma once
// Building blocks for tests and benchmarks of the range dispatch: a data wrapper around one
// range container, and the bytes of a range command.

#include "central/HVEncodedRangeCommand.hpp"
#include "model/HVMidiAxisDataWrapper.hpp"

#include <cstdint>
#include <vector>

namespace havrel::testing {

inline HVMidiAxisDataWrapperPtr wrapperWith(std::uint64_t numericID, HVMidiRangeContainerPtr container) {
    auto axis = HVMidiAxisData::create();
    axis->addRangeContainer(container);
    auto wrapper = HVMidiAxisDataWrapper::midiAxisWrapperWithAxisArray({axis});
    wrapper->numericID = numericID;
    return wrapper;
}

inline Bytes rangeCommand(std::vector<HVEncodedRangeValue> values) {
    return *HVEncodedRangeCommand::rangeCommandWithRangeValues(std::move(values)).data();
}

}  // namespace havrel::testing
