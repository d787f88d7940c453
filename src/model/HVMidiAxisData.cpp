#include "model/HVMidiAxisData.hpp"

#include "model/HVDictionaryReading.hpp"
#include "model/HVMidiAxisDataWrapper.hpp"
#include "model/HVUUID.hpp"

#include <fmt/format.h>

namespace havrel {

std::shared_ptr<HVMidiAxisData> HVMidiAxisData::create() {
    auto axis = std::make_shared<HVMidiAxisData>();
    axis->uuid = randomDecimalIdentifier();
    return axis;
}

std::shared_ptr<HVMidiAxisData> HVMidiAxisData::axisDataFromDictionary(const Dictionary& dictionary) {
    auto axis = std::make_shared<HVMidiAxisData>();
    // Read from a dictionary an axis has the history the dictionary gives, 0.0 by default.
    axis->previousRangePosition = 0.0;
    axis->uuid = stringValue(dictionary, "UUID").value_or(randomDecimalIdentifier());
    if (const Dictionary* containers = arrayValue(dictionary, "rangeContainers")) {
        for (const auto& element : *containers) {
            if (element.is_object()) {
                axis->rangeContainers.push_back(HVMidiRangeContainer::midiRangeFromDictionary(element));
            }
        }
    }
    if (auto current = doubleValue(dictionary, "currentRangePosition")) {
        axis->currentRangePosition_ = *current;
    }
    if (auto previous = doubleValue(dictionary, "previousRangePosition")) {
        axis->previousRangePosition = *previous;
    }
    return axis;
}

std::shared_ptr<HVMidiAxisData> HVMidiAxisData::axisWithRangeContainers(std::vector<HVMidiRangeContainerPtr> containers) {
    auto axis = create();
    axis->rangeContainers = std::move(containers);
    return axis;
}

std::shared_ptr<HVMidiAxisData> HVMidiAxisData::axisDataWithCC(std::uint64_t controller) {
    auto container = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, controller, false);
    auto axis = create();
    axis->addRangeContainer(container);
    return axis;
}

HVMidiRangeContainerPtr HVMidiAxisData::containerWithController(std::uint64_t controller, std::uint64_t midiChannel,
                                                                HVSignalType signalType) const {
    for (const auto& container : rangeContainers) {
        if (container->controllerNumber == controller && container->channel == midiChannel &&
            container->signalType == signalType) {
            return container;
        }
    }
    return nullptr;
}

void HVMidiAxisData::addRangeContainer(const HVMidiRangeContainerPtr& container) {
    if (!container) {
        return;
    }
    container->axisUUIDs = {uuid};
    auto next = rangeContainers;
    next.push_back(container);
    rangeContainers = std::move(next);
}

void HVMidiAxisData::removeRangeContainerAtIndex(std::size_t index) {
    if (index >= rangeContainers.size()) {
        return;
    }
    auto next = rangeContainers;
    next[index]->axisUUIDs.clear();
    next.erase(next.begin() + static_cast<std::ptrdiff_t>(index));
    rangeContainers = std::move(next);
}

void HVMidiAxisData::stopTransitionsForRangeContainer(const HVMidiRangeContainerPtr& container) {
    for (const auto& sequence : container->sequences()) {
        sequence->stopPlayback();
    }
}

bool HVMidiAxisData::rangeContainerHasTransitionPlayingTo(const HVMidiRangeContainerPtr& container, double position) {
    for (const auto& sequence : container->sequences()) {
        if (sequence->isLinearTransitionPlayingTo(position)) {
            return true;
        }
    }
    return false;
}

namespace {

// Each step of the glide goes to its container, with the axis's wrapper as it is at that step.
void playTransition(const std::shared_ptr<HVContainerSequence>& sequence, std::weak_ptr<HVMidiAxisData> weakAxis,
                    bool broadcastChange) {
    std::weak_ptr<HVContainerSequence> weakSequence = sequence;
    sequence->playWithRangeCallback([weakSequence, weakAxis, broadcastChange](const std::vector<double>& step) {
        auto playing = weakSequence.lock();
        auto target = playing ? playing->rangeContainer() : nullptr;
        if (!target) {
            return;
        }
        // The wrapper is fetched at each step: it may be gone by now.
        auto axis = weakAxis.lock();
        auto dataWrapper = axis ? axis->wrapper.lock() : nullptr;
        target->setCurrentRangePosition(step, broadcastChange, dataWrapper, true);
    });
}

}  // namespace

void HVMidiAxisData::setCurrentRangePosition(double position, bool broadcastChange, bool setAsBroadcasted) {
    std::lock_guard lock(HVSequenceManagerLock());
    const double old = currentRangePosition_;
    currentRangePosition_ = position;
    auto owner = wrapper.lock();

    for (const auto& container : rangeContainers) {
        auto stop = container->hvMidiRangeValueEqualToRange(position);
        const double transitionTime = stop ? stop->transitionTime : 0.0;
        if (transitionTime == 0.0) {
            stopTransitionsForRangeContainer(container);
            container->setCurrentRangePosition({position}, broadcastChange, owner);
        } else if (!rangeContainerHasTransitionPlayingTo(container, position)) {
            stopTransitionsForRangeContainer(container);
            const auto& current = container->currentRangePosition();
            const double start = current.empty() ? old : current.front();
            const auto factory = HVInstalledLinearTransitionFactory();
            if (start == position || !factory) {
                // A program that cannot play glides lands on the stop at once.
                container->setCurrentRangePosition({position}, broadcastChange, owner);
            } else {
                auto sequence = factory(container, old == position ? start : old, position, transitionTime);
                if (broadcastChange) {
                    container->broadcastTransitionTargetWithDataWrapper(owner);
                }
                playTransition(sequence, weak_from_this(), broadcastChange);
            }
        }
        if (!broadcastChange && setAsBroadcasted) {
            container->lastValueBroadcasted = stop ? stop->value : 0;
        }
    }
}

std::vector<HVMidiRangeContainerPtr> HVMidiAxisData::noteMIDIRanges() const {
    std::vector<HVMidiRangeContainerPtr> result;
    for (const auto& container : rangeContainers) {
        if (container->signalType == HVSignalTypeNote) {
            result.push_back(container);
        }
    }
    return result;
}

std::vector<HVMidiRangeContainerPtr> HVMidiAxisData::controllerMIDIRanges() const {
    std::vector<HVMidiRangeContainerPtr> result;
    for (const auto& container : rangeContainers) {
        if (container->signalType != HVSignalTypeCC) {
            result.push_back(container);
        }
    }
    return result;
}

std::vector<HVMidiRangeContainerPtr> HVMidiAxisData::allMIDIRanges() const {
    return rangeContainers;
}

std::vector<HVMidiRangeContainerPtr> HVMidiAxisData::rangeContainersThatShouldBeBroadcastedForPolicy(
    HVBroadcastPolicy policy) const {
    if (previousRangePosition < 0.0) {
        return rangeContainers;
    }
    std::vector<HVMidiRangeContainerPtr> result;
    for (const auto& container : rangeContainers) {
        bool counts = false;
        if (policy == HVBroadcastPolicyOnValueChange) {
            auto current = container->midiValueFromRange({currentRangePosition_});
            auto previous = container->midiValueFromRange({previousRangePosition});
            counts = !previous || (current && *current != *previous);
        } else if (policy == HVBroadcastPolicyInsideRange) {
            auto bottom = container->bottomValue();
            auto top = container->topValue();
            counts = (bottom ? bottom->rangePosition : 0.0) <= currentRangePosition_ &&
                     (top ? top->rangePosition : 0.0) >= currentRangePosition_;
        } else if (policy == HVBroadcastPolicyAlways) {
            counts = true;
        }
        if (counts) {
            result.push_back(container);
        }
    }
    return result;
}

void HVMidiAxisData::syncPreviousRangePositionWithCurrentRangePosition() {
    previousRangePosition = currentRangePosition_;
}

bool HVMidiAxisData::isEqualData(const HVMidiAxisData& other) const {
    return rangeContainers == other.rangeContainers;
}

std::shared_ptr<HVMidiAxisData> HVMidiAxisData::copy() const {
    return axisDataFromDictionary(dictionary());
}

Dictionary HVMidiAxisData::dictionary() const {
    return Dictionary{{"UUID", uuid},
                      {"rangeContainers", dictionaryArrayFromHVSeralizableArray(rangeContainers)},
                      {"currentRangePosition", currentRangePosition_},
                      {"previousRangePosition", previousRangePosition}};
}

std::string HVMidiAxisData::description() const {
    std::string text = fmt::format("previousPositions {:f}\n", previousRangePosition);
    text += fmt::format("currentPositions {:f}\n", currentRangePosition_);
    text += "containers:\n";
    for (const auto& container : rangeContainers) {
        text += container->description() + "\n";
    }
    return text;
}

std::string HVMidiAxisData::rangeContainersDescription() const {
    std::string text = "range containers:\n";
    for (const auto& container : rangeContainers) {
        text += container->description() + "\n";
    }
    return text;
}

}  // namespace havrel
