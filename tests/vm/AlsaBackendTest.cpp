// The ALSA backend against the kernel's sequencer: the library's virtual output and input seen
// and used by a second sequencer client that the test owns, and the announcements of that
// client's ports reaching the library as notifications. Runs wherever /dev/snd/seq exists.

#include "MIDIIO/MIDIManager.hpp"
#include "MIDIInternals/Log.hpp"
#include "MIDIInternals/MainThread.hpp"
#include "MIDIInternals/SerialQueueFactory.hpp"
#include "backends/midi_alsa/AlsaMIDIBackend.hpp"

#include <gtest/gtest.h>

#include <alsa/asoundlib.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace havrel::testing {
namespace {

using MIDICore::MIDIEvent;
using MIDICore::UInt4;
using MIDICore::UInt7;

// Only a guard against a lost event hanging the run; delivery takes far less.
constexpr int kGuardMilliseconds = 30000;

// What the library hands over on its threads, and the wait for it.
struct Inbox {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<MIDIEvent> events;
    std::vector<std::string> added;
    std::vector<std::string> removed;

    template <class Condition>
    bool waitFor(Condition condition) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::milliseconds(kGuardMilliseconds), [&] { return condition(*this); });
    }
};

class AlsaBackendTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!MIDIIO::AlsaMIDIBackend::isAvailable()) {
            GTEST_SKIP() << "no ALSA sequencer here (/dev/snd/seq does not open); "
                            "scripts/vm/run-tests runs this suite in a VM that has one";
        }
        MIDIInternals::setMainQueue(mainQueue_);
        server_ = MIDIIO::AlsaMIDIBackend::create();
        ASSERT_EQ(server_->status(), MIDIIO::noErr);
        manager_ = MIDIIO::MIDIManager::create(server_, "Havrel Test", "Havrel", "HavrelApps",
                                               [this](const MIDIIO::MIDIIONotification& notification) {
                                                   std::lock_guard lock(inbox_.mutex);
                                                   if (const auto* added = notification.get<MIDIIO::MIDIIONotification::Added>()) {
                                                       inbox_.added.push_back(added->object.description());
                                                   } else if (const auto* removed = notification.get<MIDIIO::MIDIIONotification::Removed>()) {
                                                       inbox_.removed.push_back(removed->object.description());
                                                   }
                                                   inbox_.changed.notify_all();
                                               });
        manager_->start();

        snd_seq_t* raw = nullptr;
        ASSERT_GE(snd_seq_open(&raw, "default", SND_SEQ_OPEN_DUPLEX, 0), 0);
        seq_ = raw;
        ASSERT_GE(snd_seq_set_client_name(seq_, "havrel-peer"), 0);
        self_ = snd_seq_client_id(seq_);
        in_ = snd_seq_create_simple_port(seq_, "peer in", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                         SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
        out_ = snd_seq_create_simple_port(seq_, "peer out", SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ,
                                          SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
        ASSERT_GE(in_, 0);
        ASSERT_GE(out_, 0);
    }

    void TearDown() override {
        if (manager_) {
            manager_->removeAll();
        }
        manager_.reset();
        server_.reset();
        if (seq_) {
            snd_seq_close(seq_);
        }
        MIDIInternals::setMainQueue(nullptr);
    }

    // The port of the library's sequencer client with this name, as the peer sees it: its
    // number and capabilities; -1 when there is none.
    std::pair<int, unsigned int> libraryPort(const std::string& name) {
        snd_seq_port_info_t* info;
        snd_seq_port_info_alloca(&info);
        snd_seq_port_info_set_client(info, server_->sequencerClient());
        snd_seq_port_info_set_port(info, -1);
        while (snd_seq_query_next_port(seq_, info) >= 0) {
            if (name == snd_seq_port_info_get_name(info)) {
                return {snd_seq_port_info_get_port(info), snd_seq_port_info_get_capability(info)};
            }
        }
        return {-1, 0};
    }

    // The next event at the peer that is not an announcement; nullptr when none came.
    snd_seq_event_t* nextEvent() {
        for (;;) {
            if (snd_seq_event_input_pending(seq_, 1) == 0) {
                std::vector<pollfd> fds(static_cast<std::size_t>(snd_seq_poll_descriptors_count(seq_, POLLIN)));
                snd_seq_poll_descriptors(seq_, fds.data(), static_cast<unsigned int>(fds.size()), POLLIN);
                if (::poll(fds.data(), fds.size(), kGuardMilliseconds) <= 0) {
                    ADD_FAILURE() << "no event arrived at the peer";
                    return nullptr;
                }
            }
            snd_seq_event_t* ev = nullptr;
            if (snd_seq_event_input(seq_, &ev) < 0 || ev == nullptr) {
                ADD_FAILURE() << "the peer could not read an event";
                return nullptr;
            }
            if (ev->source.client != SND_SEQ_CLIENT_SYSTEM) {
                return ev;
            }
        }
    }

    void peerSend(snd_seq_event_t& ev, int destPort) {
        snd_seq_ev_set_source(&ev, out_);
        snd_seq_ev_set_dest(&ev, server_->sequencerClient(), destPort);
        snd_seq_ev_set_direct(&ev);
        ASSERT_GE(snd_seq_event_output_direct(seq_, &ev), 0);
    }

    std::shared_ptr<MIDIInternals::DispatchQueue> mainQueue_ = MIDIInternals::makeSerialQueue("main");
    std::shared_ptr<MIDIIO::AlsaMIDIServer> server_;
    std::shared_ptr<MIDIIO::MIDIManager> manager_;
    Inbox inbox_;
    snd_seq_t* seq_ = nullptr;
    int self_ = -1;
    int in_ = -1;
    int out_ = -1;
};

TEST_F(AlsaBackendTest, VirtualOutputIsASourceAndWhatTheLibrarySendsArrivesIntact) {
    manager_->addOutput("Havrel Test Output", "out", MIDIIO::MIDIIdentifierPersistence::adHoc());
    auto [port, capability] = libraryPort("Havrel Test Output");
    ASSERT_GE(port, 0) << "the virtual output is not a port of the library's client";
    EXPECT_EQ(capability & (SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ),
              unsigned(SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ));
    EXPECT_EQ(capability & (SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_NO_EXPORT), 0u);
    ASSERT_GE(snd_seq_connect_from(seq_, in_, server_->sequencerClient(), port), 0);

    auto output = manager_->managedOutput("out");
    ASSERT_NE(output, nullptr);
    output->send(MIDIEvent::noteOn(UInt7(60), MIDICore::ChanVoice7Bit16BitValue::midi1(UInt7(100)), UInt4(3)));
    auto* ev = nextEvent();
    ASSERT_NE(ev, nullptr);
    EXPECT_EQ(ev->type, SND_SEQ_EVENT_NOTEON);
    EXPECT_EQ(ev->source.client, server_->sequencerClient());
    EXPECT_EQ(ev->source.port, port);
    EXPECT_EQ(ev->data.note.channel, 3);
    EXPECT_EQ(ev->data.note.note, 60);
    EXPECT_EQ(ev->data.note.velocity, 100);

    output->send(MIDIEvent::pitchBend(MIDICore::ChanVoice14Bit32BitValue::midi1(MIDICore::UInt14(0x1234)), UInt4(9)));
    ev = nextEvent();
    ASSERT_NE(ev, nullptr);
    EXPECT_EQ(ev->type, SND_SEQ_EVENT_PITCHBEND);
    EXPECT_EQ(ev->data.control.channel, 9);
    EXPECT_EQ(ev->data.control.value, 0x1234 - 8192);

    std::vector<std::uint8_t> sysEx{0xF0, 0x7D};
    for (int i = 0; i < 297; ++i) {
        sysEx.push_back(static_cast<std::uint8_t>((i * 7) & 0x7F));
    }
    sysEx.push_back(0xF7);
    ASSERT_EQ(sysEx.size(), 300u);
    output->send(MIDIEvent::sysEx7(std::span<const std::uint8_t>(sysEx)));
    std::vector<std::uint8_t> arrived;
    while (arrived.empty() || arrived.back() != 0xF7) {
        ev = nextEvent();
        ASSERT_NE(ev, nullptr);
        ASSERT_EQ(ev->type, SND_SEQ_EVENT_SYSEX);
        const auto* bytes = static_cast<const std::uint8_t*>(ev->data.ext.ptr);
        arrived.insert(arrived.end(), bytes, bytes + ev->data.ext.len);
        ASSERT_LE(arrived.size(), sysEx.size());
    }
    EXPECT_EQ(arrived, sysEx);
}

TEST_F(AlsaBackendTest, VirtualInputIsADestinationAndReceivesThePeersNotes) {
    manager_->addInput("Havrel Test Input", "in", MIDIIO::MIDIIdentifierPersistence::adHoc(),
                       MIDIIO::MIDIReceiver::events([this](const std::vector<MIDIEvent>& events, MIDIIO::MIDITimeStamp,
                                                           const std::optional<MIDIIO::MIDIOutputEndpoint>&) {
                           std::lock_guard lock(inbox_.mutex);
                           inbox_.events.insert(inbox_.events.end(), events.begin(), events.end());
                           inbox_.changed.notify_all();
                       }));
    auto [port, capability] = libraryPort("Havrel Test Input");
    ASSERT_GE(port, 0);
    EXPECT_EQ(capability & (SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE),
              unsigned(SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE));
    EXPECT_EQ(capability & (SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_NO_EXPORT), 0u);

    snd_seq_event_t ev;
    snd_seq_ev_clear(&ev);
    snd_seq_ev_set_noteon(&ev, 5, 64, 90);
    peerSend(ev, port);
    ASSERT_TRUE(inbox_.waitFor([](Inbox& inbox) { return !inbox.events.empty(); })) << "nothing arrived";
    std::lock_guard lock(inbox_.mutex);
    ASSERT_EQ(inbox_.events.size(), 1u);
    EXPECT_EQ(inbox_.events[0].midi1RawBytes(), (std::vector<std::uint8_t>{0x95, 64, 90}))
        << inbox_.events[0].description();
}

TEST_F(AlsaBackendTest, APortOfAnotherClientIsAnnouncedWhenItComesAndWhenItGoes) {
    int port = snd_seq_create_simple_port(seq_, "peer hot plug", SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ,
                                          SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
    ASSERT_GE(port, 0);
    auto mentions = [](const std::vector<std::string>& list) {
        return std::any_of(list.begin(), list.end(),
                           [](const std::string& text) { return text.find("peer hot plug") != std::string::npos; });
    };
    ASSERT_TRUE(inbox_.waitFor([&](Inbox& inbox) { return mentions(inbox.added); })) << "no added notification";
    {
        std::lock_guard lock(inbox_.mutex);
        EXPECT_FALSE(mentions(inbox_.removed)) << "removed before the port went";
    }
    ASSERT_GE(snd_seq_delete_simple_port(seq_, port), 0);
    EXPECT_TRUE(inbox_.waitFor([&](Inbox& inbox) { return mentions(inbox.removed); })) << "no removed notification";
}

TEST(AlsaBackendOpenTest, ASequencerThatCannotBeOpenedLogsOnceAndAnswersWithAnError) {
    std::vector<std::string> lines;
    std::mutex mutex;
    MIDIInternals::setLogFunction([&](std::string_view line) {
        std::lock_guard lock(mutex);
        lines.emplace_back(line);
    });
    auto server = MIDIIO::AlsaMIDIServer::create("no-such-sequencer");
    MIDIIO::MIDIClientRef client = 0;
    MIDIIO::OSStatus created = server->clientCreateWithBlock("x", nullptr, &client);
    MIDIIO::MIDIEndpointRef source = 0;
    MIDIIO::OSStatus sourced = server->sourceCreate(client, "y", &source);
    MIDIInternals::setLogFunction(nullptr);
    EXPECT_NE(server->status(), MIDIIO::noErr);
    EXPECT_NE(created, MIDIIO::noErr);
    EXPECT_NE(sourced, MIDIIO::noErr);
    EXPECT_EQ(server->getNumberOfSources(), 0u);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("no-such-sequencer"), std::string::npos);
}

TEST(AlsaBackendOpenTest, UniqueIDsComeFromNamesAndTellKindsApart) {
    using MIDIIO::AlsaMIDIServer;
    EXPECT_EQ(AlsaMIDIServer::uniqueIDFromNames("Havrel", "Havrel Output", "source"),
              AlsaMIDIServer::uniqueIDFromNames("Havrel", "Havrel Output", "source"));
    EXPECT_NE(AlsaMIDIServer::uniqueIDFromNames("Havrel", "Havrel Output", "source"),
              AlsaMIDIServer::uniqueIDFromNames("Havrel", "Havrel Output", "destination"));
    EXPECT_NE(AlsaMIDIServer::uniqueIDFromNames("Havrel", "Out", "source"),
              AlsaMIDIServer::uniqueIDFromNames("Havre", "lOut", "source"));
}

}  // namespace
}  // namespace havrel::testing
