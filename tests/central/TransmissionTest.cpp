// The broadcast side of the transmission manager: the 8-bit cuts on the way to the MIDI sender,
// the meter's uncut records, the log lines, and the pure-command status table.

#include "central/HVCentralThroughputMeter.hpp"
#include "central/HVCentralTransmissionManager.hpp"
#include "central/HVMIDISender.hpp"
#include "RecordingSender.hpp"
#include "model/RNMIDIControllerSignal.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace havrel {
namespace {

using testing::RecordingSender;

class TransmissionTest : public ::testing::Test {
protected:
    void SetUp() override {
        HVMIDISender::setShared(sender_);
        meter_->reset();
    }
    void TearDown() override {
        HVMIDISender::setShared(nullptr);
        meter_->reset();
    }

    ManualClockScope scope_;
    std::shared_ptr<RecordingSender> sender_ = std::make_shared<RecordingSender>();
    std::shared_ptr<HVCentralTransmissionManager> manager_ = HVCentralTransmissionManager::sharedInstance();
    std::shared_ptr<HVCentralThroughputMeter> meter_ = HVCentralThroughputMeter::sharedInstance();
};

TEST_F(TransmissionTest, BroadcastsCutTo8BitsWhileTheMeterAndLogSeeTheUncutNumbers) {
    ScopedLogCapture capture;
    manager_->broadcastController(7, 300, 2);
    EXPECT_EQ(sender_->calls.back(), "CC 7 44 ch2 virtual=true");
    EXPECT_EQ(meter_->lastMessageDescription(), "CC 7 \u00b7 300");

    manager_->broadcastNote(260, 90, 1);
    EXPECT_EQ(sender_->calls.back(), "On 4 90 ch1 virtual=true");
    EXPECT_EQ(meter_->lastMessageDescription(), "Note On 260 \u00b7 90");

    manager_->broadcastProgramChange(513, 3);
    EXPECT_EQ(sender_->calls.back(), "PC 1 ch3 virtual=true");
    EXPECT_EQ(meter_->lastMessageDescription(), "PC 513");

    // LSB + (MSB << 7): 0 and 64 make the centre; the sum is cut to 16 bits for the sender only.
    manager_->broadcastPitchBendWithChannel(0, 0, 64);
    EXPECT_EQ(sender_->calls.back(), "Bend 8192 ch0 virtual=true");
    manager_->broadcastPitchBendWithChannel(0, 1, 1024);
    EXPECT_EQ(sender_->calls.back(), "Bend 1 ch0 virtual=true");
    EXPECT_EQ(meter_->lastMessageDescription(), "Bend 131073");
    EXPECT_EQ(meter_->messagesPerSecond(), 5);

    // Without a MIDI sender the message still counts and the log names no manager.
    HVMIDISender::setShared(nullptr);
    manager_->broadcastController(1, 2, 3);
    EXPECT_EQ(capture.count("[HVCentralTxDiag] broadcastController cc=1 val=2 ch=3 midiMgrShared=(null)"), 1u);
    EXPECT_EQ(meter_->messagesPerSecond(), 6);
    EXPECT_EQ(sender_->calls.size(), 5u);
}

TEST_F(TransmissionTest, PureCommandsFollowTheStatusTableAndSkipTheDiagnosticLineForNotes) {
    ScopedLogCapture capture;
    manager_->sendPureCommand(0x93, 60, 0);
    manager_->sendPureCommand(0x85, 61, 40);
    manager_->sendPureCommand(0xB1, 7, 100);
    manager_->sendPureCommand(0xE2, 0, 64);
    manager_->sendPureCommand(0xC4, 12, 99);
    for (std::uint8_t status : {0xA0, 0xD0, 0xF8}) {
        manager_->sendPureCommand(status, 1, 2);
    }
    EXPECT_EQ(sender_->calls, (std::vector<std::string>{"On 60 0 ch3 virtual=true", "Off 61 40 ch5 virtual=true",
                                                        "CC 7 100 ch1 virtual=true", "Bend 8192 ch2 virtual=true",
                                                        "PC 12 ch4 virtual=true"}));
    EXPECT_EQ(meter_->messagesPerSecond(), 5);
    EXPECT_EQ(capture.count("[HVCentralTxDiag] broadcastNote"), 0u);
    EXPECT_EQ(capture.count("[HVCentralTxDiag] broadcastController cc=7 val=100 ch=1"), 1u);

    // From the wire: the first byte carries the status flipped in bit 7; a short buffer sends
    // nothing.
    const std::vector<std::uint8_t> wire{0x93 ^ 0x80, 62, 10};
    manager_->sendPureCommandWithData(wire);
    EXPECT_EQ(sender_->calls.back(), "On 62 10 ch3 virtual=true");
    const std::vector<std::uint8_t> shortData{0x13, 62};
    manager_->sendPureCommandWithData(shortData);
    EXPECT_EQ(sender_->calls.size(), 6u);
}

TEST_F(TransmissionTest, SignalsSendControllersAndNotesOnly) {
    auto signal = RNMIDIControllerSignal::RNMIDIControllerSignalWithChannel(1, 74, 90);
    manager_->sendSignal(*signal);
    signal->type = HVSignalTypeNote;
    manager_->sendSignal(*signal);
    signal->type = HVSignalTypePC;
    manager_->sendSignal(*signal);
    signal->type = HVSignalTypePitch;
    manager_->sendSignal(*signal);
    // The channel goes as it stands, without subtracting 1.
    EXPECT_EQ(sender_->calls,
              (std::vector<std::string>{"CC 74 90 ch1 virtual=true", "On 74 90 ch1 virtual=true"}));
}

}  // namespace
}  // namespace havrel
