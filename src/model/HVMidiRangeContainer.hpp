#pragma once
// A range container: one MIDI signal and the stops that map a control position to its value.

#include "model/HVMidiRangeValue.hpp"
#include "model/HVRangePoint.hpp"
#include "model/HVSequenceLock.hpp"
#include "model/HVSerializeable.hpp"
#include "model/HVSignalType.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HVMidiAxisDataWrapper;

inline constexpr const char* NotificationRangeContainerDidChangeValue = "NotificationRangeContainerDidChangeValue";

using HVContainerType = std::uint8_t;
inline constexpr HVContainerType HVContainerTypeLinear = 0;
inline constexpr HVContainerType HVContainerTypeRadial = 1;

// The never-sent mark of lastValueBroadcasted: outside every MIDI range.
inline constexpr std::uint64_t HVLastValueNeverBroadcasted = 266;

// The user info of "NotificationRangeContainerDidChangeValue", as a typed payload (the
// notification's object) rather than a dictionary: it is posted for every accepted position,
// and its keys are "rangeContainer", "dataWrapper", "newValue", "oldValue", "transitionStep"
// and "transitionTarget".
struct HVRangeContainerChange {
    std::shared_ptr<HVMidiRangeContainer> rangeContainer;
    std::shared_ptr<HVMidiAxisDataWrapper> dataWrapper;  // nullptr when none was given
    HVRangePoint newValue;
    HVRangePoint oldValue;
    bool transitionStep = false;
    bool transitionTarget = false;
};

// The distance between two points as the radial pads measure it: differences in double, each
// narrowed to a 32-bit float, the single-precision hypotenuse widened.
double rnDistanceBetweenPoints(double x1, double y1, double x2, double y2);

class HVMidiRangeContainer final : public HVSerializeable, public std::enable_shared_from_this<HVMidiRangeContainer> {
public:
    static std::shared_ptr<HVMidiRangeContainer> create();
    static std::shared_ptr<HVMidiRangeContainer> initFromDictionary(const Dictionary& dictionary);
    static std::shared_ptr<HVMidiRangeContainer> midiRangeFromDictionary(const Dictionary& dictionary) {
        return initFromDictionary(dictionary);
    }
    static std::shared_ptr<HVMidiRangeContainer> containerWithChannel(std::uint64_t channel,
                                                                      std::uint64_t controllerNumber,
                                                                      bool isNote = false,
                                                                      std::vector<HVMidiRangeValuePtr> values = {});
    static std::shared_ptr<HVMidiRangeContainer> containerWithDefaultValuesAndChannel(std::uint64_t channel,
                                                                                      std::uint64_t controllerNumber,
                                                                                      bool isNote);

    bool transitionBetweenValues = true;
    HVContainerType containerType = HVContainerTypeLinear;
    HVSignalType signalType = HVSignalTypeCC;
    bool alwaysBroadcast = false;
    std::optional<std::string> title;
    std::uint64_t channel = 0;
    std::uint64_t controllerNumber = 0;
    std::optional<Dictionary> additionalData = Dictionary::object();
    std::shared_ptr<HVMidiRangeContainer> onStartTrigger;
    std::shared_ptr<HVMidiRangeContainer> onReleaseTrigger;
    std::string uuid;
    std::vector<std::string> axisUUIDs;
    std::uint64_t lastValueBroadcasted = HVLastValueNeverBroadcasted;
    std::vector<HVMidiRangeValuePtr> values;

    // The last accepted position; empty when there is none.
    const HVRangePoint& currentRangePosition() const { return currentRangePosition_; }

    // Stops.
    void addValue(const HVMidiRangeValuePtr& value);
    void removeValue(const HVMidiRangeValuePtr& value);

    // Look-ups.
    HVMidiRangeValuePtr bottomValueFromRange(double r) const;
    HVMidiRangeValuePtr topValueFromRange(double r) const;
    HVMidiRangeValuePtr hvMidiRangeValueEqualToRange(double r) const;
    HVMidiRangeValuePtr topValue() const;
    HVMidiRangeValuePtr bottomValue() const;
    bool hasValueForRange(double r) const;
    double alignedRangeFromRange(double r) const;
    double alignedRangeFromRangeNumber(double r) const { return alignedRangeFromRange(r); }
    // The MIDI number at a position array: an unsigned integer for one coordinate (or nothing),
    // the multi-axial value (which fails as -1.0) for two or more.
    std::optional<double> midiValueFromRange(const HVRangePoint& position) const;
    std::optional<double> midiValueFromRangeNumber(double r) const { return midiValueFromRange({r}); }
    void switchTopAndBottomValues();

    // Radial containers.
    double multiAxialValuesForRangeContainerWithRangeValues(const HVRangePoint& point) const;
    bool shouldBroadcastForMultiAxialValues(const HVRangePoint& point) const;
    // The distance of the point from the centre stop divided by the radius; nothing when the
    // container has fewer than two stops (after the log line).
    std::optional<double> radialDistanceRatio(const HVRangePoint& point) const;

    // Accepting a position. Stores it, and when broadcast posts the change to the main queue.
    void setCurrentRangePosition(const HVRangePoint& position, bool broadcastChange,
                                 const std::shared_ptr<HVMidiAxisDataWrapper>& dataWrapper,
                                 bool transitionStep = false);
    void broadcastTransitionTargetWithDataWrapper(const std::shared_ptr<HVMidiAxisDataWrapper>& dataWrapper);

    // Attached sequences, under the sequence manager's lock.
    std::vector<std::shared_ptr<HVContainerSequence>> sequences() const;
    void setSequences(std::vector<std::shared_ptr<HVContainerSequence>> sequences);
    void addSequence(const std::shared_ptr<HVContainerSequence>& sequence);
    void removeSequence(const HVContainerSequence* sequence);

    // Text forms.
    static std::string containerTypeToString(HVContainerType type);
    static HVContainerType containerTypeFromString(const std::string& text);
    std::string stringRepresentationOfControllerNumber(bool longForm) const;
    std::string stringRepresentationOfCurrentValue() const;
    std::string description() const;
    std::string valuesDescription() const;

    bool isEqualRange(const HVMidiRangeContainer& other) const;
    std::shared_ptr<HVMidiRangeContainer> copy() const;
    // Takes over the other container's dictionary form, its uuid included.
    void copyValuesFrom(const HVMidiRangeContainer& other);

    Dictionary dictionary() const override;
    std::string className() const override { return "HVMidiRangeContainer"; }
    void copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues) override;

private:
    HVRangePoint currentRangePosition_;
    std::vector<std::shared_ptr<HVContainerSequence>> sequences_;
};

using HVMidiRangeContainerPtr = std::shared_ptr<HVMidiRangeContainer>;

// The unsigned integer form of a MIDI number as the dispatch uses it: no value counts as 0, a
// negative number such as the failed multi-axial -1.0 wraps as a signed integer would.
std::uint64_t HVMidiIntegerValue(const std::optional<double>& value);

}  // namespace havrel
