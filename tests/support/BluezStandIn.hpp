#pragma once
// A stand-in for BlueZ on a private D-Bus daemon, for tests of the BlueZ backend.
//
// PrivateBus starts dbus-daemon with a configuration of its own (a socket in a temporary folder,
// everything allowed) and stops it at the end, or earlier to play a bus that goes away.
//
// BluezStandIn owns the name org.bluez on such a bus and serves the object manager at "/" with
// scripted adapters (Adapter1: Powered, Discovering, SetDiscoveryFilter, StartDiscovery,
// StopDiscovery) and devices. A device advertises: it appears (InterfacesAdded with its RSSI)
// when discovery starts on its adapter and the filter, if any, lists one of its UUIDs, and shows
// its RSSI again on every later start. Connect either connects (Connected, then the GATT objects
// of the Havrel service and ServicesResolved, then the reply) or fails as told; Disconnect and
// dropLink end the link and take the GATT objects away, as BlueZ does for a device it has not
// bonded with. Characteristics keep what is written with the write's "type", notify values
// through Value changes while notifying, and each has a user description descriptor.
//
// Everything runs on the stand-in's own bus thread; the calls below wait for it.

#include "platform/Types.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {
class DBusConnectionThread;
}

namespace havrel::testing {

class PrivateBus {
public:
    // nullptr when dbus-daemon is missing or does not start; the reason is then set.
    static std::unique_ptr<PrivateBus> start(std::string& reason);
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    // "unix:path=..."
    const std::string& address() const { return address_; }
    // Ends the daemon now: every connection to it closes.
    void stop();

    PrivateBus(std::string folder, int pid, std::string address);

private:
    std::string folder_;
    int pid_ = -1;
    std::string address_;
};

class BluezStandIn {
public:
    struct Device {
        std::string adapter = "hci0";
        std::string address = "C0:FF:EE:00:00:01";
        std::optional<std::string> name = "Stand-in Pad";
        std::int16_t rssi = -48;
        // Upper-case texts, as the platform interface writes them.
        std::vector<std::string> uuids;  // default: the Havrel service
        std::vector<std::string> characteristics;  // default: out, in and realtime
        std::uint16_t mtu = 185;
        // nullopt: Connect succeeds; otherwise the name of the error it fails with.
        std::optional<std::string> connectError;
    };

    struct Write {
        Bytes value;
        std::string type;  // the "type" option of WriteValue, empty without one
    };

    explicit BluezStandIn(const std::string& busAddress);
    ~BluezStandIn();
    BluezStandIn(const BluezStandIn&) = delete;
    BluezStandIn& operator=(const BluezStandIn&) = delete;

    void addAdapter(const std::string& name, bool powered);
    void setPowered(const std::string& adapter, bool powered);
    bool isPowered(const std::string& adapter) const;
    bool isDiscovering(const std::string& adapter) const;
    // The UUIDs and transport of the adapter's last discovery filter (UUIDs in BlueZ's form).
    std::vector<std::string> filterUUIDs(const std::string& adapter) const;
    std::string filterTransport(const std::string& adapter) const;

    // Adds an advertising device; returns its index for the calls below.
    std::size_t addDevice(Device device);
    // Gives an unlinked device a new address, as a tablet rotates its private address: a new
    // device object. The objects of its old addresses stay in the tree, as BlueZ keeps a device
    // for a while, until more than `lingering` of them are there; then the oldest go.
    void rotateAddress(std::size_t device, const std::string& address, std::size_t lingering);
    bool isConnected(std::size_t device) const;
    bool isSubscribed(std::size_t device, const std::string& characteristicUUID) const;
    // Sends each value as one notification; false (nothing sent) unless subscribed.
    bool notify(std::size_t device, const std::string& characteristicUUID, const std::vector<Bytes>& values);
    std::vector<Write> writes(std::size_t device, const std::string& characteristicUUID) const;
    // Ends the link from the device's side.
    void dropLink(std::size_t device);
    // How often a method was called on any object ("Connect", "StartDiscovery", ...).
    std::size_t callCount(const std::string& method) const;
    // Sends a PropertiesChanged of the device's interface with properties of the wrong type or
    // size, and an InterfacesAdded whose arguments are not the signal's.
    void sendMalformedSignals(std::size_t device);

private:
    struct State;
    std::unique_ptr<DBusConnectionThread> bus_;
    std::shared_ptr<State> state_;
};

// The Havrel service as a GATT application of the test's own, registered with a real bluetoothd
// on one of its adapters (GattManager1.RegisterApplication): a central connected to that
// adapter finds the service there. Its characteristics behave as a stand-in device's.
class GattApplication {
public:
    // Connects to the bus (empty: the system bus), exports the application and registers it
    // with the adapter. Throws sdbus::Error when bluetoothd refuses it or does not answer.
    GattApplication(const std::string& busAddress, const std::string& adapter);
    ~GattApplication();
    GattApplication(const GattApplication&) = delete;
    GattApplication& operator=(const GattApplication&) = delete;

    bool isSubscribed(const std::string& characteristicUUID) const;
    bool notify(const std::string& characteristicUUID, const std::vector<Bytes>& values);
    std::vector<BluezStandIn::Write> writes(const std::string& characteristicUUID) const;

private:
    struct State;
    std::unique_ptr<DBusConnectionThread> bus_;
    std::shared_ptr<State> state_;
};

}  // namespace havrel::testing
