#include "transport/bluetooth/RNCentralBluetoothManager.hpp"

#include "central/RNCentral.hpp"
#include "central/RNClient.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/SharedSlot.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace havrel {

namespace {

// Empty until the first instantiate.
SharedSlot<RNCentralBluetoothManager>& sharedSlot() {
    static SharedSlot<RNCentralBluetoothManager> slot;
    return slot;
}

constexpr std::array<std::uint8_t, 2> kEndTransmission{0x7C, 0x7C};
constexpr double kTimeoutSeconds = static_cast<double>(RNCentralBluetoothManager::kConnectionTimeout.count());

const char* stateText(std::int64_t state) {
    switch (state) {
    case CBManagerStateUnsupported:
        return "The platform/hardware doesn't support Bluetooth Low Energy.";
    case CBManagerStateUnauthorized:
        return "The app is not authorized to use Bluetooth Low Energy.";
    case CBManagerStatePoweredOff:
        return "Bluetooth is currently powered off.";
    case CBManagerStatePoweredOn:
        return "Bluetooth is currently powered on.";
    default:
        return "(null)";
    }
}

std::string describe(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    return peripheral ? peripheral->description() : std::string("(null)");
}

std::string describe(const RNBluetoothOptionalError& error) {
    return error ? fmt::format("{} {} \u00b7 {}", error->domain, error->code, error->description)
                 : std::string("(null)");
}

}  // namespace

std::shared_ptr<RNCentralBluetoothManager> RNCentralBluetoothManager::instantiateWithProductToSendOut(
    const std::string& productToSendOut, const std::string& versionToSendOut) {
    resetShared();
    auto manager = initWithProductToSendOut(productToSendOut, versionToSendOut);
    sharedSlot().set(manager);
    return manager;
}

std::shared_ptr<RNCentralBluetoothManager> RNCentralBluetoothManager::sharedInstance() {
    return sharedSlot().get();
}

void RNCentralBluetoothManager::resetShared() {
    if (auto previous = sharedSlot().take()) {
        // The replaced manager lets go of its links, as a released platform manager would.
        previous->delegate.reset();
        previous->reset();
    }
}

std::shared_ptr<RNCentralBluetoothManager> RNCentralBluetoothManager::initWithProductToSendOut(
    const std::string& productToSendOut, const std::string& versionToSendOut) {
    auto manager = std::make_shared<RNCentralBluetoothManager>(Key{}, productToSendOut, versionToSendOut);
    manager->manager_ = RNBluetoothPlatform::shared()->makeCentralManager(manager);
    return manager;
}

RNCentralBluetoothManager::RNCentralBluetoothManager(Key, std::string productToSendOut, std::string versionToSendOut)
    : productToSendOut_(std::move(productToSendOut)), versionToSendOut_(std::move(versionToSendOut)) {}

RNCentralBluetoothManager::~RNCentralBluetoothManager() {
    if (hvConnectionTimeoutTimer_) {
        hvConnectionTimeoutTimer_->invalidate();
    }
}

ByteView RNCentralBluetoothManager::endTransmissionDataPacket() {
    return ByteView(kEndTransmission.data(), kEndTransmission.size());
}

std::string RNCentralBluetoothManager::localName() {
    return RNCentral::localName();
}

// --- Power and scanning ---

void RNCentralBluetoothManager::centralManagerDidUpdateState(std::int64_t state) {
    state_ = state;
    bluetoothPowerOn_ = state == CBManagerStatePoweredOn;
    logf("Central manager state: {}", stateText(state));
}

void RNCentralBluetoothManager::scan() {
    if (!bluetoothPowerOn_) {
        return;
    }
    isScanning_ = true;
    clearDiscoveries();
    log("Starting scan");
    manager_->scanForPeripheralsWithServices(std::vector<std::string>{kHavrelServiceUUID}, false);
    if (auto target = delegate.lock()) {
        target->RNCentralBluetoothManagerDidStartScanning(this);
    }
}

void RNCentralBluetoothManager::stopScan() {
    isScanning_ = false;
    log("Stopping scan");
    manager_->stopScan();
    if (auto target = delegate.lock()) {
        target->RNCentralBluetoothManagerDidStopScanning(this);
    }
}

void RNCentralBluetoothManager::clearDiscoveries() {
    hvDiscoveredPeripherals_.clear();
    hvDiscoveryOrder_.clear();
    postDiscoveryChanged();
}

void RNCentralBluetoothManager::postDiscoveryChanged() {
    NotificationCenter::defaultCenter().post(HVCentralBluetoothDiscoveryChangedNotification, this);
}

void RNCentralBluetoothManager::centralManagerDidDiscoverPeripheral(
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral, const Dictionary& /*advertisementData*/,
    std::int64_t /*RSSI*/) {
    if (!peripheral) {
        return;
    }
    const std::string identifier = idFromParipheral(peripheral);
    if (bluetoothConnections_.contains(identifier)) {
        return;
    }
    peripheral->delegate = weak_from_this();
    if (!hvDiscoveredPeripherals_.contains(identifier)) {
        // Departure: the list of discoveries has a bound (kMaximumDiscoveries).
        if (hvDiscoveryOrder_.size() >= kMaximumDiscoveries) {
            hvDiscoveredPeripherals_.erase(hvDiscoveryOrder_.front());
            hvDiscoveryOrder_.erase(hvDiscoveryOrder_.begin());
        }
        hvDiscoveryOrder_.push_back(identifier);
    }
    hvDiscoveredPeripherals_[identifier] = peripheral;
    postDiscoveryChanged();
    if (hvAutoConnectsWhenSingleDeviceFound && hvDiscoveryOrder_.size() == 1) {
        hvBeginConnectionToPeripheral(peripheral);
    }
}

std::vector<HVDiscoveredDeviceInfo> RNCentralBluetoothManager::hvDiscoveredDevices() {
    std::vector<HVDiscoveredDeviceInfo> devices;
    for (const auto& identifier : hvDiscoveryOrder_) {
        const auto found = hvDiscoveredPeripherals_.find(identifier);
        if (found == hvDiscoveredPeripherals_.end()) {
            continue;
        }
        const std::string name = found->second->name();
        devices.push_back({identifier, name.empty() ? std::string("Unnamed device") : name, std::string()});
    }
    return devices;
}

void RNCentralBluetoothManager::hvConnectToDiscoveredDeviceWithIdentifier(const std::string& identifier) {
    const auto found = hvDiscoveredPeripherals_.find(identifier);
    if (found == hvDiscoveredPeripherals_.end()) {
        logf("hvConnectToDiscoveredDeviceWithIdentifier: unknown identifier {}", identifier);
        return;
    }
    hvBeginConnectionToPeripheral(found->second);
}

// --- Connecting ---

void RNCentralBluetoothManager::hvBeginConnectionToPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    const std::string identifier = idFromParipheral(peripheral);
    if (!bluetoothConnections_.contains(identifier)) {
        auto connection = RNCentralBluetoothConnection::bluetoothConnection();
        connection->delegate = weak_from_this();
        connection->bluetoothManager = weak_from_this();
        connection->setPeripheral(peripheral);
        bluetoothConnections_[identifier] = connection;
    }
    hvStartConnectionTimeoutForPeripheral(peripheral);
    connectToPeripheral(peripheral);
}

void RNCentralBluetoothManager::retrievePeripherals() {
    // Connecting may change the connections: work on a copy.
    const auto connections = bluetoothConnections_;
    for (const auto& [identifier, connection] : connections) {
        const auto& peripheral = connection->peripheral();
        if (peripheral && peripheral->state() == CBPeripheralStateDisconnected) {
            hvStartConnectionTimeoutForPeripheral(peripheral);
            connectToPeripheral(peripheral);
        }
    }
}

void RNCentralBluetoothManager::centralManagerDidRetrievePeripherals(
    const std::vector<std::shared_ptr<RNBluetoothPeripheral>>& peripherals) {
    std::string list;
    for (const auto& peripheral : peripherals) {
        list += (list.empty() ? "" : ", ") + describe(peripheral);
    }
    logf("Retrieved peripheral: {} - ({})", peripherals.size(), list);
    stopScan();
    if (!peripherals.empty()) {
        connectToPeripheral(peripherals.front());
    }
}

void RNCentralBluetoothManager::connectToPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    currentPeripheral_ = peripheral;
    stopScan();
    manager_->connectPeripheral(peripheral, true, true);
    if (auto target = delegate.lock()) {
        target->RNCentralBluetoothManagerDidStartConnecting(this, peripheral);
    }
}

void RNCentralBluetoothManager::hvStartConnectionTimeoutForPeripheral(
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    hvCancelConnectionTimeout();
    std::weak_ptr<RNCentralBluetoothManager> weak = weak_from_this();
    hvConnectionTimeoutTimer_ = Timer::scheduled(MainQueue::shared(), kConnectionTimeout, false, [weak, peripheral] {
        if (auto self = weak.lock()) {
            self->hvConnectionTimeoutFired(peripheral);
        }
    });
}

void RNCentralBluetoothManager::hvCancelConnectionTimeout() {
    if (hvConnectionTimeoutTimer_) {
        hvConnectionTimeoutTimer_->invalidate();
        hvConnectionTimeoutTimer_.reset();
    }
}

void RNCentralBluetoothManager::hvConnectionTimeoutFired(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    hvConnectionTimeoutTimer_.reset();
    logf("connection to {} timed out after {:.0f}s (link state {})", peripheral->name(), kTimeoutSeconds,
         peripheral->state());
    manager_->cancelPeripheralConnection(peripheral);
    hvReportConnectionFailureForPeripheral(peripheral, fmt::format("Timeout \u00b7 no handshake in {:.0f}s",
                                                                   kTimeoutSeconds));
}

void RNCentralBluetoothManager::hvReportConnectionFailureForPeripheral(
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral, const std::string& diagnostic) {
    hvCancelConnectionTimeout();
    const std::string name = peripheral ? peripheral->name() : std::string();
    NotificationCenter::defaultCenter().post(
        HVCentralBluetoothConnectionFailedNotification, this,
        Dictionary{{"deviceName", name.empty() ? std::string("the device") : name},
                   {"diagnostic", diagnostic.empty() ? std::string("unknown error") : diagnostic}});
}

void RNCentralBluetoothManager::centralManagerDidFailToConnectPeripheral(
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral, const RNBluetoothOptionalError& error) {
    logf("failed to connect peripheral {} error {}", describe(peripheral), describe(error));
    hvReportConnectionFailureForPeripheral(peripheral, error ? describe(error) : std::string("Connection refused"));
}

void RNCentralBluetoothManager::centralManagerDidConnectPeripheral(
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    logf("did connect peripheral {}", describe(peripheral));
    logf("current peripheral {}", describe(currentPeripheral_));
    hvStartConnectionTimeoutForPeripheral(peripheral);
    peripheral->discoverServices(std::nullopt);
}

// --- Discovery and subscriptions ---

void RNCentralBluetoothManager::peripheralDidDiscoverServices(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                                              const RNBluetoothOptionalError& /*error*/) {
    for (const auto& service : peripheral->services()) {
        if (service->UUID() == kHavrelServiceUUID) {
            log("Found Havrel service");
            peripheral->discoverCharacteristics(service);
        }
    }
}

void RNCentralBluetoothManager::peripheralDidDiscoverCharacteristicsForService(
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral, const std::shared_ptr<RNBluetoothService>& service,
    const RNBluetoothOptionalError& /*error*/) {
    // A peripheral object keeps its characteristics: a second connection to it subscribes to
    // nothing new.
    if (currentPeripheral_ && !currentPeripheral_->hvCharicateristics.empty()) {
        return;
    }
    std::map<std::string, std::shared_ptr<RNBluetoothCharacteristic>> characteristics;
    for (const auto& characteristic : service->characteristics()) {
        peripheral->discoverDescriptorsForCharacteristic(characteristic);
        characteristics[characteristic->UUID()] = characteristic;
        logf("adding characteristc {}", characteristic->UUID());
    }
    if (const auto out = characteristics.find(kHavrelOutCharacteristicUUID); out != characteristics.end()) {
        peripheral->setNotifyValue(true, out->second);
        log("notify on out");
    }
    std::weak_ptr<RNCentralBluetoothManager> weak = weak_from_this();
    const auto subscribeLater = [&](std::chrono::seconds delay, const char* key, const char* line) {
        if (!characteristics.contains(key)) {
            return;
        }
        // Not cancelled by a reset: it then acts on the peripheral object it holds.
        MainQueue::shared().postAfter(delay, [weak, peripheral, key, line] {
            if (auto self = weak.lock()) {
                self->setNotifyValue(true, key, peripheral);
                log(line);
            }
        });
    };
    subscribeLater(kInSubscriptionDelay, kHavrelInCharacteristicUUID, "notify on in");
    subscribeLater(kRealtimeSubscriptionDelay, kHavrelRealtimeCharacteristicUUID, "notify on realtime");
    if (currentPeripheral_) {
        currentPeripheral_->hvCharicateristics = std::move(characteristics);
    }
}

void RNCentralBluetoothManager::setNotifyValue(bool enabled, const std::string& characteristicKey,
                                               const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    if (!peripheral) {
        return;
    }
    const auto found = peripheral->hvCharicateristics.find(characteristicKey);
    if (found != peripheral->hvCharicateristics.end()) {
        peripheral->setNotifyValue(enabled, found->second);
    }
}

void RNCentralBluetoothManager::peripheralDidDiscoverDescriptorsForCharacteristic(
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
    const std::shared_ptr<RNBluetoothCharacteristic>& characteristic, const RNBluetoothOptionalError& /*error*/) {
    for (const auto& descriptor : characteristic->descriptors()) {
        peripheral->readValueForDescriptor(descriptor);
    }
}

void RNCentralBluetoothManager::peripheralDidUpdateValueForDescriptor(
    const std::shared_ptr<RNBluetoothPeripheral>& /*peripheral*/, const std::shared_ptr<RNBluetoothDescriptor>& descriptor,
    const RNBluetoothOptionalError& /*error*/) {
    logDiagf("descriptor {}, value:{}", descriptor->UUID(), descriptor->description());
    if (logEnabled(LogLevel::diag)) {
        logDiagf("current peripheral {}", describe(currentPeripheral_));
    }
}

void RNCentralBluetoothManager::peripheralDidUpdateValueForCharacteristic(
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
    const std::shared_ptr<RNBluetoothCharacteristic>& characteristic, const RNBluetoothOptionalError& /*error*/) {
    const std::string uuid = characteristic->UUID();
    logDiagf("receiving data for charicateristic {}", uuid);
    const auto found = bluetoothConnections_.find(idFromParipheral(peripheral));
    if (found == bluetoothConnections_.end()) {
        return;
    }
    // The connection may be dropped while it works (a disconnect request resets).
    const auto connection = found->second;
    const Bytes value = characteristic->value();
    if (uuid == kHavrelRealtimeCharacteristicUUID) {
        connection->isReceivingRealtimeData(value);
    } else if (uuid == kHavrelInCharacteristicUUID) {
        connection->isReceivingInData(value);
    }
}

// --- The handshake and received data ---

void RNCentralBluetoothManager::RNCentralBluetoothConnectionDidReceiveClient(
    RNCentralBluetoothConnection& connection, const std::shared_ptr<RNBluetoothClient>& client) {
    hvCancelConnectionTimeout();
    if (auto target = delegate.lock()) {
        target->RNCentralBluetoothManagerDidReceiveClient(this, client);
        target->RNCentralBluetoothManagerDidFinishConnection(this, client);
    }
    sendCentralDataToPeripheral(connection.peripheral());
}

void RNCentralBluetoothManager::writeToOut(const std::string& message,
                                           const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    if (!peripheral) {
        return;
    }
    const auto found = peripheral->hvCharicateristics.find(kHavrelOutCharacteristicUUID);
    if (found == peripheral->hvCharicateristics.end()) {
        logf("no out characteristic on {} \u2014 handshake reply not sent", describe(peripheral));
        return;
    }
    Bytes bytes(message.begin(), message.end());
    bytes.insert(bytes.end(), kEndTransmission.begin(), kEndTransmission.end());
    peripheral->writeValue(bytes, found->second, CBCharacteristicWriteWithoutResponse);
}

void RNCentralBluetoothManager::sendCentralMinApiVersionString(const std::string& version,
                                                               const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    writeToOut(Dictionary{{"v", version}}.dump(), peripheral);
}

void RNCentralBluetoothManager::sendCentralDataToPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    writeToOut(RNCentral::localCentralWithVersion(versionToSendOut_)->dictionary().dump(), peripheral);
}

bool RNCentralBluetoothManager::hvShouldIgnoreDataFromClient(const std::shared_ptr<RNClient>& client) const {
    return client && client->supersededByUSB;
}

std::shared_ptr<RNClient> RNCentralBluetoothManager::clientOfConnection(const RNCentralBluetoothConnection& connection) {
    auto target = delegate.lock();
    return target ? target->clientForPeripheral(connection.peripheral()) : nullptr;
}

void RNCentralBluetoothManager::RNCentralBluetoothConnectionDidReceiveSyncData(RNCentralBluetoothConnection& connection,
                                                                               ByteView data) {
    const auto client = clientOfConnection(connection);
    if (!hvShouldIgnoreDataFromClient(client)) {
        didReceiveSyncData(data, client);
    }
}

void RNCentralBluetoothManager::RNCentralBluetoothConnectionDidReceiveChangeData(
    RNCentralBluetoothConnection& connection, ByteView data) {
    const auto client = clientOfConnection(connection);
    if (!hvShouldIgnoreDataFromClient(client)) {
        didReceiveChangeData(data, client);
    }
}

void RNCentralBluetoothManager::RNCentralBluetoothConnectionDidReceivePureMIDIData(
    RNCentralBluetoothConnection& connection, ByteView data) {
    const auto client = clientOfConnection(connection);
    if (!hvShouldIgnoreDataFromClient(client)) {
        didReceivePureMIDIData(data, client);
    }
}

void RNCentralBluetoothManager::RNCentralBluetoothConnectionDidReceiveRangeData(
    RNCentralBluetoothConnection& connection, ByteView data) {
    const auto client = clientOfConnection(connection);
    if (!hvShouldIgnoreDataFromClient(client)) {
        didReceiveRangeData(data, client);
    }
}

void RNCentralBluetoothManager::RNCentralBluetoothConnectionDidReceiveDisconnectRequest(
    RNCentralBluetoothConnection& /*connection*/) {
    reset();
}

// --- Sending ---

void RNCentralBluetoothManager::sendData(RNCentralBluetoothConnection& connection) {
    logDiag("send data");
    auto& queue = connection.dataQueue();
    do {
        const auto chunk = queue.popCharacterisedData();
        if (!chunk) {
            break;
        }
        if (sendDataChunkWithSBBluetoothDataQueueData(chunk, connection.peripheral())) {
            logDiagf("data sent {}", chunk->characteristicString);
            queue.verifySentData(chunk);
        } else {
            logf("failed to send data  {}", chunk->characteristicString);
            break;
        }
    } while (queue.hasData());
}

bool RNCentralBluetoothManager::sendDataChunkWithSBBluetoothDataQueueData(
    const RNBluetoothDataQueue::Chunk& chunk, const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    if (!peripheral) {
        return true;
    }
    const auto found = peripheral->hvCharicateristics.find(chunk->characteristicString);
    if (found != peripheral->hvCharicateristics.end()) {
        logDiagf("sending {}", chunk->characteristicString);
        peripheral->writeValue(chunk->data, found->second, CBCharacteristicWriteWithoutResponse);
    }
    return true;
}

// --- Ending ---

void RNCentralBluetoothManager::cleanup() {
    if (isScanning_) {
        stopScan();
    }
    for (const auto& [identifier, connection] : bluetoothConnections_) {
        const auto& peripheral = connection->peripheral();
        if (!peripheral) {
            continue;
        }
        for (const auto& service : peripheral->services()) {
            for (const auto& characteristic : service->characteristics()) {
                const std::string uuid = characteristic->UUID();
                if ((uuid == kHavrelInCharacteristicUUID || uuid == kHavrelOutCharacteristicUUID ||
                     uuid == kHavrelRealtimeCharacteristicUUID) &&
                    characteristic->isNotifying()) {
                    peripheral->setNotifyValue(false, characteristic);
                }
            }
        }
        peripheral->delegate.reset();
        manager_->cancelPeripheralConnection(peripheral);
        currentPeripheral_.reset();
    }
}

void RNCentralBluetoothManager::reset() {
    cleanup();
    bluetoothConnections_.clear();
    hvCancelConnectionTimeout();
    clearDiscoveries();
}

bool RNCentralBluetoothManager::isConnected() const {
    return std::any_of(bluetoothConnections_.begin(), bluetoothConnections_.end(),
                       [](const auto& entry) { return entry.second->isConnected(); });
}

void RNCentralBluetoothManager::centralManagerDidDisconnectPeripheral(
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral, const RNBluetoothOptionalError& error) {
    logf("did disconnect peripheral {}", describe(peripheral));
    logf("current peripheral {}", describe(currentPeripheral_));
    if (error) {
        logf("did disconnect peripheral error {}", describe(error));
    }
    if (auto target = delegate.lock()) {
        target->RNCentralBluetoothManagerDidDisconnectFromClient(this, target->clientForPeripheral(peripheral));
    }
    reset();
}

}  // namespace havrel
