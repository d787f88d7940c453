#include "support/BluezStandIn.hpp"

#include "backends/bluetooth_bluez/DBusConnectionThread.hpp"
#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include <fmt/format.h>
#include <sdbus-c++/sdbus-c++.h>

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>

namespace havrel::testing {

namespace {

constexpr const char* kAdapter = "org.bluez.Adapter1";
constexpr const char* kDevice = "org.bluez.Device1";
constexpr const char* kService = "org.bluez.GattService1";
constexpr const char* kCharacteristic = "org.bluez.GattCharacteristic1";
constexpr const char* kDescriptor = "org.bluez.GattDescriptor1";
constexpr const char* kUserDescription = "00002901-0000-1000-8000-00805f9b34fb";

std::string lower(std::string text) {
    for (auto& character : text) {
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
    return text;
}

std::string findProgram(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::string folders = path ? path : "/usr/bin:/bin";
    std::size_t start = 0;
    while (start <= folders.size()) {
        const auto end = std::min(folders.find(':', start), folders.size());
        const auto candidate = std::filesystem::path(folders.substr(start, end - start)) / name;
        if (::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
        start = end + 1;
    }
    return {};
}

using Options = std::map<std::string, sdbus::Variant>;

// A characteristic of the Havrel service as a device serves it, from a stand-in device or from
// a GATT application registered with bluetoothd.
struct Characteristic {
    std::string uuid;
    std::string path;
    Bytes value;
    bool notifying = false;
    std::vector<BluezStandIn::Write> writes;
    std::unique_ptr<sdbus::IObject> object;
    std::unique_ptr<sdbus::IObject> descriptor;
};

// Exports the characteristic under the service with its handle, and a user description
// descriptor (the UUID text) when asked.
void exportCharacteristic(sdbus::IConnection& connection, Characteristic& characteristic, const std::string& servicePath,
                          unsigned handle, std::uint16_t mtu, bool withDescriptor,
                          std::map<std::string, std::size_t>& calls) {
    Characteristic* self = &characteristic;
    auto* counts = &calls;
    characteristic.path = fmt::format("{}/char{:04x}", servicePath, handle);
    characteristic.object = sdbus::createObject(connection, characteristic.path);
    auto& object = *characteristic.object;
    object.registerProperty("UUID").onInterface(kCharacteristic).withGetter([self] { return lower(self->uuid); });
    object.registerProperty("Service").onInterface(kCharacteristic).withGetter([servicePath] {
        return sdbus::ObjectPath(servicePath);
    });
    object.registerProperty("Value").onInterface(kCharacteristic).withGetter([self] {
        return std::vector<std::uint8_t>(self->value.begin(), self->value.end());
    });
    object.registerProperty("Notifying").onInterface(kCharacteristic).withGetter([self] { return self->notifying; });
    object.registerProperty("Flags").onInterface(kCharacteristic).withGetter([] {
        return std::vector<std::string>{"read", "write-without-response", "write", "notify"};
    });
    object.registerProperty("MTU").onInterface(kCharacteristic).withGetter([mtu] { return mtu; });
    object.registerMethod("ReadValue").onInterface(kCharacteristic).implementedAs([counts, self](const Options&) {
        ++(*counts)["ReadValue"];
        return std::vector<std::uint8_t>(self->value.begin(), self->value.end());
    });
    object.registerMethod("WriteValue")
        .onInterface(kCharacteristic)
        .implementedAs([counts, self](const std::vector<std::uint8_t>& value, const Options& options) {
            ++(*counts)["WriteValue"];
            BluezStandIn::Write write{Bytes(value.begin(), value.end()), {}};
            if (const auto found = options.find("type"); found != options.end()) {
                write.type = found->second.get<std::string>();
            }
            self->writes.push_back(std::move(write));
        });
    object.registerMethod("StartNotify").onInterface(kCharacteristic).implementedAs([counts, self] {
        ++(*counts)["StartNotify"];
        self->notifying = true;
        self->object->emitPropertiesChangedSignal(kCharacteristic, {"Notifying"});
    });
    object.registerMethod("StopNotify").onInterface(kCharacteristic).implementedAs([counts, self] {
        ++(*counts)["StopNotify"];
        self->notifying = false;
        self->object->emitPropertiesChangedSignal(kCharacteristic, {"Notifying"});
    });
    object.finishRegistration();
    object.emitInterfacesAddedSignal();
    if (!withDescriptor) {
        return;
    }
    const std::string descriptorPath = fmt::format("{}/desc{:04x}", characteristic.path, handle + 1);
    characteristic.descriptor = sdbus::createObject(connection, descriptorPath);
    auto& descriptor = *characteristic.descriptor;
    descriptor.registerProperty("UUID").onInterface(kDescriptor).withGetter([] { return std::string(kUserDescription); });
    descriptor.registerProperty("Characteristic").onInterface(kDescriptor).withGetter([self] {
        return sdbus::ObjectPath(self->path);
    });
    descriptor.registerProperty("Value").onInterface(kDescriptor).withGetter([] { return std::vector<std::uint8_t>{}; });
    descriptor.registerMethod("ReadValue").onInterface(kDescriptor).implementedAs([counts, self](const Options&) {
        ++(*counts)["ReadValue"];
        return std::vector<std::uint8_t>(self->uuid.begin(), self->uuid.end());
    });
    descriptor.finishRegistration();
    descriptor.emitInterfacesAddedSignal();
}

// Sends each value as one notification; false unless the characteristic is subscribed to.
bool notifyValues(Characteristic* characteristic, const std::vector<Bytes>& values) {
    if (!characteristic || !characteristic->notifying || !characteristic->object) {
        return false;
    }
    for (const auto& value : values) {
        characteristic->value = value;
        characteristic->object->emitPropertiesChangedSignal(kCharacteristic, {"Value"});
    }
    return true;
}

Characteristic* findCharacteristic(std::vector<Characteristic>& characteristics, const std::string& uuid) {
    for (auto& characteristic : characteristics) {
        if (characteristic.uuid == uuid) {
            return &characteristic;
        }
    }
    return nullptr;
}

std::vector<Characteristic> havrelCharacteristics(const std::vector<std::string>& uuids) {
    std::vector<Characteristic> characteristics(uuids.size());
    for (std::size_t index = 0; index < uuids.size(); ++index) {
        characteristics[index].uuid = uuids[index];
    }
    return characteristics;
}

}  // namespace

// --- Private bus ---

std::unique_ptr<PrivateBus> PrivateBus::start(std::string& reason) {
    const std::string daemon = findProgram("dbus-daemon");
    if (daemon.empty()) {
        reason = "dbus-daemon is not installed (package dbus)";
        return nullptr;
    }
    char folderTemplate[] = "/tmp/havrel-bus-XXXXXX";
    if (!::mkdtemp(folderTemplate)) {
        reason = "no temporary folder";
        return nullptr;
    }
    const std::string folder = folderTemplate;
    const std::string configuration = folder + "/bus.conf";
    std::ofstream(configuration) << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                                    " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                                    "<busconfig>\n"
                                    "  <type>session</type>\n"
                                    "  <listen>unix:path="
                                 << folder
                                 << "/socket</listen>\n"
                                    "  <auth>EXTERNAL</auth>\n"
                                    "  <policy context=\"default\">\n"
                                    "    <allow user=\"*\"/>\n"
                                    "    <allow own=\"*\"/>\n"
                                    "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
                                    "    <allow eavesdrop=\"true\"/>\n"
                                    "  </policy>\n"
                                    "</busconfig>\n";
    int output[2];
    if (::pipe(output) != 0) {
        reason = "no pipe";
        std::filesystem::remove_all(folder);
        return nullptr;
    }
    const std::string configArgument = "--config-file=" + configuration;
    std::vector<std::string> arguments = {daemon, configArgument, "--nofork", "--print-address"};
    std::vector<char*> argv;
    for (auto& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        // The daemon ends with the test, however the test ends.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        ::dup2(output[1], 1);
        ::close(output[0]);
        ::close(output[1]);
        ::execv(daemon.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(output[1]);
    if (pid < 0) {
        ::close(output[0]);
        reason = "dbus-daemon did not start";
        std::filesystem::remove_all(folder);
        return nullptr;
    }
    std::string address;
    for (;;) {
        pollfd readable{output[0], POLLIN, 0};
        if (::poll(&readable, 1, 10'000) <= 0) {
            break;
        }
        char character = 0;
        if (::read(output[0], &character, 1) != 1 || character == '\n') {
            break;
        }
        address += character;
    }
    ::close(output[0]);
    auto bus = std::make_unique<PrivateBus>(folder, pid, address);
    if (address.empty()) {
        reason = "dbus-daemon printed no address";
        return nullptr;
    }
    return bus;
}

PrivateBus::PrivateBus(std::string folder, int pid, std::string address)
    : folder_(std::move(folder)), pid_(pid), address_(std::move(address)) {}

PrivateBus::~PrivateBus() {
    stop();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void PrivateBus::stop() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
    }
}

// --- BlueZ ---

struct BluezStandIn::State {
    struct Adapter {
        std::string name;
        std::string path;
        bool powered = false;
        bool discovering = false;
        std::vector<std::string> filterUUIDs;
        std::string transport;
        std::unique_ptr<sdbus::IObject> object;
    };
    struct DeviceState {
        Device settings;
        std::string path;
        bool connected = false;
        bool resolved = false;
        std::unique_ptr<sdbus::IObject> object;
        std::unique_ptr<sdbus::IObject> service;
        std::vector<Characteristic> characteristics;
    };

    sdbus::IConnection* connection = nullptr;
    std::unique_ptr<sdbus::IObject> root;
    std::map<std::string, Adapter> adapters;
    std::vector<std::unique_ptr<DeviceState>> devices;
    std::deque<std::unique_ptr<sdbus::IObject>> lingering;  // objects of addresses rotated away
    std::map<std::string, std::size_t> calls;

    void exportAdapter(Adapter& adapter) {
        Adapter* self = &adapter;
        adapter.object = sdbus::createObject(*connection, adapter.path);
        auto& object = *adapter.object;
        object.registerProperty("Powered").onInterface(kAdapter).withGetter([self] { return self->powered; }).withSetter(
            [this, self](const bool& powered) { setPowered(*self, powered); });
        object.registerProperty("Discovering").onInterface(kAdapter).withGetter([self] { return self->discovering; });
        object.registerProperty("Address").onInterface(kAdapter).withGetter([self] {
            return "00:AA:01:00:00:" + self->name.substr(self->name.size() - 1) + "0";
        });
        object.registerMethod("SetDiscoveryFilter").onInterface(kAdapter).implementedAs([this, self](const Options& filter) {
            ++calls["SetDiscoveryFilter"];
            self->filterUUIDs.clear();
            self->transport.clear();
            if (const auto found = filter.find("UUIDs"); found != filter.end()) {
                self->filterUUIDs = found->second.get<std::vector<std::string>>();
            }
            if (const auto found = filter.find("Transport"); found != filter.end()) {
                self->transport = found->second.get<std::string>();
            }
        });
        object.registerMethod("StartDiscovery").onInterface(kAdapter).implementedAs([this, self] {
            ++calls["StartDiscovery"];
            if (!self->powered) {
                throw sdbus::Error("org.bluez.Error.NotReady", "Resource Not Ready");
            }
            self->discovering = true;
            self->object->emitPropertiesChangedSignal(kAdapter, {"Discovering"});
            for (const auto& device : devices) {
                if (device->settings.adapter == self->name) {
                    advertise(*self, *device);
                }
            }
        });
        object.registerMethod("StopDiscovery").onInterface(kAdapter).implementedAs([this, self] {
            ++calls["StopDiscovery"];
            if (!self->discovering) {
                throw sdbus::Error("org.bluez.Error.Failed", "No discovery started");
            }
            self->discovering = false;
            self->object->emitPropertiesChangedSignal(kAdapter, {"Discovering"});
        });
        object.finishRegistration();
        object.emitInterfacesAddedSignal();
    }

    void setPowered(Adapter& adapter, bool powered) {
        adapter.powered = powered;
        if (!powered) {
            adapter.discovering = false;
        }
        adapter.object->emitPropertiesChangedSignal(kAdapter, {"Powered", "Discovering"});
    }

    bool wanted(const Adapter& adapter, const DeviceState& device) const {
        if (adapter.filterUUIDs.empty()) {
            return true;
        }
        return std::any_of(device.settings.uuids.begin(), device.settings.uuids.end(), [&](const auto& uuid) {
            return std::find(adapter.filterUUIDs.begin(), adapter.filterUUIDs.end(), lower(uuid)) !=
                   adapter.filterUUIDs.end();
        });
    }

    void advertise(const Adapter& adapter, DeviceState& device) {
        if (device.connected || !wanted(adapter, device)) {
            return;
        }
        if (device.object) {
            device.object->emitPropertiesChangedSignal(kDevice, {"RSSI"});
            return;
        }
        DeviceState* self = &device;
        device.object = sdbus::createObject(*connection, device.path);
        auto& object = *device.object;
        object.registerProperty("Address").onInterface(kDevice).withGetter([self] { return self->settings.address; });
        if (device.settings.name) {
            object.registerProperty("Name").onInterface(kDevice).withGetter([self] { return *self->settings.name; });
        }
        object.registerProperty("Alias").onInterface(kDevice).withGetter([self] {
            return self->settings.name.value_or(self->settings.address);
        });
        object.registerProperty("RSSI").onInterface(kDevice).withGetter([self] { return self->settings.rssi; });
        object.registerProperty("UUIDs").onInterface(kDevice).withGetter([self] {
            std::vector<std::string> uuids;
            for (const auto& uuid : self->settings.uuids) {
                uuids.push_back(lower(uuid));
            }
            return uuids;
        });
        object.registerProperty("Connected").onInterface(kDevice).withGetter([self] { return self->connected; });
        object.registerProperty("ServicesResolved").onInterface(kDevice).withGetter([self] { return self->resolved; });
        object.registerProperty("Adapter").onInterface(kDevice).withGetter([path = adapter.path] {
            return sdbus::ObjectPath(path);
        });
        object.registerMethod("Connect").onInterface(kDevice).implementedAs([this, self] {
            ++calls["Connect"];
            if (self->settings.connectError) {
                throw sdbus::Error(*self->settings.connectError, "le-connection-abort-by-local");
            }
            if (self->connected) {
                return;
            }
            self->connected = true;
            self->object->emitPropertiesChangedSignal(kDevice, {"Connected"});
            exportServices(*self);
            self->resolved = true;
            self->object->emitPropertiesChangedSignal(kDevice, {"ServicesResolved"});
        });
        object.registerMethod("Disconnect").onInterface(kDevice).implementedAs([this, self] {
            ++calls["Disconnect"];
            endLink(*self);
        });
        object.finishRegistration();
        object.emitInterfacesAddedSignal();
    }

    void exportServices(DeviceState& device) {
        DeviceState* owner = &device;
        const std::string servicePath = device.path + "/service0010";
        device.service = sdbus::createObject(*connection, servicePath);
        device.service->registerProperty("UUID").onInterface(kService).withGetter([] {
            return lower(kHavrelServiceUUID);
        });
        device.service->registerProperty("Device").onInterface(kService).withGetter([owner] {
            return sdbus::ObjectPath(owner->path);
        });
        device.service->registerProperty("Primary").onInterface(kService).withGetter([] { return true; });
        device.service->finishRegistration();
        device.service->emitInterfacesAddedSignal();
        unsigned handle = 0x11;
        for (auto& characteristic : device.characteristics) {
            exportCharacteristic(*connection, characteristic, servicePath, handle, owner->settings.mtu, true, calls);
            handle += 3;
        }
    }

    void endLink(DeviceState& device) {
        if (!device.connected) {
            return;
        }
        for (auto& characteristic : device.characteristics) {
            characteristic.notifying = false;
            if (characteristic.descriptor) {
                characteristic.descriptor->emitInterfacesRemovedSignal();
                characteristic.descriptor.reset();
            }
            if (characteristic.object) {
                characteristic.object->emitInterfacesRemovedSignal();
                characteristic.object.reset();
            }
        }
        if (device.service) {
            device.service->emitInterfacesRemovedSignal();
            device.service.reset();
        }
        device.connected = false;
        device.resolved = false;
        device.object->emitPropertiesChangedSignal(kDevice, {"ServicesResolved", "Connected"});
    }

    Characteristic* characteristic(std::size_t device, const std::string& uuid) {
        return device < devices.size() ? findCharacteristic(devices[device]->characteristics, uuid) : nullptr;
    }
};

BluezStandIn::BluezStandIn(const std::string& busAddress)
    : bus_(DBusConnectionThread::open(busAddress, "", nullptr)), state_(std::make_shared<State>()) {
    auto state = state_;
    bus_->runAndWait([state](sdbus::IConnection& connection) {
        state->connection = &connection;
        state->root = sdbus::createObject(connection, "/");
        state->root->addObjectManager();
        state->root->finishRegistration();
        // The name last, so whoever sees it appear finds the object manager.
        connection.requestName("org.bluez");
    });
}

BluezStandIn::~BluezStandIn() {
    bus_->stop();
    state_->devices.clear();
    state_->adapters.clear();
    state_->root.reset();
    bus_.reset();
}

void BluezStandIn::addAdapter(const std::string& name, bool powered) {
    auto state = state_;
    bus_->runAndWait([state, name, powered](sdbus::IConnection&) {
        auto& adapter = state->adapters[name];
        adapter.name = name;
        adapter.path = "/org/bluez/" + name;
        adapter.powered = powered;
        state->exportAdapter(adapter);
    });
}

void BluezStandIn::setPowered(const std::string& adapter, bool powered) {
    auto state = state_;
    bus_->runAndWait([state, adapter, powered](sdbus::IConnection&) { state->setPowered(state->adapters.at(adapter), powered); });
}

bool BluezStandIn::isPowered(const std::string& adapter) const {
    bool powered = false;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) { powered = state->adapters.at(adapter).powered; });
    return powered;
}

bool BluezStandIn::isDiscovering(const std::string& adapter) const {
    bool discovering = false;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) { discovering = state->adapters.at(adapter).discovering; });
    return discovering;
}

std::vector<std::string> BluezStandIn::filterUUIDs(const std::string& adapter) const {
    std::vector<std::string> uuids;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) { uuids = state->adapters.at(adapter).filterUUIDs; });
    return uuids;
}

std::string BluezStandIn::filterTransport(const std::string& adapter) const {
    std::string transport;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) { transport = state->adapters.at(adapter).transport; });
    return transport;
}

std::size_t BluezStandIn::addDevice(Device device) {
    if (device.uuids.empty()) {
        device.uuids = {kHavrelServiceUUID};
    }
    if (device.characteristics.empty()) {
        device.characteristics = {kHavrelOutCharacteristicUUID, kHavrelInCharacteristicUUID,
                                  kHavrelRealtimeCharacteristicUUID};
    }
    std::size_t index = 0;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) {
        auto added = std::make_unique<State::DeviceState>();
        std::string address = device.address;
        std::replace(address.begin(), address.end(), ':', '_');
        added->path = "/org/bluez/" + device.adapter + "/dev_" + address;
        added->characteristics = havrelCharacteristics(device.characteristics);
        added->settings = std::move(device);
        index = state->devices.size();
        state->devices.push_back(std::move(added));
        const auto adapter = state->adapters.find(state->devices.back()->settings.adapter);
        if (adapter != state->adapters.end() && adapter->second.discovering) {
            state->advertise(adapter->second, *state->devices.back());
        }
    });
    return index;
}

void BluezStandIn::rotateAddress(std::size_t device, const std::string& address, std::size_t lingering) {
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) {
        auto& rotated = *state->devices.at(device);
        if (rotated.object) {
            state->lingering.push_back(std::move(rotated.object));
        }
        while (state->lingering.size() > lingering) {
            state->lingering.front()->emitInterfacesRemovedSignal();
            state->lingering.pop_front();
        }
        rotated.settings.address = address;
        std::string text = address;
        std::replace(text.begin(), text.end(), ':', '_');
        rotated.path = "/org/bluez/" + rotated.settings.adapter + "/dev_" + text;
        const auto adapter = state->adapters.find(rotated.settings.adapter);
        if (adapter != state->adapters.end() && adapter->second.discovering) {
            state->advertise(adapter->second, rotated);
        }
    });
}

bool BluezStandIn::isConnected(std::size_t device) const {
    bool connected = false;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) { connected = device < state->devices.size() && state->devices[device]->connected; });
    return connected;
}

bool BluezStandIn::isSubscribed(std::size_t device, const std::string& characteristicUUID) const {
    bool subscribed = false;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) {
        const auto* found = state->characteristic(device, characteristicUUID);
        subscribed = found && found->notifying && state->devices[device]->connected;
    });
    return subscribed;
}

bool BluezStandIn::notify(std::size_t device, const std::string& characteristicUUID, const std::vector<Bytes>& values) {
    bool sent = false;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) { sent = notifyValues(state->characteristic(device, characteristicUUID), values); });
    return sent;
}

std::vector<BluezStandIn::Write> BluezStandIn::writes(std::size_t device, const std::string& characteristicUUID) const {
    std::vector<Write> writes;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) {
        if (const auto* found = state->characteristic(device, characteristicUUID)) {
            writes = found->writes;
        }
    });
    return writes;
}

void BluezStandIn::dropLink(std::size_t device) {
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) { state->endLink(*state->devices.at(device)); });
}

std::size_t BluezStandIn::callCount(const std::string& method) const {
    std::size_t count = 0;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) { count = state->calls[method]; });
    return count;
}

void BluezStandIn::sendMalformedSignals(std::size_t device) {
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) {
        auto& object = *state->devices.at(device)->object;
        auto signal = object.createSignal("org.freedesktop.DBus.Properties", "PropertiesChanged");
        // RSSI as a text and a name far beyond any advertisement.
        signal << std::string(kDevice)
               << Options{{"RSSI", sdbus::Variant(std::string("-40"))}, {"Name", sdbus::Variant(std::string(4096, 'x'))}}
               << std::vector<std::string>{};
        object.emitSignal(signal);
        // A text where the object path belongs.
        auto added = state->root->createSignal("org.freedesktop.DBus.ObjectManager", "InterfacesAdded");
        added << std::string("not a path") << std::map<std::string, Options>{};
        state->root->emitSignal(added);
    });
}

// --- A GATT application served through bluetoothd ---

struct GattApplication::State {
    std::unique_ptr<sdbus::IObject> root;
    std::unique_ptr<sdbus::IObject> service;
    std::unique_ptr<sdbus::IProxy> manager;
    std::vector<Characteristic> characteristics = havrelCharacteristics(
        {kHavrelOutCharacteristicUUID, kHavrelInCharacteristicUUID, kHavrelRealtimeCharacteristicUUID});
    std::map<std::string, std::size_t> calls;
};

GattApplication::GattApplication(const std::string& busAddress, const std::string& adapter)
    : bus_(DBusConnectionThread::open(busAddress, "", nullptr)), state_(std::make_shared<State>()) {
    constexpr const char* kRoot = "/com/havrelapps/test";
    const std::string servicePath = std::string(kRoot) + "/service0";
    auto registered = std::make_shared<std::promise<std::string>>();
    auto state = state_;
    bus_->runAndWait([state, servicePath, adapter, registered, kRoot](sdbus::IConnection& connection) {
        state->root = sdbus::createObject(connection, kRoot);
        state->root->addObjectManager();
        state->root->finishRegistration();
        state->service = sdbus::createObject(connection, servicePath);
        state->service->registerProperty("UUID").onInterface(kService).withGetter([] { return lower(kHavrelServiceUUID); });
        state->service->registerProperty("Primary").onInterface(kService).withGetter([] { return true; });
        state->service->finishRegistration();
        unsigned handle = 1;
        for (auto& characteristic : state->characteristics) {
            exportCharacteristic(connection, characteristic, servicePath, handle++, 23, false, state->calls);
        }
        // bluetoothd reads the application back while the call is open: the reply comes
        // asynchronously, with this thread free to answer it.
        state->manager = sdbus::createProxy(connection, "org.bluez", "/org/bluez/" + adapter);
        state->manager->callMethodAsync("RegisterApplication")
            .onInterface("org.bluez.GattManager1")
            .withArguments(sdbus::ObjectPath(kRoot), Options{})
            .uponReplyInvoke([registered](const sdbus::Error* error) {
                registered->set_value(error ? error->getName() + ": " + error->getMessage() : std::string());
            });
    });
    auto answer = registered->get_future();
    if (answer.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        throw sdbus::Error("org.freedesktop.DBus.Error.Timeout", "RegisterApplication got no answer");
    }
    if (const auto failure = answer.get(); !failure.empty()) {
        throw sdbus::Error("org.bluez.Error.Failed", failure);
    }
}

GattApplication::~GattApplication() {
    bus_->stop();
    state_->manager.reset();
    state_->characteristics.clear();
    state_->service.reset();
    state_->root.reset();
    bus_.reset();
}

bool GattApplication::isSubscribed(const std::string& characteristicUUID) const {
    bool subscribed = false;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) {
        const auto* found = findCharacteristic(state->characteristics, characteristicUUID);
        subscribed = found && found->notifying;
    });
    return subscribed;
}

bool GattApplication::notify(const std::string& characteristicUUID, const std::vector<Bytes>& values) {
    bool sent = false;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) {
        sent = notifyValues(findCharacteristic(state->characteristics, characteristicUUID), values);
    });
    return sent;
}

std::vector<BluezStandIn::Write> GattApplication::writes(const std::string& characteristicUUID) const {
    std::vector<BluezStandIn::Write> writes;
    auto state = state_;
    bus_->runAndWait([&](sdbus::IConnection&) {
        if (const auto* found = findCharacteristic(state->characteristics, characteristicUUID)) {
            writes = found->writes;
        }
    });
    return writes;
}

}  // namespace havrel::testing
