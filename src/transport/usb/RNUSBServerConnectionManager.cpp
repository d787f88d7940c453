#include "transport/usb/RNUSBServerConnectionManager.hpp"

#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "transport/usb/TNUSBHub.hpp"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>

namespace havrel {

namespace {

constexpr auto kScannerInterval = std::chrono::milliseconds(5000);
constexpr auto kPingInterval = std::chrono::milliseconds(1000);
constexpr auto kLocalProbeInterval = std::chrono::milliseconds(2000);

std::optional<std::int64_t> deviceIDFromUserInfo(const nlohmann::json& userInfo) {
    if (!userInfo.is_object()) {
        return std::nullopt;
    }
    auto found = userInfo.find("DeviceID");
    if (found == userInfo.end() || !found->is_number_integer()) {
        return std::nullopt;
    }
    return found->get<std::int64_t>();
}

// A missing "ConnectionType" counts as USB.
std::optional<std::string> connectionTypeFromUserInfo(const nlohmann::json& userInfo) {
    auto properties = userInfo.find("Properties");
    if (properties == userInfo.end() || !properties->is_object()) {
        return std::nullopt;
    }
    auto type = properties->find("ConnectionType");
    if (type == properties->end() || !type->is_string()) {
        return std::nullopt;
    }
    return type->get<std::string>();
}

}  // namespace

std::shared_ptr<RNUSBServerConnectionManager> RNUSBServerConnectionManager::initWithProductIdentifier(
    const std::string& productId, const std::string& version, Options options) {
    logf("RNUSBServerConnectionManager init product={} version={}", productId, version);
    auto manager = std::make_shared<RNUSBServerConnectionManager>(Key{}, productId, version, options);
    manager->startListeningForDevices();
    manager->enqueueConnectToLocalIPv4Port();
    manager->ping();
    return manager;
}

RNUSBServerConnectionManager::RNUSBServerConnectionManager(Key, const std::string& productIdentifier,
                                                           const std::string& versionString, Options opts)
    : productId(productIdentifier),
      version(versionString),
      options(opts),
      notConnectedQueue_(SerialQueue::create("com.havrelapps.havrel.notConnectedQueue")) {}

RNUSBServerConnectionManager::~RNUSBServerConnectionManager() {
    NotificationCenter::defaultCenter().removeObserver(this);
    if (pingTimer_) {
        pingTimer_->invalidate();
    }
    if (scannerTimer_) {
        scannerTimer_->invalidate();
    }
}

std::weak_ptr<RNUSBServerConnectionManager> RNUSBServerConnectionManager::weakSelf() {
    return std::static_pointer_cast<RNUSBServerConnectionManager>(shared_from_this());
}

std::shared_ptr<RNUSBServerConnectionManagerDelegate> RNUSBServerConnectionManager::serverDelegate() const {
    return std::dynamic_pointer_cast<RNUSBServerConnectionManagerDelegate>(delegateOrNull());
}

void RNUSBServerConnectionManager::stop() {
    stopped_ = true;
    NotificationCenter::defaultCenter().removeObserver(this);
    if (pingTimer_) {
        pingTimer_->invalidate();
        pingTimer_.reset();
    }
    if (scannerTimer_) {
        scannerTimer_->invalidate();
        scannerTimer_.reset();
    }
    auto channels = std::move(connectedChannels);
    connectedChannels.clear();
    for (const auto& channel : channels) {
        channel->close();
    }
}

void RNUSBServerConnectionManager::startListeningForDevices() {
    if (!options.useUSBHub) {
        return;
    }
    auto hub = TNUSBHub::sharedHub();
    hub_ = hub;
    const void* sender = static_cast<const void*>(hub.get());
    auto weak = weakSelf();
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, TNUSBDeviceDidAttachNotification, sender, [weak](const Notification& note) {
        if (auto self = weak.lock()) {
            self->deviceDidAttach(note);
        }
    });
    center.addObserver(this, TNUSBDeviceDidDetachNotification, sender, [weak](const Notification& note) {
        if (auto self = weak.lock()) {
            self->deviceDidDetach(note);
        }
    });
    logf("RNUSBServerConnectionManager startListeningForDevices done, TNUSBHub.sharedHub=<TNUSBHub: {}>", sender);
}

void RNUSBServerConnectionManager::deviceDidAttach(const Notification& notification) {
    logf("TNUSBDeviceDidAttachNotification, noteInfo {}", notification.userInfo.dump());
    const auto deviceID = deviceIDFromUserInfo(notification.userInfo);
    if (!deviceID) {
        return;
    }
    const auto connectionType = connectionTypeFromUserInfo(notification.userInfo);
    if (connectionType && *connectionType != "USB") {
        logf("ignoring {} device #{} (not USB)", *connectionType, *deviceID);
        return;
    }
    if (std::find(attachedDeviceIDs.begin(), attachedDeviceIDs.end(), *deviceID) == attachedDeviceIDs.end()) {
        attachedDeviceIDs.push_back(*deviceID);
    }
    auto weak = weakSelf();
    const std::int64_t number = *deviceID;
    notConnectedQueue_->post([weak, number] {
        if (auto self = weak.lock()) {
            self->connectToUSBDeviceWithDeviceID(number);
        }
    });
}

void RNUSBServerConnectionManager::deviceDidDetach(const Notification& notification) {
    logf("TNUSBDeviceDidDetachNotification, noteInfo {}", notification.userInfo.dump());
    const auto deviceID = deviceIDFromUserInfo(notification.userInfo);
    auto weak = weakSelf();
    MainQueue::shared().post([weak, deviceID] {
        auto self = weak.lock();
        if (!self || self->stopped_) {
            return;
        }
        if (deviceID) {
            std::erase(self->attachedDeviceIDs, *deviceID);
        }
        auto channel = self->channelWithDeviceID(deviceID);
        if (!channel) {
            return;
        }
        const auto number = channel->deviceID;
        channel->close();
        auto& channels = self->connectedChannels;
        if (std::find(channels.begin(), channels.end(), channel) != channels.end()) {
            std::erase(channels, channel);
            self->didDisconnectFromClient(number, channel);
        }
    });
}

// Connects start from the not-connected queue; the channel itself lives on the main queue, so
// the rest of the work is handed there at once.
void RNUSBServerConnectionManager::connectToUSBDeviceWithDeviceID(std::int64_t deviceID) {
    logDiagf("connect to {}", deviceID);
    auto weak = weakSelf();
    MainQueue::shared().post([weak, deviceID] {
        auto self = weak.lock();
        if (!self || self->stopped_ || !self->hub_) {
            return;
        }
        if (self->channelWithDeviceID(deviceID)) {
            logf("already have a channel for {}, skipping connect", deviceID);
            return;
        }
        auto channel = TNChannel::channelWithDelegate(self);
        channel->hvUserInfo = std::to_string(deviceID);
        channel->deviceID = deviceID;
        std::weak_ptr<RNUSBServerConnectionManager> again = self;
        channel->connectToPort(RNUSBClientPort, *self->hub_, deviceID,
                               [again, deviceID, channel](const TNOptionalError& error) {
                                   if (auto manager = again.lock()) {
                                       manager->didFinishConnecting(deviceID, channel, error);
                                   }
                               });
    });
}

void RNUSBServerConnectionManager::didFinishConnecting(std::int64_t deviceID, const std::shared_ptr<TNChannel>& channel,
                                                       const TNOptionalError& error) {
    if (stopped_) {
        channel->close();
        return;
    }
    if (error) {
        if (error->domain == TNUSBHubErrorDomain && error->code == 3) {
            logf("connection refused by device #{} — no Havrel app listening on port {}", deviceID, RNUSBClientPort);
        } else {
            logf("Failed to connect to device #{}: {} {}", deviceID, channel->hvUserInfo, error->description());
        }
    } else {
        logf("adding channel {}", channel->description());
        if (std::find(connectedChannels.begin(), connectedChannels.end(), channel) == connectedChannels.end()) {
            connectedChannels.push_back(channel);
        }
        logDiagf("attachedDevicesIDsThatAreNotConnected {}", fmt::join(attachedDevicesIDsThatAreNotConnected(), ", "));
    }
    auto weak = weakSelf();
    MainQueue::shared().post([weak] {
        if (auto self = weak.lock()) {
            self->updateScannerTimer();
        }
    });
}

void RNUSBServerConnectionManager::updateScannerTimer() {
    if (stopped_) {
        return;
    }
    if (attachedDevicesIDsThatAreNotConnected().empty()) {
        if (scannerTimer_) {
            scannerTimer_->invalidate();
            scannerTimer_.reset();
        }
    } else if (!scannerTimer_) {
        instantiateScannerTimer();
    }
}

std::shared_ptr<TNChannel> RNUSBServerConnectionManager::channelWithDeviceID(std::optional<std::int64_t> deviceID) const {
    if (!deviceID) {
        return nullptr;
    }
    std::shared_ptr<TNChannel> found;
    for (const auto& channel : connectedChannels) {
        if (channel->deviceID == deviceID) {
            found = channel;
        }
    }
    return found;
}

std::vector<std::int64_t> RNUSBServerConnectionManager::attachedDevicesIDsThatAreNotConnected() const {
    std::vector<std::int64_t> result;
    for (auto deviceID : attachedDeviceIDs) {
        if (!channelWithDeviceID(deviceID)) {
            result.push_back(deviceID);
        }
    }
    return result;
}

void RNUSBServerConnectionManager::disconnectFromChannel(const std::shared_ptr<TNChannel>& channel) {
    auto found = std::find(connectedChannels.begin(), connectedChannels.end(), channel);
    if (found == connectedChannels.end()) {
        return;
    }
    channel->close();
    connectedChannels.erase(found);
}

void RNUSBServerConnectionManager::instantiateScannerTimer() {
    if (scannerTimer_ || stopped_) {
        return;
    }
    auto weak = weakSelf();
    scannerTimer_ = Timer::scheduled(MainQueue::shared(), kScannerInterval, true, [weak] {
        if (auto self = weak.lock()) {
            self->scanForClients();
        }
    });
}

void RNUSBServerConnectionManager::scanForClients() {
    logDiag("usb scanForClients");
    auto weak = weakSelf();
    for (auto deviceID : attachedDevicesIDsThatAreNotConnected()) {
        notConnectedQueue_->post([weak, deviceID] {
            if (auto self = weak.lock()) {
                self->connectToUSBDeviceWithDeviceID(deviceID);
            }
        });
    }
}

// Departure: the ping timer is re-armed at each ping, not when a ping's write completes, and a
// ping not written within kPingDeadline closes its channel, so a peer that stops reading is
// noticed. A channel gets no new ping while its last one waits.
void RNUSBServerConnectionManager::ping() {
    if (pingTimer_) {
        if (pingTimer_->isValid()) {
            pingTimer_->invalidate();
        }
        pingTimer_.reset();
    }
    if (stopped_) {
        return;
    }
    std::erase_if(unwrittenPings_, [](const auto& entry) { return entry.first.expired(); });
    const auto now = MainQueue::shared().now();
    const auto channels = connectedChannels;
    for (const auto& channel : channels) {
        const auto waiting = unwrittenPings_.find(channel);
        if (waiting == unwrittenPings_.end()) {
            pingChannel(channel);
        } else if (now - waiting->second >= kPingDeadline) {
            unwrittenPings_.erase(waiting);
            logf("ioFrameChannel {}: a ping waits unwritten for {} s — closing channel", channel->description(),
                 kPingDeadline.count());
            channel->close();
        }
    }
    queuePingTimer();
}

void RNUSBServerConnectionManager::pingChannel(const std::shared_ptr<TNChannel>& channel) {
    unwrittenPings_[channel] = MainQueue::shared().now();
    auto weak = weakSelf();
    std::weak_ptr<TNChannel> pinged = channel;
    channel->sendFrameOfType(TNFrameTypePing, channel->protocol()->newTag(), nullptr,
                             [weak, pinged](const TNOptionalError&) {
                                 if (auto self = weak.lock()) {
                                     self->unwrittenPings_.erase(pinged);
                                 }
                             });
}

void RNUSBServerConnectionManager::queuePingTimer() {
    if (pingTimer_ || stopped_) {
        return;
    }
    auto weak = weakSelf();
    pingTimer_ = Timer::scheduled(MainQueue::shared(), kPingInterval, false, [weak] {
        if (auto self = weak.lock()) {
            self->ping();
        }
    });
}

void RNUSBServerConnectionManager::enqueueConnectToLocalIPv4Port() {
    if (stopped_) {
        return;
    }
    auto weak = weakSelf();
    notConnectedQueue_->post([weak] {
        MainQueue::shared().post([weak] {
            if (auto self = weak.lock()) {
                self->connectToLocalIPv4Port();
            }
        });
    });
}

void RNUSBServerConnectionManager::connectToLocalIPv4Port() {
    if (stopped_) {
        return;
    }
    auto weak = weakSelf();
    auto probeAgain = [weak] {
        // Up to a tenth late, as the timers of a second or more, to share their wake-ups.
        MainQueue::shared().postAfter(
            kLocalProbeInterval,
            [weak] {
                if (auto self = weak.lock()) {
                    self->enqueueConnectToLocalIPv4Port();
                }
            },
            kLocalProbeInterval / 10);
    };
    if (hasLocalIPv4Channel()) {
        probeAgain();
        return;
    }
    auto channel = TNChannel::channelWithDelegate(shared_from_this());
    const std::string label = fmt::format("127.0.0.1:{}", options.localPort);
    channel->userInfo = label;
    channel->hvUserInfo = label;
    channel->connectToPort(options.localPort, RNLocalIPv4Address,
                           [weak, channel, probeAgain](const TNOptionalError& error, std::optional<TNAddress> address) {
                               auto self = weak.lock();
                               if (!self) {
                                   return;
                               }
                               if (self->stopped_) {
                                   channel->close();
                                   return;
                               }
                               if (!error) {
                                   auto& channels = self->connectedChannels;
                                   if (std::find(channels.begin(), channels.end(), channel) == channels.end()) {
                                       channels.push_back(channel);
                                   }
                                   if (address) {
                                       channel->userInfo = address->description();
                                       channel->hvUserInfo = address->name().value_or("");
                                       logf("Connected to {}", address->description());
                                   }
                               }
                               probeAgain();
                           });
}

bool RNUSBServerConnectionManager::hasLocalIPv4Channel() {
    bool found = false;
    std::erase_if(connectedChannels, [&found](const std::shared_ptr<TNChannel>& channel) {
        if (channel->deviceID) {
            return false;
        }
        if (channel->isConnected()) {
            found = true;
            return false;
        }
        return true;
    });
    return found;
}

void RNUSBServerConnectionManager::ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>& channel,
                                                                       std::uint32_t type, std::uint32_t tag,
                                                                       const std::shared_ptr<TNData>& payload) {
    if (!payload || payload->length() == 0) {
        return;
    }
    auto target = serverDelegate();
    const Bytes data(payload->bytes().begin(), payload->bytes().end());
    const auto deviceID = channel->deviceID;
    switch (type) {
        case TNFrameTypeSyncData:
            if (target) target->RNUSBConnectionManagerDidReceiveSyncData(*this, data, deviceID, channel);
            return;
        case TNFrameTypePureMIDIData:
            if (target) target->RNUSBConnectionManagerDidReceivePureMIDIData(*this, data, deviceID, channel);
            return;
        case TNFrameTypeChangeData:
            if (target) target->RNUSBConnectionManagerDidReceiveChangeData(*this, data, deviceID, channel);
            return;
        case TNFrameTypeRangeData:
            if (target) target->RNUSBConnectionManagerDidReceiveRangeData(*this, data, deviceID, channel);
            return;
        case TNFrameTypeConfigurationDataFromCentral:
            if (target) target->RNUSBConnectionManagerDidReceiveFileRepData(*this, data, deviceID, channel);
            return;
        default:
            RNUSBConnectionManager::ioFrameChannelDidReceiveFrameOfType(channel, type, tag, payload);
    }
}

void RNUSBServerConnectionManager::ioFrameChannelDidEndWithError(const std::shared_ptr<TNChannel>& channel,
                                                                 const TNOptionalError& error) {
    logf("ioFrameChannel {} error {}", channel->description(), describe(error));
    const auto deviceID = channel->deviceID;
    auto found = std::find(connectedChannels.begin(), connectedChannels.end(), channel);
    if (found == connectedChannels.end()) {
        return;
    }
    channel->close();
    connectedChannels.erase(found);
    didDisconnectFromClient(deviceID, channel);
}

void RNUSBServerConnectionManager::didDisconnectFromClient(std::optional<std::int64_t> deviceID,
                                                           const std::shared_ptr<TNChannel>& channel) {
    if (!attachedDevicesIDsThatAreNotConnected().empty()) {
        auto weak = weakSelf();
        MainQueue::shared().post([weak] {
            if (auto self = weak.lock()) {
                self->instantiateScannerTimer();
            }
        });
    }
    log("Disconnected from device");
    if (auto target = delegateOrNull()) {
        // The channel goes with the report, so that a client without a device number (the local
        // path) is told apart by its connection.
        target->RNUSBConnectionManagerDidDisconnectFromDeviceID(*this, deviceID, nullptr, channel);
    }
}

}  // namespace havrel
