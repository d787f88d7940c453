#include "FrameTestSupport.hpp"
#include "support/MainQueueWaiting.hpp"

#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "transport/usb/TNChannel.hpp"

#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace havrel {
namespace {

using testing::pumpIdle;
using testing::runMainQueueUntil;
using testing::RawTCPPeer;
using testing::rawFrame;
using testing::RecordingDelegate;
using testing::shared;
using testing::SocketPairHub;

constexpr std::uint32_t kLoopback = 0x7F000001;
// A callback that ran and reported no error.
const std::optional<TNOptionalError> kSucceeded{std::in_place};
constexpr std::uint8_t kAllOperations =
    kTNChannelDelegateShouldAccept | kTNChannelDelegateDidEnd | kTNChannelDelegateDidAccept;

class TNChannelTest : public ::testing::Test {
protected:
    void TearDown() override {
        for (auto& channel : channels_) {
            channel->close();
        }
        pumpIdle();
        for (auto& channel : channels_) {
            channel->setDelegate(nullptr);
        }
        for (auto& delegate : delegates_) {
            delegate->forget();
        }
        channels_.clear();
    }

    std::shared_ptr<RecordingDelegate> makeDelegate(std::uint8_t flags = kAllOperations) {
        auto delegate = std::make_shared<RecordingDelegate>(flags);
        delegates_.push_back(delegate);
        return delegate;
    }
    std::shared_ptr<TNChannel> track(std::shared_ptr<TNChannel> channel) {
        channels_.push_back(channel);
        return channel;
    }
    // A channel connected to a raw peer that the test drives byte by byte.
    std::shared_ptr<TNChannel> connectToRawPeer(RawTCPPeer& peer, const std::shared_ptr<RecordingDelegate>& delegate) {
        auto channel = track(TNChannel::channelWithDelegate(delegate));
        std::optional<TNOptionalError> result;
        channel->connectToPort(peer.port(), kLoopback,
                               [&](const TNOptionalError& error, std::optional<TNAddress>) { result = error; });
        EXPECT_TRUE(runMainQueueUntil([&] { return result.has_value(); }));
        EXPECT_EQ(result, kSucceeded);
        EXPECT_TRUE(peer.accept());
        return channel;
    }

    ManualClockScope clock_;
    std::vector<std::shared_ptr<RecordingDelegate>> delegates_;
    std::vector<std::shared_ptr<TNChannel>> channels_;
};

TEST_F(TNChannelTest, FramesTravelBothWaysBetweenAListeningAndAConnectingChannel) {
    auto serverDelegate = makeDelegate();
    auto clientDelegate = makeDelegate();
    auto listener = track(TNChannel::channelWithDelegate(serverDelegate));
    std::optional<TNOptionalError> listened;
    listener->listenOnPort(0, kLoopback, [&](const TNOptionalError& error) { listened = error; });
    ASSERT_EQ(listened, kSucceeded);
    ASSERT_TRUE(listener->isListening());
    const auto port = listener->localPort();
    ASSERT_NE(port, 0);

    auto client = track(TNChannel::channelWithDelegate(clientDelegate));
    std::optional<TNAddress> connectedTo;
    bool connected = false;
    client->connectToPort(port, kLoopback, [&](const TNOptionalError& error, std::optional<TNAddress> address) {
        EXPECT_EQ(error, std::nullopt);
        connected = true;
        connectedTo = address;
    });
    EXPECT_TRUE(client->isConnected());
    ASSERT_TRUE(runMainQueueUntil([&] { return connected && serverDelegate->accepted.size() == 1; }));
    ASSERT_TRUE(connectedTo.has_value());
    EXPECT_EQ(connectedTo->description(), fmt::format("127.0.0.1:{}", port));
    EXPECT_EQ(client->connState(), TNChannel::kConnStateConnected);

    const auto& accepted = serverDelegate->accepted[0];
    auto server = track(accepted.channel);
    EXPECT_EQ(accepted.listening, listener);
    EXPECT_EQ(accepted.address.name(), "127.0.0.1");
    EXPECT_EQ(server->delegate(), serverDelegate);
    EXPECT_EQ(server->protocol(), listener->protocol());
    EXPECT_TRUE(server->isConnected());

    // Absent and empty payloads both arrive as a frame without payload; a payload larger than
    // one read piece arrives whole.
    Bytes large(300000);
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<std::uint8_t>(i * 7);
    }
    std::vector<TNOptionalError> sent;
    auto record = [&](const TNOptionalError& error) { sent.push_back(error); };
    client->sendFrameOfType(101, 1, nullptr, record);
    client->sendFrameOfType(102, 2, shared({}), record);
    client->sendFrameOfType(104, 0xFFFFFFFF, shared({1, 2, 3}), record);
    client->sendFrameOfType(108, 7, shared(large), nullptr);
    ASSERT_TRUE(runMainQueueUntil([&] { return serverDelegate->frames.size() == 4; }));
    EXPECT_EQ(sent, std::vector<TNOptionalError>(3));
    const auto& frames = serverDelegate->frames;
    EXPECT_EQ(frames[0].type, 101u);
    EXPECT_EQ(frames[0].tag, 1u);
    EXPECT_EQ(frames[0].payload, std::nullopt);
    EXPECT_EQ(frames[1].type, 102u);
    EXPECT_EQ(frames[1].payload, std::nullopt);
    EXPECT_EQ(frames[2].tag, 0xFFFFFFFFu);
    EXPECT_EQ(frames[2].payload, (Bytes{1, 2, 3}));
    EXPECT_EQ(frames[3].type, 108u);
    EXPECT_EQ(frames[3].payload, large);
    EXPECT_EQ(frames[3].channel, server);
    ASSERT_EQ(serverDelegate->asked.size(), 4u);
    EXPECT_EQ(serverDelegate->asked[3].payloadSize, large.size());

    server->sendFrameOfType(110, 0, shared({'{', '}'}), nullptr);
    ASSERT_TRUE(runMainQueueUntil([&] { return clientDelegate->frames.size() == 1; }));
    EXPECT_EQ(clientDelegate->frames[0].type, 110u);
    EXPECT_EQ(clientDelegate->frames[0].payload, (Bytes{'{', '}'}));

    // Closing one side: its outstanding read is stopped, the other side sees a clean end.
    client->close();
    EXPECT_FALSE(client->isConnected());
    ASSERT_TRUE(
        runMainQueueUntil([&] { return serverDelegate->ends.size() == 1 && clientDelegate->ends.size() == 1; }));
    EXPECT_EQ(serverDelegate->ends[0].channel, server);
    EXPECT_EQ(serverDelegate->ends[0].error, std::nullopt);
    EXPECT_EQ(clientDelegate->ends[0].error, TNError::posix(ECANCELED));
    EXPECT_FALSE(server->isConnected());
    EXPECT_EQ(server->description().find("(closed)") != std::string::npos, true);

    // A cancelled listening source stays "listening" and reports its end once.
    listener->close();
    ASSERT_TRUE(runMainQueueUntil([&] { return serverDelegate->ends.size() == 2; }));
    EXPECT_EQ(serverDelegate->ends[1].channel, listener);
    EXPECT_EQ(serverDelegate->ends[1].error, std::nullopt);
    EXPECT_TRUE(listener->isListening());
    EXPECT_EQ(listener->localPort(), 0);
}

TEST_F(TNChannelTest, AListenerWhoseDelegateTakesNoConnectionsClosesThem) {
    auto listener = track(TNChannel::channelWithDelegate(makeDelegate(kTNChannelDelegateDidEnd)));
    listener->listenOnPort(0, kLoopback, nullptr);
    auto clientDelegate = makeDelegate();
    auto client = track(TNChannel::channelWithDelegate(clientDelegate));
    client->connectToPort(listener->localPort(), kLoopback, nullptr);
    ASSERT_TRUE(runMainQueueUntil([&] { return clientDelegate->ends.size() == 1; }));
    EXPECT_EQ(clientDelegate->ends[0].error, std::nullopt);
    EXPECT_FALSE(client->isConnected());
}

TEST_F(TNChannelTest, PeerClosingMidHeaderOrMidPayloadIsAPlainEndOfStream) {
    for (const Bytes& partial : {Bytes{0, 0, 0, 1, 0, 0}, rawFrame(108, 3, Bytes(40, 1), 1, 100)}) {
        RawTCPPeer peer;
        auto delegate = makeDelegate();
        auto channel = connectToRawPeer(peer, delegate);
        ASSERT_TRUE(peer.write(rawFrame(101, 1, {5})));
        ASSERT_TRUE(peer.write(partial));
        ASSERT_TRUE(runMainQueueUntil([&] { return delegate->frames.size() == 1; }));
        peer.closePeer();
        ASSERT_TRUE(runMainQueueUntil([&] { return delegate->ends.size() == 1; }));
        EXPECT_EQ(delegate->ends[0].error, std::nullopt);
        EXPECT_EQ(delegate->frames.size(), 1u) << "the partial frame is never delivered";
        EXPECT_EQ(channel->connState(), TNChannel::kConnStateNone);
    }
}

TEST_F(TNChannelTest, BadHeadersEndTheChannelWithAProtocolError) {
    struct Case {
        Bytes bytes;
        TNError error;
        std::size_t logLines;
    };
    const std::vector<Case> cases{
        {rawFrame(101, 1, {}, 2), TNError::make(kTNProtocolErrorDomain, 0), 0},
        // Refused before anything is allocated or read for it.
        {rawFrame(104, 1, {}, 1, 0xFFFFFFFF), TNError::make(kTNProtocolErrorDomain, kTNProtocolErrorPayloadTooLarge), 1},
        {rawFrame(104, 1, {}, 1, kTNMaximumFramePayloadSize + 1),
         TNError::make(kTNProtocolErrorDomain, kTNProtocolErrorPayloadTooLarge), 1},
    };
    for (const auto& item : cases) {
        ScopedLogCapture log;
        RawTCPPeer peer;
        auto delegate = makeDelegate();
        auto channel = connectToRawPeer(peer, delegate);
        ASSERT_TRUE(peer.write(item.bytes));
        ASSERT_TRUE(runMainQueueUntil([&] { return delegate->ends.size() == 1; }));
        EXPECT_EQ(delegate->ends[0].error, item.error);
        EXPECT_TRUE(delegate->asked.empty());
        EXPECT_TRUE(delegate->frames.empty());
        EXPECT_FALSE(channel->isConnected());
        EXPECT_EQ(log.lines().size(), item.logLines);
        if (item.logLines == 1) {
            EXPECT_TRUE(log.contains("Refusing frame of type 104"));
        }
        EXPECT_TRUE(runMainQueueUntil([&] { return peer.sawEndOfStream(); }));
    }
}

TEST_F(TNChannelTest, RefusedFramesAreSkippedAndReadingGoesOn) {
    RawTCPPeer peer;
    auto delegate = makeDelegate();
    delegate->shouldAccept = [](std::uint32_t type, std::uint32_t, std::uint32_t) { return type != 200; };
    auto channel = connectToRawPeer(peer, delegate);
    Bytes stream = rawFrame(200, 1, {});
    for (const auto& frame : {rawFrame(200, 2, Bytes(70000, 9)), rawFrame(105, 3, {1, 2})}) {
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    ASSERT_TRUE(peer.write(stream));
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate->frames.size() == 1; }));
    EXPECT_EQ(delegate->frames[0].type, 105u);
    EXPECT_EQ(delegate->frames[0].payload, (Bytes{1, 2}));
    ASSERT_EQ(delegate->asked.size(), 3u);
    EXPECT_EQ(delegate->asked[1].payloadSize, 70000u);
    EXPECT_TRUE(channel->isConnected());
    EXPECT_TRUE(delegate->ends.empty());

    // A delegate that implements no shouldAccept is not asked.
    delegate->flags = kTNChannelDelegateDidEnd;
    channel->setDelegate(delegate);
    ASSERT_TRUE(peer.write(rawFrame(200, 4, {7})));
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate->frames.size() == 2; }));
    EXPECT_EQ(delegate->asked.size(), 3u);
}

TEST_F(TNChannelTest, AFrameOfTypeZeroEndsTheChannelCleanlyWithoutReadingItsPayload) {
    RawTCPPeer peer;
    auto delegate = makeDelegate();
    auto channel = connectToRawPeer(peer, delegate);
    ASSERT_TRUE(peer.write(rawFrame(0, 5, {1, 2, 3, 4})));
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate->ends.size() == 1; }));
    EXPECT_EQ(delegate->ends[0].error, std::nullopt);
    EXPECT_TRUE(delegate->frames.empty());
    EXPECT_FALSE(channel->isConnected());
    EXPECT_TRUE(runMainQueueUntil([&] { return peer.sawEndOfStream(); }));

    // The channel is done: sends are refused.
    std::optional<TNOptionalError> sent;
    channel->sendFrameOfType(101, 1, nullptr, [&](const TNOptionalError& error) { sent = error; });
    EXPECT_EQ(sent, TNOptionalError(TNError::posix(1)));
}

TEST_F(TNChannelTest, SendingToAPeerThatWentAwayReportsAnErrorAndTheProcessLives) {
    struct sigaction previous {};
    struct sigaction defaults {};
    defaults.sa_handler = SIG_DFL;
    ASSERT_EQ(::sigaction(SIGPIPE, &defaults, &previous), 0);

    RawTCPPeer peer;
    auto delegate = makeDelegate();
    auto channel = connectToRawPeer(peer, delegate);
    peer.closePeer();
    std::vector<TNOptionalError> results;
    for (int i = 0; i < 4; ++i) {
        channel->sendFrameOfType(108, 0, shared(Bytes(4096, 1)), [&](const TNOptionalError& error) {
            results.push_back(error);
        });
    }
    ASSERT_TRUE(runMainQueueUntil([&] { return results.size() == 4 && delegate->ends.size() == 1; }))
        << results.size() << " results, " << delegate->ends.size() << " ends";
    EXPECT_TRUE(std::any_of(results.begin(), results.end(), [](const TNOptionalError& error) {
        return error == TNError::posix(EPIPE) || error == TNError::posix(ECONNRESET);
    }));
    ::sigaction(SIGPIPE, &previous, nullptr);
}

TEST_F(TNChannelTest, ConnectAndSendInTheWrongStateAreRefused) {
    auto delegate = makeDelegate();
    auto channel = track(TNChannel::channelWithDelegate(delegate));
    std::optional<TNOptionalError> sent;
    channel->sendFrameOfType(101, 1, nullptr, [&](const TNOptionalError& error) { sent = error; });
    EXPECT_EQ(sent, TNOptionalError(TNError::posix(1)));
    channel->sendFrameOfType(101, 1, nullptr, nullptr);
    channel->close();
    channel->cancel();
    EXPECT_EQ(channel->connState(), TNChannel::kConnStateNone);

    // A second connect while the first is under way is refused and the first goes on.
    RawTCPPeer peer;
    std::vector<TNOptionalError> first;
    std::optional<TNOptionalError> second;
    channel->connectToPort(peer.port(), kLoopback,
                           [&](const TNOptionalError& error, std::optional<TNAddress>) { first.push_back(error); });
    channel->connectToPort(peer.port(), kLoopback, [&](const TNOptionalError& error, std::optional<TNAddress> address) {
        second = error;
        EXPECT_EQ(address, std::nullopt);
    });
    EXPECT_EQ(second, TNOptionalError(TNError::posix(1)));
    ASSERT_TRUE(runMainQueueUntil([&] { return !first.empty(); }));
    EXPECT_EQ(first, std::vector<TNOptionalError>{std::nullopt});
    EXPECT_EQ(channel->connState(), TNChannel::kConnStateConnected);

    // Listening needs a channel that is not connected.
    TNOptionalError hubResult;
    SocketPairHub hub;
    channel->connectToPort(4699, hub, 3, [&](const TNOptionalError& error) { hubResult = error; });
    EXPECT_EQ(hubResult, TNError::posix(1));
    EXPECT_TRUE(hub.requests.empty());
}

TEST_F(TNChannelTest, AFailedConnectReportsTheSystemErrorAndSpendsTheChannel) {
    std::uint16_t closedPort = 0;
    {
        RawTCPPeer gone;
        closedPort = gone.port();
    }
    auto channel = track(TNChannel::channelWithDelegate(makeDelegate()));
    std::optional<TNOptionalError> result;
    channel->connectToPort(closedPort, kLoopback, [&](const TNOptionalError& error, std::optional<TNAddress> address) {
        result = error;
        EXPECT_EQ(address, std::nullopt);
    });
    ASSERT_TRUE(runMainQueueUntil([&] { return result.has_value(); }));
    EXPECT_EQ(*result, TNError::posix(ECONNREFUSED));
    EXPECT_EQ(channel->connState(), TNChannel::kConnStateConnecting);
    std::optional<TNOptionalError> again;
    channel->connectToPort(closedPort, kLoopback,
                           [&](const TNOptionalError& error, std::optional<TNAddress>) { again = error; });
    EXPECT_EQ(again, TNOptionalError(TNError::posix(1)));
}

TEST_F(TNChannelTest, ConnectingThroughTheHubTakesOverTheTunnelSocket) {
    SocketPairHub failing;
    failing.error = TNError::make(TNUSBHubErrorDomain, 3, "Connection refused");
    auto delegate = makeDelegate();
    auto refused = track(TNChannel::channelWithDelegate(delegate));
    std::optional<TNOptionalError> result;
    refused->connectToPort(4699, failing, 12, [&](const TNOptionalError& error) { result = error; });
    EXPECT_EQ(result, TNOptionalError(failing.error));
    EXPECT_EQ(refused->connState(), TNChannel::kConnStateNone);
    EXPECT_EQ(failing.requests, (std::vector<std::pair<std::int64_t, std::int32_t>>{{12, 4699}}));

    SocketPairHub hub;
    auto channel = track(TNChannel::channelWithDelegate(delegate));
    result.reset();
    channel->connectToPort(4699, hub, 7, [&](const TNOptionalError& error) { result = error; });
    EXPECT_EQ(result, kSucceeded);
    EXPECT_EQ(channel->connState(), TNChannel::kConnStateConnected);

    ASSERT_TRUE(hub.writeToChannel(rawFrame(108, 2, {1, 2, 3})));
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate->frames.size() == 1; }));
    EXPECT_EQ(delegate->frames[0].payload, (Bytes{1, 2, 3}));

    std::optional<TNOptionalError> sent;
    channel->sendFrameOfType(102, 9, nullptr, [&](const TNOptionalError& error) { sent = error; });
    ASSERT_TRUE(runMainQueueUntil([&] { return sent.has_value(); }));
    Bytes received(32);
    ASSERT_EQ(::recv(hub.peer, received.data(), received.size(), MSG_DONTWAIT), 16);
    received.resize(16);
    EXPECT_EQ(received, rawFrame(102, 9, {}));

    // The end over the hub tells only the tunnel's own error, not the loop's.
    ASSERT_TRUE(hub.writeToChannel(rawFrame(108, 2, {}, 2)));
    ASSERT_TRUE(runMainQueueUntil([&] { return delegate->ends.size() == 1; }));
    EXPECT_EQ(delegate->ends[0].channel, channel);
    EXPECT_EQ(delegate->ends[0].error, std::nullopt);
    EXPECT_FALSE(channel->isConnected());
}

}  // namespace
}  // namespace havrel
