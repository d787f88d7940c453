// The session against a Central played by a frame channel in the test: it connects to the
// simulator's port, answers frame 100 with its identity, and records what arrives.

#include "central/HVEncodedRangeCommand.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "havrel-client-sim/HVSimHandshake.hpp"
#include "havrel-client-sim/HVSimSession.hpp"
#include "model/HVDataHelpers.hpp"
#include "platform/PropertyList.hpp"
#include "transport/usb/FrameTestSupport.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace havrel {
namespace {

using testing::RecordingDelegate;

// Answers the client's introduction with its identity, then records; can hang up after a
// number of frames.
class CentralPeer final : public RecordingDelegate {
public:
    std::optional<Bytes> centralInfo;
    std::optional<std::size_t> hangUpAfter;

    void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                                             std::uint32_t tag, const std::shared_ptr<TNData>& payload) override {
        RecordingDelegate::ioFrameChannelDidReceiveFrameOfType(channel, type, tag, payload);
        if (type == TNFrameTypeDeviceInfo && centralInfo) {
            channel->sendFrameOfType(TNFrameTypeCentralInfo, 0, std::make_shared<const Bytes>(*centralInfo), nullptr);
        }
        if (hangUpAfter && frames.size() == *hangUpAfter) {
            channel->close();
        }
    }

    void ioFrameChannelDidEndWithError(const std::shared_ptr<TNChannel>& channel,
                                       const TNOptionalError& error) override {
        RecordingDelegate::ioFrameChannelDidEndWithError(channel, error);
        MainQueue::shared().stop();
    }
};

Bytes centralIdentity(const std::string& apiVersion) {
    std::string json = Dictionary{{"name", "Test Desk"}, {"version", "1.0"}, {"apiVersion", apiVersion},
                                  {"minApi", "2.1"}}
                           .dump();
    return Bytes(json.begin(), json.end());
}

class SessionTest : public ::testing::Test {
protected:
    // The Central's records hold its channel, which holds the Central as its delegate.
    void TearDown() override { central->forget(); }

    HVSimSurface surface = HVSimSurface::builtIn();
    std::shared_ptr<CentralPeer> central = std::make_shared<CentralPeer>();
    std::vector<std::string> out;
    std::vector<std::string> progress;
    std::optional<int> exitCode;

    HVSimSession::Settings settingsFor(const std::string& script) {
        HVSimSession::Settings settings;
        settings.port = 0;
        settings.deviceInfo = HVSimHandshake::deviceInfoPayload(HVSimIdentity{});
        settings.syncPayload = surface.syncPayload();
        auto steps = HVSimScript::parseInline(script, surface);
        settings.frames = HVSimPerformance::frames(steps, 100.0);
        settings.duration = HVSimPerformance::duration(steps);
        settings.grace = std::chrono::milliseconds(0);
        settings.connectTimeout = std::chrono::seconds(5);
        return settings;
    }

    // Starts the session, lets the Central connect when asked, and runs the main queue until the
    // session has ended and the Central's channel too (each stops the queue), or ten seconds have
    // passed.
    void run(HVSimSession::Settings settings, bool connect = true) {
        auto session = HVSimSession::create(
            std::move(settings), [this](const std::string& line) { out.push_back(line); },
            [this](const std::string& line) { progress.push_back(line); },
            [this](int code) {
                exitCode = code;
                MainQueue::shared().stop();
            });
        session->start();
        ASSERT_NE(session->localPort(), 0);
        std::shared_ptr<TNChannel> channel;
        if (connect) {
            channel = TNChannel::channelWithDelegate(central);
            channel->connectToPort(session->localPort(), 0x7F000001,
                                   [](const TNOptionalError& error, std::optional<TNAddress>) {
                                       EXPECT_FALSE(error.has_value()) << describe(error);
                                   });
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        auto settled = [&] { return exitCode.has_value() && (!channel || !central->ends.empty()); };
        while (!settled() && std::chrono::steady_clock::now() < deadline) {
            MainQueue::shared().runFor(deadline - std::chrono::steady_clock::now());
        }
        ASSERT_TRUE(exitCode.has_value()) << "the session did not end";
        if (channel) {
            EXPECT_EQ(central->ends.size(), 1u) << "the Central's channel did not end";
            channel->close();
        }
    }

    std::vector<std::uint32_t> receivedTypes() const {
        std::vector<std::uint32_t> types;
        for (const auto& frame : central->frames) {
            types.push_back(frame.type);
        }
        return types;
    }
};

TEST_F(SessionTest, IntroducesItselfSendsItsConfigurationAndPlaysTheScript) {
    central->centralInfo = centralIdentity("2.1");
    run(settingsFor("set fader 0.5; tap pad 0.05; midi 90 3C 64; change {\"changeType\": 2}"));
    EXPECT_EQ(exitCode, kHVSimExitDone);
    ASSERT_EQ(receivedTypes(), (std::vector<std::uint32_t>{100, 104, 108, 108, 108, 106, 107}));

    auto introduction = propertyListFromData(*central->frames[0].payload);
    ASSERT_TRUE(introduction.has_value());
    EXPECT_EQ((*introduction)["usbClient"]["type"], "RNUSBClient");
    EXPECT_EQ((*introduction)["usbClient"]["connectionName"], "Simulated Pad");

    auto document = gzipInflate(*central->frames[1].payload);
    ASSERT_TRUE(document.has_value());
    EXPECT_EQ(HVEncodedConfiguration::initWithData(*document)->dictionary(), surface.configuration()->dictionary());

    auto fader = HVEncodedRangeCommand::initWithData(*central->frames[2].payload);
    ASSERT_TRUE(fader.has_value());
    ASSERT_EQ(fader->rangeValues.size(), 1u);
    EXPECT_EQ(fader->rangeValues[0].dataWrapperID, kHVSimFaderID);
    EXPECT_EQ(fader->rangeValues[0].rangeValue, 255.0 / 511.0);
    auto release = HVEncodedRangeCommand::initWithData(*central->frames[4].payload);
    ASSERT_TRUE(release.has_value());
    EXPECT_EQ(release->rangeValues[0].dataWrapperID, kHVSimPadID);
    EXPECT_EQ(release->rangeValues[0].rangeValue, 0.0);
    EXPECT_EQ(RNBluetoothMIDICommandPure::initWithData(*central->frames[5].payload)->status, 0x90);

    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0], "central-info " + Dictionary::parse(centralIdentity("2.1")).dump());
    EXPECT_EQ(progress.back(), "script done");
}

TEST_F(SessionTest, OlderCentralRefusesTheClientBeforeItsConfiguration) {
    central->centralInfo = centralIdentity("2.0");
    run(settingsFor("set fader 1"));
    EXPECT_EQ(exitCode, kHVSimExitRefused);
    EXPECT_EQ(receivedTypes(), std::vector<std::uint32_t>{100});
    EXPECT_EQ(out.size(), 1u);
    EXPECT_EQ(progress.back(), "the Central refuses this client: its API version 2.0 is older than the client's 2.1");
}

TEST_F(SessionTest, UnreadableCentralIdentityEndsTheSession) {
    central->centralInfo = Bytes{'{', 'x'};
    run(settingsFor("set fader 1"));
    EXPECT_EQ(exitCode, kHVSimExitCentralLost);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(progress.back(), "the Central's identity (frame 110) is not a JSON object");
}

TEST_F(SessionTest, CentralLeavingMidScriptEndsTheSessionWithAFault) {
    central->centralInfo = centralIdentity("2.1");
    central->hangUpAfter = 3;  // 100, 104 and the first position
    run(settingsFor("set fader 0; wait 5; set fader 1"));
    EXPECT_EQ(exitCode, kHVSimExitCentralLost);
    EXPECT_EQ(receivedTypes(), (std::vector<std::uint32_t>{100, 104, 108}));
    EXPECT_EQ(progress.back().rfind("the Central went away before the script was done", 0), 0u) << progress.back();
}

TEST_F(SessionTest, NoCentralWithinTheTimeout) {
    auto settings = settingsFor("set fader 1");
    settings.connectTimeout = std::chrono::milliseconds(30);
    run(std::move(settings), false);
    EXPECT_EQ(exitCode, kHVSimExitTimeout);
    EXPECT_EQ(progress.back(), "no Central connected within 0.03 s");
}

}  // namespace
}  // namespace havrel
