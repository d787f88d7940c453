#pragma once
// One dimension of a control: its position and the range containers that listen to it.

#include "model/HVMidiRangeContainer.hpp"
#include "model/HVSerializeable.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HVMidiAxisDataWrapper;

using HVBroadcastPolicy = std::int64_t;
inline constexpr HVBroadcastPolicy HVBroadcastPolicyOnValueChange = 0;
inline constexpr HVBroadcastPolicy HVBroadcastPolicyInsideRange = 1;
inline constexpr HVBroadcastPolicy HVBroadcastPolicyAlways = 2;

class HVMidiAxisData final : public HVSerializeable, public std::enable_shared_from_this<HVMidiAxisData> {
public:
    static std::shared_ptr<HVMidiAxisData> create();
    static std::shared_ptr<HVMidiAxisData> axisDataFromDictionary(const Dictionary& dictionary);
    static std::shared_ptr<HVMidiAxisData> initFromDictionary(const Dictionary& dictionary) {
        return axisDataFromDictionary(dictionary);
    }
    static std::shared_ptr<HVMidiAxisData> axisWithRangeContainers(std::vector<HVMidiRangeContainerPtr> containers);
    static std::shared_ptr<HVMidiAxisData> axisDataWithCC(std::uint64_t controller);
    static std::shared_ptr<HVMidiAxisData> createAxisDataWithCC(std::uint64_t controller) {
        return axisDataWithCC(controller);
    }

    std::vector<HVMidiRangeContainerPtr> rangeContainers;
    double previousRangePosition = -100.0;
    std::string uuid;
    std::weak_ptr<HVMidiAxisDataWrapper> wrapper;

    double currentRangePosition() const { return currentRangePosition_; }

    HVMidiRangeContainerPtr containerWithController(std::uint64_t controller, std::uint64_t midiChannel,
                                                    HVSignalType signalType) const;
    void addRangeContainer(const HVMidiRangeContainerPtr& container);
    void removeRangeContainerAtIndex(std::size_t index);

    static void stopTransitionsForRangeContainer(const HVMidiRangeContainerPtr& container);
    static bool rangeContainerHasTransitionPlayingTo(const HVMidiRangeContainerPtr& container, double position);

    // Sets the position under the sequence manager's lock and hands it to every container,
    // starting a glide where it lands exactly on a stop with a transition time.
    void setCurrentRangePosition(double position, bool broadcastChange, bool setAsBroadcasted = false);

    std::vector<HVMidiRangeContainerPtr> noteMIDIRanges() const;
    // Every container whose signal type is not CC: notes, program changes and pitch.
    std::vector<HVMidiRangeContainerPtr> controllerMIDIRanges() const;
    std::vector<HVMidiRangeContainerPtr> allMIDIRanges() const;
    std::vector<HVMidiRangeContainerPtr> rangeContainersThatShouldBeBroadcastedForPolicy(
        HVBroadcastPolicy policy) const;
    void syncPreviousRangePositionWithCurrentRangePosition();

    bool isEqualData(const HVMidiAxisData& other) const;
    std::shared_ptr<HVMidiAxisData> copy() const;

    Dictionary dictionary() const override;
    std::string className() const override { return "HVMidiAxisData"; }
    std::string description() const;
    std::string rangeContainersDescription() const;

private:
    double currentRangePosition_ = 0.0;
};

using HVMidiAxisDataPtr = std::shared_ptr<HVMidiAxisData>;

}  // namespace havrel
