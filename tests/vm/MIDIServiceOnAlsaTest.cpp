// The application's MIDI service on the kernel's sequencer, as havrel-central runs it: its
// product ports as other clients (and aconnect) see them, what it sends arriving at another
// client, MIDI clock from another client reaching the clock parser through the input connection
// the refresh makes, ports of other clients joined by the refresh, and the virtual output's
// unique ID across a restart. Runs wherever /dev/snd/seq exists.

#include "backends/midi_alsa/AlsaMIDIBackend.hpp"
#include "central/HVConnectionTypeConfiguration.hpp"
#include "MIDIIO/MIDIPlatformStatus.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "platform/TemporaryFolder.hpp"
#include "support/MainQueueWaiting.hpp"
#include "vm/SequencerPeer.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace havrel::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// What a command printed on its standard output, or nothing when it could not run.
std::optional<std::string> commandOutput(const std::string& command) {
    FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr) {
        return std::nullopt;
    }
    std::string output;
    char buffer[512];
    while (std::size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) {
        output.append(buffer, n);
    }
    return ::pclose(pipe) == 0 ? std::optional(output) : std::nullopt;
}

class MIDIServiceOnAlsaTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!MIDIIO::AlsaMIDIBackend::isAvailable()) {
            GTEST_SKIP() << "no ALSA sequencer here (/dev/snd/seq does not open); "
                            "scripts/vm/run-tests runs this suite in a VM that has one";
        }
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder_.path() / "defaults.json"));
        installMIDILibraryServices();
        configuration_->productToSendOut = "Havrel Test";
        server_ = MIDIIO::AlsaMIDIBackend::install();
        ASSERT_EQ(server_->status(), MIDIIO::noErr);
        peer_.open("havrel-peer");
        ASSERT_TRUE(peer_.ok());
    }

    void TearDown() override {
        stopService();
        MIDIIO::MIDIPlatform::setShared(nullptr);
        server_.reset();
        DefaultsStore::setStandard(nullptr);
    }

    void stopService() {
        if (service_) {
            service_->stopTimers();
            if (service_->midiManager()) {
                service_->midiManager()->removeAll();
            }
            service_.reset();
        }
        HVMIDIManager::setShared(nullptr);
        HVMIDIManager::setClockForTesting(nullptr);
        MainQueue::shared().poll();
    }

    // The core ends and starts again on a new sequencer client, with the same defaults store.
    void restart() {
        stopService();
        MIDIIO::MIDIPlatform::setShared(nullptr);
        server_.reset();
        server_ = MIDIIO::AlsaMIDIBackend::install();
        ASSERT_EQ(server_->status(), MIDIIO::noErr);
        service_ = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    }

    TemporaryFolder folder_;
    std::shared_ptr<HVConnectionTypeConfiguration> configuration_ = HVConnectionTypeConfiguration::create();
    std::shared_ptr<MIDIIO::AlsaMIDIServer> server_;
    std::shared_ptr<HVMIDIManager> service_;
    SequencerPeer peer_;
};

TEST_F(MIDIServiceOnAlsaTest, ProductPortsAreSeenByOtherClientsAndWhatTheServiceSendsArrives) {
    service_ = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    const int core = server_->sequencerClient();
    auto [output, outputCapability] = peer_.port(core, "Havrel Test Output");
    auto [input, inputCapability] = peer_.port(core, "Havrel Test Input");
    ASSERT_GE(output, 0);
    ASSERT_GE(input, 0);
    EXPECT_EQ(outputCapability & (SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ | SND_SEQ_PORT_CAP_WRITE),
              unsigned(SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ));
    EXPECT_EQ(inputCapability & (SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE | SND_SEQ_PORT_CAP_READ),
              unsigned(SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE));

    // aconnect lists readable ports with -i and writable ones with -o.
    if (auto all = commandOutput("aconnect -l")) {
        EXPECT_NE(all->find("'Havrel Test Output'"), std::string::npos) << *all;
        EXPECT_NE(all->find("'Havrel Test Input'"), std::string::npos) << *all;
        auto readable = commandOutput("aconnect -i").value_or("");
        auto writable = commandOutput("aconnect -o").value_or("");
        EXPECT_NE(readable.find("Havrel Test Output"), std::string::npos) << readable;
        EXPECT_EQ(readable.find("Havrel Test Input"), std::string::npos) << readable;
        EXPECT_NE(writable.find("Havrel Test Input"), std::string::npos) << writable;
        EXPECT_EQ(writable.find("Havrel Test Output"), std::string::npos) << writable;
    } else {
        std::printf("aconnect is not installed here: its listing is not checked\n");
    }

    ASSERT_GE(snd_seq_connect_from(peer_.seq, peer_.in, core, output), 0);
    service_->sendWithNoteOn(60, 100, 3, true);
    auto* ev = peer_.nextEvent();
    ASSERT_NE(ev, nullptr) << "the note did not arrive";
    EXPECT_EQ(ev->type, SND_SEQ_EVENT_NOTEON);
    EXPECT_EQ(ev->source.client, core);
    EXPECT_EQ(ev->source.port, output);
    EXPECT_EQ(ev->data.note.channel, 3);
    EXPECT_EQ(ev->data.note.note, 60);
    EXPECT_EQ(ev->data.note.velocity, 100);

    service_->sendWithPitchBend(0x2345, 15, true);
    ev = peer_.nextEvent();
    ASSERT_NE(ev, nullptr) << "the pitch bend did not arrive";
    EXPECT_EQ(ev->type, SND_SEQ_EVENT_PITCHBEND);
    EXPECT_EQ(ev->data.control.channel, 15);
    EXPECT_EQ(ev->data.control.value, 0x2345 - 8192);
}

TEST_F(MIDIServiceOnAlsaTest, ClockFromAnotherClientReachesTheParserThroughTheInputConnection) {
    service_ = HVMIDIManager::initSharedClockTestWithConnectionConfiguration(configuration_);
    auto registrant = std::make_shared<int>(0);
    std::mutex mutex;
    std::vector<double> tempos;
    std::atomic<int> starts{0};
    std::atomic<std::uint64_t> quanta{0};
    // An entry without a tick callback is dropped at the first tick: ticks first, then tempo.
    service_->registerForQNChangesWithRegistrar(registrant, [&](std::uint64_t total) { quanta = total; });
    service_->registerForTempoChangesWithRegistrar(
        registrant, [&](bool started) { starts += started ? 1 : 0; }, nullptr,
        [&](double bpm) {
            std::lock_guard lock(mutex);
            tempos.push_back(bpm);
        });

    // The refresh joins the peer's output within a second or two of real time.
    const auto id = MIDIIO::AlsaMIDIServer::uniqueIDFromNames("havrel-peer", "peer out", "source");
    const std::string tag = "clockSrc_" + std::to_string(id);
    ASSERT_TRUE(runMainQueueUntil([&] { return service_->midiManager()->managedInputConnection(tag) != nullptr; },
                                  seconds(20)))
        << "the refresh made no input connection from the peer's output";

    // Start, then 30 ticks at 120 bpm on absolute deadlines.
    std::thread sender([this] {
        snd_seq_event_t ev;
        snd_seq_ev_clear(&ev);
        ev.type = SND_SEQ_EVENT_START;
        peer_.send(ev);
        const auto period = std::chrono::microseconds(20833);
        auto next = std::chrono::steady_clock::now();
        for (int i = 0; i < 30; ++i) {
            next += period;
            std::this_thread::sleep_until(next);
            snd_seq_ev_clear(&ev);
            ev.type = SND_SEQ_EVENT_CLOCK;
            peer_.send(ev);
        }
    });
    const bool heard = runMainQueueUntil([&] { return service_->debugTotalMIDIEventsReceived() >= 31; }, seconds(20));
    sender.join();
    ASSERT_TRUE(heard) << service_->debugTotalMIDIEventsReceived() << " events reached the service";
    EXPECT_TRUE(service_->isTempoStarted());
    EXPECT_EQ(quanta.load(), 30u);
    std::lock_guard lock(mutex);
    ASSERT_FALSE(tempos.empty()) << "no tempo after 30 ticks";
    // Real time inside an emulated machine: the ticks' spacing is only close to the ideal.
    EXPECT_NEAR(tempos.back(), 120.0, 6.0);
}

TEST_F(MIDIServiceOnAlsaTest, APortOfAnotherClientIsJoinedByTheRefresh) {
    service_ = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    int port = snd_seq_create_simple_port(peer_.seq, "peer late",
                                          SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ | SND_SEQ_PORT_CAP_WRITE |
                                              SND_SEQ_PORT_CAP_SUBS_WRITE,
                                          SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
    ASSERT_GE(port, 0);
    auto& manager = *service_->midiManager();
    ASSERT_TRUE(runMainQueueUntil(
        [&] { return manager.managedOutputConnection("peer late") && manager.managedInputConnection("peer late"); },
        seconds(20)))
        << "the refresh did not join the new port";

    // The input connection listens to the new port: the core's input port is subscribed to it.
    snd_seq_query_subscribe_t* query;
    snd_seq_query_subscribe_alloca(&query);
    snd_seq_addr_t root{static_cast<unsigned char>(peer_.self), static_cast<unsigned char>(port)};
    snd_seq_query_subscribe_set_root(query, &root);
    snd_seq_query_subscribe_set_type(query, SND_SEQ_QUERY_SUBS_READ);
    snd_seq_query_subscribe_set_index(query, 0);
    bool readByCore = false;
    while (snd_seq_query_port_subscribers(peer_.seq, query) >= 0) {
        readByCore = readByCore || snd_seq_query_subscribe_get_addr(query)->client == server_->sequencerClient();
        snd_seq_query_subscribe_set_index(query, snd_seq_query_subscribe_get_index(query) + 1);
    }
    EXPECT_TRUE(readByCore) << "no subscription from the new port to the core";
    ASSERT_GE(snd_seq_delete_simple_port(peer_.seq, port), 0);
}

TEST_F(MIDIServiceOnAlsaTest, TheVirtualOutputKeepsItsUniqueIDAcrossARestart) {
    service_ = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    auto first = service_->midiManager()->managedOutput(HVMIDIManager::kOutputTag)->uniqueID();
    ASSERT_TRUE(first.has_value());
    // Another process sees the ID formed from the names.
    auto seen = [this] {
        auto observer = MIDIIO::AlsaMIDIServer::create();
        for (MIDIIO::ItemCount i = 0; i < observer->getNumberOfSources(); ++i) {
            auto source = observer->getSource(i);
            std::string name;
            std::int32_t id = 0;
            if (observer->objectGetStringProperty(source, MIDIIO::kMIDIPropertyName, &name) == MIDIIO::noErr && name == "Havrel Test Output" &&
                observer->objectGetIntegerProperty(source, MIDIIO::kMIDIPropertyUniqueID, &id) == MIDIIO::noErr) {
                return std::optional<std::int32_t>(id);
            }
        }
        return std::optional<std::int32_t>();
    };
    auto seenFirst = seen();
    ASSERT_TRUE(seenFirst.has_value());

    restart();
    EXPECT_EQ(service_->midiManager()->managedOutput(HVMIDIManager::kOutputTag)->uniqueID(), first);
    EXPECT_EQ(seen(), seenFirst);
}

}  // namespace
}  // namespace havrel::testing
