#pragma once
// A whole Bluetooth session on the way in, over whichever Bluetooth platform a test gives: the
// registry, both transports (USB on a local client device that is only there to be found) and
// the MIDI service on the loopback server, with a listening application on the virtual output.
// Also the client's side of the conversation: its introduction, a one-fader configuration,
// range commands and messages with their end marker; and the session both platforms play.

#include "midi_service/MIDIServiceFixture.hpp"
#include "transport/usb/FakeClientDevice.hpp"
#include "ClientDocuments.hpp"
#include "TransportScope.hpp"

#include "backends/bluetooth_simulated/SimulatedBluetoothRadio.hpp"
#include "central/HVTransmissionManager.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "core/HavrelCoreBaseMac.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/TemporaryFolder.hpp"
#include "transport/bluetooth/RNCentralBluetoothManager.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

namespace havrel::testing {

inline constexpr const char* kSessionProduct = "havrel-test";

// A message of the in characteristic: command, body, end marker.
inline Bytes inMessage(std::uint8_t command, ByteView body) {
    Bytes bytes;
    bytes.reserve(body.size() + 3);
    bytes.push_back(command);
    for (const auto byte : body) {
        bytes.push_back(byte);
    }
    bytes.push_back('|');
    bytes.push_back('|');
    return bytes;
}

inline Bytes realtimeMessage(ByteView body) {
    Bytes bytes(body.begin(), body.end());
    bytes.push_back('|');
    bytes.push_back('|');
    return bytes;
}

inline Bytes clientJSON(const std::string& name) {
    const std::string json = Dictionary{{"type", "RNBluetoothClient"}, {"connectionName", name},
                                        {"productID", kSessionProduct}, {"uniqueIdentifier", "bt-" + name},
                                        {"apiVersion", "2.1"},          {"version", "1.0"}}
                                 .dump();
    return Bytes(json.begin(), json.end());
}

// The client's introduction on in, cut in two values.
inline std::vector<Bytes> introductionInTwoPieces(const std::string& name) {
    const Bytes hello = inMessage(0, clientJSON(name));
    const auto half = static_cast<std::ptrdiff_t>(hello.size() / 2);
    return {Bytes(hello.begin(), hello.begin() + half), Bytes(hello.begin() + half, hello.end())};
}

inline std::string text(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

class BluetoothSessionTest : public MIDIServiceTest {
protected:
    // The platform the session runs over; called once in SetUp.
    virtual std::shared_ptr<RNBluetoothPlatform> sessionPlatform() = 0;
    // Whether the platform has nothing under way outside the main queue; virtual time passes
    // only then.
    virtual bool platformSettled() { return true; }

    void SetUp() override {
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder_ / "defaults.json"));
        HostPrompts::setShared(prompts_);
        RNBluetoothPlatform::setShared(sessionPlatform());
        transports_.emplace();
        localDevice_ = FakeClientDevice::listening();

        HVCentralUSBManager::Options options;
        options.localPort = localDevice_->port();
        options.useUSBHub = false;
        HVCentralUSBManager::instantiateWithProductToSendOut("Havrel Test", "1.0", options);
        HavrelCoreBaseMac::instantiateWithProductToSendOut("Havrel Test", "1.0", "2.1");
        registry_ = HVCentralConnectionManager::sharedInstance();
        bluetooth_ = RNCentralBluetoothManager::sharedInstance();

        listener_ = startedManager("Listener");
        listener_->addInputConnection(
            MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::name("Havrel Test Output")}), "in",
            {}, events_.receiver());
    }
    void TearDown() override {
        RNCentralBluetoothManager::resetShared();
        HVCentralUSBManager::resetShared();
        if (localDevice_) {
            localDevice_->stop();
        }
        pump([] { return false; }, std::chrono::milliseconds(20));
        if (auto manager = HVMIDIManager::shared()) {
            manager->stopTimers();
        }
        HVMIDIManager::setShared(nullptr);
        HVTransmissionManager::setShared(nullptr);
        transports_.reset();
        RNBluetoothPlatform::setShared(nullptr);
        HostPrompts::setShared(nullptr);
        DefaultsStore::setStandard(nullptr);
        MIDIServiceTest::TearDown();
    }

    // Runs the main queue until the platform has settled (bounded by the real-time end).
    bool settle(std::chrono::steady_clock::time_point end) {
        while (!platformSettled()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            MainQueue::shared().poll();
            server->flush();
            std::this_thread::yield();
        }
        return true;
    }
    // Virtual time passes a millisecond a step; the MIDI server's threads and the platform
    // deliver in between. The deadline in real time is only a guard against a hang: seconds of
    // virtual time over a real bus take several real seconds under a sanitizer on a busy machine.
    bool pump(const std::function<bool()>& condition,
              std::chrono::milliseconds deadline = std::chrono::milliseconds(30000)) {
        const auto end = std::chrono::steady_clock::now() + deadline;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end || !settle(end)) {
                return false;
            }
            clock.advance(std::chrono::milliseconds(1));
            server->flush();
        }
        return true;
    }
    // Lets virtual time pass.
    void pass(std::chrono::milliseconds duration) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (auto passed = std::chrono::milliseconds(0); passed < duration; passed += std::chrono::milliseconds(10)) {
            settle(end);
            clock.advance(std::chrono::milliseconds(10));
            server->flush();
        }
    }

    // The client device's side of the link, on the platform under test.
    virtual void notify(const std::string& characteristicUUID, const std::vector<Bytes>& values) = 0;
    virtual std::vector<Bytes> outWrites() = 0;
    virtual void dropLink() = 0;
    virtual bool linkUp() = 0;

    // With the client "Pad" introduced: the version, then the Central's identity, each one write
    // ending in the marker; the configuration in link-sized pieces; a range command on realtime
    // that finishes while a pure MIDI message on in is still open (the note leaves as it
    // arrives, the fader a turn of the main queue later, unless each value is a signal of its
    // own); then the link is lost, and the registry forgets the client and the transport starts
    // over. A new scan finds it again.
    void playSessionUntilTheLinkIsFoundAgain(bool noteFirst) {
        auto client = registry_->bluetoothClients().front();
        EXPECT_EQ(client->connectionName, "Pad");
        EXPECT_EQ(client->peripheral, bluetooth_->currentPeripheral());
        EXPECT_FALSE(bluetooth_->hasConnectionTimeout());
        EXPECT_TRUE(pump([] { return DefaultsStore::standard()->get(kLastConnectedAtKey).has_value(); }));

        const auto replies = outWrites();
        ASSERT_EQ(replies.size(), 2u);
        EXPECT_EQ(text(replies[0]), "{\"v\":\"2.1\"}||");
        const std::string identity = text(replies[1]);
        ASSERT_GE(identity.size(), 2u);
        EXPECT_EQ(identity.substr(identity.size() - 2), "||");
        const auto central = Dictionary::parse(identity.substr(0, identity.size() - 2));
        EXPECT_EQ(central["version"], "1.0");
        EXPECT_EQ(central["apiVersion"], "2.1");
        EXPECT_EQ(central["minApi"], "2.1");

        notify(kHavrelInCharacteristicUUID, notificationPieces(inMessage(1, faderDocument(7)), 182));
        ASSERT_TRUE(pump([&] { return client->configuration != nullptr; }));

        const Bytes note = inMessage(3, *RNBluetoothMIDICommandPure::MIDICommandWithStatus(0x90, 60, 100).data());
        notify(kHavrelInCharacteristicUUID, {Bytes(note.begin(), note.begin() + 2)});
        notify(kHavrelRealtimeCharacteristicUUID, notificationPieces(realtimeMessage(range(1.0)), 3));
        notify(kHavrelInCharacteristicUUID, {Bytes(note.begin() + 2, note.end())});
        ASSERT_TRUE(pump([&] { return events_.count() == 2; }));
        const auto received = events_.snapshot();
        if (noteFirst) {
            EXPECT_NE(received[0].get<MIDICore::MIDIEvent::NoteOn>(), nullptr);
        }
        const MIDICore::MIDIEvent::NoteOn* noteOn = nullptr;
        const MIDICore::MIDIEvent::CC* cc = nullptr;
        for (const auto& event : received) {
            noteOn = noteOn ? noteOn : event.get<MIDICore::MIDIEvent::NoteOn>();
            cc = cc ? cc : event.get<MIDICore::MIDIEvent::CC>();
        }
        ASSERT_NE(noteOn, nullptr);
        EXPECT_EQ(noteOn->note.number(), MIDICore::UInt7(60));
        ASSERT_NE(cc, nullptr);
        EXPECT_EQ(cc->controller.number(), MIDICore::UInt7(7));
        EXPECT_EQ(cc->value().midi1Value(), MIDICore::UInt7(127));

        ScopedLogCapture capture;
        dropLink();
        ASSERT_TRUE(pump([&] { return registry_->clients.empty(); }));
        EXPECT_TRUE(bluetooth_->bluetoothConnections().empty());
        EXPECT_TRUE(bluetooth_->hvDiscoveredDevices().empty());
        EXPECT_FALSE(bluetooth_->hasConnectionTimeout());
        EXPECT_EQ(capture.count("did disconnect peripheral error"), 1u);

        bluetooth_->scan();
        ASSERT_TRUE(pump([&] { return linkUp(); }));
    }

    TemporaryFolder temporary_;
    const std::filesystem::path folder_ = temporary_.path();
    std::shared_ptr<ScriptedHostPrompts> prompts_ = std::make_shared<ScriptedHostPrompts>();
    std::optional<TransportScope> transports_;
    std::unique_ptr<FakeClientDevice> localDevice_;
    std::shared_ptr<HVCentralConnectionManager> registry_;
    std::shared_ptr<RNCentralBluetoothManager> bluetooth_;
    std::shared_ptr<MIDIIO::MIDIManager> listener_;
    MIDIIO::testing::EventLog events_;
};

}  // namespace havrel::testing
