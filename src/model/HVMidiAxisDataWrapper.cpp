#include "model/HVMidiAxisDataWrapper.hpp"

#include "model/HVCollectionUtilities.hpp"
#include "model/HVDictionaryReading.hpp"
#include "model/HVUUID.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace havrel {

std::shared_ptr<HVMidiAxisDataWrapper> HVMidiAxisDataWrapper::create() {
    return std::make_shared<HVMidiAxisDataWrapper>();
}

std::shared_ptr<HVMidiAxisDataWrapper> HVMidiAxisDataWrapper::initFromDictionary(const Dictionary& dictionary) {
    auto wrapper = create();
    wrapper->copyValuesFromDictionary(dictionary, {}, false);
    return wrapper;
}

std::shared_ptr<HVMidiAxisDataWrapper> HVMidiAxisDataWrapper::midiAxisWrapperWithAxisArray(
    std::vector<HVMidiAxisDataPtr> axes) {
    auto wrapper = create();
    wrapper->setMidiAxis(std::move(axes));
    return wrapper;
}

std::shared_ptr<HVMidiAxisDataWrapper> HVMidiAxisDataWrapper::midiAxisWithNumberOfAxes(std::size_t count) {
    std::vector<HVMidiAxisDataPtr> axes;
    for (std::size_t i = 0; i < count; ++i) {
        axes.push_back(HVMidiAxisData::create());
    }
    return midiAxisWrapperWithAxisArray(std::move(axes));
}

std::string HVMidiAxisDataWrapper::generateUUID() {
    return randomDecimalIdentifier();
}

const std::string& HVMidiAxisDataWrapper::uuid() {
    if (!uuid_) {
        uuid_ = generateUUID();
    }
    return *uuid_;
}

void HVMidiAxisDataWrapper::setMidiAxis(std::vector<HVMidiAxisDataPtr> axes) {
    for (const auto& axis : midiAxis_) {
        axis->wrapper.reset();
    }
    midiAxis_ = std::move(axes);
    for (const auto& axis : midiAxis_) {
        axis->wrapper = weak_from_this();
    }
}

HVMidiAxisDataPtr HVMidiAxisDataWrapper::midiAxisForIndex(std::size_t index) const {
    return index < midiAxis_.size() ? midiAxis_[index] : nullptr;
}

std::optional<std::size_t> HVMidiAxisDataWrapper::indexOfAxisData(const HVMidiAxisDataPtr& axis) const {
    auto it = std::find(midiAxis_.begin(), midiAxis_.end(), axis);
    if (it == midiAxis_.end()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(it - midiAxis_.begin());
}

HVMidiRangeContainerPtr HVMidiAxisDataWrapper::containerWithController(std::uint64_t controller,
                                                                       std::uint64_t midiChannel,
                                                                       HVSignalType signalType) const {
    for (const auto& axis : midiAxis_) {
        if (auto found = axis->containerWithController(controller, midiChannel, signalType)) {
            return found;
        }
    }
    for (const auto& container : multiAxialRangeContainers) {
        if (container->controllerNumber == controller && container->channel == midiChannel &&
            container->signalType == signalType) {
            return container;
        }
    }
    return nullptr;
}

std::vector<double> HVMidiAxisDataWrapper::currentRangePosition() const {
    return rangeValueForAxies(midiAxis_);
}

double HVMidiAxisDataWrapper::currentRangePositionForAxisNumber(std::size_t axisNumber) const {
    auto axis = midiAxisForIndex(axisNumber);
    return axis ? axis->currentRangePosition() : 0.0;
}

double HVMidiAxisDataWrapper::previousRangePositionForAxisNumber(std::size_t axisNumber) const {
    auto axis = midiAxisForIndex(axisNumber);
    return axis ? axis->previousRangePosition : 0.0;
}

void HVMidiAxisDataWrapper::setPreviousRangePosition(double position, std::size_t axisNumber) {
    if (auto axis = midiAxisForIndex(axisNumber)) {
        axis->previousRangePosition = position;
    }
}

void HVMidiAxisDataWrapper::syncPreviousRangePositionWithCurrentRangePosition() {
    for (const auto& axis : midiAxis_) {
        axis->syncPreviousRangePositionWithCurrentRangePosition();
    }
}

void HVMidiAxisDataWrapper::updateMultiAxialContainers(bool broadcastChange) {
    auto self = shared_from_this();
    for (const auto& container : multiAxialRangeContainers) {
        container->setCurrentRangePosition(rangeValuesForRangeContainer(container), broadcastChange, self);
    }
}

void HVMidiAxisDataWrapper::setCurrentRangePosition(double position, std::size_t axisNumber, bool broadcastChange) {
    if (auto axis = midiAxisForIndex(axisNumber)) {
        axis->setCurrentRangePosition(position, broadcastChange);
    }
    updateMultiAxialContainers(broadcastChange);
    broadcastChangeForAxisNumber(axisNumber);
}

void HVMidiAxisDataWrapper::setCurrentRangePositionForAllAxes(const std::vector<double>& positions,
                                                              bool broadcastChange, bool setAsBroadcasted) {
    for (std::size_t i = 0; i < positions.size() && i < midiAxis_.size(); ++i) {
        midiAxis_[i]->setCurrentRangePosition(positions[i], broadcastChange, setAsBroadcasted);
        broadcastChangeForAxisNumber(i);
    }
    updateMultiAxialContainers(broadcastChange);
}

void HVMidiAxisDataWrapper::inverseCurrentRangePositionForAxisNumber(std::size_t axisNumber, bool broadcastChange) {
    setCurrentRangePosition(1.0 - currentRangePositionForAxisNumber(axisNumber), axisNumber, broadcastChange);
}

void HVMidiAxisDataWrapper::broadcastChangeForAxisNumber(std::size_t axisNumber) {
    if (observers.empty()) {
        return;
    }
    auto self = shared_from_this();
    auto axis = midiAxisForIndex(axisNumber);
    const double position = axis ? axis->currentRangePosition() : 0.0;
    std::vector<std::shared_ptr<HVMIDIAxisObservationContainer>> dead;
    for (const auto& entry : std::vector(observers)) {
        if (entry->observerIsAlive()) {
            if (entry->block) {
                entry->block(self, axis, position);
            }
        } else {
            dead.push_back(entry);
        }
    }
    if (!dead.empty()) {
        std::erase_if(observers, [&dead](const auto& entry) {
            return std::find(dead.begin(), dead.end(), entry) != dead.end();
        });
    }
}

std::vector<HVMidiAxisDataPtr> HVMidiAxisDataWrapper::axisThatCurrentPointIsDifferentFromPreviousPoint() const {
    std::vector<HVMidiAxisDataPtr> result;
    for (const auto& axis : midiAxis_) {
        if (axis->currentRangePosition() != axis->previousRangePosition) {
            result.push_back(axis);
        }
    }
    return result;
}

std::vector<HVMidiAxisDataPtr> HVMidiAxisDataWrapper::axisWithUUIDStrings(const std::vector<std::string>& uuids) const {
    std::vector<HVMidiAxisDataPtr> result;
    for (const auto& uuid : uuids) {
        for (const auto& axis : midiAxis_) {
            if (axis->uuid == uuid) {
                result.push_back(axis);
            }
        }
    }
    return result;
}

std::vector<double> HVMidiAxisDataWrapper::rangeValueForAxies(const std::vector<HVMidiAxisDataPtr>& axes) {
    std::vector<double> result;
    result.reserve(axes.size());
    for (const auto& axis : axes) {
        result.push_back(axis->currentRangePosition());
    }
    return result;
}

std::vector<double> HVMidiAxisDataWrapper::previousRangeValueForAxies(const std::vector<HVMidiAxisDataPtr>& axes) {
    std::vector<double> result;
    result.reserve(axes.size());
    for (const auto& axis : axes) {
        result.push_back(axis->previousRangePosition);
    }
    return result;
}

std::vector<double> HVMidiAxisDataWrapper::rangeValuesForRangeContainer(const HVMidiRangeContainerPtr& container) const {
    return rangeValueForAxies(axisWithUUIDStrings(container->axisUUIDs));
}

void HVMidiAxisDataWrapper::addMultiAxialRangeContainer(const HVMidiRangeContainerPtr& container,
                                                        const std::vector<HVMidiAxisDataPtr>& axes) {
    if (!container) {
        return;
    }
    std::vector<std::string> uuids;
    for (const auto& axis : axes) {
        uuids.push_back(axis->uuid);
    }
    container->axisUUIDs = std::move(uuids);
    auto next = multiAxialRangeContainers;
    next.push_back(container);
    multiAxialRangeContainers = std::move(next);
}

void HVMidiAxisDataWrapper::removeMultiAxialRangeContainerAtIndex(const HVMidiRangeContainerPtr& container) {
    if (!container) {
        return;
    }
    container->axisUUIDs.clear();
    auto next = multiAxialRangeContainers;
    next.erase(std::remove(next.begin(), next.end(), container), next.end());
    multiAxialRangeContainers = std::move(next);
}

void HVMidiAxisDataWrapper::registerForRangePositionChange(const std::shared_ptr<void>& observer,
                                                           HVMIDIAxisObservationContainer::Block block) {
    auto entry = std::make_shared<HVMIDIAxisObservationContainer>();
    entry->observer = observer;
    entry->block = std::move(block);
    observers.push_back(std::move(entry));
}

std::optional<std::vector<std::vector<std::uint64_t>>> HVMidiAxisDataWrapper::midiValuesForLocation(
    const std::vector<double>& location) const {
    std::vector<std::vector<std::uint64_t>> result;
    for (std::size_t i = 0; i < location.size() && i < midiAxis_.size(); ++i) {
        std::vector<std::uint64_t> values;
        for (const auto& container : midiAxis_[i]->rangeContainers) {
            auto value = container->midiValueFromRange({location[i]});
            if (!value) {
                return std::nullopt;
            }
            values.push_back(HVMidiIntegerValue(value));
        }
        result.push_back(std::move(values));
    }
    return result;
}

std::optional<std::vector<std::vector<std::uint64_t>>> HVMidiAxisDataWrapper::midiValuesForCurrentLocation() const {
    return midiValuesForLocation(currentRangePosition());
}

std::vector<HVMidiRangeContainerPtr> HVMidiAxisDataWrapper::noteMIDIRanges() const {
    std::vector<HVMidiRangeContainerPtr> result;
    for (const auto& axis : midiAxis_) {
        auto notes = axis->noteMIDIRanges();
        result.insert(result.end(), notes.begin(), notes.end());
    }
    return result;
}

std::vector<HVMidiRangeContainerPtr> HVMidiAxisDataWrapper::controllerMIDIRanges() const {
    std::vector<HVMidiRangeContainerPtr> result;
    for (const auto& axis : midiAxis_) {
        auto ranges = axis->controllerMIDIRanges();
        result.insert(result.end(), ranges.begin(), ranges.end());
    }
    result.insert(result.end(), multiAxialRangeContainers.begin(), multiAxialRangeContainers.end());
    return result;
}

std::vector<HVMidiRangeContainerPtr> HVMidiAxisDataWrapper::allMIDIRanges() const {
    std::vector<HVMidiRangeContainerPtr> result;
    for (const auto& axis : midiAxis_) {
        result.insert(result.end(), axis->rangeContainers.begin(), axis->rangeContainers.end());
    }
    result.insert(result.end(), multiAxialRangeContainers.begin(), multiAxialRangeContainers.end());
    return result;
}

std::vector<HVMidiRangeContainerPtr> HVMidiAxisDataWrapper::rangeContainersThatShouldBeBroadcastedForAxis(
    std::size_t axisNumber) const {
    auto axis = midiAxisForIndex(axisNumber);
    if (!axis || axis->rangeContainers.empty()) {
        return {};
    }
    return axis->rangeContainersThatShouldBeBroadcastedForPolicy(broadcastPolicy);
}

bool HVMidiAxisDataWrapper::shouldBroadcastValueForAxis(std::size_t axisNumber) const {
    (void)axisNumber;
    return true;
}

std::vector<HVMidiRangeContainerPtr> HVMidiAxisDataWrapper::multiAxialRangeContainersThatShouldBeBroadcasted() const {
    std::vector<HVMidiRangeContainerPtr> result;
    for (const auto& container : multiAxialRangeContainers) {
        auto axes = axisWithUUIDStrings(container->axisUUIDs);
        if (std::any_of(axes.begin(), axes.end(), [](const auto& axis) { return axis->previousRangePosition < 0.0; })) {
            result.push_back(container);
        }
        const auto positions = rangeValueForAxies(axes);
        if (broadcastPolicy == HVBroadcastPolicyOnValueChange) {
            // Both evaluations use the current positions.
            double a = container->multiAxialValuesForRangeContainerWithRangeValues(positions);
            double b = container->multiAxialValuesForRangeContainerWithRangeValues(positions);
            if (b < 0.0 || (a > -1.0 && a != b)) {
                result.push_back(container);
            }
        } else if (broadcastPolicy == HVBroadcastPolicyAlways) {
            result.push_back(container);
        } else if (broadcastPolicy == HVBroadcastPolicyInsideRange) {
            if (container->multiAxialValuesForRangeContainerWithRangeValues(positions) > -1.0) {
                result.push_back(container);
            }
        }
    }
    return result;
}

bool HVMidiAxisDataWrapper::shouldBroadcastForMultiAxialValues() const {
    for (const auto& container : multiAxialRangeContainers) {
        if (container->containerType != HVContainerTypeRadial) {
            continue;
        }
        auto ratio = container->radialDistanceRatio(rangeValuesForRangeContainer(container));
        return ratio && *ratio >= 0.0 && *ratio <= 1.0;
    }
    return false;
}

std::shared_ptr<HVMidiAxisDataWrapper> HVMidiAxisDataWrapper::copyWithNewUUID(bool newUUID) const {
    auto copy = create();
    copy->copyValuesFromDictionary(dictionary(), {}, newUUID);
    if (newUUID) {
        copy->numericID = 0;
    }
    return copy;
}

bool HVMidiAxisDataWrapper::isEqualToDataWrapper(const HVMidiAxisDataWrapper& other) const {
    return dictionary() == other.dictionary();
}

bool HVMidiAxisDataWrapper::isEqualChannelDataToDataWrapper(const HVMidiAxisDataWrapper& other) const {
    return midiAxis_ == other.midiAxis_;
}

Dictionary HVMidiAxisDataWrapper::dictionary() const {
    if (!uuid_) {
        uuid_ = generateUUID();
    }
    Dictionary result{{"axisDataArray", dictionaryArrayFromHVSeralizableArray(midiAxis_)},
                      {"UUID", *uuid_},
                      {"broadcastPolicy", broadcastPolicy},
                      {"broadcastPriority", broadcastPriority},
                      {"multiAxialRangeContainers", dictionaryArrayFromHVSeralizableArray(multiAxialRangeContainers)}};
    if (numericID != 0) {
        result["numericID"] = numericID;
    }
    return result;
}

void HVMidiAxisDataWrapper::copyValuesFromDictionary(const Dictionary& source,
                                                     const std::vector<std::string>& excludeValues, bool forceNewID) {
    const Dictionary dictionary = dictionaryWithExclodedValuesFromArray(source, excludeValues);
    std::vector<HVMidiAxisDataPtr> axes;
    if (const Dictionary* list = arrayValue(dictionary, "axisDataArray")) {
        for (const auto& element : *list) {
            if (element.is_object()) {
                axes.push_back(HVMidiAxisData::axisDataFromDictionary(element));
            }
        }
    }
    auto uuid = stringValue(dictionary, "UUID");
    uuid_ = (forceNewID || !uuid) ? generateUUID() : *uuid;
    if (!forceNewID) {
        if (auto number = integerValue(dictionary, "numericID")) {
            numericID = static_cast<std::uint64_t>(*number);
        }
    }
    // The old axes keep their owner; the new ones get this wrapper.
    midiAxis_ = std::move(axes);
    for (const auto& axis : midiAxis_) {
        axis->wrapper = weak_from_this();
    }
    broadcastPolicy = integerValue(dictionary, "broadcastPolicy").value_or(0);
    broadcastPriority = integerValue(dictionary, "broadcastPriority").value_or(0);
    std::vector<HVMidiRangeContainerPtr> multiAxial;
    if (const Dictionary* list = arrayValue(dictionary, "multiAxialRangeContainers")) {
        for (const auto& element : *list) {
            if (element.is_object()) {
                multiAxial.push_back(HVMidiRangeContainer::midiRangeFromDictionary(element));
            }
        }
    }
    multiAxialRangeContainers = std::move(multiAxial);
}

std::string HVMidiAxisDataWrapper::description() {
    std::string text = fmt::format("HVMidiAxisDataWrapper uuid {}\n", uuid());
    text += fmt::format("numericID {}\n", numericID);
    text += "axisData:\n";
    for (const auto& axis : midiAxis_) {
        text += axis->description() + "\n";
    }
    text += "multiAxialRangeContainers:\n";
    for (const auto& container : multiAxialRangeContainers) {
        text += container->description() + "\n";
    }
    return text;
}

void sortDataWrappersByNumericID(std::vector<HVMidiAxisDataWrapperPtr>& wrappers) {
    std::stable_sort(wrappers.begin(), wrappers.end(),
                     [](const auto& a, const auto& b) { return a->numericID < b->numericID; });
}

}  // namespace havrel
