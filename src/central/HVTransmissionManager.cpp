#include "central/HVTransmissionManager.hpp"

#include <mutex>

namespace havrel {

namespace {

std::mutex& slotMutex() {
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<HVTransmissionManager>& slot() {
    static std::shared_ptr<HVTransmissionManager> manager;
    return manager;
}

}  // namespace

std::shared_ptr<HVTransmissionManager> HVTransmissionManager::shared() {
    std::lock_guard lock(slotMutex());
    return slot();
}

void HVTransmissionManager::setShared(std::shared_ptr<HVTransmissionManager> manager) {
    std::lock_guard lock(slotMutex());
    slot() = std::move(manager);
}

}  // namespace havrel
