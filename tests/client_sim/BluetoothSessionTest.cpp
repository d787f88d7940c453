// The simulator's client over the simulated radio, against the Central's Bluetooth transport in
// virtual time: a client the Central refuses, and a Central that never comes. (A whole run over
// the radio is the programs' own test, where the Central's MIDI shows what it heard.)

#include "backends/bluetooth_simulated/SimulatedBluetoothRadio.hpp"
#include "havrel-client-sim/HVSimBluetoothSession.hpp"
#include "havrel-client-sim/HVSimScript.hpp"
#include "havrel-client-sim/HVSimSurface.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/MainQueue.hpp"
#include "transport/bluetooth/RNCentralBluetoothManager.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace havrel {
namespace {

using namespace std::chrono_literals;

// The registry's part, reduced to keeping the clients the transport hands over.
class ClientKeeper final : public RNCentralBluetoothManagerDelegate {
public:
    std::vector<std::shared_ptr<RNBluetoothClient>> clients;

    void RNCentralBluetoothManagerDidStartScanning(RNCentralBluetoothManager*) override {}
    void RNCentralBluetoothManagerDidStopScanning(RNCentralBluetoothManager*) override {}
    void RNCentralBluetoothManagerDidStartConnecting(RNCentralBluetoothManager*, const PeripheralReference&) override {}
    void RNCentralBluetoothManagerDidStopConnecting(RNCentralBluetoothManager*, const PeripheralReference&) override {}
    void RNCentralBluetoothManagerDidDidReceiveConnectionNameForPerhipheral(RNCentralBluetoothManager*,
                                                                           const PeripheralReference&) override {}
    void RNCentralBluetoothManagerDidReceiveClient(RNCentralBluetoothManager*,
                                                   const std::shared_ptr<RNClient>& client) override {
        clients.push_back(std::dynamic_pointer_cast<RNBluetoothClient>(client));
    }
    void RNCentralBluetoothManagerDidFinishConnection(RNCentralBluetoothManager*, const std::shared_ptr<RNClient>&) override {}
    void RNCentralBluetoothManagerDidDisconnectFromClient(RNCentralBluetoothManager*,
                                                          const std::shared_ptr<RNClient>&) override {}
    std::shared_ptr<RNBluetoothClient> clientForPeripheral(const PeripheralReference& peripheral) override {
        for (const auto& client : clients) {
            if (client->peripheral == peripheral) {
                return client;
            }
        }
        return nullptr;
    }
};

class BluetoothSessionTest : public ::testing::Test {
protected:
    void SetUp() override {
        RNBluetoothPlatform::setShared(radio);
        HostPrompts::setShared(prompts);
        central = RNCentralBluetoothManager::initWithProductToSendOut("Havrel Test", "1.0");
        central->delegate = keeper;
        clock.advance(0ms);
    }
    void TearDown() override {
        central.reset();
        RNBluetoothPlatform::setShared(nullptr);
        HostPrompts::setShared(nullptr);
    }

    HVSimBluetoothSession::Settings settingsFor(const std::string& script) {
        HVSimBluetoothSession::Settings settings;
        settings.syncPayload = surface.syncPayload();
        const auto steps = HVSimScript::parseInline(script, surface);
        settings.frames = HVSimPerformance::frames(steps, 100.0);
        settings.duration = HVSimPerformance::duration(steps);
        settings.connectTimeout = 10s;
        return settings;
    }

    // Runs the session in virtual time until it ends, for at most a minute of it.
    void run(HVSimBluetoothSession::Settings settings) {
        session = HVSimBluetoothSession::create(
            radio, std::move(settings), [this](const std::string& line) { out.push_back(line); },
            [this](const std::string& line) { progress.push_back(line); }, [this](int code) { exitCode = code; });
        session->start();
        for (int step = 0; step < 600 && !exitCode; ++step) {
            clock.advance(100ms);
        }
    }

    ManualClockScope clock;
    HVSimSurface surface = HVSimSurface::builtIn();
    std::shared_ptr<SimulatedBluetoothRadio> radio = SimulatedBluetoothRadio::create();
    std::shared_ptr<ScriptedHostPrompts> prompts = std::make_shared<ScriptedHostPrompts>();
    std::shared_ptr<ClientKeeper> keeper = std::make_shared<ClientKeeper>();
    std::shared_ptr<RNCentralBluetoothManager> central;
    std::shared_ptr<HVSimBluetoothSession> session;
    std::vector<std::string> out;
    std::vector<std::string> progress;
    std::optional<int> exitCode;
};

TEST_F(BluetoothSessionTest, AClientTooNewIsLetGoAndACentralThatNeverComesTimesOut) {
    central->scan();
    auto settings = settingsFor("set fader 1");
    settings.identity.apiVersion = "2.2";
    run(settings);
    EXPECT_EQ(exitCode, kHVSimExitCentralLost);
    EXPECT_EQ(progress.back(), "the Central dropped the link during the handshake");
    EXPECT_EQ(prompts->alerts().size(), 1u);
    EXPECT_TRUE(keeper->clients.empty());

    // Nobody scans now: the client gives up after its connect time-out.
    exitCode.reset();
    progress.clear();
    const auto start = MainQueue::shared().now();
    run(settingsFor("set fader 1"));
    EXPECT_EQ(exitCode, kHVSimExitTimeout);
    EXPECT_GE(MainQueue::shared().now() - start, 10s);
    EXPECT_EQ(progress.back(), "no Central connected within 10 s");
}

}  // namespace
}  // namespace havrel
