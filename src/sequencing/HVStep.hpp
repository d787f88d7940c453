#pragma once
// One cell of a step sequence: what it plays, how loud, where it starts and for how long, in
// MIDI clock ticks.

#include "model/HVSerializeable.hpp"
#include "sequencing/HVMusicalTypes.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace havrel {

class HVStep;
using HVStepPtr = std::shared_ptr<HVStep>;

class HVStep final : public HVSerializeable {
public:
    using ChangeBlock = std::function<void(const HVStep& step, const Dictionary& change)>;

    static HVStepPtr create() { return std::make_shared<HVStep>(); }
    // Values outside their fields' ranges must have been refused before (see refusalOf).
    static HVStepPtr initFromDictionary(const Dictionary& dictionary);
    // Why a dictionary cannot become a step (a number outside its field's range), or nothing.
    static std::optional<std::string> refusalOf(const Dictionary& dictionary);

    // Set by the owning sequence.
    ChangeBlock changeBlock;
    HVMIDINoteLength length = 6;
    HVCCOrNote ccNumberOrNote;
    std::uint64_t startQN = 0;
    HVSequencerStepShape shape = HVSequencerStepShape::shape0;

    // Controller value or velocity. The setter tells changeBlock {"value": new value}.
    std::uint8_t value() const { return value_; }
    void setValue(std::uint8_t value);

    // "length", "ccNumberOrNote" (the value only), "value", "startQN"; the shape is not written.
    Dictionary dictionary() const override;
    std::string className() const override { return "HVStep"; }
    void copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues) override;

private:
    std::uint8_t value_ = 0;
};

}  // namespace havrel
