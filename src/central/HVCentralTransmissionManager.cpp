#include "central/HVCentralTransmissionManager.hpp"

#include "central/RNClient.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationQueue.hpp"

#include <chrono>

namespace havrel {

namespace {

void enqueueIndicator(const char* name, const std::shared_ptr<RNClient>& client) {
    // No sender: two clients active in one turn collapse into one posting of the name.
    Notification notification{name, nullptr, Dictionary::object(), client};
    NotificationQueue::defaultQueue().enqueue(std::move(notification), PostingStyle::WhenIdle,
                                              Coalescing::OnNameAndSender);
}

}  // namespace

std::shared_ptr<HVCentralTransmissionManager> HVCentralTransmissionManager::sharedInstance() {
    static auto instance = std::make_shared<HVCentralTransmissionManager>();
    return instance;
}

void HVCentralTransmissionManager::didReceiveCommandForClient(const std::shared_ptr<RNClient>& client) {
    if (!client) {
        log("transmission indicator: command with no matching client \u2014 ignoring");
        return;
    }
    toggleTransmittionForClient(client);
}

void HVCentralTransmissionManager::toggleTransmittionForClient(const std::shared_ptr<RNClient>& client) {
    if (auto it = timers_.find(client); it != timers_.end()) {
        it->second->invalidate();
        timers_.erase(it);
    }
    std::weak_ptr<HVCentralTransmissionManager> weakSelf = weak_from_this();
    timers_[client] = Timer::scheduled(MainQueue::shared(), std::chrono::milliseconds(100), false, [weakSelf, client] {
        if (auto self = weakSelf.lock()) {
            self->clientTimerDidFire(client);
        }
    });
    enqueueIndicator(HVCentralTransmissionManagerIsTransmitting, client);
}

void HVCentralTransmissionManager::clientTimerDidFire(const std::shared_ptr<RNClient>& client) {
    enqueueIndicator(HVCentralTransmissionManagerStoppedTransmitting, client);
    timers_.erase(client);
}

void HVCentralTransmissionManager::resetForTesting() {
    for (auto& [client, timer] : timers_) {
        timer->invalidate();
    }
    timers_.clear();
}

}  // namespace havrel
