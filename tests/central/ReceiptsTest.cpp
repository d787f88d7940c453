// Sync, change, pure MIDI and file payloads from a client: what replaces or edits its
// configuration, what reaches MIDI, what lands on disk, and what bad payloads leave in place.

#include "RangeCommandBuilders.hpp"
#include "RecordingSender.hpp"
#include "central/HVCentralConnectionTypeManager.hpp"
#include "central/HVCentralTransmissionManager.hpp"
#include "central/HVFileRepresentation.hpp"
#include "central/HVReceivedFiles.hpp"
#include "central/RNClient.hpp"
#include "model/HVDataHelpers.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/TemporaryFolder.hpp"
#include "sequencing/HVSequence.hpp"
#include "support/MainQueueWaiting.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace havrel {
namespace {

using testing::runMainQueueUntil;
using testing::wrapperWith;

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

std::string configurationText(std::initializer_list<std::uint64_t> numericIDs) {
    auto configuration = HVEncodedConfiguration::create();
    for (auto id : numericIDs) {
        configuration->dataWrappers.push_back(
            wrapperWith(id, HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, id, false)));
    }
    return configuration->dictionary().dump();
}

std::string changeText(HVChangeType type, std::uint64_t numericID) {
    auto command = RNDataPackagerChangeCommandDataWrapper::create();
    command->changeType = type;
    command->changedDataWrappers = {
        wrapperWith(numericID, HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, numericID, false))};
    return command->dictionary().dump();
}

class ReceiptsTest : public ::testing::Test {
protected:
    void SetUp() override {
        HVSequenceManager::resetSharedInstanceForTesting();
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
        HVMIDISender::setShared(sender_);
        HostPrompts::setShared(prompts_);
        HVReceivedFiles::setShared(std::make_shared<HVReceivedFiles>());
    }
    void TearDown() override {
        HVMIDISender::setShared(nullptr);
        HostPrompts::setShared(nullptr);
        HVReceivedFiles::setShared(nullptr);
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
    }

    std::size_t wrapperCount() const { return client_->configuration ? client_->configuration->dataWrappers.size() : 0; }

    std::string fileRepText(const std::string& filename, const Bytes& data) {
        auto file = HVFileRepresentation::create();
        file->filename = filename;
        file->data = data;
        return file->dictionary().dump();
    }

    std::string readFile(const std::filesystem::path& path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    ManualClockScope clock_;
    std::shared_ptr<testing::RecordingSender> sender_ = std::make_shared<testing::RecordingSender>();
    std::shared_ptr<ScriptedHostPrompts> prompts_ = std::make_shared<ScriptedHostPrompts>();
    HVCentralConnectionTypeManager manager_;
    std::shared_ptr<RNClient> client_ = RNUSBClient::create();
    testing::TemporaryFolder temporary_;
    const std::filesystem::path folder_ = temporary_.path();
};

TEST_F(ReceiptsTest, SyncReplacesTheConfigurationAndBadPayloadsKeepThePreviousOne) {
    ScopedLogCapture capture;
    manager_.didReceiveSyncData(bytesOf(configurationText({1, 2})), client_);
    EXPECT_EQ(wrapperCount(), 2u);
    EXPECT_TRUE(manager_.didRegisterValueChangeObservers);
    EXPECT_TRUE(manager_.didSyncSceneData);
    EXPECT_EQ(capture.count("[HVCentralDiag] didReceiveSyncData self=0x"), 1u);
    EXPECT_EQ(capture.count("[HVCentralDiag] sync parsed, registering range/axis observers on self=0x"), 1u);
    EXPECT_TRUE(capture.contains(client_->description()));

    // Compressed, the document replaces the old one wholesale.
    const auto text = configurationText({5, 6, 7});
    manager_.didReceiveSyncData(*gzipDeflate(bytesOf(text)), client_);
    ASSERT_EQ(wrapperCount(), 3u);
    EXPECT_EQ(client_->configuration->dataWrappers[0]->numericID, 5u);
    const auto kept = client_->configuration;

    capture.clear();
    manager_.didSyncSceneData = false;
    manager_.didReceiveSyncData(bytesOf("{\"dataWrappers\": ["), client_);
    EXPECT_EQ(client_->configuration, kept);
    EXPECT_TRUE(manager_.didSyncSceneData);
    EXPECT_EQ(capture.count("[HVCentralDiag] sync parse error: "), 1u);

    // A bare value is not a document.
    capture.clear();
    manager_.didReceiveSyncData(bytesOf("42"), client_);
    EXPECT_EQ(client_->configuration, kept);
    EXPECT_EQ(capture.count("[HVCentralDiag] sync parse error: "), 1u);

    // The gzip signature on bytes that do not inflate.
    capture.clear();
    manager_.didReceiveSyncData(Bytes{0x1F, 0x8B, 0x08, 0x00, 0xDE, 0xAD}, client_);
    EXPECT_EQ(client_->configuration, kept);
    EXPECT_EQ(capture.count("sync payload is gzip but does not inflate"), 1u);
    EXPECT_EQ(capture.count("sync parse error"), 0u);

    // Without a client the document has nowhere to go, and nothing breaks.
    manager_.didReceiveSyncData(bytesOf(text), nullptr);
    EXPECT_EQ(client_->configuration, kept);
}

TEST_F(ReceiptsTest, ChangeCommandsEditTheConfigurationOnceThereIsOne) {
    ScopedLogCapture capture;
    // No configuration yet: nothing to apply to, but the client is active.
    manager_.didReceiveChangeData(bytesOf(changeText(HVChangeTypeAdd, 4)), client_);
    EXPECT_EQ(client_->configuration, nullptr);
    EXPECT_EQ(HVCentralTransmissionManager::sharedInstance()->activeIndicatorCount(), 1u);

    manager_.didReceiveSyncData(bytesOf(configurationText({1})), client_);
    const Bytes add = bytesOf(changeText(HVChangeTypeAdd, 4));
    manager_.didReceiveChangeData(ByteView(add), client_);
    ASSERT_EQ(wrapperCount(), 2u);
    EXPECT_EQ(client_->configuration->dataWrappers[1]->numericID, 4u);
    manager_.didReceiveChangeData(bytesOf(changeText(HVChangeTypeDelete, 1)), client_);
    ASSERT_EQ(wrapperCount(), 1u);
    EXPECT_EQ(client_->configuration->dataWrappers[0]->numericID, 4u);

    // Text that is not JSON is dropped quietly.
    capture.clear();
    manager_.didReceiveChangeData(bytesOf("{\"changeType\": 2,"), client_);
    EXPECT_EQ(wrapperCount(), 1u);
    EXPECT_TRUE(capture.lines().empty());

    // No data at all: one line, and the indicator of another client stays down.
    HVCentralTransmissionManager::sharedInstance()->resetForTesting();
    manager_.didReceiveChangeData(std::nullopt, RNUSBClient::create());
    EXPECT_EQ(capture.count("error should not receive nil data"), 1u);
    EXPECT_EQ(HVCentralTransmissionManager::sharedInstance()->activeIndicatorCount(), 0u);
}

TEST_F(ReceiptsTest, PureMIDIReachesTheSenderWithoutASync) {
    // The status travels with bit 7 flipped.
    manager_.didReceivePureMIDIData(Bytes{0x91 ^ 0x80, 60, 100}, client_);
    manager_.didReceivePureMIDIData(Bytes{0xB0 ^ 0x80, 7, 64}, client_);
    EXPECT_EQ(sender_->calls, (std::vector<std::string>{"On 60 100 ch1 virtual=true", "CC 7 64 ch0 virtual=true"}));
    EXPECT_EQ(HVCentralTransmissionManager::sharedInstance()->activeIndicatorCount(), 1u);

    // Too short to be a message, or from a client that is refused, muted or unknown: nothing.
    manager_.didReceivePureMIDIData(Bytes{0x10}, client_);
    auto refused = RNUSBClient::create();
    refused->state = RNClientStateRefused;
    auto muted = RNBluetoothClient::create();
    muted->supersededByUSB = true;
    for (const auto& client : {std::shared_ptr<RNClient>(refused), std::shared_ptr<RNClient>(muted), std::shared_ptr<RNClient>()}) {
        manager_.didReceivePureMIDIData(Bytes{0x90 ^ 0x80, 60, 100}, client);
    }
    EXPECT_EQ(sender_->calls.size(), 2u);
}

TEST_F(ReceiptsTest, FilesAreInflatedToTheChosenPathOrRefusedWithOneAlertAClient) {
    ScopedLogCapture capture;
    const std::string contents = "<arrangement/>";
    const auto zipped = *gzipDeflate(bytesOf(contents));

    // Not from a client the registry accepted: no question, nothing written.
    auto refused = RNUSBClient::create();
    refused->state = RNClientStateRefused;
    manager_.didReceiveFileRepData(bytesOf(fileRepText("Song.arr", zipped)), refused);
    manager_.didReceiveFileRepData(bytesOf(fileRepText("Song.arr", zipped)), nullptr);
    EXPECT_TRUE(prompts_->savePanels().empty());
    EXPECT_EQ(capture.count("is not an accepted client"), 2u);

    prompts_->queueSaveAnswer(folder_ / "chosen.arr");
    manager_.didReceiveFileRepData(bytesOf(fileRepText("Song.arr", zipped)), client_);
    ASSERT_TRUE(runMainQueueUntil([&] { return capture.contains("received file written to"); }));
    EXPECT_EQ(prompts_->savePanels(), std::vector<std::string>{"Song.arr"});
    EXPECT_EQ(readFile(folder_ / "chosen.arr"), contents);
    EXPECT_TRUE(prompts_->alerts().empty());

    // A name from the device is offered as a plain file name only.
    manager_.didReceiveFileRepData(bytesOf(fileRepText("../../etc/x\x01", zipped)), client_);
    EXPECT_EQ(prompts_->savePanels().back(), "x_");

    using Alert = ScriptedHostPrompts::Alert;
    // Raw data is refused after the location is chosen, and nothing is written.
    prompts_->queueSaveAnswer(folder_ / "raw.arr");
    manager_.didReceiveFileRepData(bytesOf(fileRepText("raw.arr", bytesOf(contents))), client_);
    ASSERT_TRUE(runMainQueueUntil([&] { return prompts_->alerts().size() == 1; }));
    EXPECT_EQ(prompts_->alerts()[0], (Alert{"Error recieving file.", "Central encountered an invalid file format", "OK"}));
    EXPECT_EQ(capture.count("error not a gzip data file"), 1u);

    // Not JSON, a location that cannot be written and gzip that does not inflate: the same
    // alert, shown once for the client, and a log line each.
    std::ofstream(folder_ / "plain") << "x";
    prompts_->queueSaveAnswer(folder_ / "plain" / "song.arr");
    manager_.didReceiveFileRepData(bytesOf("{\"filename\":"), client_);
    manager_.didReceiveFileRepData(bytesOf(fileRepText("song.arr", zipped)), client_);
    prompts_->queueSaveAnswer(folder_ / "broken.arr");
    manager_.didReceiveFileRepData(bytesOf(fileRepText("broken.arr", Bytes{0x1F, 0x8B, 0x08, 0x00, 1, 2})), client_);
    ASSERT_TRUE(runMainQueueUntil([&] { return capture.count("didReceiveFileRepData: nothing written") == 2; }));
    EXPECT_EQ(prompts_->alerts(),
              (std::vector<Alert>{prompts_->alerts()[0],
                                  {"Error recieving file.", "Central encountered the following error %@", "OK"}}));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_), {}), 2);  // chosen.arr, plain
}

TEST(ReceivedFileNames, ANameFromAClientBecomesAPlainBoundedPrintableName) {
    EXPECT_EQ(HVReceivedFiles::plainFileName("../../etc/passwd"), "passwd");
    EXPECT_EQ(HVReceivedFiles::plainFileName("C:\\songs\\a.mid"), "a.mid");
    EXPECT_EQ(HVReceivedFiles::plainFileName(".."), "Untitled");
    EXPECT_EQ(HVReceivedFiles::plainFileName("dir/"), "Untitled");
    EXPECT_EQ(HVReceivedFiles::plainFileName("a\nb\x7f\xff\xc3\xa9.mid"), "a_b__\xc3\xa9.mid");
    const std::string longName = HVReceivedFiles::plainFileName(std::string(150, 'a') + std::string(100, '\xe9') + ".mid");
    EXPECT_EQ(longName.size(), HVReceivedFiles::kMaximumNameLength);
    EXPECT_TRUE(longName.ends_with("_.mid"));
    // Cut at a character boundary.
    EXPECT_EQ(HVReceivedFiles::plainFileName(std::string(195, 'a') + "\xc3\xa9\xc3\xa9.mid"), std::string(195, 'a') + ".mid");
}

}  // namespace
}  // namespace havrel
