#include "transport/usb/HVCentralUSBManager.hpp"

#include "central/RNCentral.hpp"
#include "central/RNClient.hpp"
#include "platform/Log.hpp"
#include "platform/SharedSlot.hpp"

#include <cstring>

namespace havrel {

namespace {

// Empty until the first instantiate.
SharedSlot<HVCentralUSBManager>& sharedSlot() {
    static SharedSlot<HVCentralUSBManager> slot;
    return slot;
}

std::shared_ptr<const Bytes> bytesOfDouble(double value) {
    auto bytes = std::make_shared<Bytes>(sizeof(double));
    std::memcpy(bytes->data(), &value, sizeof(double));
    return bytes;
}

}  // namespace

std::shared_ptr<HVCentralUSBManager> HVCentralUSBManager::instantiateWithProductToSendOut(const std::string& product,
                                                                                        const std::string& version,
                                                                                        Options options) {
    return sharedSlot().getOrMake([&] { return initWithProudctToSendOut(product, version, options); });
}

std::shared_ptr<HVCentralUSBManager> HVCentralUSBManager::shared() {
    return sharedSlot().get();
}

void HVCentralUSBManager::resetShared() {
    if (auto previous = sharedSlot().take()) {
        previous->connectionManager_->stop();
    }
}

std::shared_ptr<HVCentralUSBManager> HVCentralUSBManager::initWithProudctToSendOut(const std::string& product,
                                                                                 const std::string& version,
                                                                                 Options options) {
    auto manager = std::make_shared<HVCentralUSBManager>(Key{}, product, version);
    manager->connectionManager_ = RNUSBServerConnectionManager::initWithProductIdentifier(product, version, options);
    manager->connectionManager_->delegate = manager;
    return manager;
}

HVCentralUSBManager::HVCentralUSBManager(Key, std::string product, std::string version)
    : versionToSendOut(std::move(version)), productToSendOut(std::move(product)) {}

HVCentralUSBManager::~HVCentralUSBManager() {
    if (connectionManager_) {
        connectionManager_->stop();
    }
}

std::string HVCentralUSBManager::localName() {
    return RNCentral::localName();
}

void HVCentralUSBManager::RNUSBConnectionManagerDidConnectToDeviceID(RNUSBConnectionManager& /*manager*/,
                                                                    std::optional<std::int64_t> deviceID,
                                                                    const Dictionary& info,
                                                                    const std::shared_ptr<TNChannel>& channel) {
    if (auto* introduction = introductionOf(channel)) {
        // Dropped rather than closed: the client is still welcome to play. One line a channel.
        if (!introduction->repeatLogged) {
            introduction->repeatLogged = true;
            logf("device info again on channel {} — only the first is acted on, later ones are dropped",
                 channel->description());
        }
        return;
    }
    if (channel) {
        introductions_.push_back({channel});
    }
    const std::string json = RNCentral::localCentralWithVersion(versionToSendOut)->dictionary().dump();
    auto payload = std::make_shared<const Bytes>(json.begin(), json.end());
    channel->sendFrameOfType(TNFrameTypeCentralInfo, 0, payload, [](const TNOptionalError& error) {
        if (error) {
            logf("Failed to send CentralInfo: {}", error->description());
        }
    });
    if (auto registry = delegate.lock()) {
        registry->HVCentralUSBManagerDidConnectToDeviceID(this, deviceID, info, channel);
    }
    state = 1;
}

void HVCentralUSBManager::RNUSBConnectionManagerDidDisconnectFromDeviceID(RNUSBConnectionManager& /*manager*/,
                                                                         std::optional<std::int64_t> deviceID,
                                                                         const Dictionary* /*info*/,
                                                                         const std::shared_ptr<TNChannel>& channel) {
    state = 0;
    std::erase_if(introductions_, [&](const Introduction& entry) {
        const auto known = entry.channel.lock();
        return !known || known == channel;
    });
    if (auto registry = delegate.lock()) {
        registry->HVCentralUSBManagerDidDisconnectFromDeviceID(this, deviceID, Dictionary(), channel);
    }
}

void HVCentralUSBManager::RNUSBConnectionManagerDidReceiveRNCentral(RNUSBConnectionManager&, const Dictionary&,
                                                                   std::optional<std::int64_t>,
                                                                   const std::shared_ptr<TNChannel>&) {
    log("ERROR - didn't implement this didReceiveRNCentral, was this called?");
}

void HVCentralUSBManager::RNUSBConnectionManagerDidSendClientDataWithDeviceID(RNUSBConnectionManager&,
                                                                             std::optional<std::int64_t>,
                                                                             const std::shared_ptr<TNChannel>&) {
    log("ERROR - didn't implement this didSendClientDataWithDeviceID, was this called?");
}

void HVCentralUSBManager::RNUSBConnectionManagerDidReceiveZippedFile(RNUSBConnectionManager&, ByteView,
                                                                    const std::string&, std::optional<std::int64_t>,
                                                                    const std::shared_ptr<TNChannel>&) {
    log("ERROR - didn't implement this didReceiveZippedFile, was this called?");
}

HVCentralUSBManager::Introduction* HVCentralUSBManager::introductionOf(const std::shared_ptr<TNChannel>& channel) {
    std::erase_if(introductions_, [](const Introduction& entry) { return entry.channel.expired(); });
    for (auto& entry : introductions_) {
        if (channel && entry.channel.lock() == channel) {
            return &entry;
        }
    }
    return nullptr;
}

std::shared_ptr<RNUSBClient> HVCentralUSBManager::clientForChannel(const std::shared_ptr<TNChannel>& channel) const {
    auto registry = delegate.lock();
    return registry ? registry->usbClientForChannel(channel) : nullptr;
}

void HVCentralUSBManager::RNUSBConnectionManagerDidReceiveSyncData(RNUSBConnectionManager&, ByteView data,
                                                    std::optional<std::int64_t>,
                                                    const std::shared_ptr<TNChannel>& channel) {
    didReceiveSyncData(data, clientForChannel(channel));
}

void HVCentralUSBManager::RNUSBConnectionManagerDidReceiveClientData(RNUSBConnectionManager&, ByteView,
                                                                    std::optional<std::int64_t>,
                                                                    const std::shared_ptr<TNChannel>&) {}

void HVCentralUSBManager::RNUSBConnectionManagerDidReceivePureMIDIData(RNUSBConnectionManager&, ByteView data,
                                                    std::optional<std::int64_t>,
                                                    const std::shared_ptr<TNChannel>& channel) {
    didReceivePureMIDIData(data, clientForChannel(channel));
}

void HVCentralUSBManager::RNUSBConnectionManagerDidReceiveChangeData(RNUSBConnectionManager&, ByteView data,
                                                    std::optional<std::int64_t>,
                                                    const std::shared_ptr<TNChannel>& channel) {
    didReceiveChangeData(data, clientForChannel(channel));
}

void HVCentralUSBManager::RNUSBConnectionManagerDidReceiveRangeData(RNUSBConnectionManager&, ByteView data,
                                                    std::optional<std::int64_t>,
                                                    const std::shared_ptr<TNChannel>& channel) {
    didReceiveRangeData(data, clientForChannel(channel));
}

void HVCentralUSBManager::RNUSBConnectionManagerDidReceiveFileRepData(RNUSBConnectionManager&, ByteView data,
                                                    std::optional<std::int64_t>,
                                                    const std::shared_ptr<TNChannel>& channel) {
    didReceiveFileRepData(data, clientForChannel(channel));
}

void HVCentralUSBManager::sendToDevice(std::uint32_t type, std::shared_ptr<const Bytes> payload,
                                       std::optional<std::int64_t> deviceID) {
    sendOnChannel(connectionManager_->channelWithDeviceID(deviceID), type, std::move(payload));
}

void HVCentralUSBManager::sendToEveryClient(std::uint32_t type, const std::shared_ptr<const Bytes>& payload) {
    // A copy: a failed send may end a channel and change the list.
    const auto channels = connectionManager_->connectedChannels;
    for (const auto& channel : channels) {
        if (channel->isConnected() && clientForChannel(channel)) {
            sendOnChannel(channel, type, payload);
        }
    }
}

void HVCentralUSBManager::sendOnChannel(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                                        std::shared_ptr<const Bytes> payload) {
    if (!channel) {
        return;
    }
    channel->sendFrameOfType(type, 0, std::move(payload), [](const TNOptionalError& error) {
        if (error) {
            logf("Failed to send TNFrameTypeConfigurationDataFromCentral: {}", error->description());
        }
    });
}

void HVCentralUSBManager::sendFile(const HVFileRepresentation& file, std::optional<std::int64_t> deviceID) {
    std::string json;
    try {
        json = file.dictionary().dump();
    } catch (const nlohmann::json::exception& error) {
        logf("Error creating JSON object {}", error.what());
        return;
    }
    sendToDevice(TNFrameTypeConfigurationDataFromCentral, std::make_shared<const Bytes>(json.begin(), json.end()),
                 deviceID);
}

void HVCentralUSBManager::sendTempo(double tempo, std::optional<std::int64_t> deviceID) {
    sendToDevice(TNFrameTypeTempo, bytesOfDouble(tempo), deviceID);
}

void HVCentralUSBManager::sendPosition(double position, std::optional<std::int64_t> deviceID) {
    sendToDevice(TNFrameTypePosition, bytesOfDouble(position), deviceID);
}

void HVCentralUSBManager::sendTempoToEveryClient(double tempo) {
    sendToEveryClient(TNFrameTypeTempo, bytesOfDouble(tempo));
}

void HVCentralUSBManager::sendPositionToEveryClient(double position) {
    sendToEveryClient(TNFrameTypePosition, bytesOfDouble(position));
}

}  // namespace havrel
