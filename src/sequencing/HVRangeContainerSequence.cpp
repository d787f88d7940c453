#include "sequencing/HVRangeContainerSequence.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace havrel {

namespace {

// Stops with a transition time glide from the start of the program: the model's axes find this
// factory without anything having made the scheduler first.
const bool linearTransitionFactoryRegistered = [] {
    HVRegisterDefaultLinearTransitionFactory([](const HVMidiRangeContainerPtr& container, double startRange,
                                                double endRange, double duration) -> std::shared_ptr<HVContainerSequence> {
        return HVMIDILinearSequence::sequenceWithRangeContainer(container, nullptr, startRange, endRange, duration);
    });
    return true;
}();

}  // namespace

// Every program that links this library asks the linker for this symbol (see CMakeLists.txt), so
// the registration above is part of it even when nothing else names a glide.
extern "C" const bool* havrel_sequencing_glides() {
    return &linearTransitionFactoryRegistered;
}

std::shared_ptr<HVRangeContainerSequence> HVRangeContainerSequence::sequenceWithRangeContainer(
    const HVMidiRangeContainerPtr& container, const HVMidiRangeContainerPtr& previousRC) {
    auto sequence = std::make_shared<HVRangeContainerSequence>();
    sequence->attach(container, previousRC);
    return sequence;
}

void HVRangeContainerSequence::attach(const HVMidiRangeContainerPtr& container,
                                      const HVMidiRangeContainerPtr& previousRC) {
    rangeContainer_ = container;
    if (container) {
        auto self = std::dynamic_pointer_cast<HVRangeContainerSequence>(shared_from_this());
        container->addSequence(std::static_pointer_cast<HVContainerSequence>(self));
    }
    previousRangeContainer = previousRC;
}

bool HVRangeContainerSequence::isLinearTransitionPlayingTo(double position) const {
    (void)position;
    return false;
}

void HVRangeContainerSequence::playWithRangeCallback(
    std::function<void(const std::vector<double>& rangePosition)> callback) {
    playWithPlayerCallback([callback = std::move(callback)](const HVMIDISequenceTimeslice& slice) {
        if (slice.rangePosition) {
            callback(*slice.rangePosition);
        }
    });
}

std::shared_ptr<HVMIDILinearSequence> HVMIDILinearSequence::sequenceWithRangeContainer(
    const HVMidiRangeContainerPtr& container, const HVMidiRangeContainerPtr& previousRC, double startRange,
    double endRange, double duration) {
    auto sequence = attachedWithSpan<HVMIDILinearSequence>(container, previousRC, startRange, endRange, duration);
    sequence->autoRepeats = false;

    const double s = startRange;
    const double e = endRange;
    const auto& current = container->currentRangePosition();
    const double c = current.empty() ? 0.0 : current.front();

    if (e - s == 0.0) {
        sequence->timeSlices.push_back(HVMIDISequenceTimeslice::create(std::vector<double>{e}, 0.0));
        return sequence;
    }

    // The glide keeps the speed of the whole way from s to e.
    const double totalTime = std::fabs(duration / std::fabs(e - s) * (e - c));
    const auto m0 = static_cast<std::int64_t>(HVMidiIntegerValue(container->midiValueFromRange({c})));
    const auto m1 = static_cast<std::int64_t>(HVMidiIntegerValue(container->midiValueFromRange({e})));
    const double span = std::max(static_cast<double>(std::llabs(m1 - m0)), 1.0);
    const double limited = std::min(std::min(totalTime * 1000.0, 128.0), span);
    const auto steps = static_cast<std::int64_t>(std::max(std::ceil(limited), 1.0));
    const double stepTime = totalTime / static_cast<double>(steps);

    double accumulated = 0.0;
    std::optional<double> last = container->midiValueFromRange({c});
    HVMIDISequenceTimeslicePtr previous;
    for (std::int64_t i = 1; i <= steps; ++i) {
        const double p = i == steps ? e : c + (e - c) * static_cast<double>(i) / static_cast<double>(steps);
        accumulated += stepTime;
        const std::optional<double> m = container->midiValueFromRange({p});
        if (m != last) {
            previous = HVMIDISequenceTimeslice::create(std::vector<double>{p}, accumulated);
            sequence->timeSlices.push_back(previous);
            accumulated = 0.0;
            last = m;
        } else if (previous) {
            // The slice carries the furthest position that yields its value.
            previous->rangePosition = std::vector<double>{p};
        }
    }
    if (!previous) {
        sequence->timeSlices.push_back(HVMIDISequenceTimeslice::create(std::vector<double>{e}, accumulated));
    }
    return sequence;
}

bool HVMIDILinearSequence::isLinearTransitionPlayingTo(double position) const {
    return state == HVSequenceStatePlaying && endRange == position;
}

std::shared_ptr<HVMIDILFOSequence> HVMIDILFOSequence::sequenceWithRangeContainer(
    const HVMidiRangeContainerPtr& container, const HVMidiRangeContainerPtr& previousRC, double startRange,
    double endRange, double duration) {
    auto sequence = attachedWithSpan<HVMIDILFOSequence>(container, previousRC, startRange, endRange, duration);
    if (duration <= 0) {
        return sequence;
    }
    const double s = startRange;
    const double e = endRange;
    double last = -1.0;
    for (std::int64_t i = 1;; ++i) {
        const double p = (s - e) * (std::cos(2.0 * std::numbers::pi * static_cast<double>(i) / duration) + 1.0) / 2.0 + e;
        const double m = container->midiValueFromRange({p}).value_or(0.0);
        if (m != last) {
            sequence->timeSlices.push_back(HVMIDISequenceTimeslice::create(std::vector<double>{p}, i == 1 ? 0.0 : 0.001));
        }
        last = m;
        if (!(duration > static_cast<double>(i))) {
            break;
        }
    }
    return sequence;
}

}  // namespace havrel
