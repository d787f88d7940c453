// Tempo and position back to the devices: while another application sends MIDI clock, a client
// on the local USB path receives the tempo (frame 112) and each new position (frame 113).

#include "musical_output/HVTempoPositionForwarder.hpp"
#include "musical_time/MusicalTimeFixture.hpp"
#include "core/TransportScope.hpp"
#include "transport/usb/FakeClientDevice.hpp"

#include "core/HVCentralConnectionManager.hpp"
#include "core/HavrelCoreBaseMac.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/PropertyList.hpp"

#include <cstring>

namespace havrel {
namespace {

using MIDICore::MIDIEvent;
using std::chrono::milliseconds;

double doubleOf(const testing::ReceivedFrame& frame) {
    double value = 0;
    if (frame.payload && frame.payload->size() == sizeof(double)) {
        std::memcpy(&value, frame.payload->data(), sizeof(double));
    }
    return value;
}

class TempoFramesTest : public testing::MusicalTimeTest {
protected:
    void SetUp() override {
        HostPrompts::setShared(std::make_shared<ScriptedHostPrompts>());
        transports_.emplace();
        device_ = testing::FakeClientDevice::listening();
    }
    void TearDown() override {
        HVCentralUSBManager::resetShared();
        device_->stop();
        pump([] { return false; }, std::chrono::milliseconds(20));
        transports_.reset();
        HostPrompts::setShared(nullptr);
        MusicalTimeTest::TearDown();
    }
    bool pump(const std::function<bool()>& condition, std::chrono::milliseconds deadline = std::chrono::seconds(5)) {
        const auto end = std::chrono::steady_clock::now() + deadline;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            clock.advance(milliseconds(1));
            server->flush();
        }
        return true;
    }

    // A client on the local path, past its handshake.
    void connectClient() {
        HVCentralUSBManager::Options options;
        options.localPort = device_->port();
        options.useUSBHub = false;
        HVCentralUSBManager::instantiateWithProductToSendOut("Havrel Test", "1.0", options);
        HavrelCoreBaseMac::instantiateWithProductToSendOut("Havrel Test", "1.0", "2.1");
        auto registry = HVCentralConnectionManager::sharedInstance();
        ASSERT_TRUE(pump([&] { return device_->connected(); }));
        const Dictionary client = {{"type", "RNUSBClient"}, {"connectionName", "Pad"}, {"productID", "havrel-test"},
                                   {"uniqueIdentifier", "pad-1"}, {"apiVersion", "2.1"},     {"version", "1.0"}};
        device_->send(100, *propertyListData(Dictionary{{"usbClient", client}}, PropertyListFormat::binary).data);
        ASSERT_TRUE(pump([&] { return registry->usbClients().size() == 1; }));
    }

    std::optional<testing::TransportScope> transports_;
    std::unique_ptr<testing::FakeClientDevice> device_;
};

TEST_F(TempoFramesTest, AClientReceivesTheTempoAndPositionOfAnotherApplicationsClock) {
    connectClient();

    auto wallClock = std::make_shared<std::atomic<double>>(1000.0);
    HVMIDIManager::setClockForTesting([wallClock] { return wallClock->load(); });
    auto manager = HVMIDIManager::initSharedClockTestWithConnectionConfiguration(configuration_);
    auto forwarder = HVTempoPositionForwarder::install(manager);

    auto other = startedManager("Clock Source");
    other->addOutput("Clock Out", "clock", MIDIIO::MIDIIdentifierPersistence::adHoc());
    ASSERT_TRUE(pump([&] { return manager->midiManager()->managedInputConnections().size() == 1; },
                     std::chrono::seconds(10)));
    auto out = other->managedOutput("clock");
    out->send(MIDIEvent::start());
    for (int i = 0; i < 30; ++i) {
        wallClock->store(wallClock->load() + 0.0208333);
        out->send(MIDIEvent::timingClock());
        server->flush();
    }
    ASSERT_TRUE(pump([&] { return device_->framesOfType(113).size() >= 5 && !device_->framesOfType(112).empty(); }));
    pump([] { return false; }, milliseconds(50));

    // Tempo 120 once (repeats within the same tenth are not sent), from the 25th tick.
    const auto tempos = device_->framesOfType(112);
    ASSERT_EQ(tempos.size(), 1u);
    EXPECT_EQ(doubleOf(tempos[0]), 120.0);
    EXPECT_EQ(tempos[0].tag, 0u);
    // A position each beat (six ticks), in sixteenth notes.
    const auto positions = device_->framesOfType(113);
    ASSERT_EQ(positions.size(), 5u);
    for (std::size_t i = 0; i < positions.size(); ++i) {
        EXPECT_EQ(doubleOf(positions[i]), static_cast<double>(i + 1));
    }
    // The registration outlives the ticks: it holds a tick callback.
    EXPECT_EQ(manager->midiTimeObserverCount(), 1u);
}

TEST_F(TempoFramesTest, AClientReceivesTheTempoAndPositionOfTheInternalClock) {
    connectClient();
    auto manager = HVMIDIManager::initSharedMinimalWithConnectionConfiguration(configuration_);
    auto forwarder = HVTempoPositionForwarder::install(manager);
    forwarder->forwardInternalClock();
    makeClockAndPlayer();
    HVClock::setShared(musicalClock);
    musicalClock->setBpm(90);
    musicalClock->start();
    // Twelve ticks: two sixteenths; the tempo once, at the first tick.
    ASSERT_TRUE(pump([&] { return musicalClock->midiQN() >= 12 && device_->framesOfType(113).size() >= 2; }));
    musicalClock->setBpm(100);
    ASSERT_TRUE(pump([&] { return device_->framesOfType(112).size() >= 2; }));
    const auto tempos = device_->framesOfType(112);
    ASSERT_EQ(tempos.size(), 2u);
    EXPECT_EQ(doubleOf(tempos[0]), 90.0);
    EXPECT_EQ(doubleOf(tempos[1]), 100.0);
    const auto positions = device_->framesOfType(113);
    EXPECT_EQ(doubleOf(positions[0]), 1.0);
    EXPECT_EQ(doubleOf(positions[1]), 2.0);
}

}  // namespace
}  // namespace havrel
