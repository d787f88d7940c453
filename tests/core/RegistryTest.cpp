// The client registry driven through its transport callbacks: who is accepted, refused or
// ignored, which Bluetooth links are muted for a device that is also on USB, and what the host
// hears (delegates, notifications, the last-connection marker).

#include "central/RNCentral.hpp"
#include "central/RNClient.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/PropertyList.hpp"
#include "platform/TemporaryFolder.hpp"

#include "TransportScope.hpp"
#include "support/MainQueueWaiting.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

namespace havrel {
namespace {

// Records every call as "<operation> <client connection name or null>".
class RecordingDelegate final : public HVCentralConnectionManagerUSBDelegate,
                                public RNCentralBluetoothManagerDelegate {
public:
    std::vector<std::string> calls;
    std::vector<std::shared_ptr<RNClient>> clients;
    // The registry's client count when the Bluetooth disconnect was forwarded.
    std::size_t clientsAtDisconnect = 0;
    std::weak_ptr<HVCentralConnectionManager> registry;

    void record(const std::string& operation, const std::shared_ptr<RNClient>& client) {
        calls.push_back(operation + " " + (client ? client->connectionName.value_or("?") : std::string("null")));
        clients.push_back(client);
    }
    void HVCentralConnectionManagerDidConnectToUSBClient(HVCentralConnectionManager*,
                                                         const std::shared_ptr<RNClient>& client) override {
        record("connect", client);
    }
    void HVCentralConnectionManagerDidDisconnectFromUSBClient(HVCentralConnectionManager*,
                                                              const std::shared_ptr<RNClient>& client) override {
        record("disconnect", client);
    }
    void HVCentralConnectionManagerDidRefuseToConnectUSBClient(HVCentralConnectionManager*,
                                                               const std::shared_ptr<RNClient>& client) override {
        record("refuse", client);
    }

    void RNCentralBluetoothManagerDidStartScanning(RNCentralBluetoothManager*) override { calls.push_back("startScan"); }
    void RNCentralBluetoothManagerDidStopScanning(RNCentralBluetoothManager*) override { calls.push_back("stopScan"); }
    void RNCentralBluetoothManagerDidStartConnecting(RNCentralBluetoothManager*, const PeripheralReference&) override {
        calls.push_back("startConnecting");
    }
    void RNCentralBluetoothManagerDidStopConnecting(RNCentralBluetoothManager*, const PeripheralReference&) override {
        calls.push_back("stopConnecting");
    }
    void RNCentralBluetoothManagerDidDidReceiveConnectionNameForPerhipheral(RNCentralBluetoothManager*,
                                                                           const PeripheralReference&) override {
        calls.push_back("name");
    }
    void RNCentralBluetoothManagerDidReceiveClient(RNCentralBluetoothManager*,
                                                   const std::shared_ptr<RNClient>& client) override {
        record("btReceive", client);
    }
    void RNCentralBluetoothManagerDidFinishConnection(RNCentralBluetoothManager*,
                                                      const std::shared_ptr<RNClient>& client) override {
        record("btFinish", client);
    }
    void RNCentralBluetoothManagerDidDisconnectFromClient(RNCentralBluetoothManager*,
                                                          const std::shared_ptr<RNClient>& client) override {
        record("btDisconnect", client);
        if (auto manager = registry.lock()) {
            clientsAtDisconnect = manager->clients.size();
        }
    }
    std::shared_ptr<RNBluetoothClient> clientForPeripheral(const PeripheralReference&) override { return nullptr; }
};

Dictionary clientDictionary(const std::string& name, const std::string& uniqueIdentifier,
                            const std::string& apiVersion = "2.1") {
    return Dictionary{{"type", "RNUSBClient"},   {"connectionName", name},     {"productID", "abc"},
                      {"apiVersion", apiVersion}, {"uniqueIdentifier", uniqueIdentifier}};
}

// The dictionary the USB transport hands over: the first frame's property list as XML text.
Dictionary usbInfo(const Dictionary& frame) {
    const auto xml = propertyListData(frame, PropertyListFormat::xml);
    return Dictionary{{"info", std::string(xml.data->begin(), xml.data->end())}};
}

Dictionary usbInfoOf(const Dictionary& client) {
    return usbInfo(Dictionary{{"usbClient", client}});
}

std::shared_ptr<RNBluetoothClient> bluetoothClient(const std::string& name, const std::string& apiVersion = "2.1") {
    auto client = RNBluetoothClient::create();
    client->connectionName = name;
    client->productID = "abc";
    client->apiVersion = apiVersion;
    return client;
}

class RegistryTest : public ::testing::Test {
protected:
    RegistryTest() {
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder_ / "defaults.json"));
        HostPrompts::setShared(prompts_);
        registry_->usbDelegate = delegate_;
        registry_->bluetoothDelegate = delegate_;
        delegate_->registry = registry_;
        auto& center = NotificationCenter::defaultCenter();
        center.addObserver(this, HVHandoffMacClientConnectedNotification, nullptr,
                           [this](const Notification&) { ++connectedNotifications_; });
        center.addObserver(this, HVHandoffMacClientDisconnectedNotification, nullptr,
                           [this](const Notification&) { ++disconnectedNotifications_; });
    }
    ~RegistryTest() override {
        NotificationCenter::defaultCenter().removeObserver(this);
        HostPrompts::setShared(nullptr);
        DefaultsStore::setStandard(nullptr);
    }

    void connectUSB(std::optional<std::int64_t> deviceID, const Dictionary& info) {
        registry_->HVCentralUSBManagerDidConnectToDeviceID(nullptr, deviceID, info, nullptr);
    }
    void disconnectUSB(std::optional<std::int64_t> deviceID) {
        registry_->HVCentralUSBManagerDidDisconnectFromDeviceID(nullptr, deviceID, Dictionary::object(), nullptr);
    }

    testing::TransportScope transports_;
    testing::TemporaryFolder temporary_;
    const std::filesystem::path folder_ = temporary_.path();
    std::shared_ptr<ScriptedHostPrompts> prompts_ = std::make_shared<ScriptedHostPrompts>();
    std::shared_ptr<HVCentralConnectionManager> registry_ =
        HVCentralConnectionManager::initWithProductToSendOut("Havrel Central", "3.0");
    std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
    int connectedNotifications_ = 0;
    int disconnectedNotifications_ = 0;
};

TEST_F(RegistryTest, BluetoothLinkOfADeviceOnUSBIsMutedWhileTheUSBRecordLasts) {
    ScopedLogCapture capture;
    auto bt = bluetoothClient("Pad");
    registry_->RNCentralBluetoothManagerDidReceiveClient(nullptr, bt);
    EXPECT_FALSE(bt->supersededByUSB);
    EXPECT_EQ(registry_->bluetoothClients().size(), 1u);
    // The host hears of a Bluetooth client through the transport's own finish call only.
    EXPECT_TRUE(delegate_->calls.empty());

    connectUSB(3, usbInfoOf(clientDictionary("Pad", "usb-pad")));
    EXPECT_TRUE(bt->supersededByUSB);
    const std::string muting = "muting bluetooth client \"Pad\" \u2014 same device is also connected over USB";
    const std::string unmuting = "unmuting bluetooth client \"Pad\" \u2014 same device is no longer connected over USB";
    EXPECT_EQ(capture.count(muting), 1u);

    // Nothing changed: nothing logged.
    registry_->updateTransportArbitration();
    registry_->updateTransportArbitration();
    EXPECT_EQ(capture.count("bluetooth client"), 1u);

    disconnectUSB(3);
    EXPECT_FALSE(bt->supersededByUSB);
    EXPECT_EQ(capture.count(unmuting), 1u);
    EXPECT_EQ(capture.count("bluetooth client"), 2u);

    // A refused USB record of the same device does not count.
    auto refused = RNUSBClient::initFromDictionary(clientDictionary("Pad", "other"));
    refused->state = RNClientStateRefused;
    registry_->clients.push_back(refused);
    registry_->updateTransportArbitration();
    EXPECT_FALSE(bt->supersededByUSB);
    refused->state = RNClientStateAcceptedOverUSB;
    registry_->updateTransportArbitration();
    EXPECT_TRUE(bt->supersededByUSB);

    // A muted client that loses its name has no identity left and is unmuted.
    bt->connectionName = "";
    registry_->updateTransportArbitration();
    EXPECT_FALSE(bt->supersededByUSB);
    EXPECT_EQ(capture.count("unmuting bluetooth client \"\" \u2014 same device is no longer connected over USB"), 1u);
}

TEST_F(RegistryTest, AcceptedUSBClientIsRecordedAnnouncedAndMarked) {
    ScopedLogCapture capture;
    connectUSB(7, usbInfoOf(clientDictionary("Pad", "u1")));
    ASSERT_EQ(registry_->usbClients().size(), 1u);
    auto client = registry_->usbClients()[0];
    EXPECT_EQ(client->deviceID, 7);
    EXPECT_EQ(client->state, RNClientStateAcceptedOverUSB);
    EXPECT_EQ(delegate_->calls, std::vector<std::string>{"connect Pad"});
    EXPECT_EQ(delegate_->clients[0], client);
    EXPECT_EQ(connectedNotifications_, 1);
    EXPECT_EQ(capture.count("[HVHandoffMac] client connected on Mac \u2014 wrote lastConnectedAt marker"), 1u);
    // Written off the main queue.
    ASSERT_TRUE(testing::runMainQueueUntil([&] { return registry_->handoffMarker().writeCount() == 1; }));
    const auto marker = DefaultsStore::standard()->string(kLastConnectedAtKey);
    ASSERT_TRUE(marker.has_value());
    EXPECT_TRUE(std::regex_match(*marker, std::regex(R"(\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2}Z)"))) << *marker;
    EXPECT_TRUE(prompts_->alerts().empty());

    // The same device again, or another device with the same identifier: ignored silently.
    capture.clear();
    connectUSB(7, usbInfoOf(clientDictionary("Pad", "u9")));
    connectUSB(8, usbInfoOf(clientDictionary("Pad 2", "u1")));
    EXPECT_EQ(registry_->clients.size(), 1u);
    EXPECT_EQ(delegate_->calls.size(), 1u);
    EXPECT_EQ(connectedNotifications_, 1);
    EXPECT_TRUE(capture.lines().empty());

    // A client on the local path has no device number; an empty identifier never matches.
    connectUSB(std::nullopt, usbInfoOf(clientDictionary("Local", "")));
    connectUSB(std::nullopt, usbInfoOf(clientDictionary("Local 2", "")));
    EXPECT_EQ(registry_->usbClients().size(), 3u);
    EXPECT_EQ(registry_->usbClientWithDeviceID(std::nullopt)->connectionName, "Local");
    EXPECT_EQ(registry_->usbClientWithDeviceID(7), client);
    EXPECT_EQ(registry_->usbClientWithDeviceID(9), nullptr);
    // Their two markers, within a second of the first, make one write a second later.
    ASSERT_TRUE(testing::runMainQueueUntil([&] { return registry_->handoffMarker().writeCount() == 2; }));
    testing::runMainQueueUntil([] { return false; }, std::chrono::milliseconds(100));
    EXPECT_EQ(registry_->handoffMarker().writeCount(), 2u);
}

TEST_F(RegistryTest, ClientsTooNewOrUndescribedAreRefused) {
    ScopedLogCapture capture;
    connectUSB(1, usbInfoOf(clientDictionary("New", "n1", "2.2")));
    EXPECT_TRUE(registry_->clients.empty());
    EXPECT_EQ(delegate_->calls, std::vector<std::string>{"refuse New"});
    EXPECT_EQ(delegate_->clients[0]->deviceID, 1);
    const ScriptedHostPrompts::Alert update{kCentralUpdateRequiredText, kCentralUpdateRequiredText, "OK"};
    ASSERT_EQ(prompts_->alerts().size(), 1u);
    EXPECT_EQ(prompts_->alerts()[0], update);
    EXPECT_EQ(prompts_->alerts()[0].message.rfind("Central needs to be updated in order to connect to this client.\n"
                                                  "Cenral can be updated by selecting \"Check for updates\"",
                                                  0),
              0u);

    // Over Bluetooth the client is simply not added.
    registry_->RNCentralBluetoothManagerDidReceiveClient(nullptr, bluetoothClient("New", "10"));
    EXPECT_TRUE(registry_->clients.empty());
    EXPECT_EQ(prompts_->alerts().size(), 2u);
    EXPECT_EQ(connectedNotifications_, 0);

    // A first frame without "usbClient": a refused record that stays until the device leaves.
    delegate_->calls.clear();
    connectUSB(2, usbInfo(Dictionary{{"somethingElse", 1}}));
    ASSERT_EQ(registry_->clients.size(), 1u);
    auto refused = registry_->usbClientWithDeviceID(2);
    ASSERT_NE(refused, nullptr);
    EXPECT_EQ(refused->state, RNClientStateRefused);
    EXPECT_EQ(refused->errorMessage, "Havrel Central needs to be updated to connect to this client.");
    EXPECT_EQ(delegate_->calls, std::vector<std::string>{"refuse ?"});
    EXPECT_EQ(connectedNotifications_, 0);
    EXPECT_EQ(capture.lines().size(), 2u);  // the two alerts
    EXPECT_EQ(capture.count("alert: Central needs to be updated"), 2u);

    // A text that is no property list, no text at all, or a "usbClient" that is no dictionary:
    // refused the same way, with one line each.
    connectUSB(3, Dictionary{{"info", "<plist><dict><key>usbClient"}});
    connectUSB(4, Dictionary::object());
    connectUSB(5, usbInfo(Dictionary{{"usbClient", "Pad"}}));
    EXPECT_EQ(registry_->clients.size(), 4u);
    EXPECT_EQ(capture.count("is not a property list, client refused"), 2u);
    EXPECT_EQ(capture.count("\"usbClient\" of device 5 is not a dictionary, client refused"), 1u);
    for (std::int64_t device : {3, 4, 5}) {
        EXPECT_EQ(registry_->usbClientWithDeviceID(device)->state, RNClientStateRefused);
    }

    // The 2.1 client is welcome.
    connectUSB(6, usbInfoOf(clientDictionary("Current", "c1", "2.1")));
    EXPECT_EQ(registry_->usbClientWithDeviceID(6)->state, RNClientStateAcceptedOverUSB);
    EXPECT_EQ(prompts_->alerts().size(), 2u);

    disconnectUSB(2);
    EXPECT_EQ(registry_->usbClientWithDeviceID(2), nullptr);
}

TEST_F(RegistryTest, DisconnectsAlwaysReachTheHost) {
    disconnectUSB(42);
    EXPECT_EQ(delegate_->calls, std::vector<std::string>{"disconnect null"});
    EXPECT_EQ(disconnectedNotifications_, 1);

    connectUSB(std::nullopt, usbInfoOf(clientDictionary("Local", "l1")));
    disconnectUSB(std::nullopt);
    EXPECT_EQ(delegate_->calls.back(), "disconnect Local");
    EXPECT_TRUE(registry_->clients.empty());
    EXPECT_EQ(disconnectedNotifications_, 2);

    // Bluetooth: the host hears first, while the client is still listed.
    auto peripheral = std::make_shared<int>(1);
    auto bt = bluetoothClient("Pad");
    bt->peripheral = peripheral;
    registry_->RNCentralBluetoothManagerDidReceiveClient(nullptr, bt);
    EXPECT_EQ(registry_->clientForPeripheral(peripheral), bt);
    EXPECT_EQ(registry_->clientForPeripheral(std::make_shared<int>(1)), nullptr);
    registry_->RNCentralBluetoothManagerDidDisconnectFromClient(nullptr, bt);
    EXPECT_EQ(delegate_->calls.back(), "btDisconnect Pad");
    EXPECT_EQ(delegate_->clientsAtDisconnect, 1u);
    EXPECT_TRUE(registry_->clients.empty());
    EXPECT_EQ(disconnectedNotifications_, 3);

    // The remaining Bluetooth news is passed on as it is.
    delegate_->calls.clear();
    registry_->RNCentralBluetoothManagerDidStartScanning(nullptr);
    registry_->RNCentralBluetoothManagerDidStopScanning(nullptr);
    registry_->RNCentralBluetoothManagerDidStartConnecting(nullptr, peripheral);
    registry_->RNCentralBluetoothManagerDidStopConnecting(nullptr, peripheral);
    registry_->RNCentralBluetoothManagerDidDidReceiveConnectionNameForPerhipheral(nullptr, peripheral);
    registry_->RNCentralBluetoothManagerDidFinishConnection(nullptr, bt);
    EXPECT_EQ(delegate_->calls, (std::vector<std::string>{"startScan", "stopScan", "startConnecting", "stopConnecting",
                                                           "name", "btFinish Pad"}));
}

}  // namespace
}  // namespace havrel
