#include "backends/bluetooth_bluez/BluezBluetoothPlatform.hpp"

#include "backends/bluetooth_bluez/DBusConnectionThread.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <algorithm>

namespace havrel {

namespace {

constexpr const char* kObjectManagerInterface = "org.freedesktop.DBus.ObjectManager";
constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";
constexpr std::size_t kMaximumAdapters = 16;
constexpr std::chrono::seconds kObjectListTimeout{10};

RNBluetoothError disconnectedError() {
    return RNBluetoothError{"CBErrorDomain", 7, "The specified device has disconnected from us."};
}

RNBluetoothError poweredOffError() {
    return RNBluetoothError{"CBErrorDomain", 0, "Bluetooth was turned off."};
}

using ObjectList = std::vector<std::pair<std::string, std::vector<BluezProperties>>>;

std::vector<BluezProperties> readInterfaces(const std::map<std::string, BluezPropertyMap>& interfaces) {
    std::vector<BluezProperties> read;
    for (const auto& [name, properties] : interfaces) {
        const auto interface = bluezInterface(name);
        if (interface != BluezInterface::other) {
            read.push_back(readBluezProperties(interface, properties));
        }
    }
    return read;
}

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.size() > prefix.size() && text.compare(0, prefix.size(), prefix) == 0 && text[prefix.size()] == '/';
}

}  // namespace

// --- The bus side ---

// What lives on the bus thread: the proxies of the objects called and the signal subscriptions.
struct BluezBluetoothPlatform::BusSide {
    std::map<std::string, std::unique_ptr<sdbus::IProxy>> proxies;
    std::vector<sdbus::Slot> subscriptions;

    sdbus::IProxy& proxy(sdbus::IConnection& connection, const std::string& path) {
        auto& slot = proxies[path];
        if (!slot) {
            slot = sdbus::createProxy(connection, kBluezService, path);
        }
        return *slot;
    }

    void clear() {
        proxies.clear();
        subscriptions.clear();
    }

    // Runs the work on the main queue while the platform lives, counted as under way till then.
    template <typename Work>
    static void toMain(DBusConnectionThread& bus, const std::weak_ptr<BluezBluetoothPlatform>& weak, Work work) {
        MainQueue::shared().post([weak, token = bus.busy(), work = std::move(work)]() mutable {
            if (auto self = weak.lock()) {
                work(*self);
            }
        });
    }

    // Asks BlueZ for its whole object tree.
    void fetch(sdbus::IConnection& connection, std::weak_ptr<BluezBluetoothPlatform> weak, DBusConnectionThread& bus) {
        auto& root = proxy(connection, "/");
        auto message = root.createMethodCall(kObjectManagerInterface, "GetManagedObjects");
        DBusConnectionThread* busPointer = &bus;
        root.callMethod(
            message,
            [weak, busPointer, token = bus.busy()](sdbus::MethodReply& reply, const sdbus::Error* error) {
                if (error) {
                    const std::string reason = error->getMessage();
                    toMain(*busPointer, weak, [reason](BluezBluetoothPlatform& self) { self.bluezGone(reason); });
                    return;
                }
                ObjectList objects;
                try {
                    std::map<sdbus::ObjectPath, std::map<std::string, BluezPropertyMap>> tree;
                    reply >> tree;
                    for (const auto& [path, interfaces] : tree) {
                        auto read = readInterfaces(interfaces);
                        if (!read.empty()) {
                            objects.emplace_back(path, std::move(read));
                        }
                    }
                } catch (const sdbus::Error& failure) {
                    const std::string reason = "unreadable object list: " + failure.getMessage();
                    toMain(*busPointer, weak, [reason](BluezBluetoothPlatform& self) { self.bluezGone(reason); });
                    return;
                }
                toMain(*busPointer, weak, [objects = std::move(objects)](BluezBluetoothPlatform& self) mutable {
                    self.applyObjects(std::move(objects), true);
                });
            },
            std::chrono::duration_cast<std::chrono::microseconds>(kObjectListTimeout));
    }

    // Follows objects coming and going, property changes, and BlueZ itself on the bus.
    void subscribe(sdbus::IConnection& connection, std::weak_ptr<BluezBluetoothPlatform> weak,
                   DBusConnectionThread& bus) {
        DBusConnectionThread* busPointer = &bus;
        subscriptions.push_back(connection.addMatch(
            fmt::format("type='signal',sender='{}',interface='{}'", kBluezService, kObjectManagerInterface),
            [weak, busPointer](sdbus::Message& message) {
                try {
                    sdbus::ObjectPath path;
                    const std::string member = message.getMemberName();
                    if (member == "InterfacesAdded") {
                        std::map<std::string, BluezPropertyMap> interfaces;
                        message >> path >> interfaces;
                        auto read = readInterfaces(interfaces);
                        if (read.empty()) {
                            return;
                        }
                        ObjectList objects;
                        objects.emplace_back(path, std::move(read));
                        toMain(*busPointer, weak, [objects = std::move(objects)](BluezBluetoothPlatform& self) mutable {
                            self.applyObjects(std::move(objects), false);
                        });
                    } else if (member == "InterfacesRemoved") {
                        std::vector<std::string> names;
                        message >> path >> names;
                        std::vector<BluezInterface> interfaces;
                        for (const auto& name : names) {
                            interfaces.push_back(bluezInterface(name));
                        }
                        toMain(*busPointer, weak, [path = std::string(path), interfaces](BluezBluetoothPlatform& self) {
                            self.applyRemoved(path, interfaces);
                        });
                    }
                } catch (const sdbus::Error& error) {
                    logf("Bluetooth: dropped an unreadable object signal from BlueZ ({})", error.getMessage());
                }
            }));
        subscriptions.push_back(connection.addMatch(
            fmt::format("type='signal',sender='{}',interface='{}',member='PropertiesChanged'", kBluezService,
                        kPropertiesInterface),
            [weak, busPointer](sdbus::Message& message) {
                try {
                    const std::string path = message.getPath();
                    std::string name;
                    BluezPropertyMap changed;
                    message >> name >> changed;
                    const auto interface = bluezInterface(name);
                    if (interface == BluezInterface::other) {
                        return;
                    }
                    auto update = readBluezProperties(interface, changed);
                    toMain(*busPointer, weak, [path, update = std::move(update)](BluezBluetoothPlatform& self) {
                        self.applyProperties(path, update, true);
                    });
                } catch (const sdbus::Error& error) {
                    logf("Bluetooth: dropped an unreadable property signal from BlueZ ({})", error.getMessage());
                }
            }));
        subscriptions.push_back(connection.addMatch(
            fmt::format("type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                        "member='NameOwnerChanged',arg0='{}'",
                        kBluezService),
            [this, weak, busPointer, &connection](sdbus::Message& message) {
                try {
                    std::string name;
                    std::string previousOwner;
                    std::string newOwner;
                    message >> name >> previousOwner >> newOwner;
                    if (newOwner.empty()) {
                        proxies.clear();
                        toMain(*busPointer, weak,
                               [](BluezBluetoothPlatform& self) { self.bluezGone("BlueZ left the bus"); });
                    } else {
                        fetch(connection, weak, *busPointer);
                    }
                } catch (const sdbus::Error& error) {
                    logf("Bluetooth: dropped an unreadable bus signal ({})", error.getMessage());
                }
            }));
    }
};

// --- Platform ---

BluezBluetoothPlatform::BluezBluetoothPlatform(Private, Options options) : options_(std::move(options)) {}

std::shared_ptr<BluezBluetoothPlatform> BluezBluetoothPlatform::create(Options options) {
    auto platform = std::make_shared<BluezBluetoothPlatform>(Private{}, std::move(options));
    platform->start();
    return platform;
}

BluezBluetoothPlatform::~BluezBluetoothPlatform() {
    if (bus_) {
        bus_->stop();
        busSide_->clear();
        bus_.reset();
    }
}

void BluezBluetoothPlatform::start() {
    std::weak_ptr<BluezBluetoothPlatform> weak = weak_from_this();
    try {
        bus_ = DBusConnectionThread::open(options_.busAddress, "", [weak](const std::string& reason) {
            MainQueue::shared().post([weak, reason] {
                if (auto self = weak.lock()) {
                    self->busLost(reason);
                }
            });
        });
    } catch (const sdbus::Error& error) {
        logf("Bluetooth: no D-Bus system bus ({}); Bluetooth is unsupported", error.getMessage());
        setState(CBManagerStateUnsupported);
        return;
    }
    busSide_ = std::make_shared<BusSide>();
    BusSide* side = busSide_.get();
    DBusConnectionThread* bus = bus_.get();
    bus_->post([side, bus, weak](sdbus::IConnection& connection) {
        side->subscribe(connection, weak, *bus);
        side->fetch(connection, weak, *bus);
    });
}

bool BluezBluetoothPlatform::hasAdapter(const Options& options, std::chrono::milliseconds timeout, std::string& reason) {
    try {
        auto connection = options.busAddress.empty() ? sdbus::createSystemBusConnection()
                                                     : sdbus::createSessionBusConnectionWithAddress(options.busAddress);
        auto root = sdbus::createProxy(*connection, kBluezService, "/");
        std::map<sdbus::ObjectPath, std::map<std::string, BluezPropertyMap>> tree;
        root->callMethod("GetManagedObjects").onInterface(kObjectManagerInterface).withTimeout(timeout).storeResultsTo(tree);
        for (const auto& [path, interfaces] : tree) {
            if (interfaces.contains(kBluezAdapterInterface) &&
                (options.adapter.empty() || std::string(path) == "/org/bluez/" + options.adapter)) {
                return true;
            }
        }
        reason = options.adapter.empty() ? "BlueZ has no adapter" : "BlueZ has no adapter " + options.adapter;
    } catch (const sdbus::Error& error) {
        reason = error.getMessage();
    }
    return false;
}

std::shared_ptr<RNBluetoothCentralManager> BluezBluetoothPlatform::makeCentralManager(
    std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate) {
    auto manager = std::make_shared<BluezCentralManager>(weak_from_this(), std::move(delegate));
    std::erase_if(managers_, [](const auto& weak) { return weak.expired(); });
    managers_.push_back(manager);
    if (ready_) {
        const std::int64_t state = state_;
        manager->deliver([state](RNBluetoothCentralManagerDelegate& target) { target.centralManagerDidUpdateState(state); });
    }
    return manager;
}

std::size_t BluezBluetoothPlatform::pendingOperations() const {
    return bus_ ? bus_->pending() : 0;
}

std::vector<std::shared_ptr<BluezCentralManager>> BluezBluetoothPlatform::liveManagers() {
    std::vector<std::shared_ptr<BluezCentralManager>> live;
    for (const auto& weak : managers_) {
        if (auto manager = weak.lock()) {
            live.push_back(std::move(manager));
        }
    }
    return live;
}

void BluezBluetoothPlatform::call(const std::string& path, const std::string& interface, const std::string& method,
                                  Arguments arguments, bool readsBytes, Completion done) {
    if (!bus_) {
        return;
    }
    std::weak_ptr<BluezBluetoothPlatform> weak = weak_from_this();
    BusSide* side = busSide_.get();
    DBusConnectionThread* bus = bus_.get();
    const auto timeout = std::chrono::duration_cast<std::chrono::microseconds>(options_.callTimeout);
    bus_->post([weak, side, bus, path, interface, method, timeout, readsBytes, arguments = std::move(arguments),
                done = std::move(done)](sdbus::IConnection& connection) {
        auto& proxy = side->proxy(connection, path);
        auto message = proxy.createMethodCall(interface, method);
        if (arguments) {
            arguments(message);
        }
        proxy.callMethod(
            message,
            [weak, bus, done, readsBytes, token = bus->busy()](sdbus::MethodReply& reply, const sdbus::Error* error) {
                RNBluetoothOptionalError failure;
                Bytes bytes;
                if (error) {
                    failure = RNBluetoothError{error->getName(), 0, error->getMessage()};
                } else if (readsBytes) {
                    try {
                        std::vector<std::uint8_t> value;
                        reply >> value;
                        if (value.size() <= kBluezMaximumValueLength) {
                            bytes = std::move(value);
                        } else {
                            failure = RNBluetoothError{"org.bluez", 0, "value longer than an attribute"};
                        }
                    } catch (const sdbus::Error& unreadable) {
                        failure = RNBluetoothError{unreadable.getName(), 0, unreadable.getMessage()};
                    }
                }
                BusSide::toMain(*bus, weak, [done, failure, bytes](BluezBluetoothPlatform&) { done(failure, bytes); });
            },
            timeout);
    });
}

void BluezBluetoothPlatform::managerScanChanged() {
    bool scanning = false;
    bool everyService = false;
    std::vector<std::string> uuids;
    // The union of what the scanning managers want; one without a list wants everything.
    for (const auto& weak : managers_) {
        auto manager = weak.lock();
        if (!manager || !manager->isScanning()) {
            continue;
        }
        scanning = true;
        const auto& wanted = manager->wantedServices();
        if (!wanted) {
            everyService = true;
            continue;
        }
        for (const auto& uuid : *wanted) {
            const std::string text = bluezUUIDText(uuid);
            if (std::find(uuids.begin(), uuids.end(), text) == uuids.end()) {
                uuids.push_back(text);
            }
        }
    }
    if (adapterPath_.empty()) {
        return;
    }
    if (!scanning) {
        if (discovering_) {
            discovering_ = false;
            for (auto& [path, device] : devices_) {
                device->seenInDiscovery = false;
            }
            call(adapterPath_, kBluezAdapterInterface, "StopDiscovery", nullptr, false,
                 [](const RNBluetoothOptionalError& error, const Bytes&) {
                     if (error) {
                         logf("Bluetooth: could not stop discovery: {}", error->description);
                     }
                 });
        }
        return;
    }
    std::map<std::string, sdbus::Variant> filter{{"Transport", sdbus::Variant(std::string("le"))}};
    if (!everyService) {
        filter["UUIDs"] = sdbus::Variant(uuids);
    }
    call(adapterPath_, kBluezAdapterInterface, "SetDiscoveryFilter",
         [filter](sdbus::MethodCall& message) { message << filter; }, false,
         [](const RNBluetoothOptionalError& error, const Bytes&) {
             if (error) {
                 logf("Bluetooth: could not set the discovery filter: {}", error->description);
             }
         });
    if (!discovering_) {
        discovering_ = true;
        call(adapterPath_, kBluezAdapterInterface, "StartDiscovery", nullptr, false,
             [](const RNBluetoothOptionalError& error, const Bytes&) {
                 if (error) {
                     logf("Bluetooth: could not start discovery: {}", error->description);
                 }
             });
    }
    // Devices reported during the discovery under way are not reported by BlueZ again.
    for (auto& [path, device] : devices_) {
        if (device->seenInDiscovery && device->present && device->state() == CBPeripheralStateDisconnected) {
            for (const auto& manager : liveManagers()) {
                manager->sight(device);
            }
        }
    }
}

void BluezBluetoothPlatform::busLost(const std::string& reason) {
    logf("Bluetooth: lost the D-Bus system bus ({}); Bluetooth is unsupported", reason);
    dropEverything();
    setState(CBManagerStateUnsupported);
}

void BluezBluetoothPlatform::bluezGone(const std::string& reason) {
    logf("Bluetooth: BlueZ is not available ({}); Bluetooth is unsupported", reason);
    dropEverything();
    setState(CBManagerStateUnsupported);
}

void BluezBluetoothPlatform::dropEverything() {
    adapters_.clear();
    adapterPath_.clear();
    discovering_ = false;
    for (const auto& manager : liveManagers()) {
        manager->endScan();
    }
    const auto devices = devices_;
    for (const auto& [path, device] : devices) {
        device->present = false;
        device->seenInDiscovery = false;
        // Calls still open are lost with BlueZ or the bus.
        device->pendingDisconnects = 0;
        if (device->state() != CBPeripheralStateDisconnected) {
            linkEnded(device, disconnectedError());
        }
        forgetDevice(path);
    }
}

void BluezBluetoothPlatform::setState(std::int64_t state) {
    const bool first = !ready_;
    ready_ = true;
    if (!first && state == state_) {
        return;
    }
    const bool wasOn = state_ == CBManagerStatePoweredOn;
    state_ = state;
    const auto managers = liveManagers();
    for (const auto& manager : managers) {
        manager->report([state](RNBluetoothCentralManagerDelegate& target) { target.centralManagerDidUpdateState(state); });
    }
    if (wasOn && state != CBManagerStatePoweredOn) {
        discovering_ = false;
        for (const auto& manager : managers) {
            manager->endScan();
        }
        const auto devices = devices_;
        for (const auto& [path, device] : devices) {
            device->seenInDiscovery = false;
            if (device->state() != CBPeripheralStateDisconnected) {
                linkEnded(device, poweredOffError());
            }
        }
    }
}

bool BluezBluetoothPlatform::underAdapter(const std::string& path) const {
    return !adapterPath_.empty() && startsWith(path, adapterPath_);
}

std::size_t BluezBluetoothPlatform::gattObjectCount() const {
    return services_.size() + characteristics_.size() + descriptors_.size();
}

void BluezBluetoothPlatform::chooseAdapter() {
    std::string chosen;
    if (!options_.adapter.empty()) {
        const std::string wanted = "/org/bluez/" + options_.adapter;
        if (adapters_.contains(wanted)) {
            chosen = wanted;
        }
    } else if (!adapters_.empty()) {
        chosen = adapters_.begin()->first;
    }
    if (chosen != adapterPath_) {
        adapterPath_ = chosen;
        powerRequested_ = false;
        discovering_ = false;
    }
    if (chosen.empty()) {
        if (!ready_ || state_ != CBManagerStateUnsupported) {
            logf("Bluetooth: BlueZ has no adapter{}; Bluetooth is unsupported",
                 options_.adapter.empty() ? std::string() : " " + options_.adapter);
        }
        setState(CBManagerStateUnsupported);
        return;
    }
    const bool powered = adapters_[chosen].powered.value_or(false);
    if (!powered && options_.powerOnAdapter && !powerRequested_) {
        powerRequested_ = true;
        logf("Bluetooth: turning on adapter {}", chosen);
        call(chosen, kPropertiesInterface, "Set",
             [](sdbus::MethodCall& message) {
                 message << std::string(kBluezAdapterInterface) << std::string("Powered") << sdbus::Variant(true);
             },
             false, [chosen](const RNBluetoothOptionalError& error, const Bytes&) {
                 if (error) {
                     logf("Bluetooth: could not turn on adapter {}: {}", chosen, error->description);
                 }
             });
    }
    setState(powered ? CBManagerStatePoweredOn : CBManagerStatePoweredOff);
}

void BluezBluetoothPlatform::applyObjects(ObjectList objects, bool complete) {
    for (const auto& [path, interfaces] : objects) {
        for (const auto& properties : interfaces) {
            applyProperties(path, properties, false);
        }
    }
    if (complete) {
        chooseAdapter();
    }
}

void BluezBluetoothPlatform::applyProperties(const std::string& path, const BluezProperties& update, bool changed) {
    if (update.rejected > 0) {
        logf("Bluetooth: ignored {} properties of {} (wrong type or too long)", update.rejected, path);
    }
    switch (update.interface) {
    case BluezInterface::adapter: {
        if (!adapters_.contains(path) && adapters_.size() >= kMaximumAdapters) {
            return;
        }
        mergeBluezProperties(adapters_[path], update);
        // Before the first object list, the adapter is chosen once the list is whole.
        if (ready_) {
            chooseAdapter();
        }
        break;
    }
    case BluezInterface::device:
        applyDevice(path, update);
        break;
    case BluezInterface::service: {
        auto& service = services_[path];
        if (!service) {
            const auto device = update.owner ? devices_.find(*update.owner) : devices_.end();
            if (!update.uuid || device == devices_.end() || gattObjectCount() > kMaximumGattObjects) {
                services_.erase(path);
                return;
            }
            service = std::make_shared<BluezService>(path, *update.uuid);
            device->second->addService(service);
        }
        break;
    }
    case BluezInterface::characteristic:
        applyCharacteristic(path, update, changed);
        break;
    case BluezInterface::descriptor: {
        auto& descriptor = descriptors_[path];
        if (!descriptor) {
            const auto characteristic = update.owner ? characteristics_.find(*update.owner) : characteristics_.end();
            if (!update.uuid || characteristic == characteristics_.end() || gattObjectCount() > kMaximumGattObjects) {
                descriptors_.erase(path);
                return;
            }
            descriptor = std::make_shared<BluezDescriptor>(path, *update.uuid);
            characteristic->second->addDescriptor(descriptor);
        }
        if (update.value) {
            descriptor->setValue(*update.value);
        }
        break;
    }
    case BluezInterface::other:
        break;
    }
}

void BluezBluetoothPlatform::applyDevice(const std::string& path, const BluezProperties& update) {
    if (!devices_.contains(path)) {
        if (devices_.size() >= kMaximumDevices && !makeRoomForDevice()) {
            if (!reportedOverflow_) {
                reportedOverflow_ = true;
                logf("Bluetooth: following {} devices already; ignoring more", kMaximumDevices);
            }
            return;
        }
        // A known device that comes back while the transport holds it is the same object.
        std::shared_ptr<BluezPeripheral> again;
        const auto held = std::find_if(forgotten_.begin(), forgotten_.end(),
                                       [&](const auto& entry) { return entry.first == path; });
        if (held != forgotten_.end()) {
            again = held->second.lock();
            forgotten_.erase(held);
        }
        devices_[path] = again ? again : std::make_shared<BluezPeripheral>(weak_from_this(), path);
    }
    const auto peripheral = devices_[path];
    peripheral->lastUpdate = ++deviceUpdates_;
    peripheral->present = true;
    mergeBluezProperties(peripheral->properties(), update);
    if (!underAdapter(path)) {
        return;
    }
    if (update.connected) {
        if (*update.connected && peripheral->state() == CBPeripheralStateConnecting) {
            peripheral->setState(CBPeripheralStateConnected);
            if (auto manager = peripheral->manager.lock()) {
                std::shared_ptr<RNBluetoothPeripheral> connected = peripheral;
                manager->report([&](RNBluetoothCentralManagerDelegate& target) {
                    target.centralManagerDidConnectPeripheral(connected);
                });
            }
        } else if (!*update.connected && peripheral->state() != CBPeripheralStateDisconnected &&
                   peripheral->pendingDisconnects == 0) {
            linkEnded(peripheral, peripheral->state() == CBPeripheralStateDisconnecting
                                      ? RNBluetoothOptionalError()
                                      : RNBluetoothOptionalError(disconnectedError()));
        }
    }
    if (update.servicesResolved && *update.servicesResolved && peripheral->servicesRequested &&
        peripheral->state() == CBPeripheralStateConnected) {
        peripheral->servicesRequested = false;
        if (auto target = peripheral->delegate.lock()) {
            target->peripheralDidDiscoverServices(peripheral, std::nullopt);
        }
    }
    if (update.rssi && discovering_) {
        peripheral->seenInDiscovery = true;
    }
    if ((update.rssi || (update.uuids && peripheral->seenInDiscovery)) && state_ == CBManagerStatePoweredOn &&
        peripheral->state() == CBPeripheralStateDisconnected) {
        for (const auto& manager : liveManagers()) {
            manager->sight(peripheral);
        }
    }
}

void BluezBluetoothPlatform::applyCharacteristic(const std::string& path, const BluezProperties& update,
                                                 bool changed) {
    auto& entry = characteristics_[path];
    if (!entry) {
        const auto service = update.owner ? services_.find(*update.owner) : services_.end();
        if (!update.uuid || service == services_.end() || gattObjectCount() > kMaximumGattObjects) {
            characteristics_.erase(path);
            return;
        }
        entry = std::make_shared<BluezCharacteristic>(path, *update.uuid);
        service->second->addCharacteristic(entry);
    }
    const auto characteristic = entry;
    if (update.notifying) {
        characteristic->setNotifying(*update.notifying);
    }
    if (update.mtu) {
        characteristic->mtu = update.mtu;
    }
    if (!update.value) {
        return;
    }
    characteristic->setValue(*update.value);
    // A value that comes with the object is a cached one; only a change is a notification.
    if (!changed) {
        return;
    }
    // The device is the parent of the service's path.
    const auto slash = path.rfind('/');
    const auto serviceSlash = slash == std::string::npos ? slash : path.rfind('/', slash - 1);
    if (serviceSlash == std::string::npos) {
        return;
    }
    const auto device = devices_.find(path.substr(0, serviceSlash));
    if (device == devices_.end() || device->second->state() != CBPeripheralStateConnected) {
        return;
    }
    const auto peripheral = device->second;
    if (auto target = peripheral->delegate.lock()) {
        target->peripheralDidUpdateValueForCharacteristic(peripheral, characteristic, std::nullopt);
    }
}

void BluezBluetoothPlatform::applyRemoved(const std::string& path, const std::vector<BluezInterface>& interfaces) {
    for (const auto interface : interfaces) {
        switch (interface) {
        case BluezInterface::adapter:
            adapters_.erase(path);
            chooseAdapter();
            break;
        case BluezInterface::device: {
            const auto found = devices_.find(path);
            if (found == devices_.end()) {
                break;
            }
            const auto peripheral = found->second;
            peripheral->present = false;
            peripheral->seenInDiscovery = false;
            if (peripheral->state() != CBPeripheralStateDisconnected) {
                linkEnded(peripheral, disconnectedError());
            }
            // Departure: a device BlueZ dropped is forgotten at once, known or not; only a
            // transport that still holds it keeps it (see forgotten_).
            forgetDevice(path);
            break;
        }
        case BluezInterface::characteristic:
            if (const auto found = characteristics_.find(path); found != characteristics_.end()) {
                found->second->setNotifying(false);
            }
            break;
        default:
            break;
        }
    }
}

void BluezBluetoothPlatform::forgetDevice(const std::string& path) {
    const auto found = devices_.find(path);
    if (found == devices_.end()) {
        return;
    }
    const auto peripheral = found->second;
    devices_.erase(found);
    // Its GATT objects go with it.
    const std::string prefix = path + "/";
    std::erase_if(services_, [&](const auto& item) { return startsWith(item.first, prefix); });
    std::erase_if(characteristics_, [&](const auto& item) { return startsWith(item.first, prefix); });
    std::erase_if(descriptors_, [&](const auto& item) { return startsWith(item.first, prefix); });
    peripheral->bluezServices.clear();
    if (!peripheral->known) {
        return;
    }
    std::erase_if(forgotten_, [](const auto& entry) { return entry.second.expired(); });
    if (forgotten_.size() >= kMaximumDevices) {
        forgotten_.pop_front();
    }
    forgotten_.emplace_back(path, peripheral);
}

bool BluezBluetoothPlatform::makeRoomForDevice() {
    const BluezPeripheral* oldest = nullptr;
    for (const auto& [path, device] : devices_) {
        const bool unlinked = device->state() == CBPeripheralStateDisconnected && device->pendingDisconnects == 0;
        if (unlinked && (!oldest || device->lastUpdate < oldest->lastUpdate)) {
            oldest = device.get();
        }
    }
    if (!oldest) {
        return false;
    }
    forgetDevice(oldest->path());
    return true;
}

void BluezBluetoothPlatform::linkEnded(const std::shared_ptr<BluezPeripheral>& peripheral,
                                       const RNBluetoothOptionalError& error) {
    peripheral->setState(CBPeripheralStateDisconnected);
    peripheral->servicesRequested = false;
    for (const auto& service : peripheral->bluezServices) {
        for (const auto& characteristic : service->bluezCharacteristics()) {
            characteristic->setNotifying(false);
        }
    }
    auto manager = peripheral->manager.lock();
    peripheral->manager.reset();
    if (manager) {
        std::shared_ptr<RNBluetoothPeripheral> ended = peripheral;
        manager->report([&](RNBluetoothCentralManagerDelegate& target) {
            target.centralManagerDidDisconnectPeripheral(ended, error);
        });
    }
}

}  // namespace havrel
