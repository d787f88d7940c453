#include "transport/usb/TNUSBHub.hpp"

#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/SharedSlot.hpp"
#include "transport/usb/TNUSBChannel.hpp"
#include "transport/usb/TNUSBPacket.hpp"
#include "transport/usb/TNUSBSocketAddress.hpp"

#include <asio/post.hpp>

#include <algorithm>
#include <filesystem>

#include <cerrno>
#include <string>
#include <utility>

namespace havrel {

namespace {

constexpr std::size_t kMaxRememberedDevices = 1024;

std::shared_ptr<TNUSBHub> makeSharedHub() {
    log("TNUSBHub sharedHub initializing");
    auto hub = TNUSBHub::create();
    std::weak_ptr<TNUSBHub> weakHub = hub;
    MainQueue::shared().post([weakHub] {
        if (auto hub = weakHub.lock()) {
            hub->followDaemon(MainQueue::shared());
        }
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
    if (watcher_) {
        watcher_->stop();
    }
    if (retryTimer_) {
        retryTimer_->invalidate();
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
    auto channel = TNUSBChannel::create();
    channel_ = channel;
    listening_ = false;
    // While following an absent daemon, the hub says when the outcome changes.
    channel->setLogsConnectFailures(!lastFailure_);
    std::weak_ptr<TNUSBHub> weakSelf = weak_from_this();
    std::weak_ptr<TNUSBChannel> weakChannel = channel;
    // Forgets the socket that failed or ended, unless a newer one has taken its place. One whose
    // Listen failed is closed once the failure has been handed on, so its end comes after.
    auto lose = [weakSelf, weakChannel, context = &queue.context()] {
        auto self = weakSelf.lock();
        auto channel = weakChannel.lock();
        if (!self || !channel || self->channel_ != channel) {
            return;
        }
        asio::post(*context, [channel] { channel->stop(); });
        self->channel_.reset();
        self->listening_ = false;
        self->forgetDevices();
    };
    channel->openOnQueue(
        queue,
        [weakSelf, weakChannel, lose, onStart = std::move(onStart)](const TNOptionalError& error) {
            auto self = weakSelf.lock();
            auto channel = weakChannel.lock();
            if (!self || !channel || self->channel_ != channel) {
                return;
            }
            if (error) {
                lose();
                if (onStart) {
                    onStart(error);
                }
                return;
            }
            channel->listenWithBroadcastHandler(
                [weakSelf, weakChannel](const std::optional<Dictionary>& packet) {
                    // A packet the channel could not read has already been logged there; one
                    // from a socket the hub has let go of no longer counts.
                    auto self = weakSelf.lock();
                    if (self && packet && self->channel_ == weakChannel.lock()) {
                        self->handleBroadcastPacket(*packet);
                    }
                },
                [weakSelf, weakChannel, lose, onStart](const TNOptionalError& error) {
                    auto self = weakSelf.lock();
                    if (self && !error && self->channel_ == weakChannel.lock()) {
                        self->listening_ = true;
                    }
                    if (error) {
                        lose();
                    }
                    if (onStart) {
                        onStart(error);
                    }
                });
        },
        [lose, onEnd = std::move(onEnd)](const TNOptionalError& error) {
            lose();
            if (onEnd) {
                onEnd(error);
            }
        });
}

// The text's hub listens once and never again; here it follows the daemon as Linux runs it.
void TNUSBHub::followDaemon(WorkQueue& queue) {
    if (queue_) {
        return;
    }
    queue_ = &queue;
    std::weak_ptr<TNUSBHub> weakSelf = weak_from_this();
    retryTimer_ = Timer::create(queue, kMinRetryInterval, false, [weakSelf] {
        if (auto self = weakSelf.lock()) {
            self->tryListening();
        }
    });
    const auto address = TNUSBSocketAddress::current();
    if (address.kind == TNUSBSocketAddress::Kind::unixSocket) {
        const std::filesystem::path path(address.path);
        watcher_ = FolderWatcher::create(queue, path.parent_path(),
                                         [weakSelf, name = path.filename().string()](const std::string& entry) {
                                             auto self = weakSelf.lock();
                                             if (self && entry == name && !self->channel_) {
                                                 self->retryInterval_ = kMinRetryInterval;
                                                 self->tryListening();
                                             }
                                         });
    }
    tryListening();
}

void TNUSBHub::tryListening() {
    if (channel_) {
        return;
    }
    retryTimer_->invalidate();
    std::weak_ptr<TNUSBHub> weakSelf = weak_from_this();
    listenOnQueue(
        *queue_,
        [weakSelf](const TNOptionalError& error) {
            auto self = weakSelf.lock();
            if (!self) {
                return;
            }
            if (!error) {
                log("TNUSBHub listen started successfully");
                self->lastFailure_.reset();
                self->retryInterval_ = kMinRetryInterval;
                return;
            }
            if (error != self->lastFailure_) {
                logf("TNUSBHub failed to initialize: {}", error->description());
                self->lastFailure_ = error;
            }
            self->scheduleRetry();
        },
        [weakSelf](const TNOptionalError& error) {
            logf("TNUSBHub channel ended: {}", describe(error));
            if (auto self = weakSelf.lock()) {
                self->retryInterval_ = kMinRetryInterval;
                self->scheduleRetry();
            }
        });
}

void TNUSBHub::scheduleRetry() {
    if (!retryTimer_ || channel_ || retryTimer_->isValid()) {
        return;
    }
    retryTimer_->rearm(retryInterval_);
    retryInterval_ = std::min(retryInterval_ * 2, kMaxRetryInterval);
}

void TNUSBHub::forgetDevices() {
    for (const std::int64_t deviceID : std::exchange(attachedDevices_, {})) {
        logf("TNUSBHub forgetting device #{}: the daemon that announced it is gone", deviceID);
        NotificationCenter::defaultCenter().post(TNUSBDeviceDidDetachNotification, this,
                                                 Dictionary{{"MessageType", "Detached"}, {"DeviceID", deviceID}});
    }
}

void TNUSBHub::connectToDevice(std::int64_t deviceID, std::int32_t port, StartCallback onStart) {
    MainQueue::shared().post([deviceID, port, onStart = std::move(onStart)] {
        auto channel = TNUSBChannel::create();
        std::weak_ptr<TNUSBChannel> weakChannel = channel;
        channel->openOnQueue(
            MainQueue::shared(),
            [weakChannel, deviceID, port, onStart](const TNOptionalError& error) {
                auto channel = weakChannel.lock();
                if (error || !channel) {
                    onStart(error ? error : TNOptionalError(TNError::posix(ENOTCONN)), -1);
                    return;
                }
                channel->sendRequest(connectRequest(deviceID, port), [weakChannel, onStart](
                                                                         const TNOptionalError& readError,
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
            },
            nullptr);
    });
}

void TNUSBHub::handleBroadcastPacket(const Dictionary& packet) {
    std::string messageType = "(null)";
    std::optional<std::int64_t> deviceID;
    if (packet.is_object()) {
        auto found = packet.find("MessageType");
        if (found != packet.end() && found->is_string()) {
            messageType = found->get<std::string>();
        }
        auto number = packet.find("DeviceID");
        if (number != packet.end() && number->is_number_integer()) {
            deviceID = number->get<std::int64_t>();
        }
    }
    logf("TNUSBHub broadcast: messageType={} packet={}", messageType, describePacket(packet));
    if (messageType == "Attached") {
        // Bounded: a daemon announcing ever new numbers cannot grow it without end.
        if (deviceID && attachedDevices_.size() < kMaxRememberedDevices) {
            attachedDevices_.insert(*deviceID);
        }
        NotificationCenter::defaultCenter().post(TNUSBDeviceDidAttachNotification, this, packet);
    } else if (messageType == "Detached") {
        if (deviceID) {
            attachedDevices_.erase(*deviceID);
        }
        NotificationCenter::defaultCenter().post(TNUSBDeviceDidDetachNotification, this, packet);
    } else {
        logf("Warning: Unhandled broadcast message: {}", describePacket(packet));
    }
}

}  // namespace havrel
