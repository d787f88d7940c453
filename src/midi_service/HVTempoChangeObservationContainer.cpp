#include "midi_service/HVTempoChangeObservationContainer.hpp"

namespace havrel {

std::size_t removeCollectedObservers(std::vector<HVTempoChangeObservationContainer>& observers,
                                     const std::vector<std::size_t>& collected) {
    std::size_t pastTheEnd = 0;
    for (std::size_t index : collected) {
        if (index >= observers.size()) {
            ++pastTheEnd;
            continue;
        }
        observers.erase(observers.begin() + static_cast<std::ptrdiff_t>(index));
    }
    return pastTheEnd;
}

}  // namespace havrel
