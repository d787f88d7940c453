// The BlueZ backend on its own, against the BlueZ stand-in on a private bus: what it takes from
// the bus (type-checked and bounded), the power states it reports with BlueZ, without it and
// without a bus, refused connects, write kinds, and links that end with the bus or with BlueZ.

#include "backends/bluetooth_bluez/BluezBluetoothPlatform.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "support/BluezStandIn.hpp"
#include "support/MainQueueWaiting.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace havrel {
namespace {

using namespace havrel::testing;
using namespace std::chrono_literals;

TEST(BluezPropertiesTest, PropertiesAreTypeCheckedAndBounded) {
    const BluezPropertyMap device = {
        {"Address", sdbus::Variant(std::string("C0:FF:EE:00:00:01"))},
        {"Name", sdbus::Variant(std::string(kBluezMaximumNameLength + 1, 'n'))},
        {"Alias", sdbus::Variant(std::int32_t{7})},
        {"RSSI", sdbus::Variant(std::int16_t{-61})},
        {"UUIDs", sdbus::Variant(std::vector<std::string>{"293e27ba-4906-48da-9d70-696e1c95bebc",
                                                          "0000180f-0000-1000-8000-00805f9b34fb", "not-a-uuid"})},
        {"Connected", sdbus::Variant(std::string("yes"))},
        {"Adapter", sdbus::Variant(sdbus::ObjectPath("/org/bluez/hci0"))}};
    const auto read = readBluezProperties(BluezInterface::device, device);
    EXPECT_EQ(read.address, "C0:FF:EE:00:00:01");
    EXPECT_FALSE(read.name);       // too long
    EXPECT_FALSE(read.alias);      // not a text
    EXPECT_FALSE(read.connected);  // not a flag
    EXPECT_EQ(read.rssi, -61);
    EXPECT_EQ(read.uuids, (std::vector<std::string>{kHavrelServiceUUID, "180F"}));
    EXPECT_EQ(read.owner, "/org/bluez/hci0");
    EXPECT_EQ(read.rejected, 4u);

    const BluezPropertyMap characteristic = {
        {"UUID", sdbus::Variant(std::string("7cc1eabf-fdac-4ab3-8ec1-f5268e031202"))},
        {"Value", sdbus::Variant(std::vector<std::uint8_t>(kBluezMaximumValueLength + 1, 1))},
        {"MTU", sdbus::Variant(std::uint32_t{185})},
        {"Notifying", sdbus::Variant(true)}};
    const auto gatt = readBluezProperties(BluezInterface::characteristic, characteristic);
    EXPECT_EQ(gatt.uuid, kHavrelInCharacteristicUUID);
    EXPECT_FALSE(gatt.value);
    EXPECT_FALSE(gatt.mtu);
    EXPECT_EQ(gatt.notifying, true);
    EXPECT_EQ(gatt.rejected, 2u);

    EXPECT_EQ(platformUUIDText("00002901-0000-1000-8000-00805F9B34FB"), "2901");
    EXPECT_EQ(platformUUIDText("12345678-0000-1000-8000-00805f9b34fb"), "12345678-0000-1000-8000-00805F9B34FB");
    EXPECT_FALSE(platformUUIDText("293e27ba+4906-48da-9d70-696e1c95bebc"));
    EXPECT_FALSE(platformUUIDText("293e27ba-4906-48da-9d70-696e1c95bebg"));
    EXPECT_EQ(bluezUUIDText("2901"), "00002901-0000-1000-8000-00805f9b34fb");
    EXPECT_EQ(bluezUUIDText(kHavrelServiceUUID), "293e27ba-4906-48da-9d70-696e1c95bebc");
}

class RecordingDelegate final : public RNBluetoothCentralManagerDelegate, public RNBluetoothPeripheralDelegate {
public:
    std::vector<std::int64_t> states;
    std::vector<std::pair<std::shared_ptr<RNBluetoothPeripheral>, std::int64_t>> sightings;
    std::vector<std::string> events;
    RNBluetoothOptionalError lastError;

    void centralManagerDidUpdateState(std::int64_t state) override { states.push_back(state); }
    void centralManagerDidDiscoverPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral,
                                             const Dictionary&, std::int64_t RSSI) override {
        sightings.emplace_back(peripheral, RSSI);
    }
    void centralManagerDidConnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>&) override {
        events.push_back("connect");
    }
    void centralManagerDidFailToConnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>&,
                                                  const RNBluetoothOptionalError& error) override {
        events.push_back("fail");
        lastError = error;
    }
    void centralManagerDidDisconnectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>&,
                                               const RNBluetoothOptionalError& error) override {
        events.push_back("disconnect");
        lastError = error;
    }
    void centralManagerDidRetrievePeripherals(const std::vector<std::shared_ptr<RNBluetoothPeripheral>>&) override {}

    void peripheralDidDiscoverServices(const std::shared_ptr<RNBluetoothPeripheral>&,
                                       const RNBluetoothOptionalError&) override {
        events.push_back("services");
    }
    void peripheralDidDiscoverCharacteristicsForService(const std::shared_ptr<RNBluetoothPeripheral>&,
                                                        const std::shared_ptr<RNBluetoothService>&,
                                                        const RNBluetoothOptionalError&) override {}
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
        events.push_back("value " + std::string(value.begin(), value.end()));
    }
};

class BluezBackendTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string reason;
        bus_ = PrivateBus::start(reason);
        if (!bus_) {
            GTEST_SKIP() << "no private D-Bus: " << reason;
        }
        bluez_ = std::make_unique<BluezStandIn>(bus_->address());
    }
    void TearDown() override {
        manager_.reset();
        platform_.reset();
        bluez_.reset();
        bus_.reset();
    }

    std::shared_ptr<RNBluetoothCentralManager> start(bool powerOnAdapter = false, std::string busAddress = {}) {
        BluezBluetoothPlatform::Options options;
        options.busAddress = busAddress.empty() ? bus_->address() : busAddress;
        options.powerOnAdapter = powerOnAdapter;
        platform_ = BluezBluetoothPlatform::create(options);
        manager_ = platform_->makeCentralManager(delegate_);
        EXPECT_TRUE(runMainQueueUntil([&] { return !delegate_->states.empty(); }));
        return manager_;
    }
    // Sights the stand-in's device and connects to it through to its services.
    std::shared_ptr<RNBluetoothPeripheral> connected(const BluezStandIn::Device& settings = {}) {
        bluez_->addDevice(settings);
        manager_->scanForPeripheralsWithServices(std::vector<std::string>{kHavrelServiceUUID}, false);
        std::shared_ptr<RNBluetoothPeripheral> peripheral;
        EXPECT_TRUE(runMainQueueUntil([&] {
            for (const auto& [sighted, rssi] : delegate_->sightings) {
                if (sighted->identifier() == settings.address) {
                    peripheral = sighted;
                }
            }
            return peripheral != nullptr;
        }));
        if (!peripheral) {
            return nullptr;
        }
        peripheral->delegate = delegate_;
        manager_->stopScan();
        manager_->connectPeripheral(peripheral, true, true);
        EXPECT_TRUE(runMainQueueUntil([&] { return peripheral->state() == CBPeripheralStateConnected; }));
        peripheral->discoverServices(std::nullopt);
        EXPECT_TRUE(runMainQueueUntil([&] {
            return std::find(delegate_->events.begin(), delegate_->events.end(), "services") != delegate_->events.end();
        }));
        return peripheral;
    }

    ManualClockScope clock_;
    std::unique_ptr<PrivateBus> bus_;
    std::unique_ptr<BluezStandIn> bluez_;
    std::shared_ptr<BluezBluetoothPlatform> platform_;
    std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
    std::shared_ptr<RNBluetoothCentralManager> manager_;
};

TEST_F(BluezBackendTest, WithoutBlueZOrAnAdapterOrABusBluetoothIsUnsupportedWithOneLine) {
    bluez_.reset();
    {
        ScopedLogCapture capture;
        start();
        EXPECT_EQ(delegate_->states, std::vector<std::int64_t>{CBManagerStateUnsupported});
        EXPECT_EQ(capture.count("Bluetooth: BlueZ is not available"), 1u);
        EXPECT_EQ(capture.lines().size(), 1u);
    }
    {
        ScopedLogCapture capture;
        delegate_->states.clear();
        start(false, "unix:path=/nonexistent/havrel-test-bus");
        EXPECT_EQ(delegate_->states, std::vector<std::int64_t>{CBManagerStateUnsupported});
        EXPECT_EQ(capture.count("Bluetooth: no D-Bus system bus"), 1u);
        // Calls on a manager without a bus do nothing.
        manager_->scanForPeripheralsWithServices(std::nullopt, false);
        manager_->stopScan();
    }
    std::string reason;
    BluezBluetoothPlatform::Options options;
    options.busAddress = bus_->address();
    EXPECT_FALSE(BluezBluetoothPlatform::hasAdapter(options, 2s, reason));
    EXPECT_FALSE(reason.empty());

    // BlueZ without an adapter, then one arrives.
    bluez_ = std::make_unique<BluezStandIn>(bus_->address());
    {
        ScopedLogCapture capture;
        delegate_->states.clear();
        start();
        EXPECT_EQ(delegate_->states.back(), CBManagerStateUnsupported);
        EXPECT_EQ(capture.count("Bluetooth: BlueZ has no adapter"), 1u);
    }
    bluez_->addAdapter("hci0", true);
    EXPECT_TRUE(runMainQueueUntil([&] { return delegate_->states.back() == CBManagerStatePoweredOn; }));
    EXPECT_TRUE(BluezBluetoothPlatform::hasAdapter(options, 2s, reason));
}

TEST_F(BluezBackendTest, AnAdapterThatIsOffIsPoweredOffUntilItIsTurnedOn) {
    bluez_->addAdapter("hci0", false);
    start();
    EXPECT_EQ(delegate_->states, std::vector<std::int64_t>{CBManagerStatePoweredOff});
    // Scanning while off asks nothing of BlueZ.
    manager_->scanForPeripheralsWithServices(std::nullopt, false);
    EXPECT_TRUE(runMainQueueUntil([&] { return platform_->pendingOperations() == 0; }));
    EXPECT_EQ(bluez_->callCount("StartDiscovery"), 0u);
    bluez_->setPowered("hci0", true);
    EXPECT_TRUE(runMainQueueUntil([&] { return delegate_->states.back() == CBManagerStatePoweredOn; }));

    // A platform told to turn its adapter on does so.
    bluez_->setPowered("hci0", false);
    EXPECT_TRUE(runMainQueueUntil([&] { return delegate_->states.back() == CBManagerStatePoweredOff; }));
    delegate_->states.clear();
    start(true);
    EXPECT_TRUE(runMainQueueUntil([&] { return delegate_->states.back() == CBManagerStatePoweredOn; }));
    EXPECT_TRUE(bluez_->isPowered("hci0"));
}

TEST_F(BluezBackendTest, RefusedConnectsWriteKindsAndMalformedSignals) {
    bluez_->addAdapter("hci0", true);
    start();
    BluezStandIn::Device refusing;
    refusing.address = "C0:FF:EE:00:00:02";
    refusing.connectError = "org.bluez.Error.Failed";
    bluez_->addDevice(refusing);
    manager_->scanForPeripheralsWithServices(std::vector<std::string>{kHavrelServiceUUID}, false);
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->sightings.size() == 1; }));
    EXPECT_EQ(delegate_->sightings.front().second, -48);
    EXPECT_EQ(delegate_->sightings.front().first->name(), "Stand-in Pad");
    manager_->connectPeripheral(delegate_->sightings.front().first, true, true);
    ASSERT_TRUE(runMainQueueUntil([&] { return !delegate_->events.empty(); }));
    EXPECT_EQ(delegate_->events, std::vector<std::string>{"fail"});
    ASSERT_TRUE(delegate_->lastError);
    EXPECT_EQ(delegate_->lastError->domain, "org.bluez.Error.Failed");
    EXPECT_EQ(delegate_->sightings.front().first->state(), CBPeripheralStateDisconnected);
    delegate_->events.clear();
    delegate_->sightings.clear();
    manager_->stopScan();

    // A second device, connected: writes carry the kind BlueZ is to use.
    BluezStandIn::Device accepting;
    accepting.address = "C0:FF:EE:00:00:03";
    accepting.name.reset();
    const auto peripheral = connected(accepting);
    ASSERT_NE(peripheral, nullptr);
    EXPECT_EQ(peripheral->name(), "");
    ASSERT_EQ(peripheral->services().size(), 1u);
    const auto service = peripheral->services().front();
    EXPECT_EQ(service->UUID(), kHavrelServiceUUID);
    ASSERT_EQ(service->characteristics().size(), 3u);
    const auto out = service->characteristics().front();
    ASSERT_EQ(out->descriptors().size(), 1u);
    EXPECT_EQ(out->descriptors().front()->UUID(), "2901");
    const Bytes first = {'a'};
    const Bytes second = {'b'};
    peripheral->writeValue(first, out, CBCharacteristicWriteWithoutResponse);
    peripheral->writeValue(second, out, CBCharacteristicWriteWithResponse);
    ASSERT_TRUE(runMainQueueUntil([&] { return bluez_->writes(1, kHavrelOutCharacteristicUUID).size() == 2; }));
    const auto writes = bluez_->writes(1, kHavrelOutCharacteristicUUID);
    EXPECT_EQ(writes[0].type, "command");
    EXPECT_EQ(writes[1].type, "request");
    EXPECT_EQ(writes[1].value, second);
    EXPECT_EQ(peripheral->maximumWriteValueLengthForType(CBCharacteristicWriteWithResponse), 512u);

    // Values notified arrive in order, each with its own value.
    const auto in = service->characteristics()[1];
    peripheral->setNotifyValue(true, in);
    ASSERT_TRUE(runMainQueueUntil([&] { return in->isNotifying(); }));
    EXPECT_TRUE(bluez_->notify(1, kHavrelInCharacteristicUUID, {Bytes{'x'}, Bytes{'y'}}));
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->events.size() >= 4; }));
    EXPECT_EQ(delegate_->events[2], "value x");
    EXPECT_EQ(delegate_->events[3], "value y");

    // Properties of the wrong type or size are dropped with one line, a signal that cannot be
    // read with another; the device stays as it was.
    ScopedLogCapture capture;
    bluez_->sendMalformedSignals(1);
    ASSERT_TRUE(runMainQueueUntil([&] { return capture.count("Bluetooth: ignored 2 properties of") == 1; }));
    ASSERT_TRUE(runMainQueueUntil([&] { return capture.count("Bluetooth: dropped an unreadable object signal") == 1; }));
    EXPECT_EQ(peripheral->state(), CBPeripheralStateConnected);
    EXPECT_EQ(peripheral->identifier(), "C0:FF:EE:00:00:03");
}

TEST_F(BluezBackendTest, LinksEndWithTheDeviceWithBlueZAndWithTheBus) {
    bluez_->addAdapter("hci0", true);
    start();
    auto peripheral = connected();
    ASSERT_NE(peripheral, nullptr);
    EXPECT_EQ(delegate_->events, (std::vector<std::string>{"connect", "services"}));

    // Our own cancel ends the link without an error, and BlueZ hears of it.
    manager_->cancelPeripheralConnection(peripheral);
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->events.size() == 3; }));
    EXPECT_EQ(delegate_->events.back(), "disconnect");
    EXPECT_FALSE(delegate_->lastError);
    EXPECT_TRUE(runMainQueueUntil([&] { return !bluez_->isConnected(0); }));

    // The same device object again; then BlueZ leaves the bus.
    manager_->connectPeripheral(peripheral, true, true);
    ASSERT_TRUE(runMainQueueUntil([&] { return peripheral->state() == CBPeripheralStateConnected; }));
    {
        ScopedLogCapture capture;
        bluez_.reset();
        ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->states.back() == CBManagerStateUnsupported; }));
        EXPECT_EQ(delegate_->events.back(), "disconnect");
        ASSERT_TRUE(delegate_->lastError);
        EXPECT_EQ(peripheral->state(), CBPeripheralStateDisconnected);
        EXPECT_EQ(capture.count("Bluetooth: BlueZ is not available"), 1u);
    }

    // BlueZ comes back; then the bus itself goes.
    bluez_ = std::make_unique<BluezStandIn>(bus_->address());
    bluez_->addAdapter("hci0", true);
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->states.back() == CBManagerStatePoweredOn; }));
    delegate_->events.clear();
    delegate_->sightings.clear();
    peripheral = connected();
    ASSERT_NE(peripheral, nullptr);
    ScopedLogCapture capture;
    bus_->stop();
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->states.back() == CBManagerStateUnsupported; }));
    EXPECT_EQ(peripheral->state(), CBPeripheralStateDisconnected);
    EXPECT_EQ(delegate_->events.back(), "disconnect");
    EXPECT_EQ(capture.count("Bluetooth: lost the D-Bus system bus"), 1u);
    // Nothing more happens, and calls on the manager are harmless.
    manager_->scanForPeripheralsWithServices(std::nullopt, false);
    manager_->connectPeripheral(peripheral, true, true);
    MainQueue::shared().poll();
    EXPECT_EQ(peripheral->state(), CBPeripheralStateDisconnected);
}

TEST_F(BluezBackendTest, TenThousandRotatingAddressesLeaveTheTablesBoundedAndANewDeviceIsStillFound) {
    bluez_->addAdapter("hci0", true);
    start();
    const std::size_t pad = bluez_->addDevice({});
    manager_->scanForPeripheralsWithServices(std::vector<std::string>{kHavrelServiceUUID}, false);
    // BlueZ keeps the last thousand addresses, more than the backend follows.
    std::string address;
    for (int i = 0; i < 10000; ++i) {
        char text[18];
        std::snprintf(text, sizeof text, "4A:00:00:00:%02X:%02X", i >> 8, i & 0xFF);
        address = text;
        bluez_->rotateAddress(pad, address, 1000);
        if (i % 100 == 0) {
            MainQueue::shared().poll();
            delegate_->sightings.clear();
        }
    }
    const auto sighted = [&](const std::string& wanted) {
        return runMainQueueUntil([&] {
            return std::any_of(delegate_->sightings.begin(), delegate_->sightings.end(),
                               [&](const auto& sighting) { return sighting.first->identifier() == wanted; });
        });
    };
    ASSERT_TRUE(sighted(address));
    EXPECT_EQ(platform_->deviceCount(), BluezBluetoothPlatform::kMaximumDevices);
    EXPECT_LE(platform_->forgottenCount(), BluezBluetoothPlatform::kMaximumDevices);

    BluezStandIn::Device another;
    another.address = "C0:FF:EE:00:00:99";
    bluez_->addDevice(another);
    EXPECT_TRUE(sighted(another.address));
    // BlueZ drops the old addresses: the backend forgets them.
    bluez_->rotateAddress(pad, "4A:00:00:00:FF:FF", 0);
    ASSERT_TRUE(sighted("4A:00:00:00:FF:FF"));
    EXPECT_TRUE(runMainQueueUntil([&] { return platform_->deviceCount() == 2; })) << platform_->deviceCount();
}

}  // namespace
}  // namespace havrel
