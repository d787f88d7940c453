#include "central/HVTransmissionManager.hpp"

#include "central/HVCentralTransmissionManager.hpp"
#include "platform/SharedSlot.hpp"

namespace havrel {

namespace {

SharedSlot<HVTransmissionManager>& sharedSlot() {
    static SharedSlot<HVTransmissionManager> slot([]() -> std::shared_ptr<HVTransmissionManager> {
        return HVCentralTransmissionManager::sharedInstance();
    });
    return slot;
}

}  // namespace

std::shared_ptr<HVTransmissionManager> HVTransmissionManager::shared() {
    return sharedSlot().get();
}

void HVTransmissionManager::setShared(std::shared_ptr<HVTransmissionManager> manager) {
    sharedSlot().set(std::move(manager));
}

}  // namespace havrel
