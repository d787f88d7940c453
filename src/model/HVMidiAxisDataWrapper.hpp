#pragma once
// One control of a client's surface: its axes, its multi-axial containers, its observers.

#include "model/HVMidiAxisData.hpp"
#include "model/HVObservationContainer.hpp"
#include "model/HVSerializeable.hpp"

#include <any>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HVMidiAxisDataWrapper;

class HVMIDIAxisObservationContainer final : public HVObservationContainer {
public:
    using Block = std::function<void(const std::shared_ptr<HVMidiAxisDataWrapper>& wrapper,
                                     const HVMidiAxisDataPtr& axis, double position)>;
    Block block;
};

class HVMidiAxisDataWrapper final : public HVSerializeable,
                                    public std::enable_shared_from_this<HVMidiAxisDataWrapper> {
public:
    static std::shared_ptr<HVMidiAxisDataWrapper> create();
    static std::shared_ptr<HVMidiAxisDataWrapper> initFromDictionary(const Dictionary& dictionary);
    static std::shared_ptr<HVMidiAxisDataWrapper> midiAxisWrapperWithAxisArray(std::vector<HVMidiAxisDataPtr> axes);
    static std::shared_ptr<HVMidiAxisDataWrapper> midiAxisWithNumberOfAxes(std::size_t count);
    // "%u" of a 32-bit random number.
    static std::string generateUUID();

    std::uint64_t numericID = 0;
    HVBroadcastPolicy broadcastPolicy = HVBroadcastPolicyOnValueChange;
    std::int64_t broadcastPriority = 0;
    // For the host; never serialised.
    std::vector<std::any> sequences;
    std::vector<HVMidiRangeContainerPtr> multiAxialRangeContainers;
    std::vector<std::shared_ptr<HVMIDIAxisObservationContainer>> observers;

    // Generated on first read.
    const std::string& uuid();
    void setUUID(std::string uuid) { uuid_ = std::move(uuid); }

    const std::vector<HVMidiAxisDataPtr>& midiAxis() const { return midiAxis_; }
    // Clears the owner of the old axes and sets it on the new ones.
    void setMidiAxis(std::vector<HVMidiAxisDataPtr> axes);
    HVMidiAxisDataPtr midiAxisForIndex(std::size_t index) const;
    std::optional<std::size_t> indexOfAxisData(const HVMidiAxisDataPtr& axis) const;
    std::size_t numberOfAxes() const { return midiAxis_.size(); }

    HVMidiRangeContainerPtr containerWithController(std::uint64_t controller, std::uint64_t midiChannel,
                                                    HVSignalType signalType) const;

    std::vector<double> currentRangePosition() const;
    double currentRangePositionForAxisNumber(std::size_t axisNumber) const;
    double previousRangePositionForAxisNumber(std::size_t axisNumber) const;
    void setPreviousRangePosition(double position, std::size_t axisNumber);
    void syncPreviousRangePositionWithCurrentRangePosition();

    // The position path of a range command entry.
    void setCurrentRangePosition(double position, std::size_t axisNumber, bool broadcastChange);
    void setCurrentRangePositionForAllAxes(const std::vector<double>& positions, bool broadcastChange,
                                           bool setAsBroadcasted = false);
    void inverseCurrentRangePositionForAxisNumber(std::size_t axisNumber, bool broadcastChange);
    void broadcastChangeForAxisNumber(std::size_t axisNumber);

    std::vector<HVMidiAxisDataPtr> axisThatCurrentPointIsDifferentFromPreviousPoint() const;
    std::vector<HVMidiAxisDataPtr> axisWithUUIDStrings(const std::vector<std::string>& uuids) const;
    static std::vector<double> rangeValueForAxies(const std::vector<HVMidiAxisDataPtr>& axes);
    static std::vector<double> previousRangeValueForAxies(const std::vector<HVMidiAxisDataPtr>& axes);
    std::vector<double> rangeValuesForRangeContainer(const HVMidiRangeContainerPtr& container) const;

    void addMultiAxialRangeContainer(const HVMidiRangeContainerPtr& container,
                                     const std::vector<HVMidiAxisDataPtr>& axes);
    // Takes the container object, in spite of its name.
    void removeMultiAxialRangeContainerAtIndex(const HVMidiRangeContainerPtr& container);

    void registerForRangePositionChange(const std::shared_ptr<void>& observer, HVMIDIAxisObservationContainer::Block block);

    // Per axis, each container's MIDI value at that axis's position; nothing when a container
    // has no value there.
    std::optional<std::vector<std::vector<std::uint64_t>>> midiValuesForLocation(const std::vector<double>& location) const;
    std::optional<std::vector<std::vector<std::uint64_t>>> midiValuesForCurrentLocation() const;

    std::vector<HVMidiRangeContainerPtr> noteMIDIRanges() const;
    std::vector<HVMidiRangeContainerPtr> controllerMIDIRanges() const;
    std::vector<HVMidiRangeContainerPtr> allMIDIRanges() const;

    std::vector<HVMidiRangeContainerPtr> rangeContainersThatShouldBeBroadcastedForAxis(std::size_t axisNumber) const;
    // Asks whether the list exists, not whether it is empty: always true.
    bool shouldBroadcastValueForAxis(std::size_t axisNumber) const;
    std::vector<HVMidiRangeContainerPtr> multiAxialRangeContainersThatShouldBeBroadcasted() const;
    bool shouldBroadcastForMultiAxialValues() const;

    std::shared_ptr<HVMidiAxisDataWrapper> copyWithNewUUID(bool newUUID) const;
    std::shared_ptr<HVMidiAxisDataWrapper> copy() const { return copyWithNewUUID(false); }
    bool isEqualToDataWrapper(const HVMidiAxisDataWrapper& other) const;
    bool isEqualChannelDataToDataWrapper(const HVMidiAxisDataWrapper& other) const;

    Dictionary dictionary() const override;
    std::string className() const override { return "HVMidiAxisDataWrapper"; }
    void copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues) override {
        copyValuesFromDictionary(dictionary, excludeValues, false);
    }
    void copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues,
                                  bool forceNewID) override;
    std::string description();

private:
    void updateMultiAxialContainers(bool broadcastChange);

    mutable std::optional<std::string> uuid_;
    std::vector<HVMidiAxisDataPtr> midiAxis_;
};

using HVMidiAxisDataWrapperPtr = std::shared_ptr<HVMidiAxisDataWrapper>;

// Ascending by numericID.
void sortDataWrappersByNumericID(std::vector<HVMidiAxisDataWrapperPtr>& wrappers);

}  // namespace havrel
