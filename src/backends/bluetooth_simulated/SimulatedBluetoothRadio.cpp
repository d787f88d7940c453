#include "backends/bluetooth_simulated/SimulatedBluetoothRadio.hpp"

#include "MIDIInternals/UUID.hpp"
#include "platform/MainQueue.hpp"

#include <algorithm>

namespace havrel {

namespace {

// The user description descriptor each characteristic carries.
constexpr const char* kUserDescriptionUUID = "2901";

template <typename Target>
std::shared_ptr<Target> simulated(const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) {
    return std::dynamic_pointer_cast<Target>(characteristic);
}

}  // namespace

std::vector<Bytes> notificationPieces(ByteView message, std::size_t pieceSize) {
    pieceSize = std::max<std::size_t>(pieceSize, 2);
    std::vector<Bytes> values;
    for (std::size_t offset = 0; offset < message.size();) {
        std::size_t length = std::min(pieceSize, message.size() - offset);
        // The last value keeps at least two bytes, so a trailing end marker stays whole.
        if (message.size() - offset - length == 1) {
            --length;
        }
        const auto piece = message.subspan(offset, length);
        values.emplace_back(piece.begin(), piece.end());
        offset += length;
    }
    return values;
}

// --- Characteristics and services ---

SimulatedCharacteristic::SimulatedCharacteristic(std::string uuid)
    : uuid_(std::move(uuid)),
      descriptor_(std::make_shared<SimulatedDescriptor>(kUserDescriptionUUID, Bytes(uuid_.begin(), uuid_.end()))) {}

std::vector<std::shared_ptr<RNBluetoothDescriptor>> SimulatedCharacteristic::descriptors() const {
    return {descriptor_};
}

std::vector<std::shared_ptr<RNBluetoothCharacteristic>> SimulatedService::characteristics() const {
    return {characteristics_.begin(), characteristics_.end()};
}

// --- Peripheral ---

SimulatedPeripheral::SimulatedPeripheral(std::weak_ptr<SimulatedBluetoothRadio> radio, Settings settings)
    : radio_(std::move(radio)), settings_(std::move(settings)) {
    if (settings_.identifierFromPlatform && !settings_.identifier) {
        settings_.identifier = MIDIInternals::randomUUIDString();
    }
    std::vector<std::shared_ptr<SimulatedCharacteristic>> characteristics;
    for (const auto& uuid : settings_.characteristics) {
        characteristics.push_back(std::make_shared<SimulatedCharacteristic>(uuid));
    }
    service_ = std::make_shared<SimulatedService>(kHavrelServiceUUID, std::move(characteristics));
}

std::optional<std::string> SimulatedPeripheral::identifier() const {
    return settings_.identifierFromPlatform ? settings_.identifier : std::nullopt;
}

std::vector<std::shared_ptr<RNBluetoothService>> SimulatedPeripheral::services() const {
    if (!servicesDiscovered_) {
        return {};
    }
    return {service_};
}

void SimulatedPeripheral::deliver(
    std::function<void(RNBluetoothPeripheralDelegate&, const std::shared_ptr<RNBluetoothPeripheral>&)> call) {
    std::weak_ptr<RNBluetoothPeripheral> weak = weak_from_this();
    MainQueue::shared().post([weak, call = std::move(call)] {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        if (auto target = self->delegate.lock()) {
            call(*target, self);
        }
    });
}

void SimulatedPeripheral::discoverServices(const std::optional<std::vector<std::string>>& serviceUUIDs) {
    if (!linked()) {
        return;
    }
    const bool wanted = !serviceUUIDs || std::find(serviceUUIDs->begin(), serviceUUIDs->end(),
                                                   std::string(kHavrelServiceUUID)) != serviceUUIDs->end();
    servicesDiscovered_ = servicesDiscovered_ || wanted;
    deliver([](RNBluetoothPeripheralDelegate& target, const std::shared_ptr<RNBluetoothPeripheral>& self) {
        target.peripheralDidDiscoverServices(self, std::nullopt);
    });
}

void SimulatedPeripheral::discoverCharacteristics(const std::shared_ptr<RNBluetoothService>& service) {
    if (!linked() || service != service_) {
        return;
    }
    deliver([service](RNBluetoothPeripheralDelegate& target, const std::shared_ptr<RNBluetoothPeripheral>& self) {
        target.peripheralDidDiscoverCharacteristicsForService(self, service, std::nullopt);
    });
}

void SimulatedPeripheral::discoverDescriptorsForCharacteristic(
    const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) {
    if (!linked()) {
        return;
    }
    deliver([characteristic](RNBluetoothPeripheralDelegate& target, const std::shared_ptr<RNBluetoothPeripheral>& self) {
        target.peripheralDidDiscoverDescriptorsForCharacteristic(self, characteristic, std::nullopt);
    });
}

void SimulatedPeripheral::readValueForDescriptor(const std::shared_ptr<RNBluetoothDescriptor>& descriptor) {
    auto readable = std::dynamic_pointer_cast<SimulatedDescriptor>(descriptor);
    if (!linked() || !readable) {
        return;
    }
    deliver([readable](RNBluetoothPeripheralDelegate& target, const std::shared_ptr<RNBluetoothPeripheral>& self) {
        readable->markRead();
        target.peripheralDidUpdateValueForDescriptor(self, readable, std::nullopt);
    });
}

void SimulatedPeripheral::setNotifyValue(bool enabled, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic) {
    auto own = simulated<SimulatedCharacteristic>(characteristic);
    if (linked() && own) {
        own->setNotifying(enabled);
    }
}

void SimulatedPeripheral::writeValue(ByteView value, const std::shared_ptr<RNBluetoothCharacteristic>& characteristic,
                                     std::int64_t /*type*/) {
    if (!linked() || !characteristic) {
        return;
    }
    const std::string uuid = characteristic->UUID();
    writes_[uuid].emplace_back(value.begin(), value.end());
    if (onWrite) {
        Bytes copy(value.begin(), value.end());
        std::weak_ptr<RNBluetoothPeripheral> weak = weak_from_this();
        MainQueue::shared().post([weak, uuid, copy = std::move(copy)] {
            if (auto self = std::static_pointer_cast<SimulatedPeripheral>(weak.lock()); self && self->onWrite) {
                self->onWrite(uuid, copy);
            }
        });
    }
}

std::optional<std::uint64_t> SimulatedPeripheral::maximumWriteValueLengthForType(std::int64_t /*type*/) const {
    return settings_.maximumWriteLength;
}

void SimulatedPeripheral::startAdvertising() {
    advertising_ = true;
    if (auto radio = radio_.lock()) {
        radio->peripheralAdvertises(std::static_pointer_cast<SimulatedPeripheral>(shared_from_this()));
    }
}

void SimulatedPeripheral::acceptPendingConnection() {
    auto radio = radio_.lock();
    auto manager = radio ? radio->managerOf(*this) : nullptr;
    if (state_ != CBPeripheralStateConnecting || !manager) {
        return;
    }
    state_ = CBPeripheralStateConnected;
    std::shared_ptr<RNBluetoothPeripheral> self = shared_from_this();
    manager->deliver([self](RNBluetoothCentralManagerDelegate& delegate) { delegate.centralManagerDidConnectPeripheral(self); });
}

void SimulatedPeripheral::stopAdvertising() {
    advertising_ = false;
}

std::shared_ptr<SimulatedCharacteristic> SimulatedPeripheral::characteristic(const std::string& uuid) const {
    for (const auto& characteristic : service_->simulatedCharacteristics()) {
        if (characteristic->UUID() == uuid) {
            return characteristic;
        }
    }
    return nullptr;
}

bool SimulatedPeripheral::isSubscribed(const std::string& characteristicUUID) const {
    const auto found = characteristic(characteristicUUID);
    return linked() && found && found->isNotifying();
}

bool SimulatedPeripheral::notify(const std::string& characteristicUUID, const std::vector<Bytes>& values) {
    const auto target = characteristic(characteristicUUID);
    if (!isSubscribed(characteristicUUID)) {
        return false;
    }
    for (const auto& value : values) {
        // The value is the characteristic's when its notification is handled, as on the air.
        deliver([target, value](RNBluetoothPeripheralDelegate& delegate, const std::shared_ptr<RNBluetoothPeripheral>& self) {
            if (self->state() != CBPeripheralStateConnected || !target->isNotifying()) {
                return;
            }
            target->setValue(value);
            delegate.peripheralDidUpdateValueForCharacteristic(self, target, std::nullopt);
        });
    }
    return true;
}

bool SimulatedPeripheral::notifyInPieces(const std::string& characteristicUUID, ByteView message,
                                         std::size_t pieceSize) {
    return notify(characteristicUUID, notificationPieces(message, pieceSize));
}

std::vector<Bytes> SimulatedPeripheral::writes(const std::string& characteristicUUID) const {
    const auto found = writes_.find(characteristicUUID);
    return found == writes_.end() ? std::vector<Bytes>{} : found->second;
}

void SimulatedPeripheral::dropLink(RNBluetoothOptionalError error) {
    if (state_ == CBPeripheralStateDisconnected) {
        return;
    }
    state_ = CBPeripheralStateDisconnected;
    for (const auto& characteristic : service_->simulatedCharacteristics()) {
        characteristic->setNotifying(false);
    }
    if (auto radio = radio_.lock()) {
        radio->peripheralDropped(std::static_pointer_cast<SimulatedPeripheral>(shared_from_this()), error);
    }
}

// --- Radio ---

std::shared_ptr<SimulatedBluetoothRadio> SimulatedBluetoothRadio::create(std::int64_t state) {
    return std::make_shared<SimulatedBluetoothRadio>(state);
}

std::shared_ptr<RNBluetoothCentralManager> SimulatedBluetoothRadio::makeCentralManager(
    std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate) {
    auto manager = std::make_shared<SimulatedCentralManager>(weak_from_this(), std::move(delegate));
    managers_.push_back(manager);
    const std::int64_t state = state_;
    manager->deliver([state](RNBluetoothCentralManagerDelegate& target) { target.centralManagerDidUpdateState(state); });
    return manager;
}

std::vector<std::shared_ptr<SimulatedCentralManager>> SimulatedBluetoothRadio::liveManagers() const {
    std::vector<std::shared_ptr<SimulatedCentralManager>> live;
    for (const auto& weak : managers_) {
        if (auto manager = weak.lock()) {
            live.push_back(std::move(manager));
        }
    }
    return live;
}

void SimulatedBluetoothRadio::setState(std::int64_t state) {
    state_ = state;
    std::erase_if(managers_, [](const auto& weak) { return weak.expired(); });
    for (const auto& manager : liveManagers()) {
        manager->deliver([state](RNBluetoothCentralManagerDelegate& target) { target.centralManagerDidUpdateState(state); });
    }
    if (state != CBManagerStatePoweredOn) {
        for (const auto& peripheral : peripherals_) {
            peripheral->dropLink(RNBluetoothError{"CBErrorDomain", 0, "Bluetooth was turned off."});
        }
    }
}

std::shared_ptr<SimulatedPeripheral> SimulatedBluetoothRadio::addPeripheral(SimulatedPeripheral::Settings settings) {
    auto peripheral = std::make_shared<SimulatedPeripheral>(weak_from_this(), std::move(settings));
    peripherals_.push_back(peripheral);
    return peripheral;
}

std::vector<std::shared_ptr<SimulatedPeripheral>> SimulatedBluetoothRadio::advertisingPeripherals() const {
    std::vector<std::shared_ptr<SimulatedPeripheral>> advertising;
    for (const auto& peripheral : peripherals_) {
        if (peripheral->isAdvertising() && peripheral->state() == CBPeripheralStateDisconnected) {
            advertising.push_back(peripheral);
        }
    }
    return advertising;
}

void SimulatedBluetoothRadio::peripheralAdvertises(const std::shared_ptr<SimulatedPeripheral>& peripheral) {
    if (peripheral->state() != CBPeripheralStateDisconnected) {
        return;
    }
    for (const auto& manager : liveManagers()) {
        manager->sight(peripheral);
    }
}

void SimulatedBluetoothRadio::peripheralDropped(const std::shared_ptr<SimulatedPeripheral>& peripheral,
                                                const RNBluetoothOptionalError& error) {
    auto manager = managerOf(*peripheral);
    links_.erase(peripheral.get());
    if (manager) {
        std::shared_ptr<RNBluetoothPeripheral> dropped = peripheral;
        manager->deliver([dropped, error](RNBluetoothCentralManagerDelegate& target) {
            target.centralManagerDidDisconnectPeripheral(dropped, error);
        });
    }
}

std::shared_ptr<SimulatedCentralManager> SimulatedBluetoothRadio::managerOf(const SimulatedPeripheral& peripheral) const {
    const auto found = links_.find(&peripheral);
    return found == links_.end() ? nullptr : found->second.lock();
}

void SimulatedBluetoothRadio::setManagerOf(const SimulatedPeripheral& peripheral,
                                           const std::shared_ptr<SimulatedCentralManager>& manager) {
    if (manager) {
        links_[&peripheral] = manager;
    } else {
        links_.erase(&peripheral);
    }
}

// --- Central manager ---

std::int64_t SimulatedCentralManager::state() const {
    auto radio = radio_.lock();
    return radio ? radio->state() : CBManagerStateUnsupported;
}

void SimulatedCentralManager::deliver(std::function<void(RNBluetoothCentralManagerDelegate&)> call) {
    std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate = delegate_;
    MainQueue::shared().post([delegate, call = std::move(call)] {
        if (auto target = delegate.lock()) {
            call(*target);
        }
    });
}

void SimulatedCentralManager::scanForPeripheralsWithServices(const std::optional<std::vector<std::string>>& serviceUUIDs,
                                                             bool allowDuplicates) {
    auto radio = radio_.lock();
    if (!radio || radio->state() != CBManagerStatePoweredOn) {
        return;
    }
    if (serviceUUIDs && std::find(serviceUUIDs->begin(), serviceUUIDs->end(), std::string(kHavrelServiceUUID)) ==
                            serviceUUIDs->end()) {
        return;  // the radio's peripherals offer the Havrel service only
    }
    scanning_ = true;
    allowDuplicates_ = allowDuplicates;
    sighted_.clear();
    for (const auto& peripheral : radio->advertisingPeripherals()) {
        sight(peripheral);
    }
}

void SimulatedCentralManager::stopScan() {
    scanning_ = false;
}

void SimulatedCentralManager::sight(const std::shared_ptr<SimulatedPeripheral>& peripheral) {
    if (!scanning_) {
        return;
    }
    if (!allowDuplicates_) {
        if (std::find(sighted_.begin(), sighted_.end(), peripheral.get()) != sighted_.end()) {
            return;
        }
        sighted_.push_back(peripheral.get());
    }
    std::shared_ptr<RNBluetoothPeripheral> seen = peripheral;
    deliver([seen](RNBluetoothCentralManagerDelegate& target) {
        target.centralManagerDidDiscoverPeripheral(seen, Dictionary::object(), -50);
    });
}

void SimulatedCentralManager::connectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral, bool, bool) {
    auto radio = radio_.lock();
    auto target = std::dynamic_pointer_cast<SimulatedPeripheral>(peripheral);
    if (!radio || !target || target->state() != CBPeripheralStateDisconnected) {
        return;
    }
    switch (target->settings().connectionAnswer) {
    case SimulatedPeripheral::ConnectionAnswer::accept:
        target->setState(CBPeripheralStateConnected);
        radio->setManagerOf(*target, shared_from_this());
        deliver([peripheral](RNBluetoothCentralManagerDelegate& delegate) {
            delegate.centralManagerDidConnectPeripheral(peripheral);
        });
        break;
    case SimulatedPeripheral::ConnectionAnswer::refuse: {
        const auto error = target->settings().refusalError;
        deliver([peripheral, error](RNBluetoothCentralManagerDelegate& delegate) {
            delegate.centralManagerDidFailToConnectPeripheral(peripheral, error);
        });
        break;
    }
    case SimulatedPeripheral::ConnectionAnswer::ignore:
        // The connect waits for ever, as one to a device out of range does.
        target->setState(CBPeripheralStateConnecting);
        radio->setManagerOf(*target, shared_from_this());
        break;
    }
}

void SimulatedCentralManager::cancelPeripheralConnection(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    auto radio = radio_.lock();
    auto target = std::dynamic_pointer_cast<SimulatedPeripheral>(peripheral);
    if (!radio || !target || target->state() == CBPeripheralStateDisconnected) {
        return;
    }
    // The central's own cancel ends the link, or the pending connect, without an error.
    target->dropLink(std::nullopt);
}

}  // namespace havrel
