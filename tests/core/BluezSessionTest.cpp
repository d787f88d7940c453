// The whole way in through the BlueZ backend: a stand-in for BlueZ on a private bus plays the
// client device, and the session of the simulated radio's path test runs over real D-Bus calls
// and signals: sighting through discovery, connect, GATT discovery, the subscriptions, the
// handshake written without response, a synced configuration, range commands into MIDI, the
// link lost and found again.

#include "BluetoothSessionFixture.hpp"

#include "backends/bluetooth_bluez/BluezBluetoothPlatform.hpp"
#include "central/RNClient.hpp"
#include "support/BluezStandIn.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

using namespace havrel::testing;
using namespace std::chrono_literals;

class BluezSessionTest : public BluetoothSessionTest {
protected:
    void SetUp() override {
        std::string reason;
        bus_ = PrivateBus::start(reason);
        if (!bus_) {
            GTEST_SKIP() << "no private D-Bus: " << reason;
        }
        bluez_ = std::make_unique<BluezStandIn>(bus_->address());
        bluez_->addAdapter("hci0", true);
        BluezBluetoothPlatform::Options options;
        options.busAddress = bus_->address();
        platform_ = BluezBluetoothPlatform::create(options);
        BluetoothSessionTest::SetUp();
    }
    void TearDown() override {
        if (!bus_) {
            return;
        }
        BluetoothSessionTest::TearDown();
        platform_.reset();
        bluez_.reset();
        bus_.reset();
    }
    std::shared_ptr<RNBluetoothPlatform> sessionPlatform() override { return platform_; }
    bool platformSettled() override { return platform_->pendingOperations() == 0; }

    // Sighted, connected and subscribed to in and realtime; then the client's introduction.
    std::size_t connectedDevice(const std::string& name) {
        BluezStandIn::Device settings;
        settings.name = name;
        const auto device = bluez_->addDevice(settings);
        EXPECT_TRUE(pump([&] { return bluetooth_->bluetoothPowerOn(); }));
        bluetooth_->scan();
        EXPECT_TRUE(pump([&] { return bluez_->isSubscribed(device, kHavrelRealtimeCharacteristicUUID); }));
        EXPECT_TRUE(bluez_->notify(device, kHavrelInCharacteristicUUID, introductionInTwoPieces(name)));
        EXPECT_TRUE(pump([&] { return registry_->bluetoothClients().size() == 1; }));
        return device;
    }

    void notify(const std::string& characteristicUUID, const std::vector<Bytes>& values) override {
        bluez_->notify(device_, characteristicUUID, values);
    }
    std::vector<Bytes> outWrites() override {
        std::vector<Bytes> values;
        for (const auto& write : bluez_->writes(device_, kHavrelOutCharacteristicUUID)) {
            values.push_back(write.value);
        }
        return values;
    }
    void dropLink() override { bluez_->dropLink(device_); }
    bool linkUp() override { return bluez_->isConnected(device_); }

    std::size_t device_ = 0;
    std::unique_ptr<PrivateBus> bus_;
    std::unique_ptr<BluezStandIn> bluez_;
    std::shared_ptr<BluezBluetoothPlatform> platform_;
};

TEST_F(BluezSessionTest, AWholeSessionThroughBlueZDrivesMIDIUntilTheLinkIsLost) {
    device_ = connectedDevice("Pad");
    const auto peripheral = bluetooth_->currentPeripheral();
    ASSERT_NE(peripheral, nullptr);
    EXPECT_EQ(peripheral->identifier(), "C0:FF:EE:00:00:01");
    EXPECT_EQ(peripheral->name(), "Pad");
    // Discovery looked for the Havrel service on LE only, and ended for the connect.
    EXPECT_EQ(bluez_->filterUUIDs("hci0"), std::vector<std::string>{"293e27ba-4906-48da-9d70-696e1c95bebc"});
    EXPECT_EQ(bluez_->filterTransport("hci0"), "le");
    EXPECT_FALSE(bluez_->isDiscovering("hci0"));
    EXPECT_EQ(bluez_->callCount("Connect"), 1u);
    // Every characteristic's descriptor was read through BlueZ.
    EXPECT_GE(bluez_->callCount("ReadValue"), 3u);
    // The answers go without response, in values of the link's size (MTU 185 less the header).
    for (const auto& write : bluez_->writes(device_, kHavrelOutCharacteristicUUID)) {
        EXPECT_EQ(write.type, "command");
    }
    EXPECT_EQ(peripheral->maximumWriteValueLengthForType(CBCharacteristicWriteWithoutResponse), 182u);

    ASSERT_NO_FATAL_FAILURE(playSessionUntilTheLinkIsFoundAgain(false));
    EXPECT_EQ(bluez_->callCount("StartDiscovery"), 2u);
    EXPECT_EQ(bluez_->callCount("Connect"), 2u);
    bluetooth_->reset();
    ASSERT_TRUE(pump([&] { return !linkUp(); }));
    EXPECT_TRUE(bluetooth_->bluetoothConnections().empty());
}

}  // namespace
}  // namespace havrel
