#include "model/RNMIDIControllerSignal.hpp"

#include "model/HVDictionaryReading.hpp"

#include <fmt/format.h>

namespace havrel {

namespace {

std::uint64_t signExtended(std::int32_t value) {
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
}

}  // namespace

std::shared_ptr<HVMIDIAttribute> HVMIDIAttribute::create() {
    return std::make_shared<HVMIDIAttribute>();
}

std::shared_ptr<HVMIDIAttribute> HVMIDIAttribute::initFromDictionary(const Dictionary& dictionary) {
    auto attribute = create();
    if (auto type = intValue(dictionary, "signalType")) {
        attribute->signalType = static_cast<HVSignalType>(*type);
    }
    return attribute;
}

std::string HVMIDIAttribute::uniqueIdentifier() const {
    return singalToString(signalType) + "-";
}

Dictionary HVMIDIAttribute::dictionary() const {
    return Dictionary{{"signalType", static_cast<unsigned>(signalType)}};
}

std::shared_ptr<RNMIDIControllerSignal> RNMIDIControllerSignal::create() {
    return std::make_shared<RNMIDIControllerSignal>();
}

std::shared_ptr<RNMIDIControllerSignal> RNMIDIControllerSignal::RNMIDIControllerSignalWithChannel(
    std::uint64_t channel, std::uint64_t controller) {
    return RNMIDIControllerSignalWithChannel(channel, controller, 0);
}

std::shared_ptr<RNMIDIControllerSignal> RNMIDIControllerSignal::RNMIDIControllerSignalWithChannel(
    std::uint64_t channel, std::uint64_t controller, std::uint64_t value) {
    auto signal = create();
    signal->type = HVSignalTypeCC;
    signal->channelNumber = channel;
    signal->controllerNumber = controller;
    signal->value = value;
    return signal;
}

std::shared_ptr<RNMIDIControllerSignal> RNMIDIControllerSignal::RNMIDIControllerSignalWithChannel(
    std::uint64_t channel, std::uint64_t controller, std::uint64_t value, std::string uniqueID) {
    auto signal = RNMIDIControllerSignalWithChannel(channel, controller, value);
    signal->uniqueID = std::move(uniqueID);
    return signal;
}

std::shared_ptr<RNMIDIControllerSignal> RNMIDIControllerSignal::initFromDictionary(const Dictionary& dictionary) {
    auto signal = create();
    if (auto type = intValue(dictionary, "type")) {
        signal->type = static_cast<HVSignalType>(*type);
    }
    if (auto channel = intValue(dictionary, "channelNumber")) {
        signal->channelNumber = signExtended(*channel);
    }
    if (auto controller = intValue(dictionary, "controllerNumber")) {
        signal->channelNumber = signExtended(*controller);
    }
    if (auto value = intValue(dictionary, "value")) {
        signal->value = signExtended(*value);
    }
    if (const Dictionary* attribute = objectValue(dictionary, "attribute")) {
        signal->attribute = HVMIDIAttribute::initFromDictionary(*attribute);
    }
    return signal;
}

Dictionary RNMIDIControllerSignal::dictionary() const {
    Dictionary result{{"type", static_cast<unsigned>(type)},
                      {"channelNumber", channelNumber},
                      {"controllerNumber", controllerNumber},
                      {"value", value}};
    if (attribute) {
        result["attribute"] = attribute->dictionary();
    }
    return result;
}

std::string RNMIDIControllerSignal::description() const {
    return fmt::format("RNMIDIControllerSignal channel: {} controller: {} uniqueID: {} signalType: {}", channelNumber,
                       controllerNumber, uniqueID.value_or("(null)"), titleForSignalType(type).value_or("(null)"));
}

}  // namespace havrel
