// Arbitrary bytes as what a client sends after its handshake, and as its first USB frame:
// a sync, a change command and a file representation into the receive operations of a client
// that has a small configuration (the save panel cancels, so nothing is written), and the
// first frame's property-list text into the client registry. Nothing may crash; a sync either
// replaces the configuration or keeps it; the registry keeps at most one record of the device,
// mutes the Bluetooth link of the same device only while an accepted USB record exists, and
// forgets the device when it leaves. The same bytes are also a file name a client gives (it
// becomes a plain, bounded, printable name), what the user types on the terminal in answer to
// a save question (bounded lines), and a user-dirs.dirs file naming the download folder.
#include "../tests/central/RangeCommandBuilders.hpp"
#include "FuzzCheck.hpp"
#include "central/HVCentralConnectionTypeManager.hpp"
#include "central/HVReceivedFiles.hpp"
#include "central/RNClient.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/TerminalAnswerReader.hpp"
#include "platform/UserFolders.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <filesystem>
#include <string>

namespace {

using namespace havrel;

// Answers every prompt at once and keeps nothing, so long runs stay small.
class CancellingPrompts final : public HostPrompts {
public:
    void runSavePanel(const std::string&, SaveCompletion completion) override { completion(std::nullopt); }

protected:
    void presentAlert(const Alert&) override {}
};

// The registry starts the USB transport; made first, with the daemon and the local path out of
// reach, it stays quiet.
bool quietUSBTransport() {
    MainQueue::shared().enableManualClock();
    HVCentralUSBManager::Options options;
    options.useUSBHub = false;
    options.localPort = 1;
    HVCentralUSBManager::instantiateWithProductToSendOut("Havrel Central", "3.0", options);
    return true;
}

struct Fixture {
    Fixture() {
        HostPrompts::setShared(std::make_shared<CancellingPrompts>());
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(std::filesystem::temp_directory_path() /
                                                                   "havrel-fuzz-client-payloads" / "defaults.json"));
        bluetooth->connectionName = "Pad";
        bluetooth->productID = "abc";
        registry->RNCentralBluetoothManagerDidReceiveClient(nullptr, bluetooth);
    }

    bool quiet = quietUSBTransport();
    HVCentralConnectionTypeManager receiver;
    std::shared_ptr<RNClient> client = RNUSBClient::create();
    std::shared_ptr<HVCentralConnectionManager> registry =
        HVCentralConnectionManager::initWithProductToSendOut("Havrel Central", "3.0");
    std::shared_ptr<RNBluetoothClient> bluetooth = RNBluetoothClient::create();
};

// Two wrappers of one fader each, for the change commands to work on.
std::shared_ptr<HVEncodedConfiguration> smallConfiguration() {
    auto configuration = HVEncodedConfiguration::create();
    for (std::uint64_t id : {1, 2}) {
        configuration->dataWrappers.push_back(havrel::testing::wrapperWith(
            id, HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 6 + id, false)));
    }
    return configuration;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Fixture fixture;
    havrel::ScopedLogCapture quiet;
    const havrel::ByteView bytes(data, size);

    fixture.client->configuration = smallConfiguration();
    fixture.receiver.didReceiveSyncData(bytes, fixture.client);
    FUZZ_CHECK(fixture.client->configuration != nullptr);
    FUZZ_CHECK(fixture.receiver.didSyncSceneData);

    fixture.client->configuration = smallConfiguration();
    fixture.receiver.didReceiveChangeData(bytes, fixture.client);
    fixture.receiver.didReceivePureMIDIData(bytes, fixture.client);
    fixture.receiver.didReceiveFileRepData(bytes, fixture.client);

    auto& registry = *fixture.registry;
    const std::string text(reinterpret_cast<const char*>(data), size);
    registry.HVCentralUSBManagerDidConnectToDeviceID(nullptr, 1, havrel::Dictionary{{"info", text}}, nullptr);
    FUZZ_CHECK(registry.clients.size() <= 2);
    bool sameDeviceOnUSB = false;
    for (const auto& usb : registry.usbClients()) {
        sameDeviceOnUSB |= usb->state != havrel::RNClientStateRefused && usb->deviceIdentityKey() == "Pad|abc";
    }
    FUZZ_CHECK(fixture.bluetooth->supersededByUSB == sameDeviceOnUSB);
    registry.HVCentralUSBManagerDidDisconnectFromDeviceID(nullptr, 1, havrel::Dictionary::object(), nullptr);
    FUZZ_CHECK(registry.clients.size() == 1);
    FUZZ_CHECK(!fixture.bluetooth->supersededByUSB);

    const std::string name = havrel::HVReceivedFiles::plainFileName(text);
    FUZZ_CHECK(!name.empty() && name.size() <= havrel::HVReceivedFiles::kMaximumNameLength);
    FUZZ_CHECK(name != "." && name != ".." && name.find('/') == std::string::npos);
    FUZZ_CHECK(std::none_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }));
    try {
        (void)havrel::Dictionary(name).dump();  // throws on invalid UTF-8
    } catch (const nlohmann::json::exception&) {
        FUZZ_CHECK(!"a plain file name is valid UTF-8");
    }

    // Cut in two reads, as a terminal may deliver them.
    havrel::TerminalAnswerReader answers;
    auto lines = answers.feed(std::string_view(text).substr(0, size / 2));
    const auto more = answers.feed(std::string_view(text).substr(size / 2));
    lines.insert(lines.end(), more.begin(), more.end());
    FUZZ_CHECK(lines.size() == static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')));
    for (const auto& line : lines) {
        FUZZ_CHECK(line.text.size() <= havrel::TerminalAnswerReader::kMaximumLineLength);
        const auto answer = havrel::TerminalAnswerReader::interpret(line);
        FUZZ_CHECK(answer.choice != havrel::TerminalAnswerReader::Choice::path || !answer.path.empty());
    }
    const auto downloads = havrel::UserFolders::downloadsFromUserDirs(text, "/home/u");
    FUZZ_CHECK(downloads.empty() || downloads.is_absolute());

    // Indicator timers and queued notifications run, so nothing piles up between inputs.
    havrel::MainQueue::shared().advance(std::chrono::milliseconds(200));
    return 0;
}
