#include "musical_output/HVStepOutput.hpp"

#include "central/HVMIDISender.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"

#include <algorithm>

namespace havrel {

namespace {

// Stored channels count from 1, with 0 read as 1; the wire counts from 0.
std::uint8_t wireChannel(std::uint64_t stored) {
    return static_cast<std::uint8_t>(std::clamp<std::uint64_t>(stored, 1, 16) - 1);
}

}  // namespace

std::shared_ptr<HVStepOutput> HVStepOutput::install(const std::shared_ptr<HVSequencePlayer>& player,
                                                    const std::shared_ptr<HVClock>& clock) {
    auto output = std::make_shared<HVStepOutput>(player);
    std::weak_ptr<HVStepOutput> weak = output;
    for (const auto& [identifier, sequence] : player->sequences()) {
        output->follow(sequence);
    }
    player->addSequenceAdditionObserver([weak](const HVMIDISequencePtr& sequence) {
        if (auto self = weak.lock()) {
            self->follow(sequence);
        }
    });
    if (clock) {
        output->followClock(clock);
    }
    // Subscribed after the player: its cursors have moved by the time this runs, one hop later.
    NotificationCenter::defaultCenter().addObserver(output.get(), HVMIDIQNNotification, nullptr,
                                                    [weak](const Notification&) {
                                                        if (auto self = weak.lock()) {
                                                            for (auto& [identifier, state] : self->states_) {
                                                                state.armed = true;
                                                            }
                                                        }
                                                        MainQueue::shared().post([weak] {
                                                            if (auto self = weak.lock()) {
                                                                self->tickDidPass();
                                                            }
                                                        });
                                                    });
    return output;
}

HVStepOutput::~HVStepOutput() {
    NotificationCenter::defaultCenter().removeObserver(this);
}

void HVStepOutput::follow(const HVMIDISequencePtr& sequence) {
    auto& state = states_[sequence->identifier];
    state.sequence = sequence;
    std::weak_ptr<HVStepOutput> weak = weak_from_this();
    sequence->registerForPositionChangeWithRegistrar(shared_from_this(),
                                                     [weak](HVMIDISequence& moved, std::uint64_t position) {
                                                         if (auto self = weak.lock()) {
                                                             self->positionDidChange(moved, position);
                                                         }
                                                     });
}

void HVStepOutput::followClock(const std::shared_ptr<HVClock>& clock) {
    std::weak_ptr<HVStepOutput> weak = weak_from_this();
    clock->addRunningObserver([weak](bool running) {
        if (auto self = weak.lock(); self && !running) {
            self->allNotesOff();
        }
    });
}

void HVStepOutput::setTransportStopped(bool stopped) {
    transportStopped_ = stopped;
    if (stopped) {
        allNotesOff();
    }
}

void HVStepOutput::setTarget(const std::string& sequenceID, Target target) {
    states_[sequenceID].target = target;
}

void HVStepOutput::playMatrixSequence(const HVMatrixSequence& matrix) {
    if (!matrix.stepSequence || !matrix.rangeContainer) {
        return;
    }
    setTarget(matrix.stepSequence->identifier,
              Target{matrix.rangeContainer->signalType == HVSignalTypeNote, matrix.rangeContainer->channel});
    if (auto player = player_.lock()) {
        player->addSequence(matrix.stepSequence);
    }
}

std::uint64_t HVStepOutput::now() const {
    auto player = player_.lock();
    return player ? player->midiQN() : 0;
}

void HVStepOutput::positionDidChange(HVMIDISequence& sequence, std::uint64_t position) {
    auto found = states_.find(sequence.identifier);
    if (found == states_.end()) {
        return;
    }
    auto& state = found->second;
    if (!state.armed) {
        return;
    }
    const auto tick = now();
    if (tick < state.lastTick) {
        // The count went back (MIDI Start): what sounds ends, and the cursor starts afresh.
        release(state, std::nullopt);
        state.lastSlot.reset();
    }
    state.lastTick = tick;
    release(state, tick);
    if (!sequence.isRunning) {
        release(state, std::nullopt);
        state.lastSlot.reset();
        return;
    }
    const std::uint64_t ticks = sequence.playTickLength();
    const std::uint64_t slot = ticks > 0 ? tick / ticks : tick;
    if (state.lastSlot == slot) {
        return;
    }
    state.lastSlot = slot;
    if (transportStopped_ || sequence.isMuted || position >= sequence.steps.size() || !sequence.steps[position]) {
        return;
    }
    // The note lasts from the tick its grid position began, so that it ends as the next step
    // starts whatever tick the cursor arrived on.
    sound(state, *sequence.steps[position], ticks > 0 ? slot * ticks : tick);
}

void HVStepOutput::sound(State& state, const HVStep& step, std::uint64_t startTick) {
    auto sender = HVMIDISender::shared();
    if (!sender) {
        return;
    }
    const auto channel = wireChannel(state.target.channel.value_or(step.ccNumberOrNote.channel));
    if (!state.target.isNote) {
        sender->sendWithController(step.ccNumberOrNote.value, step.value(), channel, true);
        return;
    }
    if (step.value() == 0) {
        return;  // velocity 0: a rest
    }
    // The same note still sounding ends first.
    for (auto it = state.sounding.begin(); it != state.sounding.end();) {
        if (it->note == step.ccNumberOrNote.value && it->channel == channel) {
            sender->sendWithNoteOff(it->note, 0, it->channel, true);
            it = state.sounding.erase(it);
        } else {
            ++it;
        }
    }
    sender->sendWithNoteOn(step.ccNumberOrNote.value, step.value(), channel, true);
    state.sounding.push_back(
        Sounding{step.ccNumberOrNote.value, channel, startTick + std::max<std::uint64_t>(step.length, 1)});
}

// Note offs for what is due by the tick, or for everything.
void HVStepOutput::release(State& state, std::optional<std::uint64_t> upToTick) {
    if (state.sounding.empty()) {
        return;
    }
    auto sender = HVMIDISender::shared();
    std::vector<Sounding> kept;
    for (const auto& note : state.sounding) {
        if (!upToTick || note.offTick <= *upToTick) {
            if (sender) {
                sender->sendWithNoteOff(note.note, 0, note.channel, true);
            }
        } else {
            kept.push_back(note);
        }
    }
    state.sounding = std::move(kept);
}

// Sequences that stopped or left the player are not moved any more: their notes end here.
void HVStepOutput::tickDidPass() {
    auto player = player_.lock();
    for (auto it = states_.begin(); it != states_.end();) {
        auto sequence = it->second.sequence.lock();
        const bool playing = sequence && sequence->isRunning && player && player->sequences().contains(it->first);
        if (!playing) {
            release(it->second, std::nullopt);
            it->second.lastSlot.reset();
        }
        if (!sequence) {
            it = states_.erase(it);
        } else {
            ++it;
        }
    }
}

void HVStepOutput::allNotesOff(const std::string& sequenceID) {
    if (auto found = states_.find(sequenceID); found != states_.end()) {
        release(found->second, std::nullopt);
        found->second.lastSlot.reset();
    }
}

void HVStepOutput::allNotesOff() {
    for (auto& [identifier, state] : states_) {
        release(state, std::nullopt);
        state.lastSlot.reset();
    }
}

std::size_t HVStepOutput::soundingNoteCount() const {
    std::size_t count = 0;
    for (const auto& [identifier, state] : states_) {
        count += state.sounding.size();
    }
    return count;
}

}  // namespace havrel
