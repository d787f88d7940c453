#include "sequencing/HVStep.hpp"

#include "model/HVDictionaryReading.hpp"
#include "sequencing/HVDictionaryLimits.hpp"

namespace havrel {

HVStepPtr HVStep::initFromDictionary(const Dictionary& dictionary) {
    auto step = create();
    step->copyValuesFromDictionary(dictionary, {});
    return step;
}

std::optional<std::string> HVStep::refusalOf(const Dictionary& dictionary) {
    if (!dictionary.is_object()) {
        return "a step is not a dictionary";
    }
    for (const char* key : {"length", "value", "ccNumberOrNote"}) {
        if (auto refusal = outOfRange(dictionary, key, 0, 255)) {
            return refusal;
        }
    }
    return outOfRange(dictionary, "startQN", 0, std::numeric_limits<std::int64_t>::max());
}

void HVStep::setValue(std::uint8_t value) {
    value_ = value;
    if (changeBlock) {
        changeBlock(*this, Dictionary{{"value", value}});
    }
}

Dictionary HVStep::dictionary() const {
    return Dictionary{{"length", length},
                      {"ccNumberOrNote", ccNumberOrNote.value},
                      {"value", value_},
                      {"startQN", startQN}};
}

void HVStep::copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>&) {
    auto byte = [&](const char* key, std::uint8_t fallback) {
        return static_cast<std::uint8_t>(integerValue(dictionary, key).value_or(fallback));
    };
    length = byte("length", 6);
    // "value" is read twice on purpose: an absent value ends as 0 after two notifications.
    setValue(byte("value", 127));
    const auto shapeRaw = integerValue(dictionary, "shape").value_or(0);
    shape = shapeRaw == 1 || shapeRaw == 2 ? static_cast<HVSequencerStepShape>(shapeRaw) : HVSequencerStepShape::shape0;
    setValue(byte("value", 0));
    ccNumberOrNote.value = byte("ccNumberOrNote", 20);
    ccNumberOrNote.channel = 1;
    startQN = static_cast<std::uint64_t>(integerValue(dictionary, "startQN").value_or(0));
}

}  // namespace havrel
