#pragma once
// One stop of a range container: a position on the control pinned to a MIDI value.

#include "model/HVSerializeable.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HVMidiRangeValue final : public HVSerializeable {
public:
    static std::shared_ptr<HVMidiRangeValue> create();
    static std::shared_ptr<HVMidiRangeValue> valueFromDictionary(const Dictionary& dictionary);
    static std::shared_ptr<HVMidiRangeValue> initFromDictionary(const Dictionary& dictionary) {
        return valueFromDictionary(dictionary);
    }
    static std::shared_ptr<HVMidiRangeValue> valueWithRangePosition(double rangePosition, std::uint64_t value);
    static std::shared_ptr<HVMidiRangeValue> valueWithRangePosition(double rangePosition, std::uint64_t value,
                                                                    double transitionTime);

    bool isEnabled = true;
    double rangePosition = 0.0;
    std::optional<std::string> title;
    // Radial containers: element 0 is x, element 1 is y.
    std::vector<double> multiRangePosition;
    std::uint64_t value = 0;
    double transitionTime = 0.0;
    // Free data of the client; absent after reading a dictionary without it.
    std::optional<Dictionary> additionalData = Dictionary::object();

    // XYConvenience: pads the point with -1.0 up to two elements.
    void alignMultiPositions();
    double radialX();
    double radialY();
    void setRadialX(double x);
    void setRadialY(double y);
    // The number under "Length" in additionalData, -1.0 without one.
    double length() const;
    void setLength(double length);

    bool isEqualRangeValue(const HVMidiRangeValue& other) const;
    std::shared_ptr<HVMidiRangeValue> copy() const;

    Dictionary dictionary() const override;
    std::string className() const override { return "HVMidiRangeValue"; }
    std::string description() const;
};

using HVMidiRangeValuePtr = std::shared_ptr<HVMidiRangeValue>;

}  // namespace havrel
