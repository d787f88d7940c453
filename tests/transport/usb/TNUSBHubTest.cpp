#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/TemporaryFolder.hpp"
#include "platform/Timer.hpp"
#include "support/MainQueueWaiting.hpp"
#include "support/UsbmuxStandIn.hpp"
#include "transport/usb/TNUSBHub.hpp"
#include "transport/usb/TNUSBPacket.hpp"

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace havrel {
namespace {

using namespace std::chrono_literals;
using testing::runMainQueueUntil;

// What a start or end callback was given, once called.
struct Outcome {
    bool called = false;
    TNOptionalError error;

    std::function<void(const TNOptionalError&)> callback() {
        return [this](const TNOptionalError& e) {
            called = true;
            error = e;
        };
    }
};

// A daemon that answers the first request on its socket with bytes of the test's choosing
// (given the request's tag), then reads until the client closes.
class ScriptedDaemon {
public:
    using Script = std::function<Bytes(std::uint32_t requestTag)>;

    ScriptedDaemon(const std::filesystem::path& path, Script script)
        : acceptor_(io_, asio::local::stream_protocol::endpoint(path.string())), script_(std::move(script)) {
        acceptor_.async_accept([this](std::error_code error, asio::local::stream_protocol::socket socket) {
            if (!error) {
                socket_ = std::move(socket);
                readRequest();
            }
        });
        thread_ = std::thread([this] { io_.run(); });
    }
    ~ScriptedDaemon() {
        io_.stop();
        thread_.join();
    }

    bool clientClosed() const { return clientClosed_; }

private:
    void readRequest() {
        asio::async_read(socket_, asio::buffer(header_), [this](std::error_code error, std::size_t) {
            if (error) {
                return;
            }
            const auto header = decodePacketHeader(header_);
            payload_.assign(header.size - 16, 0);
            asio::async_read(socket_, asio::buffer(payload_), [this, tag = header.tag](std::error_code error, std::size_t) {
                if (error) {
                    return;
                }
                reply_ = script_(tag);
                asio::async_write(socket_, asio::buffer(reply_), [this](std::error_code, std::size_t) { drain(); });
            });
        });
    }
    void drain() {
        socket_.async_read_some(asio::buffer(sink_), [this](std::error_code error, std::size_t) {
            if (error) {
                clientClosed_ = true;
                return;
            }
            drain();
        });
    }

    asio::io_context io_;
    asio::local::stream_protocol::acceptor acceptor_;
    asio::local::stream_protocol::socket socket_{io_};
    Script script_;
    std::array<std::uint8_t, 16> header_{};
    Bytes payload_;
    Bytes reply_;
    std::array<std::uint8_t, 256> sink_{};
    std::atomic<bool> clientClosed_{false};
    std::thread thread_;
};

Bytes operator+(const Bytes& a, const Bytes& b) {
    Bytes bytes(a.size() + b.size());
    std::copy(b.begin(), b.end(), std::copy(a.begin(), a.end(), bytes.begin()));
    return bytes;
}

Bytes rawHeader(std::uint32_t size, std::uint32_t protocol, std::uint32_t type, std::uint32_t tag) {
    const auto header = encodePacketHeader({size, protocol, type, tag});
    Bytes bytes(header.size());
    std::copy(header.begin(), header.end(), bytes.begin());
    return bytes;
}

class TNUSBHubTest : public ::testing::Test {
protected:
    void SetUp() override {
        observer_ = this;
    }
    void TearDown() override {
        TNUSBHub::setSharedHubForTesting(nullptr);
        NotificationCenter::defaultCenter().removeObserver(observer_);
        MainQueue::shared().poll();
    }

    std::filesystem::path socketPath() const { return folder_.path() / "usbmuxd"; }

    std::shared_ptr<TNUSBHub> listeningHub(Outcome& start, Outcome& end) {
        auto hub = TNUSBHub::create();
        hub->listenOnQueue(MainQueue::shared(), start.callback(), end.callback());
        EXPECT_TRUE(runMainQueueUntil([&] { return start.called; }));
        return hub;
    }

    // Collects the user info of every notification of the name from the hub.
    std::shared_ptr<std::vector<Dictionary>> observe(const char* name, const TNUSBHub& hub) {
        auto received = std::make_shared<std::vector<Dictionary>>();
        NotificationCenter::defaultCenter().addObserver(observer_, name, &hub, [received](const Notification& note) {
            received->push_back(note.userInfo);
        });
        return received;
    }

    testing::TemporaryFolder folder_;
    ScopedLogCapture log_;
    const void* observer_ = nullptr;
};

TEST_F(TNUSBHubTest, ListensAndPostsAttachAndDetachWithTheWholePacket) {
    std::optional<testing::UsbmuxStandIn> standIn(std::in_place, socketPath());
    testing::ScopedEnvironment address("USBMUXD_SOCKET_ADDRESS", standIn->socketAddress());
    standIn->attachDevice(3, 1000);  // attached before the hub listens

    auto hub = TNUSBHub::create();
    auto attached = observe(TNUSBDeviceDidAttachNotification, *hub);
    auto detached = observe(TNUSBDeviceDidDetachNotification, *hub);
    Outcome start;
    Outcome end;
    hub->listenOnQueue(MainQueue::shared(), start.callback(), end.callback());
    ASSERT_TRUE(runMainQueueUntil([&] { return start.called && attached->size() == 1; }));
    EXPECT_FALSE(start.error);
    EXPECT_EQ(standIn->listenerCount(), 1u);
    EXPECT_EQ(attached->front()["DeviceID"], 3);

    standIn->attachDevice(5, 1001, "Network");
    ASSERT_TRUE(runMainQueueUntil([&] { return attached->size() == 2; }));
    const Dictionary& info = attached->back();
    EXPECT_EQ(info["MessageType"], "Attached");
    EXPECT_EQ(info["DeviceID"], 5);
    EXPECT_EQ(info["Properties"]["ConnectionType"], "Network");
    EXPECT_EQ(info["Properties"]["SerialNumber"], "standin-5");
    EXPECT_EQ(info["Properties"]["DeviceID"], 5);
    EXPECT_EQ(info["Properties"].size(), 6u);
    EXPECT_EQ(log_.count("TNUSBHub broadcast: messageType=Attached packet="), 2u);

    standIn->detachDevice(3);
    ASSERT_TRUE(runMainQueueUntil([&] { return detached->size() == 1; }));
    EXPECT_EQ(detached->front(), (Dictionary{{"MessageType", "Detached"}, {"DeviceID", 3}}));
    EXPECT_EQ(attached->size(), 2u);

    // A second listen reports success and opens nothing.
    Outcome again;
    hub->listenOnQueue(MainQueue::shared(), again.callback(), nullptr);
    EXPECT_TRUE(again.called);
    EXPECT_FALSE(again.error);
    EXPECT_EQ(log_.count("TNUSBChannel connect() to /var/run/usbmuxd succeeded"), 1u);

    // Other broadcasts are logged and not posted.
    hub->handleBroadcastPacket({{"MessageType", "Paired"}, {"DeviceID", 5}});
    EXPECT_EQ(log_.count("Warning: Unhandled broadcast message: "), 1u);
    EXPECT_EQ(log_.count("TNUSBHub broadcast: messageType=Paired"), 1u);
    EXPECT_EQ(attached->size() + detached->size(), 3u);

    // The daemon going away ends the socket; the process goes on, and a new hub listens to
    // the daemon that follows.
    standIn.reset();
    standIn.emplace(socketPath());
    ASSERT_TRUE(runMainQueueUntil([&] { return end.called; }));
    EXPECT_FALSE(end.error);
    Outcome restart;
    Outcome restartEnd;
    auto next = listeningHub(restart, restartEnd);
    EXPECT_FALSE(restart.error);
    EXPECT_EQ(standIn->listenerCount(), 1u);

    // A hub that goes away closes its socket, and says nothing of it.
    next.reset();
    EXPECT_TRUE(standIn->waitForListenerCount(0, 10s));
    MainQueue::shared().poll();
    EXPECT_FALSE(restartEnd.called);
}

TEST_F(TNUSBHubTest, ConnectHandsOverATunnelOrTheDaemonsRefusal) {
    testing::UsbmuxStandIn standIn(socketPath());
    testing::ScopedEnvironment address("USBMUXD_SOCKET_ADDRESS", standIn.socketAddress());

    // The device's port: it greets at once, then answers "ping" with "pong".
    asio::ip::tcp::acceptor device(MainQueue::shared().context(), {asio::ip::address_v4::loopback(), 0});
    asio::ip::tcp::socket deviceSide(MainQueue::shared().context());
    std::array<char, 4> received{};
    bool accepted = false;
    device.async_accept(deviceSide, [&](std::error_code error) {
        ASSERT_FALSE(error);
        accepted = true;
        asio::write(deviceSide, asio::buffer(std::string("hello")));
        asio::async_read(deviceSide, asio::buffer(received), [&](std::error_code error, std::size_t) {
            if (!error) {
                asio::write(deviceSide, asio::buffer(std::string("pong")));
            }
        });
    });
    standIn.attachDevice(9, device.local_endpoint().port());

    auto hub = TNUSBHub::create();
    std::optional<std::pair<TNOptionalError, int>> connected;
    hub->connectToDevice(9, 4699, [&](TNOptionalError error, int fd) { connected.emplace(error, fd); });
    ASSERT_TRUE(runMainQueueUntil([&] { return connected.has_value() && accepted; }));
    ASSERT_FALSE(connected->first) << connected->first->description();
    const int fd = connected->second;
    ASSERT_GE(fd, 0);
    EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(standIn.tunnelCount(), 1u);

    // The greeting came right behind the daemon's reply and is still there to read.
    auto readExactly = [fd](std::size_t count) {
        std::string text;
        while (text.size() < count) {
            pollfd ready{fd, POLLIN, 0};
            if (::poll(&ready, 1, 10000) != 1) {
                break;
            }
            char buffer[16];
            const auto n = ::read(fd, buffer, std::min(sizeof buffer, count - text.size()));
            if (n <= 0) {
                break;
            }
            text.append(buffer, static_cast<std::size_t>(n));
        }
        return text;
    };
    EXPECT_EQ(readExactly(5), "hello");
    ASSERT_EQ(::write(fd, "ping", 4), 4);
    ASSERT_TRUE(runMainQueueUntil([&] { return std::string(received.data(), 4) == "ping"; }));
    EXPECT_EQ(readExactly(4), "pong");
    ::close(fd);
    deviceSide.close();

    // Refusals: an unknown device, and a device whose port nobody listens on.
    std::uint16_t closedPort = 0;
    {
        asio::ip::tcp::acceptor probe(MainQueue::shared().context(), {asio::ip::address_v4::loopback(), 0});
        closedPort = probe.local_endpoint().port();
    }
    standIn.attachDevice(10, closedPort);
    std::vector<std::pair<TNOptionalError, int>> refusals;
    hub->connectToDevice(77, 4699, [&](TNOptionalError error, int fd) { refusals.emplace_back(error, fd); });
    hub->connectToDevice(10, 4699, [&](TNOptionalError error, int fd) { refusals.emplace_back(error, fd); });
    ASSERT_TRUE(runMainQueueUntil([&] { return refusals.size() == 2; }));
    for (const auto& [error, descriptor] : refusals) {
        EXPECT_EQ(descriptor, -1);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->domain, TNUSBHubErrorDomain);
    }
    // Both may answer in either order.
    std::set<std::pair<std::int64_t, std::string>> answers;
    for (const auto& refusal : refusals) {
        answers.emplace(refusal.first->code, refusal.first->localizedDescription.value_or(""));
    }
    EXPECT_EQ(answers, (std::set<std::pair<std::int64_t, std::string>>{{2, "unknown device"}, {3, "connection refused"}}));
    EXPECT_TRUE(runMainQueueUntil([&] { return standIn.tunnelCount() == 0; }));
}

// The daemon starts after the program, exits and starts again with a device each time, and
// once sends a packet too short to frame: the shared hub listens to each daemon that comes,
// forgets each one's devices when it goes, and never floods the log while it waits.
TEST_F(TNUSBHubTest, TheSharedHubFollowsTheDaemonAsItComesAndGoes) {
    testing::ScopedEnvironment address("USBMUXD_SOCKET_ADDRESS", "UNIX:" + socketPath().string());
    TNUSBHub::setSharedHubForTesting(nullptr);
    auto hub = TNUSBHub::sharedHub();
    EXPECT_EQ(TNUSBHub::sharedHub(), hub);
    auto attached = observe(TNUSBDeviceDidAttachNotification, *hub);
    auto detached = observe(TNUSBDeviceDidDetachNotification, *hub);
    ASSERT_TRUE(runMainQueueUntil([&] { return log_.contains("TNUSBHub failed to initialize: "); }));
    MainQueue::shared().runFor(500ms);  // several tries, said once
    EXPECT_EQ(log_.count("TNUSBHub failed to initialize: "), 1u);
    EXPECT_EQ(log_.count(fmt::format("TNUSBChannel connect() to /var/run/usbmuxd failed: errno={} (", ENOENT)), 1u);
    EXPECT_FALSE(hub->isListening());

    for (std::int64_t device = 1; device <= 3; ++device) {
        SCOPED_TRACE(device);
        {
            testing::UsbmuxStandIn standIn(socketPath());
            standIn.attachDevice(device, 1000);
            ASSERT_TRUE(runMainQueueUntil([&] { return attached->size() == static_cast<std::size_t>(device); }));
            EXPECT_EQ(attached->back()["DeviceID"], device);
            EXPECT_TRUE(hub->isListening());
            EXPECT_EQ(standIn.listenerCount(), 1u);
        }
        ASSERT_TRUE(runMainQueueUntil([&] { return detached->size() == static_cast<std::size_t>(device); }));
        EXPECT_EQ(detached->back(), (Dictionary{{"MessageType", "Detached"}, {"DeviceID", device}}));
        EXPECT_EQ(log_.count(fmt::format("TNUSBHub forgetting device #{}:", device)), 1u);
    }
    EXPECT_EQ(log_.count("TNUSBHub listen started successfully"), 3u);

    // A packet too short to frame ends the socket; the next daemon is listened to afresh.
    {
        ScriptedDaemon daemon(socketPath(), [](std::uint32_t) { return rawHeader(8, 1, 8, 1); });
        ASSERT_TRUE(runMainQueueUntil([&] { return daemon.clientClosed(); }));
    }
    testing::UsbmuxStandIn standIn(socketPath());
    ASSERT_TRUE(runMainQueueUntil([&] { return standIn.listenerCount() == 1 && hub->isListening(); }));
    // Said by the socket, then by the hub's failed start and the socket's end.
    EXPECT_EQ(log_.count("Received a packet that is too small"), 3u);
    EXPECT_EQ(detached->size(), 3u);

    std::optional<TNOptionalError> connectError;
    testing::ScopedEnvironment elsewhere("USBMUXD_SOCKET_ADDRESS", "127.0.0.1:1");
    hub->connectToDevice(1, 4699, [&](TNOptionalError error, int fd) {
        EXPECT_EQ(fd, -1);
        connectError = error;
    });
    ASSERT_TRUE(runMainQueueUntil([&] { return connectError.has_value(); }));
    EXPECT_EQ(*connectError, TNError::posix(ECONNREFUSED));
}

// A daemon address whose connect never completes (a listener whose backlog is full drops the
// handshake) leaves the main queue running while the hub waits for it.
TEST_F(TNUSBHubTest, AnUnansweredDaemonAddressNeverHoldsUpTheMainQueue) {
    asio::ip::tcp::acceptor full(MainQueue::shared().context());
    full.open(asio::ip::tcp::v4());
    full.bind({asio::ip::address_v4::loopback(), 0});
    full.listen(0);
    std::vector<std::unique_ptr<asio::ip::tcp::socket>> queued;
    for (int i = 0; i < 4; ++i) {
        queued.push_back(std::make_unique<asio::ip::tcp::socket>(MainQueue::shared().context()));
        queued.back()->async_connect(full.local_endpoint(), [](std::error_code) {});
    }
    MainQueue::shared().runFor(100ms);
    testing::ScopedEnvironment address("USBMUXD_SOCKET_ADDRESS",
                                       "localhost:" + std::to_string(full.local_endpoint().port()));
    auto hub = TNUSBHub::create();
    hub->followDaemon(MainQueue::shared());
    int ticks = 0;
    auto tick = Timer::scheduled(MainQueue::shared(), 10ms, true, [&] { ++ticks; });
    ASSERT_TRUE(runMainQueueUntil([&] { return ticks >= 20; }));
    tick->invalidate();
    EXPECT_FALSE(hub->isListening());
    EXPECT_FALSE(log_.contains("TNUSBHub listen started successfully"));
}

TEST_F(TNUSBHubTest, StrayRepliesAreLoggedAndReadingGoesOn) {
    ScriptedDaemon daemon(socketPath(), [](std::uint32_t tag) {
        return *plistPacketData({{"MessageType", "Result"}, {"Number", 0}}, tag).data +
               *plistPacketData({{"MessageType", "Result"}, {"Number", 0}}, 7).data +
               *plistPacketData({{"MessageType", "Attached"}, {"DeviceID", 4}}, 0).data;
    });
    testing::ScopedEnvironment address("USBMUXD_SOCKET_ADDRESS", "UNIX:" + socketPath().string());
    auto hub = TNUSBHub::create();
    auto attached = observe(TNUSBDeviceDidAttachNotification, *hub);
    Outcome start;
    Outcome end;
    hub->listenOnQueue(MainQueue::shared(), start.callback(), end.callback());
    ASSERT_TRUE(runMainQueueUntil([&] { return attached->size() == 1; }));
    EXPECT_TRUE(start.called);
    EXPECT_FALSE(start.error);
    EXPECT_EQ(log_.count("Warning: Ignoring reply packet for which there is no registered callback. Packet => "
                         "{\"MessageType\":\"Result\",\"Number\":0}"),
              1u);
    EXPECT_FALSE(end.called);
}

TEST_F(TNUSBHubTest, AMalformedPacketCostsThatPacketOrTheSocketButNeverTheProcess) {
    const std::string garbage = "<?xml version=\"1.0\"?><plist><dict><key>Number</key><integer>";
    struct Case {
        const char* name;
        std::function<Bytes(std::uint32_t)> reply;
        TNError error;
        bool endsSocket;
    };
    const std::vector<Case> cases = {
        {"size 8", [](std::uint32_t) { return rawHeader(8, 1, 8, 1); },
         TNError::make(TNUSBHubErrorDomain, 0, "Received a packet that is too small"), true},
        {"size 0xFFFFFFFF", [](std::uint32_t tag) { return rawHeader(0xFFFFFFFF, 1, 8, tag); },
         TNError::make(TNUSBHubErrorDomain, 1, "Received a packet that is too large"), true},
        {"protocol 2", [](std::uint32_t tag) { return rawHeader(16, 2, 8, tag); },
         TNError::make(TNUSBHubErrorDomain, 0, "Unexpected package protocol"), false},
        {"garbage plist",
         [&](std::uint32_t tag) {
             return rawHeader(static_cast<std::uint32_t>(16 + garbage.size()), 1, 8, tag) +
                    Bytes(garbage.begin(), garbage.end());
         },
         TNError::make(TNUSBHubErrorDomain, 0, "The packet's payload is not a property-list dictionary"), false},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        log_.clear();
        std::filesystem::remove(socketPath());
        ScriptedDaemon daemon(socketPath(), test.reply);
        testing::ScopedEnvironment address("USBMUXD_SOCKET_ADDRESS", "UNIX:" + socketPath().string());

        Outcome start;
        Outcome end;
        auto hub = listeningHub(start, end);
        EXPECT_EQ(start.error, test.error);
        if (test.endsSocket) {
            ASSERT_TRUE(runMainQueueUntil([&] { return end.called && daemon.clientClosed(); }));
            EXPECT_EQ(end.error, test.error);
        } else {
            // Only the packet is refused, but a socket whose Listen failed is of no use: the hub
            // closes it.
            ASSERT_TRUE(runMainQueueUntil([&] { return end.called && daemon.clientClosed(); }));
            EXPECT_FALSE(end.error);
        }
        std::size_t channelLines = 0;
        for (const auto& line : log_.lines()) {
            channelLines += line.rfind("TNUSBChannel", 0) == 0 && line.find("connect()") == std::string::npos;
        }
        EXPECT_EQ(channelLines, 1u);
        EXPECT_EQ(log_.count(test.error.description()), 1u);
        hub.reset();
        MainQueue::shared().poll();
    }
}

}  // namespace
}  // namespace havrel
