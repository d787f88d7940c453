#include "central/HVMIDISender.hpp"

#include "platform/SharedSlot.hpp"

namespace havrel {

namespace {

// Empty until the MIDI service registers its manager.
SharedSlot<HVMIDISender>& sharedSlot() {
    static SharedSlot<HVMIDISender> slot;
    return slot;
}

}  // namespace

std::shared_ptr<HVMIDISender> HVMIDISender::shared() {
    return sharedSlot().get();
}

void HVMIDISender::setShared(std::shared_ptr<HVMIDISender> sender) {
    sharedSlot().set(std::move(sender));
}

std::string describe(const std::shared_ptr<HVMIDISender>& sender) {
    return sender ? sender->description() : std::string("(null)");
}

}  // namespace havrel
