// The whole way in over the simulated radio: a client device is sighted, connected, subscribed
// to and answered, syncs its configuration and drives MIDI out of the virtual output, heard by
// another application on the loopback MIDI server; the same device also on USB (the local path)
// mutes its Bluetooth link until USB leaves.

#include "BluetoothSessionFixture.hpp"

#include "central/RNClient.hpp"

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
        peripheral_ = peripheral;
        return peripheral;
    }
    void notify(const std::string& characteristicUUID, const std::vector<Bytes>& values) override {
        peripheral_->notify(characteristicUUID, values);
    }
    std::vector<Bytes> outWrites() override { return peripheral_->writes(kHavrelOutCharacteristicUUID); }
    void dropLink() override { peripheral_->dropLink(); }
    bool linkUp() override { return peripheral_->state() == CBPeripheralStateConnected; }

    std::shared_ptr<SimulatedBluetoothRadio> radio_ = SimulatedBluetoothRadio::create();
    std::shared_ptr<SimulatedPeripheral> peripheral_;
};

TEST_F(BluetoothPathTest, AWholeSessionOverTheRadioDrivesMIDIUntilTheLinkIsLost) {
    connectedPeripheral("Pad");
    ASSERT_NO_FATAL_FAILURE(playSessionUntilTheLinkIsFoundAgain(true));
    // The same peripheral object keeps its characteristics: nothing is subscribed anew.
    pass(5s);
    EXPECT_FALSE(peripheral_->isSubscribed(kHavrelInCharacteristicUUID));
    bluetooth_->reset();
    pass(10ms);
    EXPECT_EQ(peripheral_->state(), CBPeripheralStateDisconnected);
    EXPECT_TRUE(bluetooth_->bluetoothConnections().empty());
}

TEST_F(BluetoothPathTest, TheSameDeviceOnUSBMutesItsBluetoothLinkUntilUSBLeaves) {
    auto peripheral = connectedPeripheral("Pad");
    auto client = registry_->bluetoothClients().front();
    peripheral->notifyInPieces(kHavrelInCharacteristicUUID, inMessage(1, faderDocument(7)), 182);
    ASSERT_TRUE(pump([&] { return client->configuration != nullptr; }));

    ScopedLogCapture capture(LogLevel::info);
    ASSERT_TRUE(pump([&] { return localDevice_->connected(); }));
    localDevice_->introduce("Pad", "usb-Pad");
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
