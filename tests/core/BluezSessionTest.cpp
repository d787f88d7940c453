// The whole way in through the BlueZ backend: a stand-in for BlueZ on a private bus plays the
// client device, and the session of the simulated radio's path test runs over real D-Bus calls
// and signals: sighting through discovery, connect, GATT discovery, the subscriptions, the
// handshake written without response, a synced configuration, range commands into MIDI, the
// link lost and found again.

#include "BluetoothSessionFixture.hpp"

#include "backends/bluetooth_bluez/BluezBluetoothPlatform.hpp"
#include "backends/bluetooth_simulated/SimulatedBluetoothRadio.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "central/RNClient.hpp"
#include "platform/Log.hpp"
#include "support/BluezStandIn.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

using namespace havrel::testing;
using MIDICore::MIDIEvent;
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

    std::unique_ptr<PrivateBus> bus_;
    std::unique_ptr<BluezStandIn> bluez_;
    std::shared_ptr<BluezBluetoothPlatform> platform_;
};

TEST_F(BluezSessionTest, AWholeSessionThroughBlueZDrivesMIDIUntilTheLinkIsLost) {
    const auto device = connectedDevice("Pad");
    auto client = registry_->bluetoothClients().front();
    EXPECT_EQ(client->connectionName, "Pad");
    const auto peripheral = bluetooth_->currentPeripheral();
    ASSERT_NE(peripheral, nullptr);
    EXPECT_EQ(client->peripheral, peripheral);
    EXPECT_EQ(peripheral->identifier(), "C0:FF:EE:00:00:01");
    EXPECT_EQ(peripheral->name(), "Pad");
    EXPECT_FALSE(bluetooth_->hasConnectionTimeout());

    // Discovery looked for the Havrel service on LE only, and ended for the connect.
    EXPECT_EQ(bluez_->filterUUIDs("hci0"), std::vector<std::string>{"293e27ba-4906-48da-9d70-696e1c95bebc"});
    EXPECT_EQ(bluez_->filterTransport("hci0"), "le");
    EXPECT_FALSE(bluez_->isDiscovering("hci0"));
    EXPECT_EQ(bluez_->callCount("Connect"), 1u);
    // Every characteristic's descriptor was read through BlueZ.
    EXPECT_GE(bluez_->callCount("ReadValue"), 3u);

    // The version, then the Central's identity: one write each, without response.
    const auto replies = bluez_->writes(device, kHavrelOutCharacteristicUUID);
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(text(replies[0].value), "{\"v\":\"2.1\"}||");
    EXPECT_EQ(replies[0].type, "command");
    EXPECT_EQ(replies[1].type, "command");
    const std::string identity = text(replies[1].value);
    ASSERT_GE(identity.size(), 2u);
    const auto central = Dictionary::parse(identity.substr(0, identity.size() - 2));
    EXPECT_EQ(central["apiVersion"], "2.1");

    // The configuration in values of the link's size (MTU 185 less the write header).
    EXPECT_EQ(peripheral->maximumWriteValueLengthForType(CBCharacteristicWriteWithoutResponse), 182u);
    EXPECT_TRUE(bluez_->notify(device, kHavrelInCharacteristicUUID,
                               notificationPieces(inMessage(1, faderDocument(7)), 182)));
    ASSERT_TRUE(pump([&] { return client->configuration != nullptr; }));

    // A range command on realtime finishes while a pure MIDI message on in is still open.
    const Bytes note = inMessage(3, *RNBluetoothMIDICommandPure::MIDICommandWithStatus(0x90, 60, 100).data());
    bluez_->notify(device, kHavrelInCharacteristicUUID, {Bytes(note.begin(), note.begin() + 2)});
    bluez_->notify(device, kHavrelRealtimeCharacteristicUUID, notificationPieces(realtimeMessage(range(1.0)), 3));
    bluez_->notify(device, kHavrelInCharacteristicUUID, {Bytes(note.begin() + 2, note.end())});
    ASSERT_TRUE(pump([&] { return events_.count() == 2; }));
    // Each value is its own signal here, so the two messages may leave in either order.
    const auto received = events_.snapshot();
    const MIDIEvent::NoteOn* noteOn = nullptr;
    const MIDIEvent::CC* cc = nullptr;
    for (const auto& event : received) {
        noteOn = noteOn ? noteOn : event.get<MIDIEvent::NoteOn>();
        cc = cc ? cc : event.get<MIDIEvent::CC>();
    }
    ASSERT_NE(noteOn, nullptr);
    EXPECT_EQ(noteOn->note.number(), MIDICore::UInt7(60));
    ASSERT_NE(cc, nullptr);
    EXPECT_EQ(cc->controller.number(), MIDICore::UInt7(7));
    EXPECT_EQ(cc->value().midi1Value(), MIDICore::UInt7(127));

    // The device ends the link: the registry forgets the client and the transport starts over.
    ScopedLogCapture capture;
    bluez_->dropLink(device);
    ASSERT_TRUE(pump([&] { return registry_->clients.empty(); }));
    EXPECT_TRUE(bluetooth_->bluetoothConnections().empty());
    EXPECT_FALSE(bluetooth_->hasConnectionTimeout());
    EXPECT_EQ(capture.count("did disconnect peripheral error"), 1u);

    // Scanning again finds it through a new discovery, and the link comes back.
    bluetooth_->scan();
    ASSERT_TRUE(pump([&] { return bluez_->isConnected(device); }));
    EXPECT_EQ(bluez_->callCount("StartDiscovery"), 2u);
    EXPECT_EQ(bluez_->callCount("Connect"), 2u);
    bluetooth_->reset();
    ASSERT_TRUE(pump([&] { return !bluez_->isConnected(device); }));
    EXPECT_TRUE(bluetooth_->bluetoothConnections().empty());
}

}  // namespace
}  // namespace havrel
