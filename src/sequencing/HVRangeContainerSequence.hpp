#pragma once
// Sequences tied to a range container: the glide to a stop and the cosine sweep.

#include "model/HVMidiRangeContainer.hpp"
#include "sequencing/HVSequence.hpp"

#include <memory>

namespace havrel {

class HVRangeContainerSequence : public HVSequence, public HVContainerSequence {
public:
    static std::shared_ptr<HVRangeContainerSequence> sequenceWithRangeContainer(
        const HVMidiRangeContainerPtr& container, const HVMidiRangeContainerPtr& previousRC);

    std::weak_ptr<HVMidiRangeContainer> previousRangeContainer;

    // Does nothing.
    virtual void defaultTick() {}

    void stopPlayback() override { HVSequence::stopPlayback(); }
    bool isLinearTransitionPlayingTo(double position) const override;
    std::shared_ptr<HVMidiRangeContainer> rangeContainer() const override { return rangeContainer_.lock(); }
    void setRangeContainer(const std::shared_ptr<HVMidiRangeContainer>& container) override {
        rangeContainer_ = container;
    }
    void playWithRangeCallback(std::function<void(const std::vector<double>& rangePosition)> callback) override;

protected:
    // Sets the container and attaches this sequence to it.
    void attach(const HVMidiRangeContainerPtr& container, const HVMidiRangeContainerPtr& previousRC);

private:
    std::weak_ptr<HVMidiRangeContainer> rangeContainer_;
};

// A glide from one position to another, one slice per change of the output MIDI value.
class HVMIDILinearSequence final : public HVRangeContainerSequence {
public:
    static std::shared_ptr<HVMIDILinearSequence> sequenceWithRangeContainer(const HVMidiRangeContainerPtr& container,
                                                                            const HVMidiRangeContainerPtr& previousRC,
                                                                            double startRange, double endRange,
                                                                            double duration);
    double startRange = 0.0;
    double endRange = 0.0;
    double duration = 0.0;

    bool isLinearTransitionPlayingTo(double position) const override;
};

// One cosine sweep from start to end and back; duration counts one-millisecond steps.
class HVMIDILFOSequence final : public HVRangeContainerSequence {
public:
    static std::shared_ptr<HVMIDILFOSequence> sequenceWithRangeContainer(const HVMidiRangeContainerPtr& container,
                                                                         const HVMidiRangeContainerPtr& previousRC,
                                                                         double startRange, double endRange,
                                                                         double duration);
    double startRange = 0.0;
    double endRange = 0.0;
    double duration = 0.0;
};

}  // namespace havrel
