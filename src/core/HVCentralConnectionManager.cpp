#include "core/HVCentralConnectionManager.hpp"

#include "transport/bluetooth/RNCentralBluetoothManager.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"

#include "central/HVStringOperations.hpp"
#include "central/RNCentral.hpp"
#include "central/RNClient.hpp"
#include "model/HVDictionaryReading.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/PropertyList.hpp"
#include "platform/SharedSlot.hpp"

#include <algorithm>
#include <set>

namespace havrel {

namespace {

// Empty until the entry point instantiates the registry.
SharedSlot<HVCentralConnectionManager>& sharedSlot() {
    static SharedSlot<HVCentralConnectionManager> slot;
    return slot;
}

std::string describe(std::optional<std::int64_t> deviceID) {
    return deviceID ? std::to_string(*deviceID) : std::string("(null)");
}

template <typename Client>
std::vector<std::shared_ptr<Client>> clientsOfClass(const std::vector<std::shared_ptr<RNClient>>& clients) {
    std::vector<std::shared_ptr<Client>> result;
    for (const auto& client : clients) {
        if (auto typed = std::dynamic_pointer_cast<Client>(client)) {
            result.push_back(std::move(typed));
        }
    }
    return result;
}

}  // namespace

std::shared_ptr<HVCentralConnectionManager> HVCentralConnectionManager::instantiateWithProductToSendOut(
    const std::string& productToSendOut, const std::string& versionToSendOut) {
    auto manager = initWithProductToSendOut(productToSendOut, versionToSendOut);
    sharedSlot().set(manager);
    return manager;
}

std::shared_ptr<HVCentralConnectionManager> HVCentralConnectionManager::sharedInstance() {
    return sharedSlot().get();
}

std::shared_ptr<HVCentralConnectionManager> HVCentralConnectionManager::initWithProductToSendOut(
    const std::string& productToSendOut, const std::string& versionToSendOut) {
    auto manager = std::make_shared<HVCentralConnectionManager>(Key{}, productToSendOut, versionToSendOut);
    // The transports hold the registry as a weak delegate, so they start once it is shared.
    manager->startTransports();
    return manager;
}

HVCentralConnectionManager::HVCentralConnectionManager(Key, std::string productToSendOut,
                                                       std::string versionToSendOut)
    : productToSendOut_(std::move(productToSendOut)),
      versionToSendOut_(std::move(versionToSendOut)),
      handoffMarker_(HVHandoffMarker::create()) {}

void HVCentralConnectionManager::startTransports() {
    // The USB transport is made once per process; a host that made it first with options of its
    // own gets that one back.
    auto usb = HVCentralUSBManager::instantiateWithProductToSendOut(productToSendOut_, versionToSendOut_);
    usb->delegate = weak_from_this();
    // The Bluetooth transport is made afresh with each registry, over the process's Bluetooth
    // platform; the host starts its scan.
    auto bluetooth = RNCentralBluetoothManager::instantiateWithProductToSendOut(productToSendOut_, versionToSendOut_);
    bluetooth->delegate = weak_from_this();
}

std::vector<std::shared_ptr<RNUSBClient>> HVCentralConnectionManager::usbClients() const {
    return clientsOfClass<RNUSBClient>(clients);
}

std::vector<std::shared_ptr<RNBluetoothClient>> HVCentralConnectionManager::bluetoothClients() const {
    return clientsOfClass<RNBluetoothClient>(clients);
}

bool HVCentralConnectionManager::checkVersionForClient(const RNClient& client) {
    if (!client.apiVersion || !isNewerThanVersion(*client.apiVersion, kCentralAPIVersion)) {
        return true;
    }
    // The update text is both the message and the informative text here.
    HostPrompts::shared()->showAlert(kCentralUpdateRequiredText, kCentralUpdateRequiredText, "OK");
    return false;
}

std::shared_ptr<RNUSBClient> HVCentralConnectionManager::usbClientWithDeviceID(std::optional<std::int64_t> deviceID) {
    std::shared_ptr<RNUSBClient> found;
    for (const auto& client : usbClients()) {
        if (deviceID && client->deviceID == deviceID) {
            found = client;
        } else if (!deviceID && !client->deviceID) {
            return client;
        }
    }
    return found;
}

bool HVCentralConnectionManager::alreadyConnectedToClientWithUniqueIdentifier(
    const std::optional<std::string>& uniqueIdentifier) const {
    if (!uniqueIdentifier || uniqueIdentifier->empty()) {
        return false;
    }
    return std::any_of(clients.begin(), clients.end(),
                       [&](const auto& client) { return client->uniqueIdentifier == uniqueIdentifier; });
}

bool HVCentralConnectionManager::alreadyConnectedToDeviceID(std::optional<std::int64_t> deviceID) const {
    if (!deviceID) {
        return false;
    }
    return std::any_of(clients.begin(), clients.end(),
                       [&](const auto& client) { return client->deviceID == deviceID; });
}

std::shared_ptr<RNBluetoothClient> HVCentralConnectionManager::clientForPeripheral(
    const PeripheralReference& peripheral) {
    for (const auto& client : bluetoothClients()) {
        if (client->peripheral == peripheral) {
            return client;
        }
    }
    return nullptr;
}

void HVCentralConnectionManager::updateTransportArbitration() {
    std::set<std::string> usbDevices;
    for (const auto& client : usbClients()) {
        if (client->state == RNClientStateRefused) {
            continue;
        }
        if (auto key = client->deviceIdentityKey()) {
            usbDevices.insert(std::move(*key));
        }
    }
    for (const auto& client : bluetoothClients()) {
        const auto key = client->deviceIdentityKey();
        // Without a name the client has no identity to match, and is never muted.
        const bool wanted = key && usbDevices.contains(*key);
        if (wanted == client->supersededByUSB) {
            continue;
        }
        client->supersededByUSB = wanted;
        logf("{} bluetooth client \"{}\" \u2014 same device is {} over USB", wanted ? "muting" : "unmuting",
             client->connectionName.value_or("(null)"), wanted ? "also connected" : "no longer connected");
    }
}

void HVCentralConnectionManager::HVCentralUSBManagerDidConnectToDeviceID(HVCentralUSBManager* manager,
                                                                         std::optional<std::int64_t> deviceID,
                                                                         const Dictionary& info,
                                                                         const std::shared_ptr<TNChannel>& channel) {
    (void)manager;
    if (alreadyConnectedToDeviceID(deviceID)) {
        return;
    }
    auto undescribed = RNUSBClient::create();
    undescribed->deviceID = deviceID;

    // The first frame's property list, as the text the transport read it into.
    const auto text = stringValue(info, "info");
    const auto frame = text ? propertyListFromData(ByteView(reinterpret_cast<const std::uint8_t*>(text->data()),
                                                            text->size()))
                            : std::nullopt;
    if (!frame) {
        logf("HVCentralConnectionManager: first frame of device {} is not a property list, client refused",
             describe(deviceID));
        refuseUndescribedUSBClient(undescribed, channel);
        return;
    }
    const Dictionary* description = dictionaryValue(*frame, "usbClient");
    if (description == nullptr) {
        refuseUndescribedUSBClient(undescribed, channel);
        return;
    }
    if (!description->is_object()) {
        logf("HVCentralConnectionManager: \"usbClient\" of device {} is not a dictionary, client refused",
             describe(deviceID));
        refuseUndescribedUSBClient(undescribed, channel);
        return;
    }

    auto client = RNClient::clientFromDictionary(*description);
    if (alreadyConnectedToClientWithUniqueIdentifier(client->uniqueIdentifier)) {
        return;
    }
    client->deviceID = deviceID;
    if (!checkVersionForClient(*client)) {
        tellRefused(client);
        return;
    }
    client->deviceID = deviceID;
    client->state = RNClientStateAcceptedOverUSB;
    if (alreadyConnectedToDeviceID(deviceID) || alreadyConnectedToClientWithUniqueIdentifier(client->uniqueIdentifier)) {
        return;
    }
    addRecord(client, channel);
    updateTransportArbitration();
    announceConnectedClient();
    if (auto delegate = usbDelegate.lock()) {
        delegate->HVCentralConnectionManagerDidConnectToUSBClient(this, client);
    }
}

void HVCentralConnectionManager::refuseUndescribedUSBClient(const std::shared_ptr<RNUSBClient>& client,
                                                            const std::shared_ptr<TNChannel>& channel) {
    client->state = RNClientStateRefused;
    client->errorMessage = "Havrel Central needs to be updated to connect to this client.";
    if (!alreadyConnectedToDeviceID(client->deviceID)) {
        addRecord(client, channel);
    }
    tellRefused(client);
}

void HVCentralConnectionManager::tellRefused(const std::shared_ptr<RNClient>& client) {
    if (auto delegate = usbDelegate.lock()) {
        delegate->HVCentralConnectionManagerDidRefuseToConnectUSBClient(this, client);
    }
    NotificationCenter::defaultCenter().post(
        Notification{HVCentralConnectionManagerDidRefuseUSBClientNotification, this, Dictionary::object(), client});
}

void HVCentralConnectionManager::addRecord(const std::shared_ptr<RNClient>& client,
                                           const std::shared_ptr<TNChannel>& channel) {
    clients.push_back(client);
    if (channel) {
        std::erase_if(channelRecords_, [](const auto& entry) { return entry.first.expired() || entry.second.expired(); });
        channelRecords_.emplace_back(channel, client);
    }
}

std::shared_ptr<RNClient> HVCentralConnectionManager::takeRecordOfChannel(const std::shared_ptr<TNChannel>& channel) {
    std::shared_ptr<RNClient> client;
    std::erase_if(channelRecords_, [&](const auto& entry) {
        const auto known = entry.first.lock();
        if (known == channel && !client) {
            client = entry.second.lock();
        }
        return !known || known == channel;
    });
    if (client) {
        std::erase(clients, client);
    }
    return client;
}

std::shared_ptr<RNUSBClient> HVCentralConnectionManager::usbClientForChannel(const std::shared_ptr<TNChannel>& channel) {
    for (const auto& [known, client] : channelRecords_) {
        if (channel && known.lock() == channel) {
            return std::dynamic_pointer_cast<RNUSBClient>(client.lock());
        }
    }
    return nullptr;
}

void HVCentralConnectionManager::HVCentralUSBManagerDidDisconnectFromDeviceID(HVCentralUSBManager* manager,
                                                                              std::optional<std::int64_t> deviceID,
                                                                              const Dictionary& info,
                                                                              const std::shared_ptr<TNChannel>& channel) {
    (void)manager;
    (void)info;
    std::shared_ptr<RNClient> client;
    if (channel) {
        // The record of exactly this connection: on the local path every record has no device
        // number, and the first of them may belong to another connection.
        client = takeRecordOfChannel(channel);
    } else {
        const auto found = std::find_if(clients.begin(), clients.end(), [&](const auto& candidate) {
            if (deviceID) {
                return candidate->deviceID == deviceID;
            }
            return !candidate->deviceID && std::dynamic_pointer_cast<RNUSBClient>(candidate) != nullptr;
        });
        if (found != clients.end()) {
            client = *found;
            clients.erase(found);
        }
    }
    updateTransportArbitration();
    if (auto delegate = usbDelegate.lock()) {
        delegate->HVCentralConnectionManagerDidDisconnectFromUSBClient(this, client);
    }
    NotificationCenter::defaultCenter().post(
        Notification{HVCentralConnectionManagerDidDisconnectUSBClientNotification, this, Dictionary::object(), client});
    NotificationCenter::defaultCenter().post(HVHandoffMacClientDisconnectedNotification);
}

void HVCentralConnectionManager::announceConnectedClient() {
    handoffMarker_->markConnection();
    log("[HVHandoffMac] client connected on Mac \u2014 wrote lastConnectedAt marker");
    NotificationCenter::defaultCenter().post(HVHandoffMacClientConnectedNotification);
}

void HVCentralConnectionManager::RNCentralBluetoothManagerDidReceiveClient(RNCentralBluetoothManager* manager,
                                                                           const std::shared_ptr<RNClient>& client) {
    (void)manager;
    if (!client || !checkVersionForClient(*client)) {
        return;
    }
    clients.push_back(client);
    updateTransportArbitration();
    announceConnectedClient();
}

void HVCentralConnectionManager::RNCentralBluetoothManagerDidDisconnectFromClient(
    RNCentralBluetoothManager* manager, const std::shared_ptr<RNClient>& client) {
    if (auto delegate = bluetoothDelegate.lock()) {
        delegate->RNCentralBluetoothManagerDidDisconnectFromClient(manager, client);
    }
    std::erase(clients, client);
    updateTransportArbitration();
    NotificationCenter::defaultCenter().post(HVHandoffMacClientDisconnectedNotification);
}

void HVCentralConnectionManager::RNCentralBluetoothManagerDidStartScanning(RNCentralBluetoothManager* manager) {
    if (auto delegate = bluetoothDelegate.lock()) {
        delegate->RNCentralBluetoothManagerDidStartScanning(manager);
    }
}

void HVCentralConnectionManager::RNCentralBluetoothManagerDidStopScanning(RNCentralBluetoothManager* manager) {
    if (auto delegate = bluetoothDelegate.lock()) {
        delegate->RNCentralBluetoothManagerDidStopScanning(manager);
    }
}

void HVCentralConnectionManager::RNCentralBluetoothManagerDidStartConnecting(RNCentralBluetoothManager* manager,
                                                                             const PeripheralReference& perhipheral) {
    if (auto delegate = bluetoothDelegate.lock()) {
        delegate->RNCentralBluetoothManagerDidStartConnecting(manager, perhipheral);
    }
}

void HVCentralConnectionManager::RNCentralBluetoothManagerDidStopConnecting(RNCentralBluetoothManager* manager,
                                                                            const PeripheralReference& perhipheral) {
    if (auto delegate = bluetoothDelegate.lock()) {
        delegate->RNCentralBluetoothManagerDidStopConnecting(manager, perhipheral);
    }
}

void HVCentralConnectionManager::RNCentralBluetoothManagerDidDidReceiveConnectionNameForPerhipheral(
    RNCentralBluetoothManager* manager, const PeripheralReference& perhipheral) {
    if (auto delegate = bluetoothDelegate.lock()) {
        delegate->RNCentralBluetoothManagerDidDidReceiveConnectionNameForPerhipheral(manager, perhipheral);
    }
}

void HVCentralConnectionManager::RNCentralBluetoothManagerDidFinishConnection(RNCentralBluetoothManager* manager,
                                                                              const std::shared_ptr<RNClient>& client) {
    if (auto delegate = bluetoothDelegate.lock()) {
        delegate->RNCentralBluetoothManagerDidFinishConnection(manager, client);
    }
}

}  // namespace havrel
