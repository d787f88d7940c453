#include "central/HVMIDISender.hpp"

#include <atomic>

namespace havrel {

namespace {

// Read on every control message from any thread, written rarely: an atomic shared pointer.
std::atomic<std::shared_ptr<HVMIDISender>>& slot() {
    static std::atomic<std::shared_ptr<HVMIDISender>> sender;
    return sender;
}

}  // namespace

std::shared_ptr<HVMIDISender> HVMIDISender::shared() {
    return slot().load();
}

void HVMIDISender::setShared(std::shared_ptr<HVMIDISender> sender) {
    slot().store(std::move(sender));
}

std::string describe(const std::shared_ptr<HVMIDISender>& sender) {
    return sender ? sender->description() : std::string("(null)");
}

}  // namespace havrel
