#include "MIDICore/AdvancedMIDI2Parser.hpp"
#include "MIDIInternals/TestQueues.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace MIDICore {
namespace {

using namespace std::chrono_literals;
using Change = MIDI2ParameterNumberChange;

struct Delivery {
    std::vector<MIDIEvent> events;
    std::uint64_t timeStamp;
    std::optional<std::string> source;
};

class BundlerTest : public ::testing::Test {
protected:
    std::shared_ptr<MIDIInternals::ManualQueue> queue = std::make_shared<MIDIInternals::ManualQueue>();
    std::vector<Delivery> deliveries;
    AdvancedMIDI2Parser<std::uint64_t, std::string> parser{
        [this](std::vector<MIDIEvent> events, std::uint64_t timeStamp, std::optional<std::string> source) {
            deliveries.push_back({std::move(events), timeStamp, std::move(source)});
        },
        queue};

    static std::vector<std::uint8_t> packet(const MIDIEvent& event) {
        std::vector<std::uint32_t> words;
        event.appendUMPWords(MIDIProtocolVersion::midi2_0, words);
        return umpBytes(words);
    }
    void send(const MIDIEvent& event, std::uint64_t timeStamp, std::optional<std::string> source = "keys") {
        parser.parseEvents(packet(event), timeStamp, source);
    }
    static MIDIEvent rpn(int msb, int lsb, int channel = 0, Change change = Change::absolute) {
        return MIDIEvent::rpn(UInt7Pair{UInt7(0), UInt7(5)},
                              DataEntryBytes{UInt7::checked(msb), UInt7::checked(lsb)}, change, UInt4::checked(channel));
    }
    static MIDIEvent nrpn(int msb, int lsb) {
        return MIDIEvent::nrpn(UInt7Pair{UInt7(1), UInt7(2)}, DataEntryBytes{UInt7::checked(msb), UInt7::checked(lsb)},
                               Change::absolute, UInt4(0));
    }
};

TEST_F(BundlerTest, SecondPartReplacesTheHeldFirstPart) {
    send(rpn(10, 0), 100);
    EXPECT_TRUE(deliveries.empty());
    send(rpn(10, 33), 101);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].events, std::vector{rpn(10, 33)});
    EXPECT_EQ(deliveries[0].timeStamp, 101u);
    // The expiration of the merged event does nothing.
    queue->advance(1s);
    EXPECT_EQ(deliveries.size(), 1u);
}

TEST_F(BundlerTest, LoneFirstPartArrivesThroughTheTimerWithItsOwnTimeStamp) {
    send(rpn(10, 0), 100, "pads");
    queue->advance(std::chrono::milliseconds(static_cast<int>(
        ParameterNumberEventBundler<std::uint64_t, std::string>::defaultTimeOut * 1000) - 1));
    EXPECT_TRUE(deliveries.empty());
    queue->advance(1ms);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].events, std::vector{rpn(10, 0)});
    EXPECT_EQ(deliveries[0].timeStamp, 100u);
    EXPECT_EQ(deliveries[0].source, "pads");
}

TEST_F(BundlerTest, OtherEventsReleaseTheHeldEventInOrder) {
    auto clock = MIDIEvent::timingClock();
    auto note = MIDIEvent::noteOn(UInt7(60), ChanVoice7Bit16BitValue::midi2(1000), UInt4(0));
    // Real time passes by a held event; the note releases it first.
    send(rpn(10, 0), 1);
    send(clock, 2);
    send(note, 3);
    ASSERT_EQ(deliveries.size(), 3u);
    EXPECT_EQ(deliveries[0].events, std::vector{clock});
    EXPECT_EQ(deliveries[1].events, std::vector{rpn(10, 0)});
    EXPECT_EQ(deliveries[1].timeStamp, 1u);
    EXPECT_EQ(deliveries[2].events, std::vector{note});
    deliveries.clear();

    // Another MSB, another channel, the other kind or a relative change do not merge.
    send(rpn(10, 0), 4);
    send(rpn(11, 0), 5);
    send(rpn(11, 7, 1), 6);
    send(nrpn(11, 0), 7);
    send(rpn(3, 0, 0, Change::relative), 8);
    ASSERT_EQ(deliveries.size(), 5u);
    EXPECT_EQ(deliveries[0].events, std::vector{rpn(10, 0)});
    EXPECT_EQ(deliveries[1].events, std::vector{rpn(11, 0)});
    EXPECT_EQ(deliveries[2].events, std::vector{rpn(11, 7, 1)});
    EXPECT_EQ(deliveries[3].events, std::vector{nrpn(11, 0)});
    EXPECT_EQ(deliveries[4].events, std::vector{rpn(3, 0, 0, Change::relative)});
    queue->advance(1s);
    EXPECT_EQ(deliveries.size(), 5u);
}

TEST_F(BundlerTest, WithBundlingOffEventsGoOutAsParsed) {
    parser.setBundleRPNAndNRPNDataEntryLSB(false);
    send(rpn(10, 0), 1);
    send(rpn(10, 5), 2);
    ASSERT_EQ(deliveries.size(), 2u);
    EXPECT_EQ(deliveries[0].events, std::vector{rpn(10, 0)});
    // Nothing is delivered for an input that parses to nothing.
    parser.parseEvents(std::vector<std::uint8_t>{0x20, 0x90}, 3);
    EXPECT_EQ(deliveries.size(), 2u);
}

TEST(EventHolder, ExpirationAndTakeNeverBothDeliver) {
    std::atomic<int> expired = 0;
    int taken = 0;
    {
        auto queue = std::make_shared<MIDIInternals::testing::ThreadQueue>();
        EventHolder<MIDIEvent::RPN, int, int> holder(queue, 0.0, [&](MIDIEvent, int, std::optional<int>) { ++expired; });
        auto event = *MIDIEvent::rpn(RegisteredController::null(), Change::absolute, UInt4(0)).get<MIDIEvent::RPN>();
        for (int i = 0; i < 2000; ++i) {
            holder.hold(event, i, std::nullopt);
            if (holder.take()) {
                ++taken;
            }
        }
        // The holder goes first; the queue then runs what is left before its thread ends.
    }
    EXPECT_EQ(taken + expired.load(), 2000);
}

}  // namespace
}  // namespace MIDICore
