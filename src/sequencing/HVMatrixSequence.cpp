#include "sequencing/HVMatrixSequence.hpp"

#include "model/HVDictionaryReading.hpp"
#include "platform/Assert.hpp"
#include "platform/Log.hpp"

namespace havrel {

std::shared_ptr<HVMatrixSequence> HVMatrixSequence::initFromDictionary(const Dictionary& dictionary) {
    auto matrix = create();
    if (const auto* container = objectValue(dictionary, "rangeContainer")) {
        matrix->rangeContainer = HVMidiRangeContainer::initFromDictionary(*container);
    } else {
        matrix->rangeContainer = HVMidiRangeContainer::containerWithChannel(0, 20, false);
    }
    if (const auto* sequence = objectValue(dictionary, "stepSequence")) {
        matrix->stepSequence = HVMIDISequence::initFromDictionary(*sequence);
        if (!matrix->stepSequence) {
            return nullptr;
        }
    } else {
        matrix->stepSequence = HVMIDISequence::create();
    }
    if (const auto text = stringValue(dictionary, "color")) {
        matrix->color = HVColor::hx_colorWithHexString(*text);
    }
    return matrix;
}

Dictionary HVMatrixSequence::dictionary() const {
    HV_ASSERT(rangeContainer != nullptr);
    HV_ASSERT(stepSequence != nullptr);
    Dictionary result = Dictionary::object();
    if (auto container = rangeContainer->dictionary(); !container.is_null()) {
        result["rangeContainer"] = std::move(container);
    }
    if (auto sequence = stepSequence->dictionary(); !sequence.is_null()) {
        result["stepSequence"] = std::move(sequence);
    }
    result["color"] = color.hxValue();
    return result;
}

std::shared_ptr<HVMatrixSequences> HVMatrixSequences::initFromDictionary(const Dictionary& dictionary) {
    auto list = create();
    list->copyValuesFromDictionary(dictionary, {});
    return list;
}

Dictionary HVMatrixSequences::dictionary() const {
    return Dictionary{{"sequences", dictionaryArrayFromHVSeralizableArray(sequences)}};
}

void HVMatrixSequences::copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>&) {
    const auto* array = arrayValue(dictionary, "sequences");
    if (!array) {
        return;
    }
    for (const auto& element : *array) {
        if (!element.is_object()) {
            return;
        }
    }
    if (array->size() > kMaximumSequences) {
        logf("[HVSequencing] matrix sequences refused: {} sequences are more than {}", array->size(),
             kMaximumSequences);
        return;
    }
    std::vector<HVMatrixSequencePtr> read;
    for (const auto& element : *array) {
        if (auto matrix = HVMatrixSequence::initFromDictionary(element)) {
            read.push_back(std::move(matrix));
        }
    }
    sequences = std::move(read);
}

}  // namespace havrel
