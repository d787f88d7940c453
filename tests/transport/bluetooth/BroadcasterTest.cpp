// The sending gate of a client's link: what it lets through while disconnected, while a
// configuration transfer runs, and before the first full configuration of a link.

#include "platform/Log.hpp"
#include "transport/bluetooth/RNEncodedBroadcaster.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace havrel {
namespace {

class RecordingService final : public RNEncodedBroadcasterService {
public:
    std::vector<std::string> sent;
    Progress lastProgress;

    void startSceneSyncData(ByteView, Progress progress) override {
        sent.push_back("sync");
        lastProgress = std::move(progress);
    }
    void sendSceneAborted() override { sent.push_back("aborted"); }
    void sendRangeData(ByteView) override { sent.push_back("range"); }
    void sendPureMIDIData(ByteView) override { sent.push_back("midi"); }
    void sendChangeData(ByteView, Progress completion) override {
        sent.push_back("change");
        lastProgress = std::move(completion);
    }
    void sendFile(const HVFileRepresentation&, Progress) override { sent.push_back("file"); }
};

TEST(BroadcasterTest, GatesFollowTheLinkTheTransferAndTheFirstFullConfiguration) {
    ScopedLogCapture capture;
    auto service = std::make_shared<RecordingService>();
    auto broadcaster = RNEncodedBroadcaster::create(service);
    const auto range = HVEncodedRangeCommand::rangeCommandWithRangeValues(
        {HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 0.5)});
    const auto midi = RNBluetoothMIDICommandPure::MIDICommandWithStatus(0x90, 60, 100);
    const Bytes change{'{', '}'};

    // Down: nothing but the abort goes.
    broadcaster->sendRangeDataCommand(&range);
    broadcaster->sendPureMIDIDataCommand(&midi);
    broadcaster->sendFile(*HVFileRepresentation::create(), {});
    broadcaster->sendSceneAborted();
    EXPECT_EQ(service->sent, std::vector<std::string>{"aborted"});
    service->sent.clear();

    // Up, before any full configuration: deltas are skipped.
    broadcaster->setIsConnectedToHavrelCentral(true);
    EXPECT_FALSE(broadcaster->canSendDeltaCommands());
    broadcaster->deleteDataWrappersWithData(change);
    broadcaster->addDataWrappersWithData(change);
    broadcaster->syncChangesToDataWrappersWithData(change);
    EXPECT_TRUE(service->sent.empty());

    // While a configuration transfers, range commands wait; MIDI does not.
    std::vector<float> reported;
    broadcaster->startSyncingEncodedConfigurationData(change, [&](float value) { reported.push_back(value); });
    EXPECT_TRUE(broadcaster->isSyncing());
    broadcaster->sendRangeDataCommand(&range);
    broadcaster->sendRangeDataCommand(nullptr);
    broadcaster->sendPureMIDIDataCommand(&midi);
    service->lastProgress(0.5f);
    EXPECT_TRUE(broadcaster->isSyncing());
    service->lastProgress(1.0f);
    EXPECT_FALSE(broadcaster->isSyncing());
    EXPECT_EQ(reported, (std::vector<float>{0.5f, 1.0f}));
    broadcaster->sendRangeDataCommand(&range);
    EXPECT_EQ(service->sent, (std::vector<std::string>{"sync", "midi", "range"}));
    service->sent.clear();

    // Deltas now go, one at a time.
    EXPECT_TRUE(broadcaster->canSendDeltaCommands());
    broadcaster->deleteDataWrappersWithData(change);
    EXPECT_TRUE(broadcaster->isSyncing());
    service->lastProgress(1.0f);
    broadcaster->syncChangesToDataWrappersWithData(change);
    service->lastProgress(1.0f);
    EXPECT_EQ(service->sent, (std::vector<std::string>{"change", "change"}));

    // A new link starts without a configuration; the same value twice changes nothing.
    broadcaster->setIsConnectedToHavrelCentral(true);
    EXPECT_TRUE(broadcaster->canSendDeltaCommands());
    broadcaster->setIsConnectedToHavrelCentral(false);
    broadcaster->setIsConnectedToHavrelCentral(true);
    EXPECT_FALSE(broadcaster->canSendDeltaCommands());
    broadcaster->addDataWrappersWithData(change);
    EXPECT_EQ(service->sent.size(), 2u);
}

}  // namespace
}  // namespace havrel
