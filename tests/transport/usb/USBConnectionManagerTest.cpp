// The USB connection manager against client devices on the local path and through a usbmux
// stand-in: frame acceptance and delivery, the first frame's info, the Central's answer, the
// disconnect report, attach handling, and that many connections leave nothing behind.

#include "FakeClientDevice.hpp"
#include "support/UsbmuxStandIn.hpp"

#include "central/RNClient.hpp"
#include "platform/Log.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/PropertyList.hpp"
#include "platform/TemporaryFolder.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"
#include "transport/usb/TNUSBHub.hpp"

#include <asio/io_context.hpp>
#include <gtest/gtest.h>

#include <netinet/tcp.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace havrel {
namespace {

using havrel::testing::FakeClientDevice;
using havrel::testing::runMainQueueUntil;
using havrel::testing::UsbmuxStandIn;

// Records what the connection manager reports.
class RecordingManagerDelegate final : public RNUSBServerConnectionManagerDelegate {
public:
    struct Connect {
        std::optional<std::int64_t> deviceID;
        Dictionary info;
    };
    std::vector<Connect> connects;
    std::vector<std::optional<std::int64_t>> disconnects;
    std::vector<std::pair<std::string, Bytes>> received;

    void RNUSBConnectionManagerDidConnectToDeviceID(RNUSBConnectionManager&, std::optional<std::int64_t> deviceID,
                                                   const Dictionary& info, const std::shared_ptr<TNChannel>&) override {
        connects.push_back({deviceID, info});
    }
    void RNUSBConnectionManagerDidDisconnectFromDeviceID(RNUSBConnectionManager&, std::optional<std::int64_t> deviceID,
                                                        const Dictionary*, const std::shared_ptr<TNChannel>&) override {
        disconnects.push_back(deviceID);
    }
    void RNUSBConnectionManagerDidReceiveRNCentral(RNUSBConnectionManager&, const Dictionary&, std::optional<std::int64_t>,
                                                  const std::shared_ptr<TNChannel>&) override {}
    void RNUSBConnectionManagerDidSendClientDataWithDeviceID(RNUSBConnectionManager&, std::optional<std::int64_t>,
                                                            const std::shared_ptr<TNChannel>&) override {}
    void RNUSBConnectionManagerDidReceiveZippedFile(RNUSBConnectionManager&, ByteView, const std::string&,
                                                   std::optional<std::int64_t>, const std::shared_ptr<TNChannel>&) override {}
    void record(const char* kind, ByteView data) { received.emplace_back(kind, Bytes(data.begin(), data.end())); }
    void RNUSBConnectionManagerDidReceiveSyncData(RNUSBConnectionManager&, ByteView data, std::optional<std::int64_t>,
                                                 const std::shared_ptr<TNChannel>&) override {
        record("sync", data);
    }
    void RNUSBConnectionManagerDidReceiveClientData(RNUSBConnectionManager&, ByteView data, std::optional<std::int64_t>,
                                                 const std::shared_ptr<TNChannel>&) override {
        record("client", data);
    }
    void RNUSBConnectionManagerDidReceivePureMIDIData(RNUSBConnectionManager&, ByteView data, std::optional<std::int64_t>,
                                                 const std::shared_ptr<TNChannel>&) override {
        record("midi", data);
    }
    void RNUSBConnectionManagerDidReceiveChangeData(RNUSBConnectionManager&, ByteView data, std::optional<std::int64_t>,
                                                 const std::shared_ptr<TNChannel>&) override {
        record("change", data);
    }
    void RNUSBConnectionManagerDidReceiveRangeData(RNUSBConnectionManager&, ByteView data, std::optional<std::int64_t>,
                                                 const std::shared_ptr<TNChannel>&) override {
        record("range", data);
    }
    void RNUSBConnectionManagerDidReceiveFileRepData(RNUSBConnectionManager&, ByteView data, std::optional<std::int64_t>,
                                                 const std::shared_ptr<TNChannel>&) override {
        record("file", data);
    }
};

class USBConnectionManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        device_ = FakeClientDevice::listening();
        ASSERT_NE(device_->port(), 0);
    }
    void TearDown() override {
        if (manager_) {
            manager_->stop();
            manager_.reset();
        }
        device_->stop();
        MainQueue::shared().runFor(std::chrono::milliseconds(5));
    }

    // Virtual time: the 1 s ping and the 2 s local probe pass in a moment, sockets stay real.
    ManualClockScope clock_;

    void startLocalOnly() {
        RNUSBServerConnectionManager::Options options;
        options.localPort = device_->port();
        options.useUSBHub = false;
        manager_ = RNUSBServerConnectionManager::initWithProductIdentifier("Havrel", "1.0", options);
        manager_->delegate = delegate_;
        ASSERT_TRUE(runMainQueueUntil([&] { return device_->connected() && !manager_->connectedChannels.empty(); }));
    }

    std::unique_ptr<FakeClientDevice> device_;
    std::shared_ptr<RecordingManagerDelegate> delegate_ = std::make_shared<RecordingManagerDelegate>();
    std::shared_ptr<RNUSBServerConnectionManager> manager_;
};

TEST_F(USBConnectionManagerTest, LocalPathDeliversKnownFramesDropsEmptyOnesAndClosesOnUnknownTypes) {
    ScopedLogCapture capture;
    startLocalOnly();
    EXPECT_FALSE(manager_->connectedChannels.front()->deviceID.has_value());
    EXPECT_TRUE(capture.contains("Connected to 127.0.0.1:"));

    device_->introduce("Pad", "pad-1");
    device_->send(104, std::string());          // empty: dropped
    device_->send(104, std::string("{}"));
    device_->send(107, std::string("{\"a\":1}"));
    device_->send(108, Bytes{1, 2, 3});
    device_->send(106, Bytes{0x90, 60, 100});
    device_->send(111, std::string("{}"));
    device_->send(103, std::string("ignored"));  // known, ignored
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->received.size() == 5 && delegate_->connects.size() == 1; }));

    std::vector<std::string> kinds;
    for (const auto& [kind, data] : delegate_->received) {
        kinds.push_back(kind);
    }
    EXPECT_EQ(kinds, (std::vector<std::string>{"sync", "change", "range", "midi", "file"}));
    EXPECT_EQ(delegate_->received[2].second, (Bytes{1, 2, 3}));

    // The info of the first frame is the XML text of its dictionary, which parses back.
    const auto& info = delegate_->connects.front().info;
    ASSERT_TRUE(info.contains("info"));
    const std::string text = info["info"].get<std::string>();
    EXPECT_NE(text.find("<?xml"), std::string::npos);
    auto parsed = propertyListFromData(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    ASSERT_TRUE(parsed);
    EXPECT_EQ((*parsed)["usbClient"]["connectionName"], "Pad");
    EXPECT_FALSE(delegate_->connects.front().deviceID.has_value());

    // A frame of an unknown type closes the channel: one log line, one disconnect report.
    device_->send(114, std::string("x"));
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->disconnects.size() == 1; }));
    EXPECT_EQ(capture.count("Unexpected frame of type 114 — closing channel"), 1u);
    EXPECT_TRUE(manager_->connectedChannels.empty());
    EXPECT_TRUE(capture.contains("Disconnected from device"));

    // The client can connect again: the local probe finds it within its 2 s period.
    device_->closePeer();
    ASSERT_TRUE(runMainQueueUntil([&] { return manager_->connectedChannels.size() == 1 && device_->acceptedCount() == 2; }));
}

TEST_F(USBConnectionManagerTest, GarbageDeviceInfoRefusesTheClientWithoutEndingAnything) {
    ScopedLogCapture capture;
    startLocalOnly();
    device_->send(100, std::string("this is not a property list"));
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->connects.size() == 1; }));
    EXPECT_EQ(delegate_->connects.front().info["info"], "");
    // The channel stays up and frames still arrive.
    device_->send(108, Bytes{9});
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->received.size() == 1; }));
}

TEST_F(USBConnectionManagerTest, WithNoUsbmuxDaemonTheLocalPathGoesOn) {
    ScopedLogCapture capture;
    ::setenv("USBMUXD_SOCKET_ADDRESS", "UNIX:/nonexistent/havrel-test-usbmuxd", 1);
    TNUSBHub::setSharedHubForTesting(nullptr);
    RNUSBServerConnectionManager::Options options;
    options.localPort = device_->port();
    manager_ = RNUSBServerConnectionManager::initWithProductIdentifier("Havrel", "1.0", options);
    manager_->delegate = delegate_;
    ASSERT_TRUE(runMainQueueUntil([&] { return device_->connected() && !manager_->connectedChannels.empty(); }));
    EXPECT_TRUE(runMainQueueUntil([&] { return capture.contains("TNUSBHub failed to initialize"); }));
    device_->send(108, Bytes{1});
    EXPECT_TRUE(runMainQueueUntil([&] { return delegate_->received.size() == 1; }));
    manager_->stop();
    manager_.reset();
    TNUSBHub::setSharedHubForTesting(nullptr);
    ::unsetenv("USBMUXD_SOCKET_ADDRESS");
}

TEST_F(USBConnectionManagerTest, PingsEveryConnectedChannelWithFreshTags) {
    startLocalOnly();
    ASSERT_TRUE(runMainQueueUntil([&] { return device_->framesOfType(102).size() >= 2; }));
    const auto pings = device_->framesOfType(102);
    EXPECT_TRUE(!pings[0].payload || pings[0].payload->empty());
    EXPECT_NE(pings[0].tag, 0u);
    EXPECT_NE(pings[0].tag, pings[1].tag);
    EXPECT_TRUE(manager_->hasPingTimer());
}

class USBHubPathTest : public USBConnectionManagerTest {
protected:
    void SetUp() override {
        USBConnectionManagerTest::SetUp();
        standIn_ = std::make_unique<UsbmuxStandIn>(socketDir_.path() / "usbmuxd");
        ::setenv("USBMUXD_SOCKET_ADDRESS", standIn_->socketAddress().c_str(), 1);
        TNUSBHub::setSharedHubForTesting(nullptr);
    }
    void TearDown() override {
        USBConnectionManagerTest::TearDown();
        TNUSBHub::setSharedHubForTesting(nullptr);
        standIn_.reset();
        ::unsetenv("USBMUXD_SOCKET_ADDRESS");
    }
    void startWithHub() {
        RNUSBServerConnectionManager::Options options;
        options.localPort = 1;  // nothing listens there
        manager_ = RNUSBServerConnectionManager::initWithProductIdentifier("Havrel", "1.0", options);
        manager_->delegate = delegate_;
        ASSERT_TRUE(runMainQueueUntil([&] { return standIn_->listenerCount() == 1; }));
    }

    testing::TemporaryFolder socketDir_;
    std::unique_ptr<UsbmuxStandIn> standIn_;
};

TEST_F(USBHubPathTest, AttachConnectsThroughTheTunnelAndDetachEndsTheChannel) {
    ScopedLogCapture capture;
    startWithHub();
    standIn_->attachDevice(7, device_->port());
    ASSERT_TRUE(runMainQueueUntil([&] { return device_->connected() && manager_->channelWithDeviceID(7) != nullptr; }));
    EXPECT_EQ(manager_->channelWithDeviceID(7)->hvUserInfo, "7");
    EXPECT_FALSE(manager_->hasScannerTimer());

    device_->introduce("Pad", "pad-1");
    device_->send(108, Bytes{4, 5});
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->connects.size() == 1 && delegate_->received.size() == 1; }));
    EXPECT_EQ(delegate_->connects.front().deviceID, 7);

    standIn_->detachDevice(7);
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate_->disconnects.size() == 1; }));
    EXPECT_EQ(delegate_->disconnects.front(), 7);
    EXPECT_TRUE(manager_->attachedDeviceIDs.empty());
    EXPECT_EQ(manager_->channelWithDeviceID(7), nullptr);
}

TEST_F(USBHubPathTest, AttachRulesAndTheScannerForADeviceWithNoAppListening) {
    ScopedLogCapture capture;
    startWithHub();
    standIn_->attachDevice(3, device_->port(), "Network");
    standIn_->attachDevice(9, 1);  // its app is not listening: the tunnel is refused
    standIn_->attachDevice(9, 1);
    ASSERT_TRUE(runMainQueueUntil([&] { return manager_->hasScannerTimer(); }));
    EXPECT_EQ(capture.count("ignoring Network device #3 (not USB)"), 1u);
    EXPECT_EQ(manager_->attachedDeviceIDs, (std::vector<std::int64_t>{9}));
    EXPECT_TRUE(runMainQueueUntil([&] { return capture.contains("connection refused by device #9 — no Havrel app listening on port 4699"); }));

    standIn_->detachDevice(9);
    ASSERT_TRUE(runMainQueueUntil([&] { return manager_->attachedDeviceIDs.empty(); }));
}

TEST(HVCentralUSBManagerTest, AnswersTheFirstFrameWithTheCentralsIdentityAndSendsTempoAsEightBytes) {
    ManualClockScope clock;
    auto device = FakeClientDevice::listening();
    HVCentralUSBManager::Options options;
    options.localPort = device->port();
    options.useUSBHub = false;
    auto usb = HVCentralUSBManager::initWithProudctToSendOut("Havrel", "3.4.5", options);
    ASSERT_TRUE(runMainQueueUntil([&] { return device->connected(); }));
    device->introduce("Pad", "pad-1");
    ASSERT_TRUE(runMainQueueUntil([&] { return !device->framesOfType(110).empty(); }));
    const auto answer = device->framesOfType(110).front();
    EXPECT_EQ(answer.tag, 0u);
    const auto central = Dictionary::parse(*answer.payload);
    EXPECT_EQ(central["version"], "3.4.5");
    EXPECT_EQ(central["apiVersion"], "2.1");
    EXPECT_EQ(central["minApi"], "2.1");
    EXPECT_EQ(central["name"], HVCentralUSBManager::localName());
    EXPECT_EQ(usb->state, 1u);

    // A device with no channel makes the sends no-ops; the local path has no device number.
    usb->sendTempo(120.0, 42);
    usb->connectionManager()->connectedChannels.front()->deviceID = 5;
    usb->sendTempo(120.5, 5);
    ASSERT_TRUE(runMainQueueUntil([&] { return !device->framesOfType(112).empty(); }));
    const auto tempo = device->framesOfType(112).front();
    ASSERT_TRUE(tempo.payload);
    ASSERT_EQ(tempo.payload->size(), 8u);
    double value = 0;
    std::memcpy(&value, tempo.payload->data(), 8);
    EXPECT_EQ(value, 120.5);

    usb->connectionManager()->stop();
    device->stop();
    usb.reset();
    MainQueue::shared().runFor(std::chrono::milliseconds(5));
}

// A client that takes the connection and never reads, as a suspended app does. Its receive
// buffer and segments are small, so the sender's kernel takes little of what it leaves unread.
struct SilentPeer {
    SilentPeer() {
        listener.open(asio::ip::tcp::v4());
        listener.set_option(asio::socket_base::receive_buffer_size(4096));
        listener.set_option(asio::detail::socket_option::integer<IPPROTO_TCP, TCP_MAXSEG>(536));
        listener.bind({asio::ip::address_v4::loopback(), 0});
        listener.listen();
    }
    std::uint16_t port() const { return listener.local_endpoint().port(); }
    void accept() { accepted.push_back(listener.accept()); }

    asio::io_context io;
    asio::ip::tcp::acceptor listener{io};
    std::vector<asio::ip::tcp::socket> accepted;
};

std::size_t residentBytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with("VmRSS:")) return std::stoul(line.substr(6)) * 1024;
    }
    return 0;
}

TEST(HVCentralUSBManagerTest, APeerThatStopsReadingIsClosedAtTheQueueBoundOrAtThePingDeadline) {
    ManualClockScope clock;
    ScopedLogCapture capture;
    SilentPeer peer;
    HVCentralUSBManager::Options options;
    options.localPort = peer.port();
    options.useUSBHub = false;
    auto usb = HVCentralUSBManager::initWithProudctToSendOut("Havrel", "1.0", options);
    auto& channels = usb->connectionManager()->connectedChannels;
    ASSERT_TRUE(runMainQueueUntil([&] { return !channels.empty(); }));
    peer.accept();

    // Tempo and position flow faster than anyone reads: the channel closes at the bound, once,
    // and what it kept stays within a few MiB.
    [[maybe_unused]] const std::size_t before = residentBytes();
    auto channel = channels.front();
    const auto eightBytes = std::make_shared<const Bytes>(8);
    for (int i = 0; i < 100000 && channel->isConnected(); ++i) {
        channel->sendFrameOfType(TNFrameTypeTempo + i % 2, 0, eightBytes, nullptr);
    }
    EXPECT_FALSE(channel->isConnected());
#if !defined(__SANITIZE_THREAD__)
    // (ThreadSanitizer's shadow memory grows with every byte the test touches.)
    EXPECT_LT(residentBytes(), before + 4 * kTNChannelMaximumQueuedWriteBytes);
#endif
    ASSERT_TRUE(runMainQueueUntil([&] { return channels.empty(); }));
    EXPECT_EQ(capture.count("the peer is not reading"), 1u);

    // Next time one frame below the bound fills what the kernel takes: the pings wait behind it
    // and the deadline closes the channel.
    ASSERT_TRUE(runMainQueueUntil([&] { return !channels.empty(); }));
    peer.accept();
    const std::weak_ptr<TNChannel> stalled = channels.front();
    channels.front()->sendFrameOfType(TNFrameTypeConfigurationDataFromCentral, 0,
                                      std::make_shared<const Bytes>(kTNChannelMaximumQueuedWriteBytes / 2), nullptr);
    // The deadline's 5 s of manual clock in turns of 100 ms, so that a sanitized build gets there
    // in time too; the check comes before a reconnected channel could reach a deadline of its own.
    ASSERT_TRUE(runMainQueueUntil(
        [&] {
            const auto channel = stalled.lock();
            return !channel || !channel->isConnected();
        },
        std::chrono::seconds(60), std::chrono::milliseconds(100)));
    EXPECT_EQ(capture.count("a ping waits unwritten for 5 s — closing channel"), 1u);
    EXPECT_EQ(capture.count("the peer is not reading"), 1u);

    usb->connectionManager()->stop();
    usb.reset();
    MainQueue::shared().runFor(std::chrono::milliseconds(5));
}

}  // namespace
}  // namespace havrel
