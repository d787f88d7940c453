#include "model/HVMidiRangeValue.hpp"

#include "model/HVDictionaryReading.hpp"

#include <fmt/format.h>

namespace havrel {

std::shared_ptr<HVMidiRangeValue> HVMidiRangeValue::create() {
    return std::make_shared<HVMidiRangeValue>();
}

std::shared_ptr<HVMidiRangeValue> HVMidiRangeValue::valueFromDictionary(const Dictionary& dictionary) {
    auto value = create();
    value->rangePosition = doubleValue(dictionary, "rangePosition").value_or(0.0);
    value->value = static_cast<std::uint64_t>(integerValue(dictionary, "value").value_or(0));
    value->title = stringValue(dictionary, "title");
    value->isEnabled = boolValue(dictionary, "isEnabled").value_or(true);
    value->transitionTime = doubleValue(dictionary, "transitionTime").value_or(0.0);
    if (const Dictionary* additional = objectValue(dictionary, "additionalData")) {
        value->additionalData = *additional;
    } else {
        value->additionalData.reset();
    }
    if (const Dictionary* positions = arrayValue(dictionary, "multiRangePosition")) {
        for (const auto& element : *positions) {
            value->multiRangePosition.push_back(doubleValue(element).value_or(0.0));
        }
    }
    return value;
}

std::shared_ptr<HVMidiRangeValue> HVMidiRangeValue::valueWithRangePosition(double rangePosition, std::uint64_t value) {
    return valueWithRangePosition(rangePosition, value, 0.0);
}

std::shared_ptr<HVMidiRangeValue> HVMidiRangeValue::valueWithRangePosition(double rangePosition, std::uint64_t value,
                                                                           double transitionTime) {
    auto stop = create();
    stop->rangePosition = rangePosition;
    stop->value = value;
    stop->transitionTime = transitionTime;
    stop->multiRangePosition.clear();
    return stop;
}

void HVMidiRangeValue::alignMultiPositions() {
    while (multiRangePosition.size() < 2) {
        multiRangePosition.push_back(-1.0);
    }
}

double HVMidiRangeValue::radialX() {
    alignMultiPositions();
    return multiRangePosition[0];
}

double HVMidiRangeValue::radialY() {
    alignMultiPositions();
    return multiRangePosition[1];
}

void HVMidiRangeValue::setRadialX(double x) {
    alignMultiPositions();
    multiRangePosition[0] = x;
}

void HVMidiRangeValue::setRadialY(double y) {
    alignMultiPositions();
    multiRangePosition[1] = y;
}

double HVMidiRangeValue::length() const {
    if (!additionalData) {
        return -1.0;
    }
    auto length = doubleValue(*additionalData, "Length");
    return length.value_or(-1.0);
}

void HVMidiRangeValue::setLength(double length) {
    if (!additionalData || !additionalData->is_object()) {
        additionalData = Dictionary::object();
    }
    (*additionalData)["Length"] = length;
}

bool HVMidiRangeValue::isEqualRangeValue(const HVMidiRangeValue& other) const {
    return rangePosition == other.rangePosition && value == other.value && transitionTime == other.transitionTime &&
           multiRangePosition == other.multiRangePosition && isEnabled == other.isEnabled;
}

std::shared_ptr<HVMidiRangeValue> HVMidiRangeValue::copy() const {
    return valueFromDictionary(dictionary());
}

Dictionary HVMidiRangeValue::dictionary() const {
    Dictionary result{{"rangePosition", rangePosition},
                      {"value", value},
                      {"isEnabled", isEnabled},
                      {"transitionTime", transitionTime}};
    if (title) {
        result["title"] = *title;
    }
    if (additionalData) {
        result["additionalData"] = *additionalData;
    }
    result["multiRangePosition"] = multiRangePosition;
    return result;
}

std::string HVMidiRangeValue::description() const {
    return fmt::format("position: {:.1f}, value:{}, transitionTime:{:.1f}, multiRangePosition:{}", rangePosition,
                       value, transitionTime, Dictionary(multiRangePosition).dump());
}

}  // namespace havrel
