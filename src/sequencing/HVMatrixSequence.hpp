#pragma once
// A matrix sequence: a step sequence bound to the range container that says what its steps
// drive, with a display colour; HVMatrixSequences is the list of them.

#include "model/HVMidiRangeContainer.hpp"
#include "model/HVSerializeable.hpp"
#include "sequencing/HVColor.hpp"
#include "sequencing/HVMIDISequence.hpp"

#include <memory>
#include <string>
#include <vector>

namespace havrel {

class HVMatrixSequence final : public HVSerializeable {
public:
    static std::shared_ptr<HVMatrixSequence> create() { return std::make_shared<HVMatrixSequence>(); }
    // Missing parts take defaults: controller 20 on channel 0, a new step sequence, red. A step
    // sequence that is refused (see HVMIDISequence) leaves the whole matrix sequence out: the
    // result is then nullptr.
    static std::shared_ptr<HVMatrixSequence> initFromDictionary(const Dictionary& dictionary);

    std::shared_ptr<HVMidiRangeContainer> rangeContainer;
    HVMIDISequencePtr stepSequence;
    HVColor color = HVColor::plainRed();

    // Both parts must be present: a programming fault otherwise.
    Dictionary dictionary() const override;
    std::string className() const override { return "HVMatrixSequence"; }
};

using HVMatrixSequencePtr = std::shared_ptr<HVMatrixSequence>;

class HVMatrixSequences final : public HVSerializeable {
public:
    static std::shared_ptr<HVMatrixSequences> create() { return std::make_shared<HVMatrixSequences>(); }
    static std::shared_ptr<HVMatrixSequences> initFromDictionary(const Dictionary& dictionary);

    std::vector<HVMatrixSequencePtr> sequences;
    // Each element of a list from outside makes a whole step sequence: a longer list is refused
    // with one log line, and the list stays.
    static constexpr std::size_t kMaximumSequences = 1024;

    Dictionary dictionary() const override;
    std::string className() const override { return "HVMatrixSequences"; }
    // "sequences" as an array of dictionaries replaces the list, one element for each that is
    // not refused; absent or of another type, the list stays.
    void copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues) override;
};

}  // namespace havrel
