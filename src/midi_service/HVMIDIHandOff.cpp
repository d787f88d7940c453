#include "midi_service/HVMIDIHandOff.hpp"

#include "platform/Log.hpp"

namespace havrel {

namespace {

std::atomic<std::uint64_t> allDropped{0};

}  // namespace

HVMIDIHandOff::HVMIDIHandOff(WorkQueue& target, std::size_t limit) : target_(target), limit_(limit) {}

std::uint64_t HVMIDIHandOff::totalDropped() {
    return allDropped.load();
}

bool HVMIDIHandOff::post(std::function<void()> work) {
    if (state_->waiting.fetch_add(1) >= limit_) {
        state_->waiting.fetch_sub(1);
        state_->dropped.fetch_add(1);
        allDropped.fetch_add(1);
        if (!state_->dropping.exchange(true)) {
            logf("received MIDI: {} hand-offs wait for the {} queue — dropping until it catches up", limit_,
                 target_.label());
        }
        return false;
    }
    state_->dropping.store(false);
    target_.post([state = state_, work = std::move(work)] {
        state->waiting.fetch_sub(1);
        work();
    });
    return true;
}

}  // namespace havrel
