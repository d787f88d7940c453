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

    // A new sequence of a kind with a span, attached to the container, its span stored.
    template <typename Sequence>
    static std::shared_ptr<Sequence> attachedWithSpan(const HVMidiRangeContainerPtr& container,
                                                      const HVMidiRangeContainerPtr& previousRC, double startRange,
                                                      double endRange, double duration) {
        auto sequence = std::make_shared<Sequence>();
        sequence->attach(container, previousRC);
        sequence->startRange = startRange;
        sequence->endRange = endRange;
        sequence->duration = duration;
        return sequence;
    }

private:
    std::weak_ptr<HVMidiRangeContainer> rangeContainer_;
};

// The span of a calculated sequence.
struct HVRangeSpan {
    double startRange = 0.0;
    double endRange = 0.0;
    double duration = 0.0;
};

// A glide from one position to another, one slice per change of the output MIDI value.
class HVMIDILinearSequence final : public HVRangeContainerSequence, public HVRangeSpan {
public:
    static std::shared_ptr<HVMIDILinearSequence> sequenceWithRangeContainer(const HVMidiRangeContainerPtr& container,
                                                                            const HVMidiRangeContainerPtr& previousRC,
                                                                            double startRange, double endRange,
                                                                            double duration);
    bool isLinearTransitionPlayingTo(double position) const override;
};

// One cosine sweep from start to end and back; duration counts one-millisecond steps.
class HVMIDILFOSequence final : public HVRangeContainerSequence, public HVRangeSpan {
public:
    static std::shared_ptr<HVMIDILFOSequence> sequenceWithRangeContainer(const HVMidiRangeContainerPtr& container,
                                                                         const HVMidiRangeContainerPtr& previousRC,
                                                                         double startRange, double endRange,
                                                                         double duration);
};

}  // namespace havrel
