// The whole way in: client devices reach the core through a usbmux stand-in and on the local
// path, are accepted or refused by the registry, sync their configurations and drive MIDI out
// of the virtual output, heard by another application on the loopback MIDI server.

#include "midi_service/MIDIServiceFixture.hpp"
#include "support/UsbmuxStandIn.hpp"
#include "transport/usb/FakeClientDevice.hpp"
#include "ClientDocuments.hpp"
#include "TransportScope.hpp"

#include "central/HVFileRepresentation.hpp"
#include "central/HVReceivedFiles.hpp"
#include "central/HVTransmissionManager.hpp"
#include "central/RNClient.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "core/HavrelCoreBaseMac.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "model/HVDataHelpers.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/TemporaryFolder.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"
#include "transport/usb/TNUSBHub.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace havrel {
namespace {

using havrel::testing::faderDocument;
using havrel::testing::FakeClientDevice;
using havrel::testing::range;
using havrel::testing::UsbmuxStandIn;
using MIDICore::MIDIEvent;

// A file representation: the name and the gzip of the text.
Bytes fileFrame(const std::string& name, const std::string& text) {
    auto file = HVFileRepresentation::create();
    file->filename = name;
    file->data = *gzipDeflate(Bytes(text.begin(), text.end()));
    const std::string json = file->dictionary().dump();
    return Bytes(json.begin(), json.end());
}

std::string contentsOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::size_t openDescriptorCount() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

class USBPathTest : public havrel::testing::MIDIServiceTest {
protected:
    void SetUp() override {
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder_ / "defaults.json"));
        HostPrompts::setShared(prompts_);
        standIn_ = std::make_unique<UsbmuxStandIn>(folder_ / "usbmuxd");
        transports_.emplace(standIn_->socketAddress());
        localDevice_ = FakeClientDevice::listening();
    }
    void TearDown() override {
        HVCentralUSBManager::resetShared();
        for (auto* device : {&localDevice_, &usbDevice_, &refusedDevice_, &garbageDevice_}) {
            if (*device) {
                (*device)->stop();
            }
        }
        pump([] { return false; }, std::chrono::milliseconds(20));
        if (auto manager = HVMIDIManager::shared()) {
            manager->stopTimers();
        }
        HVMIDIManager::setShared(nullptr);
        HVTransmissionManager::setShared(nullptr);
        transports_.reset();
        standIn_.reset();
        HostPrompts::setShared(nullptr);
        HVReceivedFiles::setShared(nullptr);
        DefaultsStore::setStandard(nullptr);
        MIDIServiceTest::TearDown();
    }

    // Virtual time passes one millisecond a step; the server's threads deliver in between.
    bool pump(const std::function<bool()>& condition, std::chrono::milliseconds deadline = std::chrono::seconds(5)) {
        const auto end = std::chrono::steady_clock::now() + deadline;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            clock.advance(step_);
            server->flush();
        }
        return true;
    }

    std::chrono::milliseconds step_{1};

    testing::TemporaryFolder temporary_;
    const std::filesystem::path folder_ = temporary_.path();
    std::shared_ptr<ScriptedHostPrompts> prompts_ = std::make_shared<ScriptedHostPrompts>();
    std::unique_ptr<UsbmuxStandIn> standIn_;
    std::optional<testing::TransportScope> transports_;
    std::unique_ptr<FakeClientDevice> localDevice_;
    std::unique_ptr<FakeClientDevice> usbDevice_;
    std::unique_ptr<FakeClientDevice> refusedDevice_;
    std::unique_ptr<FakeClientDevice> garbageDevice_;
};

TEST_F(USBPathTest, TwoClientsDriveMIDIAndANewerAPIIsRefusedButAnswered) {
    HVCentralUSBManager::Options options;
    options.localPort = localDevice_->port();
    HVCentralUSBManager::instantiateWithProductToSendOut("Havrel Test", "1.0", options);
    HavrelCoreBaseMac::instantiateWithProductToSendOut("Havrel Test", "1.0", "2.1");
    ASSERT_TRUE(HavrelCoreBaseMac::isInitiated());
    auto registry = HVCentralConnectionManager::sharedInstance();

    MIDIIO::testing::EventLog log;
    auto listener = startedManager("Listener");
    listener->addInputConnection(
        MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::name("Havrel Test Output")}), "in", {},
        log.receiver());

    // One client through the usbmux stand-in, one on the local path.
    usbDevice_ = FakeClientDevice::listening();
    ASSERT_TRUE(pump([&] { return standIn_->listenerCount() == 1; }));
    standIn_->attachDevice(5, usbDevice_->port());
    ASSERT_TRUE(pump([&] { return usbDevice_->connected() && localDevice_->connected(); }));

    usbDevice_->introduce("USB Pad", "usb-1");
    localDevice_->introduce("Local Pad", "local-1");
    ASSERT_TRUE(pump([&] { return registry->usbClients().size() == 2; }));
    ASSERT_TRUE(pump([&] {
        return !usbDevice_->framesOfType(110).empty() && !localDevice_->framesOfType(110).empty();
    }));
    ASSERT_NE(registry->usbClientWithDeviceID(5), nullptr);
    EXPECT_EQ(registry->usbClientWithDeviceID(5)->connectionName, "USB Pad");
    ASSERT_NE(registry->usbClientWithDeviceID(std::nullopt), nullptr);
    EXPECT_EQ(registry->usbClientWithDeviceID(std::nullopt)->connectionName, "Local Pad");

    // Different configurations: CC 7 on channel 1 for one, CC 10 on channel 2 for the other.
    usbDevice_->send(104, faderDocument(7, 1));
    localDevice_->send(104, faderDocument(10, 2));
    ASSERT_TRUE(pump([&] {
        return registry->usbClientWithDeviceID(5)->configuration && registry->usbClientWithDeviceID(std::nullopt)->configuration;
    }));
    usbDevice_->send(108, range(1.0));
    ASSERT_TRUE(pump([&] { return log.count() == 1; }));
    localDevice_->send(108, range(1.0));
    ASSERT_TRUE(pump([&] { return log.count() == 2; }));
    auto events = log.snapshot();
    const auto* first = events[0].get<MIDIEvent::CC>();
    const auto* second = events[1].get<MIDIEvent::CC>();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(first->controller.number(), MIDICore::UInt7(7));
    EXPECT_EQ(first->channel, MIDICore::UInt4(0));
    EXPECT_EQ(first->value().midi1Value(), MIDICore::UInt7(127));
    EXPECT_EQ(second->controller.number(), MIDICore::UInt7(10));
    EXPECT_EQ(second->channel, MIDICore::UInt4(1));

    // A client speaking a newer API is refused with the alert, and gets the Central's identity
    // all the same.
    refusedDevice_ = FakeClientDevice::listening();
    standIn_->attachDevice(6, refusedDevice_->port());
    ASSERT_TRUE(pump([&] { return refusedDevice_->connected(); }));
    refusedDevice_->introduce("New Pad", "new-1", "2.2");
    ASSERT_TRUE(pump([&] { return !refusedDevice_->framesOfType(110).empty() && !prompts_->alerts().empty(); }));
    EXPECT_EQ(prompts_->alerts().front().buttonTitle, "OK");
    EXPECT_EQ(registry->usbClients().size(), 2u);
    EXPECT_EQ(registry->usbClientWithDeviceID(6), nullptr);

    // A first frame that is no property list: one log line, a refused record, nothing else.
    {
        ScopedLogCapture capture;
        garbageDevice_ = FakeClientDevice::listening();
        standIn_->attachDevice(8, garbageDevice_->port());
        ASSERT_TRUE(pump([&] { return garbageDevice_->connected(); }));
        garbageDevice_->send(100, std::string("\x01\x02 not a property list"));
        ASSERT_TRUE(pump([&] { return registry->usbClients().size() == 3; }));
        EXPECT_EQ(capture.count("is not a property list"), 1u);
        EXPECT_EQ(registry->usbClientWithDeviceID(8)->state, RNClientStateRefused);
    }

    // Detaching the USB device removes its record; the local client stays.
    standIn_->detachDevice(5);
    ASSERT_TRUE(pump([&] { return registry->usbClientWithDeviceID(5) == nullptr; }));
    EXPECT_EQ(registry->usbClientWithDeviceID(std::nullopt)->connectionName, "Local Pad");
}

TEST_F(USBPathTest, TwoHundredVisitsOnTheLocalPathLeaveNoRecordTimerOrDescriptor) {
    HVCentralUSBManager::Options options;
    options.localPort = localDevice_->port();
    options.useUSBHub = false;
    auto usb = HVCentralUSBManager::instantiateWithProductToSendOut("Havrel Test", "1.0", options);
    HavrelCoreBaseMac::instantiateWithProductToSendOut("Havrel Test", "1.0", "2.1");
    auto registry = HVCentralConnectionManager::sharedInstance();
    ASSERT_TRUE(pump([&] { return localDevice_->connected(); }));
    const std::size_t descriptorsBefore = openDescriptorCount();
    // Each visit waits for the 2 s local probe: let virtual time pass in larger steps.
    step_ = std::chrono::milliseconds(25);
    for (int visit = 0; visit < 200; ++visit) {
        ASSERT_TRUE(pump([&] { return localDevice_->connected(); })) << "visit " << visit;
        localDevice_->introduce("Local Pad", "local-1");
        localDevice_->send(104, faderDocument(7, 1));
        ASSERT_TRUE(pump([&] {
            auto record = registry->usbClientWithDeviceID(std::nullopt);
            return record && record->configuration;
        })) << "visit " << visit;
        localDevice_->closePeer();
        ASSERT_TRUE(pump([&] { return registry->clients.empty(); })) << "visit " << visit;
    }
    EXPECT_TRUE(usb->connectionManager()->connectedChannels.empty() ||
                usb->connectionManager()->connectedChannels.size() == 1);
    EXPECT_FALSE(usb->connectionManager()->hasScannerTimer());
    EXPECT_LE(openDescriptorCount(), descriptorsBefore + 1);  // the next visit's connection may be open
}

TEST_F(USBPathTest, AHostileClientCannotWriteFilesRepeatAlertsOrAddRecordsAndStillPlays) {
    HVCentralUSBManager::Options options;
    options.localPort = localDevice_->port();
    options.useUSBHub = false;
    HVCentralUSBManager::instantiateWithProductToSendOut("Havrel Test", "1.0", options);
    HavrelCoreBaseMac::instantiateWithProductToSendOut("Havrel Test", "1.0", "2.1");
    auto registry = HVCentralConnectionManager::sharedInstance();
    HVReceivedFiles::setShared(std::make_shared<HVReceivedFiles>());
    const auto received = folder_ / "received";
    std::filesystem::create_directories(received);
    std::ofstream(received / "song.mid") << "mine";
    MIDIIO::testing::EventLog log;
    auto listener = startedManager("Listener");
    listener->addInputConnection(
        MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::name("Havrel Test Output")}), "in", {},
        log.receiver());
    ScopedLogCapture capture;
    ASSERT_TRUE(pump([&] { return localDevice_->connected(); }));

    // A file before any introduction, then 3,000 introductions on one connection (without an
    // identifier, which would match an earlier record).
    localDevice_->send(111, fileFrame("song.mid", "theirs"));
    for (int batch = 0; batch < 10; ++batch) {
        for (int i = 0; i < 300; ++i) localDevice_->introduce("Local Pad", "");
        pump([] { return false; }, std::chrono::milliseconds(20));
    }
    localDevice_->send(104, faderDocument(7, 1));
    prompts_->queueSaveAnswer(received / "song.mid");
    localDevice_->send(111, fileFrame("song.mid", "theirs"));
    localDevice_->send(108, range(1.0));
    ASSERT_TRUE(pump([&] { return log.count() == 1 && capture.contains("received file written to"); }));
    EXPECT_EQ(registry->clients.size(), 1u);
    EXPECT_EQ(localDevice_->framesOfType(110).size(), 1u);
    EXPECT_LE(registry->handoffMarker().writeCount(), 1u);
    EXPECT_TRUE(prompts_->alerts().empty());
    EXPECT_EQ(capture.count("only the first is acted on"), 1u);
    // The early file was dropped without a question; the later one did not replace the user's.
    EXPECT_EQ(prompts_->savePanels(), std::vector<std::string>{"song.mid"});
    EXPECT_EQ(contentsOf(received / "song.mid"), "mine");
    EXPECT_EQ(contentsOf(received / "song (2).mid"), "theirs");

    // Its connection ends: exactly its record goes.
    localDevice_->closePeer();
    ASSERT_TRUE(pump([&] { return registry->clients.empty(); }));

    // A refused client repeating itself: one alert, and its file and MIDI go nowhere.
    step_ = std::chrono::milliseconds(25);
    ASSERT_TRUE(pump([&] { return localDevice_->connected(); }));
    for (int i = 0; i < 100; ++i) localDevice_->introduce("New Pad", "new-1", "2.2");
    localDevice_->send(106, Bytes{0x90 ^ 0x80, 60, 100});
    prompts_->queueSaveAnswer(received / "new.mid");
    localDevice_->send(111, fileFrame("new.mid", "x"));
    ASSERT_TRUE(pump([&] { return capture.count("is not an accepted client") == 2; }));
    pump([] { return false; }, std::chrono::milliseconds(50));
    EXPECT_EQ(prompts_->alerts().size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(received / "new.mid"));
    EXPECT_EQ(log.count(), 1u);
    EXPECT_TRUE(registry->clients.empty());
}

}  // namespace
}  // namespace havrel
