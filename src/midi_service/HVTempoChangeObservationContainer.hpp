#pragma once
// A party that follows MIDI clock: the object it belongs to (held weakly) and the callbacks it
// wants. The MIDI manager keeps these in an array and drops an entry once its object has gone.

#include "model/HVObservationContainer.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace havrel {

class HVTempoChangeObservationContainer final : public HVObservationContainer {
public:
    // Stored, never read.
    std::int32_t priority = 0;
    std::function<void(bool running)> midiStartStopBlock;
    std::function<void(double position, std::int32_t bar, std::int32_t beat, std::int32_t beatDivision)>
        midiPositionChangeBlock;
    std::function<void(double bpm)> midiTempoChangeBlock;
    std::function<void(std::uint64_t total)> midiQuantiomChangeBlock;
};

// Removes the collected indices from the live array in the order given (ascending), each one
// as it stands after the removals before it: removing 0 and 2 of four entries removes what were
// the entries at 0 and 3. An index past the end is not removed; the number of those is
// returned.
std::size_t removeCollectedObservers(std::vector<HVTempoChangeObservationContainer>& observers,
                                     const std::vector<std::size_t>& collected);

}  // namespace havrel
