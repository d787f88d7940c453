// The whole way in over the simulated radio: a client device is sighted, connected, subscribed
// to and answered, syncs its configuration and drives MIDI out of the virtual output, heard by
// another application on the loopback MIDI server; the same device also on USB (the local path)
// mutes its Bluetooth link until USB leaves.

#include "BluetoothSessionFixture.hpp"

#include "backends/bluetooth_simulated/SimulatedBluetoothRadio.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "central/RNCentral.hpp"
#include "central/RNClient.hpp"
#include "platform/Log.hpp"
#include "platform/PropertyList.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

using namespace havrel::testing;
using MIDICore::MIDIEvent;
using namespace std::chrono_literals;

class BluetoothPathTest : public BluetoothSessionTest {
protected:
    std::shared_ptr<RNBluetoothPlatform> sessionPlatform() override { return radio_; }

    // Sighted, connected and subscribed to in and realtime; then the client's introduction.
    std::shared_ptr<SimulatedPeripheral> connectedPeripheral(const std::string& name) {
        SimulatedPeripheral::Settings settings;
        settings.name = name;
        auto peripheral = radio_->addPeripheral(settings);
        pass(10ms);
        bluetooth_->scan();
        peripheral->startAdvertising();
        EXPECT_TRUE(pump([&] { return peripheral->isSubscribed(kHavrelRealtimeCharacteristicUUID); }));
        // The introduction in two pieces.
        peripheral->notify(kHavrelInCharacteristicUUID, introductionInTwoPieces(name));
        EXPECT_TRUE(pump([&] { return registry_->bluetoothClients().size() == 1; }));
        return peripheral;
    }

    std::shared_ptr<SimulatedBluetoothRadio> radio_ = SimulatedBluetoothRadio::create();
};

TEST_F(BluetoothPathTest, AWholeSessionOverTheRadioDrivesMIDIUntilTheLinkIsLost) {
    auto peripheral = connectedPeripheral("Pad");
    auto client = registry_->bluetoothClients().front();
    EXPECT_EQ(client->connectionName, "Pad");
    EXPECT_EQ(client->peripheral, peripheral);
    EXPECT_FALSE(bluetooth_->hasConnectionTimeout());
    EXPECT_TRUE(pump([] { return DefaultsStore::standard()->get(kLastConnectedAtKey).has_value(); }));

    // The version, then the Central's identity, each one write ending in the marker.
    const auto replies = peripheral->writes(kHavrelOutCharacteristicUUID);
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(text(replies[0]), "{\"v\":\"2.1\"}||");
    const std::string identity = text(replies[1]);
    ASSERT_GE(identity.size(), 2u);
    EXPECT_EQ(identity.substr(identity.size() - 2), "||");
    const auto central = Dictionary::parse(identity.substr(0, identity.size() - 2));
    EXPECT_EQ(central["version"], "1.0");
    EXPECT_EQ(central["apiVersion"], "2.1");
    EXPECT_EQ(central["minApi"], "2.1");

    // The configuration in link-sized pieces.
    peripheral->notifyInPieces(kHavrelInCharacteristicUUID, inMessage(1, faderDocument(7)), 182);
    ASSERT_TRUE(pump([&] { return client->configuration != nullptr; }));

    // A range command on realtime finishes while a pure MIDI message on in is still open.
    const Bytes note = inMessage(3, *RNBluetoothMIDICommandPure::MIDICommandWithStatus(0x90, 60, 100).data());
    peripheral->notify(kHavrelInCharacteristicUUID, {Bytes(note.begin(), note.begin() + 2)});
    peripheral->notifyInPieces(kHavrelRealtimeCharacteristicUUID, realtimeMessage(range(1.0)), 3);
    peripheral->notify(kHavrelInCharacteristicUUID, {Bytes(note.begin() + 2, note.end())});
    ASSERT_TRUE(pump([&] { return events_.count() == 2; }));
    // The note goes out as it arrives; the fader's value a turn of the main queue later.
    const auto received = events_.snapshot();
    const auto* cc = received[1].get<MIDIEvent::CC>();
    ASSERT_NE(cc, nullptr);
    EXPECT_EQ(cc->controller.number(), MIDICore::UInt7(7));
    EXPECT_EQ(cc->value().midi1Value(), MIDICore::UInt7(127));
    const auto* noteOn = received[0].get<MIDIEvent::NoteOn>();
    ASSERT_NE(noteOn, nullptr);
    EXPECT_EQ(noteOn->note.number(), MIDICore::UInt7(60));

    // The link is lost: the registry forgets the client and the transport starts over.
    ScopedLogCapture capture;
    peripheral->dropLink();
    ASSERT_TRUE(pump([&] { return registry_->clients.empty(); }));
    EXPECT_TRUE(bluetooth_->bluetoothConnections().empty());
    EXPECT_TRUE(bluetooth_->hvDiscoveredDevices().empty());
    EXPECT_FALSE(bluetooth_->hasConnectionTimeout());
    EXPECT_EQ(capture.count("did disconnect peripheral error"), 1u);

    // Scanning again finds it, and the new link starts clean.
    bluetooth_->scan();
    ASSERT_TRUE(pump([&] { return peripheral->state() == CBPeripheralStateConnected; }));
    // The same peripheral object keeps its characteristics: nothing is subscribed anew.
    pass(5s);
    EXPECT_FALSE(peripheral->isSubscribed(kHavrelInCharacteristicUUID));
    bluetooth_->reset();
    pass(10ms);
    EXPECT_EQ(peripheral->state(), CBPeripheralStateDisconnected);
    EXPECT_TRUE(bluetooth_->bluetoothConnections().empty());
}

TEST_F(BluetoothPathTest, TheSameDeviceOnUSBMutesItsBluetoothLinkUntilUSBLeaves) {
    auto peripheral = connectedPeripheral("Pad");
    auto client = registry_->bluetoothClients().front();
    peripheral->notifyInPieces(kHavrelInCharacteristicUUID, inMessage(1, faderDocument(7)), 182);
    ASSERT_TRUE(pump([&] { return client->configuration != nullptr; }));

    ScopedLogCapture capture(LogLevel::info);
    ASSERT_TRUE(pump([&] { return localDevice_->connected(); }));
    Dictionary usbClient = {{"type", "RNUSBClient"}, {"connectionName", "Pad"}, {"productID", kSessionProduct},
                            {"uniqueIdentifier", "usb-Pad"}, {"apiVersion", "2.1"}};
    localDevice_->send(100, *propertyListData(Dictionary{{"usbClient", usbClient}}, PropertyListFormat::binary).data);
    ASSERT_TRUE(pump([&] { return registry_->usbClients().size() == 1; }));
    EXPECT_TRUE(client->supersededByUSB);
    EXPECT_EQ(capture.count("muting bluetooth client \"Pad\" \u2014 same device is also connected over USB"), 1u);

    // Muted: range data and a new configuration from the radio are dropped; the link stays up.
    const auto configuration = client->configuration;
    peripheral->notify(kHavrelRealtimeCharacteristicUUID, {realtimeMessage(range(1.0))});
    peripheral->notifyInPieces(kHavrelInCharacteristicUUID, inMessage(1, faderDocument(9)), 182);
    pass(300ms);
    EXPECT_EQ(events_.count(), 0u);
    EXPECT_EQ(client->configuration, configuration);
    EXPECT_EQ(peripheral->state(), CBPeripheralStateConnected);

    // USB leaves: unmuted with one line, and the radio is heard again.
    localDevice_->closePeer();
    ASSERT_TRUE(pump([&] { return registry_->usbClients().empty(); }));
    EXPECT_FALSE(client->supersededByUSB);
    EXPECT_EQ(capture.count("unmuting bluetooth client \"Pad\" \u2014 same device is no longer connected over USB"), 1u);
    EXPECT_EQ(capture.count("muting bluetooth client"), 2u);  // one each way
    peripheral->notify(kHavrelRealtimeCharacteristicUUID, {realtimeMessage(range(1.0))});
    ASSERT_TRUE(pump([&] { return events_.count() == 1; }));
    const auto received = events_.snapshot();
    const auto* cc = received[0].get<MIDIEvent::CC>();
    ASSERT_NE(cc, nullptr);
    EXPECT_EQ(cc->controller.number(), MIDICore::UInt7(7));
}

}  // namespace
}  // namespace havrel
