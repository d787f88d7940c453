#include "model/HVMidiRangeContainer.hpp"

#include "model/HVCollectionUtilities.hpp"
#include "model/HVDictionaryReading.hpp"
#include "model/HVNoteNames.hpp"
#include "model/HVUUID.hpp"
#include "platform/Log.hpp"
#include "platform/NotificationCenter.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace havrel {

namespace {

// Nested trigger containers from outside are followed this deep at most.
constexpr int kMaximumTriggerDepth = 16;

double positionOf(const HVMidiRangeValuePtr& value) {
    // A missing stop reads as position 0.0.
    return value ? value->rangePosition : 0.0;
}

std::shared_ptr<HVMidiRangeContainer> containerFromDictionary(const Dictionary& dictionary, int depth);

void applyDictionary(HVMidiRangeContainer& container, const Dictionary& source, int depth) {
    if (auto uuid = stringValue(source, "UUID"); uuid && parseUUIDString(*uuid)) {
        container.uuid = *parseUUIDString(*uuid);
    } else {
        container.uuid = randomUUIDString();
    }
    if (auto title = stringValue(source, "title")) {
        container.title = *title;
    }
    container.transitionBetweenValues = boolValue(source, "transitionBetweenValues").value_or(true);
    container.channel = static_cast<std::uint64_t>(integerValue(source, "channel").value_or(0));
    container.controllerNumber = static_cast<std::uint64_t>(integerValue(source, "controllerNumber").value_or(0));
    if (auto isNote = boolValue(source, "isNote")) {
        container.signalType = *isNote ? HVSignalTypeNote : HVSignalTypeCC;
    } else {
        container.signalType = static_cast<HVSignalType>(integerValue(source, "signalType").value_or(0));
    }
    if (auto type = stringValue(source, "containerType")) {
        container.containerType = HVMidiRangeContainer::containerTypeFromString(*type);
    } else {
        container.containerType = HVContainerTypeLinear;
    }
    std::vector<HVMidiRangeValuePtr> values;
    if (const Dictionary* list = arrayValue(source, "values")) {
        for (const auto& element : *list) {
            if (element.is_object()) {
                values.push_back(HVMidiRangeValue::valueFromDictionary(element));
            }
        }
    }
    container.values = std::move(values);
    if (const Dictionary* additional = objectValue(source, "additionalData")) {
        container.additionalData = *additional;
    }
    for (auto [key, slot] : {std::pair{"onStartTrigger", &container.onStartTrigger},
                             std::pair{"onReleaseTrigger", &container.onReleaseTrigger}}) {
        if (const Dictionary* trigger = objectValue(source, key)) {
            if (depth >= kMaximumTriggerDepth) {
                logf("HVMidiRangeContainer: {} nested deeper than {} levels, ignored", key, kMaximumTriggerDepth);
            } else {
                *slot = containerFromDictionary(*trigger, depth + 1);
            }
        }
    }
    std::vector<std::string> axisUUIDs;
    if (const Dictionary* list = arrayValue(source, "axisUUIDs")) {
        for (const auto& element : *list) {
            if (element.is_string()) {
                axisUUIDs.push_back(element.get<std::string>());
            }
        }
    }
    container.axisUUIDs = std::move(axisUUIDs);
}

std::shared_ptr<HVMidiRangeContainer> containerFromDictionary(const Dictionary& dictionary, int depth) {
    auto container = std::make_shared<HVMidiRangeContainer>();
    container->additionalData.reset();
    container->lastValueBroadcasted = HVLastValueNeverBroadcasted;
    applyDictionary(*container, dictionary, depth);
    return container;
}

}  // namespace

double rnDistanceBetweenPoints(double x1, double y1, double x2, double y2) {
    float dx = static_cast<float>(x2 - x1);
    float dy = static_cast<float>(y2 - y1);
    return static_cast<double>(std::hypot(dx, dy));
}

std::uint64_t HVMidiIntegerValue(const std::optional<double>& value) {
    if (!value || std::isnan(*value)) {
        return 0;
    }
    double v = *value;
    if (v < 0) {
        if (v <= -9.2233720368547758e18) {
            return static_cast<std::uint64_t>(INT64_MIN);
        }
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(v));
    }
    if (v >= 18446744073709551615.0) {
        return UINT64_MAX;
    }
    return static_cast<std::uint64_t>(v);
}

std::shared_ptr<HVMidiRangeContainer> HVMidiRangeContainer::create() {
    auto container = std::make_shared<HVMidiRangeContainer>();
    container->uuid = randomUUIDString();
    return container;
}

std::shared_ptr<HVMidiRangeContainer> HVMidiRangeContainer::initFromDictionary(const Dictionary& dictionary) {
    return containerFromDictionary(dictionary, 0);
}

std::shared_ptr<HVMidiRangeContainer> HVMidiRangeContainer::containerWithChannel(std::uint64_t channel,
                                                                                 std::uint64_t controllerNumber,
                                                                                 bool isNote,
                                                                                 std::vector<HVMidiRangeValuePtr> values) {
    auto container = create();
    container->channel = channel;
    container->controllerNumber = controllerNumber;
    container->signalType = isNote ? HVSignalTypeNote : HVSignalTypeCC;
    container->containerType = HVContainerTypeLinear;
    if (!values.empty()) {
        container->values = std::move(values);
    }
    return container;
}

std::shared_ptr<HVMidiRangeContainer> HVMidiRangeContainer::containerWithDefaultValuesAndChannel(
    std::uint64_t channel, std::uint64_t controllerNumber, bool isNote) {
    return containerWithChannel(channel, controllerNumber, isNote,
                                {HVMidiRangeValue::valueWithRangePosition(0.0, 0),
                                 HVMidiRangeValue::valueWithRangePosition(1.0, 127)});
}

void HVMidiRangeContainer::addValue(const HVMidiRangeValuePtr& value) {
    if (!value || std::find(values.begin(), values.end(), value) != values.end()) {
        return;
    }
    auto next = values;
    next.push_back(value);
    values = std::move(next);
}

void HVMidiRangeContainer::removeValue(const HVMidiRangeValuePtr& value) {
    auto next = values;
    next.erase(std::remove(next.begin(), next.end(), value), next.end());
    values = std::move(next);
}

HVMidiRangeValuePtr HVMidiRangeContainer::bottomValueFromRange(double r) const {
    double best = -1.0;
    HVMidiRangeValuePtr result;
    for (const auto& value : values) {
        if (value->rangePosition < r && value->rangePosition > best) {
            best = value->rangePosition;
            result = value;
        }
    }
    return result;
}

HVMidiRangeValuePtr HVMidiRangeContainer::topValueFromRange(double r) const {
    double best = 2.0;
    HVMidiRangeValuePtr result;
    for (const auto& value : values) {
        if (value->rangePosition > r && value->rangePosition < best) {
            best = value->rangePosition;
            result = value;
        }
    }
    return result;
}

HVMidiRangeValuePtr HVMidiRangeContainer::hvMidiRangeValueEqualToRange(double r) const {
    for (const auto& value : values) {
        if (value->rangePosition == r) {
            return value;
        }
    }
    return nullptr;
}

HVMidiRangeValuePtr HVMidiRangeContainer::topValue() const {
    if (auto exact = hvMidiRangeValueEqualToRange(1.0)) {
        return exact;
    }
    if (auto above = topValueFromRange(1.0)) {
        return above;
    }
    return bottomValueFromRange(1.0);
}

HVMidiRangeValuePtr HVMidiRangeContainer::bottomValue() const {
    if (auto exact = hvMidiRangeValueEqualToRange(0.0)) {
        return exact;
    }
    if (auto below = bottomValueFromRange(0.0)) {
        return below;
    }
    return topValueFromRange(0.0);
}

bool HVMidiRangeContainer::hasValueForRange(double r) const {
    return positionOf(topValue()) >= r || positionOf(bottomValue()) <= r;
}

double HVMidiRangeContainer::alignedRangeFromRange(double r) const {
    double low = 0.0;
    double high = 0.0;
    if (auto exact = hvMidiRangeValueEqualToRange(r)) {
        if (auto above = topValueFromRange(r)) {
            low = exact->rangePosition;
            high = above->rangePosition;
        } else {
            low = positionOf(bottomValueFromRange(r));
            high = exact->rangePosition;
        }
    } else {
        high = positionOf(topValueFromRange(r));
        low = positionOf(bottomValueFromRange(r));
    }
    double c = std::max(r, low);
    c = std::min(c, high);
    return (c - low) / (high - low);
}

std::optional<double> HVMidiRangeContainer::midiValueFromRange(const HVRangePoint& position) const {
    if (position.size() >= 2) {
        return multiAxialValuesForRangeContainerWithRangeValues(position);
    }
    if (position.empty()) {
        return std::nullopt;
    }
    const double p = position[0];
    if (auto exact = hvMidiRangeValueEqualToRange(p)) {
        if (exact->isEnabled) {
            return static_cast<double>(exact->value);
        }
        return std::nullopt;
    }
    auto top = topValueFromRange(p);
    auto bottom = bottomValueFromRange(p);
    bool topEnabled = top && top->isEnabled;
    bool bottomEnabled = bottom && bottom->isEnabled;
    if (topEnabled && bottomEnabled) {
        if (!transitionBetweenValues) {
            return static_cast<double>(bottom->value);
        }
        double f = (p - bottom->rangePosition) / (top->rangePosition - bottom->rangePosition);
        double span = static_cast<double>(top->value) - static_cast<double>(bottom->value);
        double scaled = f * span;
        double result = std::round(scaled + static_cast<double>(bottom->value));
        if (std::isnan(result) || result < 0.0) {
            return 0.0;
        }
        return result;
    }
    if (bottomEnabled) {
        return static_cast<double>(bottom->value);
    }
    if (topEnabled) {
        return static_cast<double>(top->value);
    }
    return std::nullopt;
}

void HVMidiRangeContainer::switchTopAndBottomValues() {
    auto top = topValue();
    auto bottom = bottomValue();
    if (!top || !bottom) {
        return;
    }
    std::swap(top->value, bottom->value);
    std::swap(top->transitionTime, bottom->transitionTime);
}

std::optional<double> HVMidiRangeContainer::radialDistanceRatio(const HVRangePoint& point) const {
    if (values.size() < 2) {
        log("error must have two values");
        return std::nullopt;
    }
    const auto& outer = values[0];
    const auto& centre = values[1];
    double centreX = centre->radialX();
    double centreY = 1.0 - centre->radialY();
    double radius = outer->length();
    double x = point.size() > 0 ? point[0] : 0.0;
    double y = point.size() > 1 ? point[1] : 0.0;
    return rnDistanceBetweenPoints(centreX, centreY, x, y) / radius;
}

double HVMidiRangeContainer::multiAxialValuesForRangeContainerWithRangeValues(const HVRangePoint& point) const {
    double result = -1.0;
    if (containerType != HVContainerTypeRadial) {
        return result;
    }
    auto ratio = radialDistanceRatio(point);
    if (!ratio) {
        return result;
    }
    double d = *ratio;
    const auto& outer = values[0];
    const auto& centre = values[1];
    if (d >= 0.0 && d <= 1.0) {
        if (transitionBetweenValues) {
            double difference = static_cast<double>(static_cast<std::int64_t>(centre->value) -
                                                    static_cast<std::int64_t>(outer->value));
            return std::round(std::fma(difference, 1.0 - d, static_cast<double>(outer->value)));
        }
        return static_cast<double>(centre->value);
    }
    return static_cast<double>(outer->value);
}

bool HVMidiRangeContainer::shouldBroadcastForMultiAxialValues(const HVRangePoint& point) const {
    if (containerType != HVContainerTypeRadial) {
        return false;
    }
    auto ratio = radialDistanceRatio(point);
    if (!ratio || std::isnan(*ratio)) {
        return false;
    }
    if (*ratio >= 0.0 && *ratio <= 1.0) {
        return true;
    }
    if (*ratio > 1.0) {
        return lastValueBroadcasted != values[0]->value;
    }
    return false;
}

// A change travels inside its notification.
static_assert(sizeof(HVRangeContainerChange) <= NotificationObject::kInlineSize);

void HVMidiRangeContainer::setCurrentRangePosition(const HVRangePoint& position, bool broadcastChange,
                                                   const std::shared_ptr<HVMidiAxisDataWrapper>& dataWrapper,
                                                   bool transitionStep) {
    if (!broadcastChange) {
        currentRangePosition_ = position;
        return;
    }
    HVRangePoint old = std::exchange(currentRangePosition_, position);
    HVRangeContainerChange change{shared_from_this(), dataWrapper, position, std::move(old), transitionStep, false};
    NotificationCenter::defaultCenter().postOnMainQueue(
        Notification{NotificationName::constant(NotificationRangeContainerDidChangeValue), nullptr, Dictionary(), std::move(change)});
}

void HVMidiRangeContainer::broadcastTransitionTargetWithDataWrapper(
    const std::shared_ptr<HVMidiAxisDataWrapper>& dataWrapper) {
    HVRangeContainerChange change{shared_from_this(), dataWrapper, {}, {}, false, true};
    NotificationCenter::defaultCenter().postOnMainQueue(
        Notification{NotificationName::constant(NotificationRangeContainerDidChangeValue), nullptr, Dictionary(), std::move(change)});
}

std::vector<std::shared_ptr<HVContainerSequence>> HVMidiRangeContainer::sequences() const {
    std::lock_guard lock(HVSequenceManagerLock());
    return sequences_;
}

void HVMidiRangeContainer::setSequences(std::vector<std::shared_ptr<HVContainerSequence>> sequences) {
    std::lock_guard lock(HVSequenceManagerLock());
    sequences_ = std::move(sequences);
}

void HVMidiRangeContainer::addSequence(const std::shared_ptr<HVContainerSequence>& sequence) {
    if (!sequence) {
        return;
    }
    std::lock_guard lock(HVSequenceManagerLock());
    sequence->setRangeContainer(shared_from_this());
    if (std::find(sequences_.begin(), sequences_.end(), sequence) == sequences_.end()) {
        sequences_.push_back(sequence);
    }
}

void HVMidiRangeContainer::removeSequence(const HVContainerSequence* sequence) {
    std::lock_guard lock(HVSequenceManagerLock());
    sequences_.erase(std::remove_if(sequences_.begin(), sequences_.end(),
                                    [sequence](const auto& s) { return s.get() == sequence; }),
                     sequences_.end());
}

std::string HVMidiRangeContainer::containerTypeToString(HVContainerType type) {
    return type == HVContainerTypeRadial ? "Radial" : "Linear";
}

HVContainerType HVMidiRangeContainer::containerTypeFromString(const std::string& text) {
    return text == "Radial" ? HVContainerTypeRadial : HVContainerTypeLinear;
}

std::string HVMidiRangeContainer::stringRepresentationOfControllerNumber(bool longForm) const {
    switch (signalType) {
    case HVSignalTypeNote:
        return noteStringFromNoteValue(static_cast<std::int64_t>(controllerNumber));
    case HVSignalTypeCC:
        return longForm ? fmt::format("CC:{}", controllerNumber) : fmt::format("{}", controllerNumber);
    case HVSignalTypePC:
        return longForm ? fmt::format("PC:{}", controllerNumber) : fmt::format("{}", controllerNumber);
    case HVSignalTypePitch:
        return "Pitch";
    default:
        return "";
    }
}

std::string HVMidiRangeContainer::stringRepresentationOfCurrentValue() const {
    std::uint64_t value = HVMidiIntegerValue(midiValueFromRange(currentRangePosition_));
    switch (signalType) {
    case HVSignalTypeCC:
        return fmt::format("{}", value);
    case HVSignalTypePC:
        return fmt::format("{}", controllerNumber);
    case HVSignalTypePitch:
        return "Pitch";
    default:
        return fmt::format("{}: {}", noteStringFromNoteValue(static_cast<std::int64_t>(controllerNumber)), value);
    }
}

std::string HVMidiRangeContainer::description() const {
    std::string text = fmt::format("channel:{}, controllerNumber:{}, RNMIDIControllerSignal:{}, stringRepresentation:{}",
                                   channel, controllerNumber, signalType, stringRepresentationOfControllerNumber(true));
    text += "\nvalues:\n";
    for (const auto& value : values) {
        text += value->description();
        text += "\n";
    }
    return text;
}

std::string HVMidiRangeContainer::valuesDescription() const {
    std::string text = "HVMidiRangeContainer:\n";
    text += fmt::format("channel:{}\n", channel);
    text += fmt::format("controller number:{}\n", controllerNumber);
    text += fmt::format("RNMIDIControllerSignal {}\n", signalType);
    text += fmt::format("containerType {}\n", containerType);
    text += "RangeValues:\n";
    for (const auto& value : values) {
        text += value->description() + "\n";
    }
    return text;
}

bool HVMidiRangeContainer::isEqualRange(const HVMidiRangeContainer& other) const {
    return channel == other.channel && controllerNumber == other.controllerNumber && signalType == other.signalType &&
           values == other.values;
}

std::shared_ptr<HVMidiRangeContainer> HVMidiRangeContainer::copy() const {
    return initFromDictionary(dictionary());
}

void HVMidiRangeContainer::copyValuesFrom(const HVMidiRangeContainer& other) {
    applyDictionary(*this, other.dictionary(), 0);
}

void HVMidiRangeContainer::copyValuesFromDictionary(const Dictionary& dictionary,
                                                    const std::vector<std::string>& excludeValues) {
    applyDictionary(*this, dictionaryWithExclodedValuesFromArray(dictionary, excludeValues), 0);
}

Dictionary HVMidiRangeContainer::dictionary() const {
    Dictionary result{{"UUID", uuid},
                      {"transitionBetweenValues", transitionBetweenValues},
                      {"channel", channel},
                      {"controllerNumber", controllerNumber},
                      {"signalType", static_cast<unsigned>(signalType)},
                      {"containerType", containerTypeToString(containerType)},
                      {"values", dictionaryArrayFromHVSeralizableArray(values)},
                      {"axisUUIDs", axisUUIDs}};
    if (title) {
        result["title"] = *title;
    }
    if (additionalData) {
        result["additionalData"] = filterOutNonJSON(*additionalData);
    }
    if (onStartTrigger) {
        result["onStartTrigger"] = onStartTrigger->dictionary();
    }
    if (onReleaseTrigger) {
        result["onReleaseTrigger"] = onReleaseTrigger->dictionary();
    }
    return result;
}

}  // namespace havrel
