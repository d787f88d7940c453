#include "backends/bluetooth_bluez/BluezCentralManager.hpp"

#include "backends/bluetooth_bluez/BluezBluetoothPlatform.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <algorithm>

namespace havrel {

std::int64_t BluezCentralManager::state() const {
    auto platform = platform_.lock();
    return platform ? platform->state() : CBManagerStateUnsupported;
}

void BluezCentralManager::report(const std::function<void(RNBluetoothCentralManagerDelegate&)>& call) {
    if (auto target = delegate_.lock()) {
        call(*target);
    }
}

void BluezCentralManager::deliver(std::function<void(RNBluetoothCentralManagerDelegate&)> call) {
    std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate = delegate_;
    MainQueue::shared().post([delegate, call = std::move(call)] {
        if (auto target = delegate.lock()) {
            call(*target);
        }
    });
}

void BluezCentralManager::scanForPeripheralsWithServices(const std::optional<std::vector<std::string>>& serviceUUIDs,
                                                         bool allowDuplicates) {
    auto platform = platform_.lock();
    if (!platform || platform->state() != CBManagerStatePoweredOn) {
        return;
    }
    scanning_ = true;
    allowDuplicates_ = allowDuplicates;
    serviceUUIDs_ = serviceUUIDs;
    sighted_.clear();
    platform->managerScanChanged();
}

void BluezCentralManager::stopScan() {
    if (!scanning_) {
        return;
    }
    scanning_ = false;
    if (auto platform = platform_.lock()) {
        platform->managerScanChanged();
    }
}

void BluezCentralManager::sight(const std::shared_ptr<BluezPeripheral>& peripheral) {
    if (!scanning_) {
        return;
    }
    const auto& uuids = peripheral->properties().uuids;
    if (serviceUUIDs_) {
        const bool wanted = uuids && std::any_of(serviceUUIDs_->begin(), serviceUUIDs_->end(), [&](const auto& uuid) {
                                return std::find(uuids->begin(), uuids->end(), uuid) != uuids->end();
                            });
        if (!wanted) {
            return;
        }
    }
    if (!allowDuplicates_) {
        const std::weak_ptr<const BluezPeripheral> seenBefore = peripheral;
        const auto same = [&](const auto& entry) {
            return !entry.owner_before(seenBefore) && !seenBefore.owner_before(entry);
        };
        if (std::any_of(sighted_.begin(), sighted_.end(), same)) {
            return;
        }
        std::erase_if(sighted_, [](const auto& entry) { return entry.expired(); });
        if (sighted_.size() >= BluezBluetoothPlatform::kMaximumDevices) {
            sighted_.pop_front();
        }
        sighted_.push_back(seenBefore);
    }
    peripheral->known = true;
    Dictionary advertisement = Dictionary::object();
    advertisement["kCBAdvDataLocalName"] = peripheral->name();
    advertisement["kCBAdvDataServiceUUIDs"] = uuids.value_or(std::vector<std::string>{});
    const std::int64_t rssi = peripheral->properties().rssi.value_or(127);
    std::shared_ptr<RNBluetoothPeripheral> seen = peripheral;
    report([&](RNBluetoothCentralManagerDelegate& target) {
        target.centralManagerDidDiscoverPeripheral(seen, advertisement, rssi);
    });
}

void BluezCentralManager::connectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral, bool, bool) {
    auto platform = platform_.lock();
    auto target = std::dynamic_pointer_cast<BluezPeripheral>(peripheral);
    if (!platform || !target || target->state() != CBPeripheralStateDisconnected ||
        platform->state() != CBManagerStatePoweredOn) {
        return;
    }
    target->known = true;
    target->manager = weak_from_this();
    target->setState(CBPeripheralStateConnecting);
    std::weak_ptr<BluezPeripheral> weakTarget = target;
    std::weak_ptr<BluezCentralManager> weakSelf = weak_from_this();
    platform->call(target->path(), kBluezDeviceInterface, "Connect", nullptr, false,
                   [weakTarget, weakSelf](const RNBluetoothOptionalError& error, const Bytes&) {
                       auto connecting = weakTarget.lock();
                       auto self = weakSelf.lock();
                       // Connected may have said so already, or the connect was cancelled.
                       if (!connecting || !self || connecting->state() != CBPeripheralStateConnecting) {
                           return;
                       }
                       std::shared_ptr<RNBluetoothPeripheral> answered = connecting;
                       // A link another program of this machine holds already is ours too.
                       if (error && error->domain != "org.bluez.Error.AlreadyConnected") {
                           connecting->setState(CBPeripheralStateDisconnected);
                           connecting->manager.reset();
                           self->report([&](RNBluetoothCentralManagerDelegate& delegate) {
                               delegate.centralManagerDidFailToConnectPeripheral(answered, error);
                           });
                           return;
                       }
                       connecting->setState(CBPeripheralStateConnected);
                       self->report([&](RNBluetoothCentralManagerDelegate& delegate) {
                           delegate.centralManagerDidConnectPeripheral(answered);
                       });
                   });
}

void BluezCentralManager::cancelPeripheralConnection(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) {
    auto platform = platform_.lock();
    auto target = std::dynamic_pointer_cast<BluezPeripheral>(peripheral);
    if (!platform || !target || target->state() == CBPeripheralStateDisconnected) {
        return;
    }
    // Until BlueZ answers, its word that the link is down is about this disconnect, not a
    // connect made after it.
    ++target->pendingDisconnects;
    std::weak_ptr<BluezPeripheral> weakTarget = target;
    platform->call(target->path(), kBluezDeviceInterface, "Disconnect", nullptr, false,
                   [weakTarget](const RNBluetoothOptionalError& error, const Bytes&) {
                       if (auto disconnected = weakTarget.lock(); disconnected && disconnected->pendingDisconnects > 0) {
                           --disconnected->pendingDisconnects;
                       }
                       if (error) {
                           logDiagf("Bluetooth: disconnect failed: {}", error->description);
                       }
                   });
    // The central's own cancel ends the link, or the pending connect, without an error.
    std::shared_ptr<BluezPeripheral> ended = target;
    std::weak_ptr<BluezPeripheral> weakEnded = ended;
    MainQueue::shared().post([weakPlatform = platform_, weakEnded] {
        auto platform = weakPlatform.lock();
        auto ended = weakEnded.lock();
        if (platform && ended && ended->state() != CBPeripheralStateDisconnected) {
            platform->linkEnded(ended, std::nullopt);
        }
    });
    // Nothing of the old link counts from here on.
    target->setState(CBPeripheralStateDisconnecting);
}

}  // namespace havrel
