// What the status page gathers from the running core (the registry's clients of every
// transport, refusals, the transmission indicator, the meter), and the service's pace: at most
// 20 states a second to an open page, however busy MIDI is. Virtual time.

#include "CoreStatusSources.hpp"
#include "FakeStatusSources.hpp"
#include "StatusService.hpp"

#include "central/HVCentralThroughputMeter.hpp"
#include "central/HVCentralTransmissionManager.hpp"
#include "central/RNClient.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "core/TransportScope.hpp"
#include "musical_time/HVClock.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/PropertyList.hpp"
#include "platform/TemporaryFolder.hpp"

#include <asio.hpp>
#include <gtest/gtest.h>

#include <tuple>
#include <thread>

namespace havrel::testing {
namespace {

using std::chrono::milliseconds;

Dictionary usbInfoOf(const Dictionary& frame) {
    const auto xml = propertyListData(frame, PropertyListFormat::xml);
    return Dictionary{{"info", std::string(xml.data->begin(), xml.data->end())}};
}

Dictionary clientDictionary(const std::string& name, const std::string& apiVersion) {
    return Dictionary{{"type", "RNUSBClient"},
                      {"connectionName", name},
                      {"productID", "pad.app"},
                      {"apiVersion", apiVersion},
                      {"uniqueIdentifier", name + "-id"}};
}

const StatusClient* find(const std::vector<StatusClient>& clients, const std::string& name,
                         const std::string& transport) {
    for (const auto& client : clients) {
        if (client.name == name && client.transport == transport) return &client;
    }
    return nullptr;
}

// A page: the handshake on a thread of its own, while this thread turns the main queue.
bool openPage(asio::ip::tcp::socket& page, StatusService& service) {
    const std::uint16_t port = service.port();
    std::thread opener([&] {
        page.connect({asio::ip::make_address("127.0.0.1"), port});
        const std::string host = "127.0.0.1:" + std::to_string(port);
        asio::write(page, asio::buffer("GET /ws HTTP/1.1\r\nHost: " + host + "\r\nOrigin: http://" + host +
                                       "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                                       "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n"));
        asio::streambuf buffer;
        asio::read_until(page, buffer, "\r\n\r\n");
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (service.server().connectionCount() == 0 && std::chrono::steady_clock::now() < deadline) {
        MainQueue::shared().poll();
        std::this_thread::yield();
    }
    opener.join();
    return service.server().connectionCount() == 1;
}

class CoreStatusSourcesTest : public ::testing::Test {
protected:
    CoreStatusSourcesTest() {
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder_.path() / "defaults.json"));
        HostPrompts::setShared(std::make_shared<ScriptedHostPrompts>());
        registry_ = HVCentralConnectionManager::instantiateWithProductToSendOut("Havrel", "3.0");
    }
    ~CoreStatusSourcesTest() override {
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
        HostPrompts::setShared(nullptr);
        DefaultsStore::setStandard(nullptr);
    }

    // The service with a page open on it; nullptr when either fails.
    std::unique_ptr<StatusService> startWithPage(const std::shared_ptr<FakeStatusSources>& sources, bool control) {
        auto service = StatusService::start({0, control, ""}, sources);
        if (!service || !openPage(page_, *service)) {
            return nullptr;
        }
        return service;
    }

    ManualClockScope clock_;
    TransportScope transports_;
    ScopedLogCapture capture_;
    TemporaryFolder folder_;
    std::shared_ptr<HVCentralConnectionManager> registry_;
    asio::io_context clientIO_;
    asio::ip::tcp::socket page_{clientIO_};
};

TEST_F(CoreStatusSourcesTest, ClientsOfEveryTransportWithTheirStateAndIndicator) {
    auto sources = CoreStatusSources::create();
    // The page hears the registry through its notifications: the delegate slot stays the host's.
    EXPECT_TRUE(registry_->usbDelegate.expired());

    registry_->HVCentralUSBManagerDidConnectToDeviceID(nullptr, 7, usbInfoOf({{"usbClient", clientDictionary("Pad", "2.1")}}), nullptr);
    registry_->HVCentralUSBManagerDidConnectToDeviceID(nullptr, std::nullopt,
                                                       usbInfoOf({{"usbClient", clientDictionary("Laptop", "2.0")}}), nullptr);
    auto bluetooth = RNBluetoothClient::create();
    bluetooth->connectionName = "Pad";
    bluetooth->productID = "pad.app";
    bluetooth->apiVersion = "2.1";
    registry_->RNCentralBluetoothManagerDidReceiveClient(nullptr, bluetooth);
    auto phone = RNBluetoothClient::create();
    phone->connectionName = "Phone";
    registry_->RNCentralBluetoothManagerDidReceiveClient(nullptr, phone);
    // Refused: a client too new (not kept by the registry) and a device that did not say who it is.
    registry_->HVCentralUSBManagerDidConnectToDeviceID(nullptr, 8, usbInfoOf({{"usbClient", clientDictionary("Future", "9.0")}}), nullptr);
    registry_->HVCentralUSBManagerDidConnectToDeviceID(nullptr, 9, usbInfoOf({{"other", 1}}), nullptr);

    auto clients = sources->clients();
    ASSERT_EQ(clients.size(), 6u);
    const auto* usb = find(clients, "Pad", "USB tunnel");
    ASSERT_NE(usb, nullptr);
    EXPECT_EQ(usb->state, "heard");
    EXPECT_EQ(usb->product, "pad.app");
    EXPECT_EQ(usb->apiVersion, "2.1");
    const auto* local = find(clients, "Laptop", "local path");
    ASSERT_NE(local, nullptr);
    EXPECT_EQ(local->apiVersion, "2.0");
    const auto* muted = find(clients, "Pad", "Bluetooth");
    ASSERT_NE(muted, nullptr);
    EXPECT_EQ(muted->state, "muted");
    EXPECT_EQ(muted->reason, "the same device is connected over USB");
    ASSERT_NE(find(clients, "Phone", "Bluetooth"), nullptr);
    EXPECT_EQ(find(clients, "Phone", "Bluetooth")->state, "heard");
    const auto* tooNew = find(clients, "Future", "USB tunnel");
    ASSERT_NE(tooNew, nullptr);
    EXPECT_EQ(tooNew->state, "refused");
    EXPECT_EQ(tooNew->reason, "its API version 9.0 is newer than this Central's 2.1");
    const auto* undescribed = find(clients, "", "USB tunnel");
    ASSERT_NE(undescribed, nullptr);
    EXPECT_EQ(undescribed->state, "refused");
    EXPECT_EQ(undescribed->reason, "Havrel Central needs to be updated to connect to this client.");

    // The USB record leaves: the Bluetooth link of the same device is heard again.
    registry_->HVCentralUSBManagerDidDisconnectFromDeviceID(nullptr, 7, Dictionary::object(), nullptr);
    clients = sources->clients();
    EXPECT_EQ(find(clients, "Pad", "USB tunnel"), nullptr);
    EXPECT_EQ(find(clients, "Pad", "Bluetooth")->state, "heard");

    // The indicator: up with a command, down 0.1 s after the last, per client.
    auto transmission = HVCentralTransmissionManager::sharedInstance();
    transmission->didReceiveCommandForClient(bluetooth);
    EXPECT_FALSE(find(sources->clients(), "Pad", "Bluetooth")->transmitting);  // posted, not yet delivered
    clock_.advance(milliseconds(1));
    EXPECT_TRUE(find(sources->clients(), "Pad", "Bluetooth")->transmitting);
    EXPECT_FALSE(find(sources->clients(), "Phone", "Bluetooth")->transmitting);
    clock_.advance(milliseconds(80));
    transmission->didReceiveCommandForClient(bluetooth);
    clock_.advance(milliseconds(80));
    EXPECT_TRUE(find(sources->clients(), "Pad", "Bluetooth")->transmitting);
    clock_.advance(milliseconds(30));
    EXPECT_FALSE(find(sources->clients(), "Pad", "Bluetooth")->transmitting);

    // The meter and the clock as they stand; no MIDI service here, so no outputs.
    auto meter = HVCentralThroughputMeter::sharedInstance();
    meter->reset();
    meter->recordController(7, 64, 0);
    meter->recordNote(60, 100, 0, true);
    EXPECT_EQ(sources->messagesPerSecond(), 2);
    EXPECT_EQ(sources->lastMessageDescription(), "Note On 60 \u00b7 100");
    EXPECT_TRUE(sources->outputs().empty());
    EXPECT_FALSE(sources->setOutputEnabled("Synth In", false).empty());
    meter->reset();
}

TEST_F(CoreStatusSourcesTest, TheInternalClockIsSetFromThePageUntilMIDIClockTakesOver) {
    auto musical = HVClock::create();
    HVClock::setShared(musical);
    auto sources = CoreStatusSources::create();
    auto clock = sources->clock();
    EXPECT_EQ(clock.source, "internal");
    EXPECT_TRUE(clock.controllable);
    EXPECT_FALSE(clock.running);
    EXPECT_EQ(std::tuple(clock.bar, clock.beat, clock.beatDivision), std::tuple(1, 1, 1));

    EXPECT_EQ(sources->setTempo(90), "");
    EXPECT_EQ(musical->bpm(), 90);
    EXPECT_EQ(sources->setClockRunning(true), "");
    EXPECT_TRUE(sources->clock().running);
    EXPECT_EQ(sources->setClockRunning(false), "");
    EXPECT_FALSE(sources->clock().running);

    // The first tick of MIDI clock makes it follow for good.
    musical->externalTick(1);
    clock = sources->clock();
    EXPECT_EQ(clock.source, "external");
    EXPECT_FALSE(clock.controllable);
    EXPECT_FALSE(sources->setTempo(120).empty());
    EXPECT_FALSE(sources->setClockRunning(true).empty());
    EXPECT_EQ(musical->bpm(), 90);
    HVClock::setShared(nullptr);
}

TEST_F(CoreStatusSourcesTest, AnOpenPageGetsAtMostTwentyStatesASecond) {
    auto sources = std::make_shared<FakeStatusSources>();
    auto service = startWithPage(sources, false);
    ASSERT_NE(service, nullptr);

    // A message leaves every millisecond for a second: twenty states, one per 50 ms.
    for (int ms = 0; ms < 1000; ++ms) {
        const std::uint8_t cc[] = {0xB0, 7, static_cast<std::uint8_t>(ms % 128)};
        service->model().addMonitorBytes(cc);
        clock_.advance(milliseconds(1));
    }
    EXPECT_EQ(service->statesSent(), 20u);
    // Nothing changes for a second: one state without news, and the plot's new sample.
    clock_.advance(milliseconds(1000));
    EXPECT_LE(service->statesSent(), 22u);
    EXPECT_EQ(service->server().connectionCount(), 1u);

    // The log lines at info level reach the page's model while the service runs, and only then.
    log("status test line");
    const auto state = nlohmann::json::parse(service->model().state(true));
    EXPECT_EQ(state["log"].back()["line"], "status test line");
    service.reset();
    EXPECT_TRUE(capture_.contains("status test line"));
}

TEST_F(CoreStatusSourcesTest, AServiceEndedWithRequestsInFlightAnswersNoneOfThem) {
    auto sources = std::make_shared<FakeStatusSources>();
    auto service = startWithPage(sources, true);
    ASSERT_NE(service, nullptr);

    // The first request ends the service; the rest of the burst is read and still to be handled.
    sources->onChange = [&] { service.reset(); };
    const std::string request = R"({"id":1,"op":"setTempo","bpm":100})";
    std::string burst;
    for (int i = 0; i < 50; ++i) {
        // A masked text frame with a zero mask: the payload as it stands.
        burst += std::string{'\x81', static_cast<char>(0x80 | request.size()), 0, 0, 0, 0} + request;
    }
    asio::write(page_, asio::buffer(burst));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (service && std::chrono::steady_clock::now() < deadline) {
        MainQueue::shared().poll();
        std::this_thread::yield();
    }
    ASSERT_EQ(service, nullptr);
    for (int i = 0; i < 20; ++i) {
        MainQueue::shared().poll();
    }
    EXPECT_EQ(sources->calls.size(), 1u);
}

}  // namespace
}  // namespace havrel::testing
