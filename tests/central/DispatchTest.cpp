#include "RangeCommandBuilders.hpp"
#include "central/HVCentralConnectionTypeManager.hpp"
#include "central/HVCentralThroughputMeter.hpp"
#include "central/HVCentralTransmissionManager.hpp"
#include "central/RNClient.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"
#include "sequencing/HVSequence.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace havrel {
namespace {

using std::chrono::milliseconds;

// Records every broadcast as text.
class RecordingTransmissionManager final : public HVTransmissionManager {
public:
    std::vector<std::string> calls;
    void broadcastController(std::uint64_t controller, std::uint64_t value, std::uint64_t channel) override {
        calls.push_back(fmt::format("CC {} {} ch{}", controller, value, channel));
    }
    void broadcastNote(std::uint64_t note, std::uint64_t velocity, std::uint64_t channel) override {
        calls.push_back(fmt::format("Note {} {} ch{}", note, velocity, channel));
    }
    void broadcastProgramChange(std::uint64_t program, std::uint64_t channel) override {
        calls.push_back(fmt::format("PC {} ch{}", program, channel));
    }
    void broadcastPitchBendWithChannel(std::uint64_t channel, std::uint64_t lsb, std::uint64_t msb) override {
        calls.push_back(fmt::format("Bend ch{} {} {}", channel, lsb, msb));
    }
};

using testing::rangeCommand;
using testing::wrapperWith;

class DispatchTest : public ::testing::Test {
protected:
    void SetUp() override {
        HVSequenceManager::resetSharedInstanceForTesting();
        HVTransmissionManager::setShared(recorder_);
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
        manager_.registerValueChangeObserversIfNeeded();
        client_->configuration = configuration_;
    }
    void TearDown() override {
        HVTransmissionManager::setShared(nullptr);
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
        NotificationCenter::defaultCenter().removeObserver(this);
    }

    // One range command in, then one turn of the main queue for the dispatch.
    void send(std::vector<HVEncodedRangeValue> values) {
        manager_.didReceiveRangeData(rangeCommand(std::move(values)), client_);
        scope_.advance(milliseconds(0));
    }

    ManualClockScope scope_;
    std::shared_ptr<RecordingTransmissionManager> recorder_ = std::make_shared<RecordingTransmissionManager>();
    HVCentralConnectionTypeManager manager_;
    std::shared_ptr<RNClient> client_ = RNClient::create();
    std::shared_ptr<HVEncodedConfiguration> configuration_ = HVEncodedConfiguration::create();
};

TEST_F(DispatchTest, FaderOnCC7DropsRepeatsUnlessThePolicyOrTheContainerSaysOtherwise) {
    auto fader = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 7, false);
    auto wrapper = wrapperWith(1, fader);
    configuration_->dataWrappers = {wrapper};

    send({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 0.5)});
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 0.5)});
    EXPECT_EQ(recorder_->calls, std::vector<std::string>{"CC 7 63 ch0"});

    wrapper->broadcastPolicy = HVBroadcastPolicyAlways;
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 0.5)});
    wrapper->broadcastPolicy = HVBroadcastPolicyInsideRange;
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 0.5)});
    fader->alwaysBroadcast = true;
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 0.5)});
    EXPECT_EQ(recorder_->calls, (std::vector<std::string>{"CC 7 63 ch0", "CC 7 63 ch0", "CC 7 63 ch0"}));

    // A fresh container always sends its first value, even 0; channels 0 and 1 are wire channel 0.
    auto zero = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(0, 8, false);
    configuration_->dataWrappers.push_back(wrapperWith(2, zero));
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(2, 0, 0.0)});
    EXPECT_EQ(recorder_->calls.back(), "CC 8 0 ch0");
    zero->channel = 16;
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(2, 0, 1.0)});
    EXPECT_EQ(recorder_->calls.back(), "CC 8 127 ch15");
}

TEST_F(DispatchTest, PitchClampsAndRemembersTheUnclampedValue) {
    auto pitch = HVMidiRangeContainer::containerWithChannel(
        1, 0, false, {HVMidiRangeValue::valueWithRangePosition(0.0, 0), HVMidiRangeValue::valueWithRangePosition(1.0, 20000)});
    pitch->signalType = HVSignalTypePitch;
    HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(pitch, {8192.0 / 20000.0}, nullptr, *recorder_);
    EXPECT_EQ(recorder_->calls.back(), "Bend ch0 0 64");

    ScopedLogCapture capture;
    HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(pitch, {1.0}, nullptr, *recorder_);
    EXPECT_EQ(recorder_->calls.back(), "Bend ch0 127 127");
    EXPECT_EQ(capture.count("pitch bend value 20000 out of range, clamped to 16383"), 1u);
    EXPECT_EQ(pitch->lastValueBroadcasted, 20000u);
    const auto sent = recorder_->calls.size();
    HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(pitch, {1.0}, nullptr, *recorder_);
    EXPECT_EQ(recorder_->calls.size(), sent);
    // 16383 differs from the remembered 20000, so it goes out again as a change.
    HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(pitch, {16383.0 / 20000.0}, nullptr, *recorder_);
    EXPECT_EQ(recorder_->calls.size(), sent + 1);
    EXPECT_EQ(recorder_->calls.back(), "Bend ch0 127 127");
}

TEST_F(DispatchTest, NotesProgramsAndDisabledStops) {
    auto note = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(2, 60, true);
    HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(note, {0.0}, nullptr, *recorder_);
    auto program = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(3, 99, false);
    program->signalType = HVSignalTypePC;
    HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(program, {1.0}, nullptr, *recorder_);
    program->values[1]->isEnabled = false;
    HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(program, {1.0}, nullptr, *recorder_);
    auto unknown = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 1, false);
    unknown->signalType = 9;
    HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(unknown, {1.0}, nullptr, *recorder_);
    EXPECT_EQ(recorder_->calls, (std::vector<std::string>{"Note 60 0 ch1", "PC 127 ch2", "PC 0 ch2"}));
    EXPECT_EQ(unknown->lastValueBroadcasted, 127u);
}

TEST_F(DispatchTest, UnknownWrapperInTheMiddleAndOneIndicatorPerCommand) {
    auto a = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 1, false);
    auto c = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 3, false);
    configuration_->dataWrappers = {wrapperWith(1, a), wrapperWith(3, c)};
    int raised = 0;
    int lowered = 0;
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, HVCentralTransmissionManagerIsTransmitting, nullptr, [&](const Notification&) { ++raised; });
    center.addObserver(this, HVCentralTransmissionManagerStoppedTransmitting, nullptr,
                       [&](const Notification&) { ++lowered; });

    ScopedLogCapture capture;
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 1.0), HVEncodedRangeValue::rangeValueWithDataWraperID(2, 0, 1.0),
          HVEncodedRangeValue::rangeValueWithDataWraperID(3, 0, 1.0)});
    EXPECT_EQ(recorder_->calls, (std::vector<std::string>{"CC 1 127 ch0", "CC 3 127 ch0"}));
    EXPECT_EQ(capture.count("[HVCentralDiag] LOOKUP MISS - 2 wrappers in client.config: {numericID=1 uuid="), 1u);
    EXPECT_EQ(capture.count("[HVCentralDiag] decoded rangeCommand with 3 rangeValues"), 1u);
    EXPECT_EQ(raised, 1);
    EXPECT_EQ(HVCentralTransmissionManager::sharedInstance()->activeIndicatorCount(), 1u);

    // A second command 50 ms later moves the fall to 100 ms after it.
    scope_.advance(milliseconds(50));
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 0.0)});
    scope_.advance(milliseconds(99));
    EXPECT_EQ(lowered, 0);
    scope_.advance(milliseconds(1));
    EXPECT_EQ(lowered, 1);
    EXPECT_EQ(HVCentralTransmissionManager::sharedInstance()->activeIndicatorCount(), 0u);

    // A client without a configuration finds nothing; no client at all only logs.
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 0.5)});
    HVCentralTransmissionManager::sharedInstance()->didReceiveCommandForClient(nullptr);
    EXPECT_EQ(capture.count("transmission indicator: command with no matching client \u2014 ignoring"), 1u);
}

TEST_F(DispatchTest, TransitionTargetsSendNothingButTheirStepsDo) {
    auto fader = HVMidiRangeContainer::containerWithChannel(
        1, 7, false, {HVMidiRangeValue::valueWithRangePosition(0.0, 0), HVMidiRangeValue::valueWithRangePosition(1.0, 127, 0.5)});
    configuration_->dataWrappers = {wrapperWith(4, fader)};
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(4, 0, 0.2)});
    recorder_->calls.clear();
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(4, 0, 1.0)});
    EXPECT_TRUE(recorder_->calls.empty());
    scope_.advance(milliseconds(500));
    ASSERT_GT(recorder_->calls.size(), 50u);
    EXPECT_EQ(recorder_->calls.back(), "CC 7 127 ch0");
    // Each value of the glide goes out once, in rising order.
    EXPECT_EQ(recorder_->calls.front(), "CC 7 26 ch0");
}

TEST_F(DispatchTest, ClassHandlerRunsOncePerNotificationHoweverManyManagersRegister) {
    HVCentralConnectionTypeManager second;
    second.registerValueChangeObserversIfNeeded();
    second.registerValueChangeObserversIfNeeded();
    auto fader = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 7, false);
    configuration_->dataWrappers = {wrapperWith(1, fader)};
    fader->alwaysBroadcast = true;
    send({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 1.0)});
    EXPECT_EQ(recorder_->calls.size(), 1u);
}

TEST(ThroughputMeter, SlidingOneSecondWindow) {
    ManualClockScope scope;
    HVCentralThroughputMeter meter;
    for (int i = 0; i < 5; ++i) {
        meter.recordController(7, 300, 0);
    }
    EXPECT_EQ(meter.messagesPerSecond(), 5);
    EXPECT_EQ(meter.lastMessageDescription(), "CC 7 \u00b7 300");
    scope.advance(std::chrono::milliseconds(1000));
    meter.recordNote(60, 100, 0, false);
    // A timestamp exactly one second old still counts.
    EXPECT_EQ(meter.messagesPerSecond(), 6);
    scope.advance(std::chrono::seconds(2));
    EXPECT_EQ(meter.messagesPerSecond(), 0);
    EXPECT_EQ(meter.lastMessageDescription(), "Note Off 60 \u00b7 100");
    meter.reset();
    EXPECT_FALSE(meter.lastMessageDescription().has_value());
}

}  // namespace
}  // namespace havrel
