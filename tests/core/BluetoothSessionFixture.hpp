#pragma once
// A whole Bluetooth session on the way in, over whichever Bluetooth platform a test gives: the
// registry, both transports (USB on a local client device that is only there to be found) and
// the MIDI service on the loopback server, with a listening application on the virtual output.
// Also the client's side of the conversation: its introduction, a one-fader configuration,
// range commands and messages with their end marker.

#include "midi_service/MIDIServiceFixture.hpp"
#include "transport/usb/FakeClientDevice.hpp"
#include "TransportScope.hpp"

#include "central/HVEncodedRangeCommand.hpp"
#include "central/HVTransmissionManager.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "core/HavrelCoreBaseMac.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "model/HVDataHelpers.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "model/HVMidiAxisDataWrapper.hpp"
#include "model/HVMidiRangeContainer.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/HostPrompts.hpp"
#include "transport/bluetooth/RNCentralBluetoothManager.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

namespace havrel::testing {

inline constexpr const char* kSessionProduct = "havrel-test";

// A document with one fader: wrapper 1, axis 0, the controller on channel 1.
inline Bytes faderDocument(std::uint8_t controller) {
    auto axis = HVMidiAxisData::create();
    axis->addRangeContainer(HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, controller, false));
    auto wrapper = HVMidiAxisDataWrapper::midiAxisWrapperWithAxisArray({axis});
    wrapper->numericID = 1;
    auto configuration = HVEncodedConfiguration::create();
    configuration->dataWrappers = {wrapper};
    const std::string json = configuration->dictionary().dump();
    return *gzipDeflate(Bytes(json.begin(), json.end()));
}

inline Bytes range(double position) {
    return *HVEncodedRangeCommand::rangeCommandWithRangeValues(
                {HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, position)})
                .data();
}

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
        folder_ = std::filesystem::temp_directory_path() / ("havrel-bluetooth-path-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder_);
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
        std::filesystem::remove_all(folder_);
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

    std::filesystem::path folder_;
    std::shared_ptr<ScriptedHostPrompts> prompts_ = std::make_shared<ScriptedHostPrompts>();
    std::optional<TransportScope> transports_;
    std::unique_ptr<FakeClientDevice> localDevice_;
    std::shared_ptr<HVCentralConnectionManager> registry_;
    std::shared_ptr<RNCentralBluetoothManager> bluetooth_;
    std::shared_ptr<MIDIIO::MIDIManager> listener_;
    MIDIIO::testing::EventLog events_;
};

}  // namespace havrel::testing
