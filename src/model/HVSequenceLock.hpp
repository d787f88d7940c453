#pragma once
// The recursive lock of the sequence scheduler. Axis and container code hold it while they
// change positions and attached sequences; the scheduler's timer holds it while it plays.

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace havrel {

class HVMidiRangeContainer;

std::recursive_mutex& HVSequenceManagerLock();

// A sequence attached to a range container (a glide or a sweep). The container keeps the list;
// the scheduler plays them.
class HVContainerSequence {
public:
    virtual ~HVContainerSequence() = default;
    virtual void stopPlayback() = 0;
    // True for a linear glide that is playing towards exactly this position.
    virtual bool isLinearTransitionPlayingTo(double position) const = 0;
    virtual std::shared_ptr<HVMidiRangeContainer> rangeContainer() const = 0;
    virtual void setRangeContainer(const std::shared_ptr<HVMidiRangeContainer>& container) = 0;
    // Starts playing; the callback gets each step's position on the scheduler's thread, with the
    // lock held. A sequence without steps does not start.
    virtual void playWithRangeCallback(std::function<void(const std::vector<double>& rangePosition)> callback) = 0;
};

// Makes the glide of a stop with a transition time: container, start, end, duration in seconds.
// Glides are played by the sequencing library, which sits above this one: it registers its
// factory as the default while the program starts, so a glide can start before anything has
// made the scheduler. A program without that library has no glides.
using HVLinearTransitionFactory = std::function<std::shared_ptr<HVContainerSequence>(
    const std::shared_ptr<HVMidiRangeContainer>& container, double startRange, double endRange, double duration)>;
void HVRegisterDefaultLinearTransitionFactory(HVLinearTransitionFactory factory);
// Replaces the factory in use; an empty one restores the default.
void HVSetLinearTransitionFactory(HVLinearTransitionFactory factory);
// The factory in use, or an empty one when there is none.
HVLinearTransitionFactory HVInstalledLinearTransitionFactory();

}  // namespace havrel
