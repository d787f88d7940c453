#include "transport/usb/TNUSBHub.hpp"

#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/SharedSlot.hpp"
#include "transport/usb/TNUSBChannel.hpp"
#include "transport/usb/TNUSBPacket.hpp"

#include <cerrno>
#include <string>
#include <utility>

namespace havrel {

namespace {

std::shared_ptr<TNUSBHub> makeSharedHub() {
    log("TNUSBHub sharedHub initializing");
    auto hub = TNUSBHub::create();
    std::weak_ptr<TNUSBHub> weakHub = hub;
    MainQueue::shared().post([weakHub] {
        auto hub = weakHub.lock();
        if (!hub) {
            return;
        }
        hub->listenOnQueue(
            MainQueue::shared(),
            [](const TNOptionalError& error) {
                if (error) {
                    logf("TNUSBHub failed to initialize: {}", error->description());
                } else {
                    log("TNUSBHub listen started successfully");
                }
            },
            [](const TNOptionalError& error) { logf("TNUSBHub channel ended: {}", describe(error)); });
    });
    return hub;
}

SharedSlot<TNUSBHub>& sharedSlot() {
    static SharedSlot<TNUSBHub> slot(makeSharedHub);
    return slot;
}

}  // namespace

std::shared_ptr<TNUSBHub> TNUSBHub::sharedHub() {
    return sharedSlot().get();
}

void TNUSBHub::setSharedHubForTesting(std::shared_ptr<TNUSBHub> hub) {
    sharedSlot().set(std::move(hub));
}

std::shared_ptr<TNUSBHub> TNUSBHub::create() {
    return std::shared_ptr<TNUSBHub>(new TNUSBHub());
}

TNUSBHub::~TNUSBHub() {
    if (channel_) {
        channel_->invalidate();
    }
}

void TNUSBHub::listenOnQueue(WorkQueue& queue, std::function<void(const TNOptionalError&)> onStart,
                             std::function<void(const TNOptionalError&)> onEnd) {
    if (channel_) {
        if (onStart) {
            onStart(std::nullopt);
        }
        return;
    }
    channel_ = TNUSBChannel::create();
    TNOptionalError error;
    if (!channel_->openOnQueue(queue, error, std::move(onEnd))) {
        if (onStart) {
            onStart(error);
        }
        return;
    }
    std::weak_ptr<TNUSBHub> weakSelf = weak_from_this();
    channel_->listenWithBroadcastHandler(
        [weakSelf](const std::optional<Dictionary>& packet) {
            // A packet the channel could not read has already been logged there.
            auto self = weakSelf.lock();
            if (self && packet) {
                self->handleBroadcastPacket(*packet);
            }
        },
        std::move(onStart));
}

void TNUSBHub::connectToDevice(std::int64_t deviceID, std::int32_t port, StartCallback onStart) {
    MainQueue::shared().post([deviceID, port, onStart = std::move(onStart)] {
        auto channel = TNUSBChannel::create();
        TNOptionalError error;
        if (!channel->openOnQueue(MainQueue::shared(), error, nullptr)) {
            onStart(error, -1);
            return;
        }
        std::weak_ptr<TNUSBChannel> weakChannel = channel;
        channel->sendRequest(connectRequest(deviceID, port), [weakChannel, onStart](const TNOptionalError& readError,
                                                                                    const std::optional<Dictionary>& reply) {
            TNOptionalError outcome = readError;
            errorFromPlistResponse(reply, outcome);
            auto channel = weakChannel.lock();
            if (outcome || !channel || !channel->valid()) {
                if (channel) {
                    channel->stop();
                }
                onStart(outcome ? outcome : TNOptionalError(TNError::posix(ENOTCONN)), -1);
                return;
            }
            // From here the socket carries the device port's bytes and belongs to the receiver.
            onStart(std::nullopt, channel->releaseFileDescriptor());
        });
    });
}

void TNUSBHub::handleBroadcastPacket(const Dictionary& packet) {
    std::string messageType = "(null)";
    if (packet.is_object()) {
        auto found = packet.find("MessageType");
        if (found != packet.end() && found->is_string()) {
            messageType = found->get<std::string>();
        }
    }
    logf("TNUSBHub broadcast: messageType={} packet={}", messageType, describePacket(packet));
    if (messageType == "Attached") {
        NotificationCenter::defaultCenter().post(TNUSBDeviceDidAttachNotification, this, packet);
    } else if (messageType == "Detached") {
        NotificationCenter::defaultCenter().post(TNUSBDeviceDidDetachNotification, this, packet);
    } else {
        logf("Warning: Unhandled broadcast message: {}", describePacket(packet));
    }
}

}  // namespace havrel
