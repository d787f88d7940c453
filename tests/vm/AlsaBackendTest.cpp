// The ALSA backend against the kernel's sequencer: the library's virtual output and input seen
// and used by a second sequencer client that the test owns, and the announcements of that
// client's ports reaching the library as notifications. Runs wherever /dev/snd/seq exists.

#include "MIDIIO/MIDIManager.hpp"
#include "MIDIInternals/Log.hpp"
#include "MIDIInternals/MainThread.hpp"
#include "MIDIInternals/SerialQueueFactory.hpp"
#include "backends/midi_alsa/AlsaMIDIBackend.hpp"
#include "vm/SequencerPeer.hpp"

#include <gtest/gtest.h>

#include <alsa/asoundlib.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <optional>
#include <thread>
#include <mutex>
#include <string>
#include <vector>

namespace havrel::testing {
namespace {

using MIDICore::MIDIEvent;
using MIDICore::UInt4;
using MIDICore::UInt7;

constexpr int kGuardMilliseconds = SequencerPeer::kGuardMilliseconds;

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

        peer_.open("havrel-peer");
        ASSERT_TRUE(peer_.ok());
        seq_ = peer_.seq;
        self_ = peer_.self;
        in_ = peer_.in;
        out_ = peer_.out;
    }

    void TearDown() override {
        if (manager_) {
            manager_->removeAll();
        }
        manager_.reset();
        server_.reset();
        MIDIInternals::setMainQueue(nullptr);
    }

    // The port of the library's sequencer client with this name, as the peer sees it.
    std::pair<int, unsigned int> libraryPort(const std::string& name) {
        return peer_.port(server_->sequencerClient(), name);
    }

    snd_seq_event_t* nextEvent() {
        auto* ev = peer_.nextEvent();
        if (ev == nullptr) {
            ADD_FAILURE() << "no event arrived at the peer";
        }
        return ev;
    }

    void peerSend(snd_seq_event_t& ev, int destPort) { peer_.send(ev, server_->sequencerClient(), destPort); }

    std::shared_ptr<MIDIInternals::DispatchQueue> mainQueue_ = MIDIInternals::makeSerialQueue("main");
    std::shared_ptr<MIDIIO::AlsaMIDIServer> server_;
    std::shared_ptr<MIDIIO::MIDIManager> manager_;
    Inbox inbox_;
    SequencerPeer peer_;
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

// The endpoint of the peer with this name, once the library's caches know it.
template <class Endpoint>
std::optional<Endpoint> waitForEndpoint(const std::function<std::vector<Endpoint>()>& list, const std::string& name) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kGuardMilliseconds);
    while (std::chrono::steady_clock::now() < deadline) {
        for (const auto& endpoint : list()) {
            if (endpoint.name == name) {
                return endpoint;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return std::nullopt;
}

TEST_F(AlsaBackendTest, ThruConnectionsAreSubscriptionsUnlessTheyFilter) {
    auto source = waitForEndpoint<MIDIIO::MIDIOutputEndpoint>([this] { return manager_->endpoints().outputs; }, "peer out");
    auto destination =
        waitForEndpoint<MIDIIO::MIDIInputEndpoint>([this] { return manager_->endpoints().inputs; }, "peer in");
    ASSERT_TRUE(source && destination);

    snd_seq_port_subscribe_t* subscription;
    snd_seq_port_subscribe_alloca(&subscription);
    snd_seq_addr_t from{static_cast<unsigned char>(self_), static_cast<unsigned char>(out_)};
    snd_seq_addr_t to{static_cast<unsigned char>(self_), static_cast<unsigned char>(in_)};
    snd_seq_port_subscribe_set_sender(subscription, &from);
    snd_seq_port_subscribe_set_dest(subscription, &to);
    auto subscribed = [&] { return snd_seq_get_port_subscription(seq_, subscription) >= 0; };
    auto sendFromPeer = [&](const snd_seq_event_t& ev) { peer_.send(ev); };
    snd_seq_event_t note;
    snd_seq_ev_clear(&note);
    snd_seq_ev_set_noteon(&note, 2, 61, 70);

    // Without filters the sequencer routes it: peer out -> peer in, without the library.
    manager_->addThruConnection({*source}, {*destination}, "plain", MIDIIO::MIDIThruConnection::Lifecycle::nonPersistent());
    EXPECT_TRUE(subscribed());
    sendFromPeer(note);
    auto* ev = nextEvent();
    ASSERT_NE(ev, nullptr);
    EXPECT_EQ(ev->type, SND_SEQ_EVENT_NOTEON);
    EXPECT_EQ(ev->source.client, self_);
    EXPECT_EQ(ev->dest.port, in_);
    EXPECT_EQ(ev->data.note.note, 61);
    manager_->remove(MIDIIO::ManagedType::nonPersistentThruConnection, MIDIIO::TagSelection::withTag("plain"));
    EXPECT_FALSE(subscribed()) << "the subscription outlived its thru connection";

    // With a filter the library routes it through a port pair of its own, which forwards what
    // comes as it comes.
    MIDIIO::MIDIThruConnection::Parameters noClock;
    noClock.filterOutBeatClock = true;
    manager_->addThruConnection({*source}, {*destination}, "filtered",
                                MIDIIO::MIDIThruConnection::Lifecycle::nonPersistent(), noClock);
    EXPECT_FALSE(subscribed());
    sendFromPeer(note);
    ev = nextEvent();
    ASSERT_NE(ev, nullptr);
    EXPECT_EQ(ev->type, SND_SEQ_EVENT_NOTEON);
    EXPECT_EQ(ev->source.client, server_->sequencerClient()) << "not routed through the library";
    manager_->remove(MIDIIO::ManagedType::nonPersistentThruConnection, MIDIIO::TagSelection::withTag("filtered"));

    // A persistent one outlives the core; one without an owner ends with it.
    manager_->addThruConnection({*source}, {*destination}, "kept", MIDIIO::MIDIThruConnection::Lifecycle::persistent("havrel.test"));
    ASSERT_TRUE(subscribed());
    EXPECT_EQ(manager_->unmanagedPersistentThruConnections("havrel.test").size(), 1u);
    manager_.reset();
    server_.reset();
    EXPECT_TRUE(subscribed()) << "a persistent thru connection ended with the core";
    ASSERT_GE(snd_seq_unsubscribe_port(seq_, subscription), 0);
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
