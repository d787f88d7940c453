// Receivers on plain packet values: options, the parsers each receiver owns, the weak form,
// bundling with its time-out, and the logging texts.

#include "LoopbackFixture.hpp"

#include "MIDIIO/MIDIEventPacket.hpp"
#include "MIDIInternals/TextHelpers.hpp"

namespace MIDIIO::testing {
namespace {

using MIDICore::MIDIEvent;
using MIDICore::UInt4;
using MIDICore::UInt7;

std::vector<MIDIPacketData> packets(std::vector<std::vector<std::uint8_t>> lists) {
    std::vector<MIDIPacketData> result;
    for (auto& bytes : lists) {
        result.push_back(MIDIPacketData{std::move(bytes), 5, std::nullopt});
    }
    return result;
}

// What a receiver hands on; its queue is a manual one that this thread runs.
struct Collected {
    std::vector<std::vector<MIDIEvent>> calls;
    std::vector<MIDITimeStamp> timeStamps;
    MIDIReceiver receiver(MIDIReceiverOptions options) {
        return MIDIReceiver::events(
            [this](const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp, const std::optional<MIDIOutputEndpoint>&) {
                calls.push_back(events);
                timeStamps.push_back(timeStamp);
            },
            options);
    }
};

TEST(MIDIReceiverTest, OptionsDecideZeroVelocityAndClockFiltering) {
    auto queue = std::make_shared<MIDIInternals::ManualQueue>("receiver-test");
    Collected translated;
    auto translating = translated.receiver(MIDIReceiverOptions::translateMIDI1NoteOnZeroVelocityToNoteOff).create(queue);
    translating->packetListReceived(packets({{0x90, 0x3C, 0x00}}));
    ASSERT_EQ(translated.calls.size(), 1u);
    EXPECT_NE(translated.calls[0][0].get<MIDIEvent::NoteOff>(), nullptr);

    Collected plain;
    auto untranslated = plain.receiver(0).create(queue);
    untranslated->packetListReceived(packets({{0x90, 0x3C, 0x00}, {}}));
    ASSERT_EQ(plain.calls.size(), 1u);  // the empty packet calls nothing
    ASSERT_NE(plain.calls[0][0].get<MIDIEvent::NoteOn>(), nullptr);
    EXPECT_EQ(plain.calls[0][0].get<MIDIEvent::NoteOn>()->velocity().midi1Value(), UInt7(0));

    Collected filtered;
    auto filtering = filtered.receiver(MIDIReceiverOptions::filterActiveSensingAndClock).create(queue);
    filtering->packetListReceived(packets({{0xF8, 0xFE}}));
    EXPECT_TRUE(filtered.calls.empty());
    filtering->packetListReceived(packets({{0xF8, 0x90, 0x3C, 0x40}}));
    ASSERT_EQ(filtered.calls.size(), 1u);
    ASSERT_EQ(filtered.calls[0].size(), 1u);
    EXPECT_NE(filtered.calls[0][0].get<MIDIEvent::NoteOn>(), nullptr);

    // Without the option, clock passes.
    plain.calls.clear();
    untranslated->packetListReceived(packets({{0xF8}}));
    EXPECT_EQ(plain.calls.size(), 1u);
}

TEST(MIDIReceiverTest, GroupMembersKeepTheirOwnRunningStatus) {
    auto queue = std::make_shared<MIDIInternals::ManualQueue>("receiver-test");
    Collected first;
    Collected second;
    auto group = MIDIReceiver::group({first.receiver(0), second.receiver(0)}).create(queue);
    group->packetListReceived(packets({{0x90, 0x3C, 0x40}}));
    auto* only = dynamic_cast<MIDIReceiver::Group*>(group.get());
    ASSERT_NE(only, nullptr);
    // The second member alone hears a running-status continuation: it has its own status.
    only->receiveHandlers[1]->packetListReceived(packets({{0x3D, 0x41}}));
    EXPECT_EQ(first.calls.size(), 1u);
    ASSERT_EQ(second.calls.size(), 2u);
    EXPECT_EQ(second.calls[1][0].get<MIDIEvent::NoteOn>()->note.number(), UInt7(0x3D));
    group->packetListReceived(packets({{0x3E, 0x42}}));
    EXPECT_EQ(first.calls.size(), 2u);
    EXPECT_EQ(second.calls.size(), 3u);
}

class Listener : public ReceivesMIDIEvents {
public:
    void midiIn(const std::vector<MIDIEvent>& events, MIDITimeStamp, const std::optional<MIDIOutputEndpoint>&) override {
        received += events.size();
    }
    std::size_t received = 0;
};

TEST(MIDIReceiverTest, WeakReceiverWhoseObjectIsGoneDropsEventsQuietly) {
    auto queue = std::make_shared<MIDIInternals::ManualQueue>("receiver-test");
    auto listener = std::make_shared<Listener>();
    auto weak = MIDIReceiver::weak(listener).create(queue);
    weak->packetListReceived(packets({{0xFA}}));
    EXPECT_EQ(listener->received, 1u);
    listener.reset();
    weak->packetListReceived(packets({{0xFA}}));
    weak->eventListReceived({UniversalMIDIPacketData::fromWords(std::vector<std::uint32_t>{0x10FA0000}, 1, std::nullopt)},
                            MIDIProtocolVersion::midi2_0);

    auto strongListener = std::make_shared<Listener>();
    MIDIReceiver::strong(strongListener).create(queue)->eventListReceived(
        {UniversalMIDIPacketData::fromWords(std::vector<std::uint32_t>{0x10FA0000, 0x10FC0000}, 1, std::nullopt)},
        MIDIProtocolVersion::midi2_0);
    EXPECT_EQ(strongListener->received, 2u);
}

TEST(MIDIReceiverTest, BundlingHoldsALoneParameterNumberUntilItsTimeOut) {
    auto queue = std::make_shared<MIDIInternals::ManualQueue>("bundling-test");
    Collected bundled;
    auto receiver = bundled.receiver(MIDIReceiverOptions::bundleRPNAndNRPNDataEntryLSB).create(queue);
    auto rpn = MIDIEvent::rpn(MIDICore::UInt7Pair{UInt7(0), UInt7(5)}, MIDICore::DataEntryBytes{UInt7(10), UInt7(0)},
                              MIDICore::MIDI2ParameterNumberChange::absolute, UInt4(0));
    auto words = rpn.umpRawWords(MIDIProtocolVersion::midi2_0)[0];
    receiver->eventListReceived({UniversalMIDIPacketData::fromWords(words, 42, std::nullopt)},
                                MIDIProtocolVersion::midi2_0);
    queue->advance(std::chrono::milliseconds(49));
    EXPECT_TRUE(bundled.calls.empty());
    queue->advance(std::chrono::milliseconds(1));
    ASSERT_EQ(bundled.calls.size(), 1u);
    EXPECT_EQ(bundled.calls[0], std::vector{rpn});
    EXPECT_EQ(bundled.timeStamps[0], 42u);  // the original time stamp

    // Without the option, the same packet goes straight through.
    Collected direct;
    direct.receiver(0).create(queue)->eventListReceived({UniversalMIDIPacketData::fromWords(words, 42, std::nullopt)},
                                                        MIDIProtocolVersion::midi2_0);
    EXPECT_EQ(direct.calls.size(), 1u);
}

TEST(MIDIReceiverTest, LoggingFormsWriteEventsAndBytes) {
    auto queue = std::make_shared<MIDIInternals::ManualQueue>("receiver-test");
    std::vector<std::string> lines;
    MIDIReceiver::eventsLogging([&](const std::string& line) { lines.push_back(line); }, MIDIReceiverOptions::filterActiveSensingAndClock)
        .create(queue)
        ->packetListReceived(packets({{0xF8, 0xFA}, {0xFE}}));
    MIDIReceiver::rawDataLogging([&](const std::string& line) { lines.push_back(line); })
        .create(queue)
        ->packetListReceived(packets({{0x90, 0x3C, 0x40}}));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "start(group: 0) timeStamp:5");
    EXPECT_EQ(lines[1], "90 3C 40 timeStamp:5");
}

}  // namespace
}  // namespace MIDIIO::testing
