// The Bluetooth transport over the simulated radio, in virtual time: sightings and the device
// list, connecting with its two-stage time-out, discovery and the staggered subscriptions, the
// handshake writes, received data, the send loop, and the ends of a link.

#include "backends/bluetooth_simulated/SimulatedBluetoothRadio.hpp"
#include "central/RNCentral.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"
#include "transport/bluetooth/RNCentralBluetoothManager.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace havrel {
namespace {

using namespace std::chrono_literals;

class RecordingManagerDelegate final : public RNCentralBluetoothManagerDelegate {
public:
    std::vector<std::string> calls;
    std::vector<std::shared_ptr<RNBluetoothClient>> clients;

    void RNCentralBluetoothManagerDidStartScanning(RNCentralBluetoothManager*) override { calls.push_back("startScan"); }
    void RNCentralBluetoothManagerDidStopScanning(RNCentralBluetoothManager*) override { calls.push_back("stopScan"); }
    void RNCentralBluetoothManagerDidStartConnecting(RNCentralBluetoothManager*, const PeripheralReference&) override {
        calls.push_back("connecting");
    }
    void RNCentralBluetoothManagerDidStopConnecting(RNCentralBluetoothManager*, const PeripheralReference&) override {}
    void RNCentralBluetoothManagerDidDidReceiveConnectionNameForPerhipheral(RNCentralBluetoothManager*,
                                                                           const PeripheralReference&) override {}
    void RNCentralBluetoothManagerDidReceiveClient(RNCentralBluetoothManager*,
                                                   const std::shared_ptr<RNClient>& client) override {
        calls.push_back("client");
        clients.push_back(std::dynamic_pointer_cast<RNBluetoothClient>(client));
    }
    void RNCentralBluetoothManagerDidFinishConnection(RNCentralBluetoothManager*, const std::shared_ptr<RNClient>&) override {
        calls.push_back("finished");
    }
    void RNCentralBluetoothManagerDidDisconnectFromClient(RNCentralBluetoothManager*,
                                                          const std::shared_ptr<RNClient>& client) override {
        calls.push_back(client ? "disconnect " + client->connectionName.value_or("?") : "disconnect null");
        std::erase(clients, client);
    }
    std::shared_ptr<RNBluetoothClient> clientForPeripheral(const PeripheralReference& peripheral) override {
        for (const auto& client : clients) {
            if (client && client->peripheral == peripheral) {
                return client;
            }
        }
        return nullptr;
    }
};

Bytes withMarker(std::uint8_t command, const std::string& body) {
    std::string whole(1, static_cast<char>(command));
    whole += body + "||";
    return Bytes(whole.begin(), whole.end());
}

std::string text(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

struct FailureRecord {
    std::string deviceName;
    std::string diagnostic;
};

class ManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        RNBluetoothPlatform::setShared(radio);
        HostPrompts::setShared(prompts);
        manager = RNCentralBluetoothManager::initWithProductToSendOut("Havrel Test", "1.2.3");
        manager->delegate = delegate;
        NotificationCenter::defaultCenter().addObserver(this, HVCentralBluetoothConnectionFailedNotification,
                                                        manager.get(), [this](const Notification& notification) {
                                                            failures.push_back({notification.userInfo["deviceName"],
                                                                                notification.userInfo["diagnostic"]});
                                                        });
        NotificationCenter::defaultCenter().addObserver(this, HVCentralBluetoothDiscoveryChangedNotification,
                                                        manager.get(),
                                                        [this](const Notification&) { ++discoveryChanges; });
        clock.advance(0ms);
    }
    void TearDown() override {
        NotificationCenter::defaultCenter().removeObserver(this);
        manager.reset();
        RNBluetoothPlatform::setShared(nullptr);
        HostPrompts::setShared(nullptr);
    }

    // Sighted, connected, subscribed to all three characteristics.
    std::shared_ptr<SimulatedPeripheral> linkedPeripheral(SimulatedPeripheral::Settings settings = {}) {
        auto peripheral = radio->addPeripheral(std::move(settings));
        manager->scan();
        peripheral->startAdvertising();
        clock.advance(4s);
        return peripheral;
    }
    void handshake(const std::shared_ptr<SimulatedPeripheral>& peripheral, const std::string& name = "Pad") {
        peripheral->notifyInPieces(
            kHavrelInCharacteristicUUID,
            withMarker(0, R"({"type":"RNBluetoothClient","apiVersion":"2.1","productID":"p","connectionName":")" +
                              name + "\"}"),
            20);
        clock.advance(0ms);
    }

    ManualClockScope clock;
    std::shared_ptr<SimulatedBluetoothRadio> radio = SimulatedBluetoothRadio::create();
    std::shared_ptr<ScriptedHostPrompts> prompts = std::make_shared<ScriptedHostPrompts>();
    std::shared_ptr<RecordingManagerDelegate> delegate = std::make_shared<RecordingManagerDelegate>();
    std::shared_ptr<RNCentralBluetoothManager> manager;
    std::vector<FailureRecord> failures;
    int discoveryChanges = 0;
};

TEST_F(ManagerTest, ASightedDeviceIsConnectedSubscribedInStepsAndAnsweredThenItsDataFlowsUntilItLeaves) {
    ScopedLogCapture capture;
    EXPECT_TRUE(manager->bluetoothPowerOn());
    auto peripheral = radio->addPeripheral();
    manager->scan();
    EXPECT_TRUE(manager->isScanning());
    peripheral->startAdvertising();
    clock.advance(0ms);

    // The first sighting connects and stops the scan.
    EXPECT_FALSE(manager->isScanning());
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"startScan", "stopScan", "connecting"}));
    EXPECT_EQ(manager->currentPeripheral(), peripheral);
    EXPECT_TRUE(manager->isConnected());
    EXPECT_TRUE(manager->hasConnectionTimeout());
    // Out at once, in after two seconds, realtime after four.
    EXPECT_TRUE(peripheral->isSubscribed(kHavrelOutCharacteristicUUID));
    EXPECT_FALSE(peripheral->isSubscribed(kHavrelInCharacteristicUUID));
    clock.advance(1999ms);
    EXPECT_FALSE(peripheral->isSubscribed(kHavrelInCharacteristicUUID));
    clock.advance(1ms);
    EXPECT_TRUE(peripheral->isSubscribed(kHavrelInCharacteristicUUID));
    EXPECT_FALSE(peripheral->isSubscribed(kHavrelRealtimeCharacteristicUUID));
    clock.advance(2s);
    EXPECT_TRUE(peripheral->isSubscribed(kHavrelRealtimeCharacteristicUUID));

    // The client's introduction in pieces: the version first, then the Central's identity, each
    // one whole write ending in the marker; the time-out is over.
    handshake(peripheral);
    ASSERT_EQ(delegate->clients.size(), 1u);
    EXPECT_EQ(delegate->clients[0]->peripheral, peripheral);
    EXPECT_EQ(delegate->calls.back(), "finished");
    EXPECT_FALSE(manager->hasConnectionTimeout());
    const auto writes = peripheral->writes(kHavrelOutCharacteristicUUID);
    ASSERT_EQ(writes.size(), 2u);
    EXPECT_EQ(text(writes[0]), R"({"v":"2.1"}||)");
    ASSERT_EQ(text(writes[1]).substr(text(writes[1]).size() - 2), "||");
    const auto central = Dictionary::parse(text(writes[1]).substr(0, writes[1].size() - 2));
    EXPECT_EQ(central, RNCentral::localCentralWithVersion("1.2.3")->dictionary());

    // A sync in small pieces sets the configuration.
    const std::string document = HVEncodedConfiguration::create()->dictionary().dump();
    peripheral->notifyInPieces(kHavrelInCharacteristicUUID, withMarker(1, document), 7);
    clock.advance(0ms);
    ASSERT_NE(delegate->clients[0]->configuration, nullptr);

    // Data pushed on the link's queue leaves in chunks of the link's write length.
    const auto& connection = manager->bluetoothConnections().begin()->second;
    EXPECT_EQ(connection->dataQueue().maxDataChunkSize(), 182u);
    connection->dataQueue().pushData(Bytes(400, 0x33), kHavrelOutCharacteristicUUID);
    const auto sent = peripheral->writes(kHavrelOutCharacteristicUUID);
    ASSERT_EQ(sent.size(), 5u);
    EXPECT_EQ(sent[2].size(), 182u);
    EXPECT_EQ(sent[3].size(), 182u);
    EXPECT_EQ(sent[4].size(), 36u);
    EXPECT_FALSE(connection->dataQueue().hasData());

    // The client asks to leave: reset at once, the registry hears of it from the link-down.
    capture.clear();
    peripheral->notify(kHavrelInCharacteristicUUID, {Bytes{0x04, 0x7C, 0x7C}});
    clock.advance(0ms);
    EXPECT_TRUE(manager->bluetoothConnections().empty());
    EXPECT_TRUE(manager->hvDiscoveredDevices().empty());
    EXPECT_EQ(peripheral->state(), CBPeripheralStateDisconnected);
    EXPECT_FALSE(peripheral->isSubscribed(kHavrelInCharacteristicUUID));
    EXPECT_EQ(delegate->calls.back(), "disconnect Pad");
    EXPECT_EQ(capture.count("did disconnect peripheral <peripheral"), 1u);
    EXPECT_EQ(capture.count("did disconnect peripheral error"), 0u);
    EXPECT_TRUE(failures.empty());
}

TEST_F(ManagerTest, TheTimeOutCoversConnectingAndHandshakingEachWithTheFullEightSeconds) {
    ScopedLogCapture capture;
    SimulatedPeripheral::Settings settings;
    settings.connectionAnswer = SimulatedPeripheral::ConnectionAnswer::ignore;
    auto peripheral = radio->addPeripheral(settings);
    manager->scan();
    peripheral->startAdvertising();
    clock.advance(5s);
    EXPECT_EQ(peripheral->state(), CBPeripheralStateConnecting);
    peripheral->acceptPendingConnection();
    clock.advance(7900ms);  // 12.9 s from the start: the link-up began a new 8 s
    EXPECT_TRUE(failures.empty());
    EXPECT_EQ(peripheral->state(), CBPeripheralStateConnected);
    clock.advance(100ms);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].deviceName, "Simulated Pad");
    EXPECT_EQ(failures[0].diagnostic, "Timeout \u00b7 no handshake in 8s");
    EXPECT_EQ(capture.count("connection to Simulated Pad timed out after 8s (link state 2)"), 1u);
    EXPECT_EQ(peripheral->state(), CBPeripheralStateDisconnected);
    EXPECT_FALSE(manager->hasConnectionTimeout());
    // The cancelled link comes back as a link-down without a client.
    EXPECT_EQ(delegate->calls.back(), "disconnect null");

    // A connect that never completes ends the same way after 8 s.
    auto silent = radio->addPeripheral(settings);
    manager->scan();
    silent->startAdvertising();
    clock.advance(7999ms);
    EXPECT_EQ(failures.size(), 1u);
    clock.advance(1ms);
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_EQ(capture.count("timed out after 8s (link state 1)"), 1u);
}

TEST_F(ManagerTest, RefusedConnectsAndAnUnreadableHandshakeReportWhatHappened) {
    ScopedLogCapture capture;
    SimulatedPeripheral::Settings settings;
    settings.name = "";
    settings.connectionAnswer = SimulatedPeripheral::ConnectionAnswer::refuse;
    settings.refusalError = RNBluetoothError{"CBErrorDomain", 14, "Peer removed pairing information"};
    auto refusing = radio->addPeripheral(settings);
    manager->scan();
    refusing->startAdvertising();
    clock.advance(0ms);
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].deviceName, "the device");
    EXPECT_EQ(failures[0].diagnostic, "CBErrorDomain 14 \u00b7 Peer removed pairing information");
    EXPECT_FALSE(manager->hasConnectionTimeout());
    EXPECT_EQ(capture.count("failed to connect peripheral"), 1u);

    manager->reset();
    refusing->settings().refusalError.reset();
    refusing->stopAdvertising();
    manager->scan();
    refusing->startAdvertising();
    clock.advance(0ms);
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_EQ(failures[1].diagnostic, "Connection refused");

    // The refused connection stays known until a reset: the host can try it again.
    refusing->settings().connectionAnswer = SimulatedPeripheral::ConnectionAnswer::accept;
    manager->retrievePeripherals();
    EXPECT_TRUE(manager->hasConnectionTimeout());
    clock.advance(0ms);
    EXPECT_EQ(refusing->state(), CBPeripheralStateConnected);
    manager->reset();
    clock.advance(0ms);
    manager->retrievePeripherals();
    clock.advance(0ms);
    EXPECT_EQ(refusing->state(), CBPeripheralStateDisconnected);
    // Peripherals the platform hands back are connected to without a time-out.
    manager->centralManagerDidRetrievePeripherals({refusing});
    EXPECT_FALSE(manager->hasConnectionTimeout());
    clock.advance(0ms);
    EXPECT_EQ(refusing->state(), CBPeripheralStateConnected);
    manager->reset();
    clock.advance(0ms);
    refusing->settings().connectionAnswer = SimulatedPeripheral::ConnectionAnswer::refuse;

    // A handshake that is no JSON: no client, and the time-out ends the link.
    refusing->stopAdvertising();
    manager->reset();
    auto garbled = linkedPeripheral();
    garbled->notify(kHavrelInCharacteristicUUID, {withMarker(0, "{\"type\": ")});
    clock.advance(0ms);
    EXPECT_TRUE(delegate->clients.empty());
    clock.advance(4s);
    EXPECT_EQ(failures.size(), 3u);
    EXPECT_EQ(garbled->state(), CBPeripheralStateDisconnected);

    // A client too new: the manager lets go of the link and the user is told.
    garbled->stopAdvertising();
    manager->reset();
    auto newer = linkedPeripheral();
    newer->notify(kHavrelInCharacteristicUUID,
                  {withMarker(0, R"({"type":"RNBluetoothClient","apiVersion":"3.0","connectionName":"New"})")});
    clock.advance(0ms);
    EXPECT_EQ(prompts->alerts().size(), 1u);
    EXPECT_EQ(newer->state(), CBPeripheralStateDisconnected);
    EXPECT_TRUE(newer->writes(kHavrelOutCharacteristicUUID).empty());
}

TEST_F(ManagerTest, WithoutAutoConnectSightingsFillTheListInOrderAndTheHostPicks) {
    ScopedLogCapture capture;
    manager->hvAutoConnectsWhenSingleDeviceFound = false;
    SimulatedPeripheral::Settings unnamed;
    unnamed.name = "";
    unnamed.maximumWriteLength.reset();
    auto first = radio->addPeripheral();
    auto second = radio->addPeripheral(unnamed);
    first->startAdvertising();
    manager->scan();
    second->startAdvertising();
    const int changesBefore = discoveryChanges;
    clock.advance(0ms);
    EXPECT_EQ(discoveryChanges, changesBefore + 2);
    auto devices = manager->hvDiscoveredDevices();
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0], (HVDiscoveredDeviceInfo{first->hvIdentifier(), "Simulated Pad", ""}));
    EXPECT_EQ(devices[1].name, "Unnamed device");
    EXPECT_TRUE(manager->isScanning());

    // A repeat sighting keeps the order.
    manager->centralManagerDidDiscoverPeripheral(first, Dictionary::object(), -40);
    EXPECT_EQ(manager->hvDiscoveredDevices()[0].identifier, first->hvIdentifier());

    manager->hvConnectToDiscoveredDeviceWithIdentifier("nothing-like-it");
    EXPECT_EQ(capture.count("hvConnectToDiscoveredDeviceWithIdentifier: unknown identifier nothing-like-it"), 1u);
    manager->hvConnectToDiscoveredDeviceWithIdentifier(devices[1].identifier);
    clock.advance(0ms);
    EXPECT_EQ(second->state(), CBPeripheralStateConnected);
    // A peripheral that cannot tell its write length gets chunks of 20.
    EXPECT_EQ(manager->bluetoothConnections().at(devices[1].identifier)->dataQueue().maxDataChunkSize(), 20u);
    // Sightings of a device with a connection change nothing.
    const int changesLinked = discoveryChanges;
    manager->centralManagerDidDiscoverPeripheral(second, Dictionary::object(), -40);
    EXPECT_EQ(discoveryChanges, changesLinked);

    // The device drops the link: the registry hears of it, everything is forgotten.
    second->dropLink();
    clock.advance(0ms);
    EXPECT_EQ(capture.count("did disconnect peripheral error CBErrorDomain 7"), 1u);
    EXPECT_TRUE(manager->hvDiscoveredDevices().empty());
    EXPECT_TRUE(manager->bluetoothConnections().empty());

    // Powered off, a scan does nothing.
    radio->setState(CBManagerStatePoweredOff);
    clock.advance(0ms);
    manager->scan();
    EXPECT_FALSE(manager->isScanning());

    // Devices that rotate their addresses are new sightings each time: the list keeps the newest.
    std::shared_ptr<SimulatedPeripheral> newest;
    for (std::size_t i = 0; i <= RNCentralBluetoothManager::kMaximumDiscoveries; ++i) {
        newest = radio->addPeripheral();
        manager->centralManagerDidDiscoverPeripheral(newest, Dictionary::object(), -70);
    }
    devices = manager->hvDiscoveredDevices();
    EXPECT_EQ(devices.size(), RNCentralBluetoothManager::kMaximumDiscoveries);
    EXPECT_EQ(devices.back().identifier, newest->hvIdentifier());
}

}  // namespace
}  // namespace havrel
