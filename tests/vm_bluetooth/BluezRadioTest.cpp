// The BlueZ backend against bluetoothd and the kernel's Bluetooth stack: in the test VM two
// virtual controllers share one simulated air, hci0 advertises the Havrel service with a name
// and serves it (a GATT application of the test's own, registered with bluetoothd), and the
// backend, on hci1, turns its adapter on, discovers the advertiser with that name and an RSSI,
// and stops discovery. Then it tries an LE connection and reports what happened; where the link
// comes up, the service is found, subscribed to, heard and written to through both daemons.

#include "backends/bluetooth_bluez/BluezBluetoothPlatform.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "support/BluezStandIn.hpp"
#include "support/MainQueueWaiting.hpp"

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <iostream>

namespace havrel::testing {
namespace {

using namespace std::chrono_literals;

constexpr const char* kAdvertisedName = "Havrel Pad";

class Recorder final : public RNBluetoothCentralManagerDelegate, public RNBluetoothPeripheralDelegate {
public:
    std::int64_t state = CBManagerStateUnknown;
    std::shared_ptr<RNBluetoothPeripheral> sighted;
    std::int64_t rssi = 0;
    std::string outcome;
    bool servicesFound = false;
    std::shared_ptr<RNBluetoothService> characteristicsFound;
    std::vector<std::string> values;

    void centralManagerDidUpdateState(std::int64_t newState) override { state = newState; }
    void centralManagerDidDiscoverPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                             const Dictionary&, std::int64_t RSSI) override {
        // Another device in the simulated air is possible; the advertiser is the named one.
        if (!sighted || peripheral->name() == kAdvertisedName) {
            sighted = peripheral;
            rssi = RSSI;
        }
    }
    void centralManagerDidConnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>&) override {
        outcome = "connected";
    }
    void centralManagerDidFailToConnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>&,
                                                  const RNBluetoothOptionalError& error) override {
        outcome = "failed: " + (error ? error->domain + " " + error->description : std::string("no error"));
    }
    void centralManagerDidDisconnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>&,
                                               const RNBluetoothOptionalError& error) override {
        outcome = "disconnected: " + (error ? error->description : std::string("no error"));
    }
    void centralManagerDidRetrievePeripherals(const std::vector<std::shared_ptr<RNBluetoothPeripheral>>&) override {}
    void peripheralDidDiscoverServices(const std::shared_ptr<RNBluetoothPeripheral>&,
                                       const RNBluetoothOptionalError&) override {
        servicesFound = true;
    }
    void peripheralDidDiscoverCharacteristicsForService(const std::shared_ptr<RNBluetoothPeripheral>&,
                                                        const std::shared_ptr<RNBluetoothService>& service,
                                                        const RNBluetoothOptionalError&) override {
        characteristicsFound = service;
    }
    void peripheralDidDiscoverDescriptorsForCharacteristic(const std::shared_ptr<RNBluetoothPeripheral>&,
                                                           const std::shared_ptr<RNBluetoothCharacteristic>&,
                                                           const RNBluetoothOptionalError&) override {}
    void peripheralDidUpdateValueForDescriptor(const std::shared_ptr<RNBluetoothPeripheral>&,
                                               const std::shared_ptr<RNBluetoothDescriptor>&,
                                               const RNBluetoothOptionalError&) override {}
    void peripheralDidUpdateValueForCharacteristic(const std::shared_ptr<RNBluetoothPeripheral>&,
                                                   const std::shared_ptr<RNBluetoothCharacteristic>& characteristic,
                                                   const RNBluetoothOptionalError&) override {
        const Bytes value = characteristic->value();
        values.emplace_back(value.begin(), value.end());
    }
};

// An adapter property read straight from BlueZ, outside the backend.
template <typename Value>
Value adapterProperty(const std::string& adapter, const std::string& name) {
    auto connection = sdbus::createSystemBusConnection();
    auto proxy = sdbus::createProxy(*connection, "org.bluez", "/org/bluez/" + adapter);
    return proxy->getProperty(name).onInterface("org.bluez.Adapter1").get<Value>();
}

void setAdapterPowered(const std::string& adapter, bool powered) {
    auto connection = sdbus::createSystemBusConnection();
    auto proxy = sdbus::createProxy(*connection, "org.bluez", "/org/bluez/" + adapter);
    proxy->setProperty("Powered").onInterface("org.bluez.Adapter1").toValue(powered);
}

TEST(BluezRadioTest, TurnsTheSecondControllerOnAndDiscoversTheAdvertiser) {
    if (!std::getenv("HAVREL_VM_BLUETOOTH")) {
        GTEST_SKIP() << "only in the test VM (scripts/vm/run-tests --bluetooth): it turns adapters off and on";
    }
    BluezBluetoothPlatform::Options options;
    options.adapter = "hci1";
    options.powerOnAdapter = true;
    std::string reason;
    if (!BluezBluetoothPlatform::hasAdapter(options, 5s, reason)) {
        GTEST_SKIP() << "no BlueZ with adapter hci1 on the system bus (" << reason << ")";
    }
    const auto advertiser = adapterProperty<std::string>("hci0", "Address");
    std::unique_ptr<GattApplication> application;
    try {
        application = std::make_unique<GattApplication>("", "hci0");
    } catch (const sdbus::Error& error) {
        std::cout << "havrel-vm-note: bluetoothd did not take the GATT application: " << error.getMessage() << std::endl;
    }
    setAdapterPowered("hci1", false);
    ASSERT_FALSE(adapterProperty<bool>("hci1", "Powered"));

    ScopedLogCapture capture(LogLevel::info);
    auto platform = BluezBluetoothPlatform::create(options);
    auto recorder = std::make_shared<Recorder>();
    auto manager = platform->makeCentralManager(recorder);
    ASSERT_TRUE(runMainQueueUntil([&] { return recorder->state == CBManagerStatePoweredOn; }, 20s));
    EXPECT_EQ(capture.count("Bluetooth: turning on adapter /org/bluez/hci1"), 1u);
    EXPECT_TRUE(adapterProperty<bool>("hci1", "Powered"));

    manager->scanForPeripheralsWithServices(std::vector<std::string>{kHavrelServiceUUID}, false);
    ASSERT_TRUE(runMainQueueUntil([&] { return recorder->sighted && recorder->sighted->name() == kAdvertisedName; }, 60s))
        << "sighted: " << (recorder->sighted ? recorder->sighted->description() : std::string("nothing"));
    EXPECT_TRUE(adapterProperty<bool>("hci1", "Discovering"));
    const auto peripheral = recorder->sighted;
    EXPECT_EQ(peripheral->identifier(), advertiser);
    // The RSSI BlueZ reported with the sighting (127 is the controller's "not available").
    const auto device = std::dynamic_pointer_cast<BluezPeripheral>(peripheral);
    ASSERT_NE(device, nullptr);
    ASSERT_TRUE(device->properties().rssi.has_value()) << "BlueZ reported no RSSI";
    EXPECT_EQ(recorder->rssi, *device->properties().rssi);
    EXPECT_GE(recorder->rssi, -127);
    EXPECT_LE(recorder->rssi, 127);
    ASSERT_TRUE(device->properties().uuids.has_value());
    EXPECT_NE(std::find(device->properties().uuids->begin(), device->properties().uuids->end(), kHavrelServiceUUID),
              device->properties().uuids->end());
    std::cout << "havrel-vm-note: sighted " << peripheral->description() << " RSSI " << recorder->rssi << std::endl;

    manager->stopScan();
    EXPECT_TRUE(runMainQueueUntil([&] { return !adapterProperty<bool>("hci1", "Discovering"); }, 10s));

    // An LE connection through bluetoothd: reported, not required.
    peripheral->delegate = recorder;
    manager->connectPeripheral(peripheral, true, true);
    runMainQueueUntil([&] { return !recorder->outcome.empty(); }, 45s);
    std::cout << "havrel-vm-note: LE connect: " << (recorder->outcome.empty() ? "no answer in 45 s" : recorder->outcome)
              << std::endl;
    if (recorder->outcome == "connected") {
        peripheral->discoverServices(std::nullopt);
        runMainQueueUntil([&] { return recorder->servicesFound; }, 30s);
        std::string services;
        std::shared_ptr<RNBluetoothService> havrel;
        for (const auto& service : peripheral->services()) {
            services += " " + service->UUID() + " (" + std::to_string(service->characteristics().size()) +
                        " characteristics)";
            if (service->UUID() == kHavrelServiceUUID) {
                havrel = service;
            }
        }
        std::cout << "havrel-vm-note: services resolved: " << (recorder->servicesFound ? "yes" : "no") << ";"
                  << services << std::endl;
        if (application) {
            // A link that came up carries the whole GATT conversation.
            ASSERT_NE(havrel, nullptr);
            peripheral->discoverCharacteristics(havrel);
            ASSERT_TRUE(runMainQueueUntil([&] { return recorder->characteristicsFound == havrel; }, 10s));
            std::map<std::string, std::shared_ptr<RNBluetoothCharacteristic>> characteristics;
            for (const auto& characteristic : havrel->characteristics()) {
                characteristics[characteristic->UUID()] = characteristic;
            }
            ASSERT_EQ(characteristics.size(), 3u);
            peripheral->setNotifyValue(true, characteristics[kHavrelInCharacteristicUUID]);
            ASSERT_TRUE(runMainQueueUntil([&] { return application->isSubscribed(kHavrelInCharacteristicUUID); }, 10s));
            ASSERT_TRUE(application->notify(kHavrelInCharacteristicUUID, {Bytes{'h', 'i'}, Bytes{'|', '|'}}));
            EXPECT_TRUE(runMainQueueUntil([&] { return recorder->values.size() == 2; }, 10s));
            EXPECT_EQ(recorder->values, (std::vector<std::string>{"hi", "||"}));
            const Bytes reply = {'{', '}', '|', '|'};
            peripheral->writeValue(reply, characteristics[kHavrelOutCharacteristicUUID],
                                   CBCharacteristicWriteWithoutResponse);
            EXPECT_TRUE(runMainQueueUntil(
                [&] { return !application->writes(kHavrelOutCharacteristicUUID).empty(); }, 10s));
            const auto writes = application->writes(kHavrelOutCharacteristicUUID);
            if (!writes.empty()) {
                EXPECT_EQ(writes.front().value, reply);
                std::cout << "havrel-vm-note: GATT session: notified values heard, write arrived with type \""
                          << writes.front().type << "\"" << std::endl;
            }
        }
        manager->cancelPeripheralConnection(peripheral);
        runMainQueueUntil([&] { return peripheral->state() == CBPeripheralStateDisconnected; }, 10s);
    }
    for (const auto& line : capture.lines()) {
        std::cout << "havrel-vm-note: log: " << line << std::endl;
    }
    manager.reset();
    platform.reset();
}

}  // namespace
}  // namespace havrel::testing
