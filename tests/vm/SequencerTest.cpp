// The kernel's ALSA sequencer through libasound: our own ports, a round trip through the
// "Midi Through" client (14:0) and the enumeration of clients and ports. Runs wherever
// /dev/snd/seq exists: on a desktop, or inside the test VM of scripts/vm/.

#include <gtest/gtest.h>

#include <alsa/asoundlib.h>
#include <poll.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

namespace havrel::testing {
namespace {

constexpr int kThroughClient = 14;
constexpr int kThroughPort = 0;
// Only a guard against a lost event hanging the run; a round trip takes far less.
constexpr int kGuardMilliseconds = 30000;

struct SeqCloser {
    void operator()(snd_seq_t* seq) const { snd_seq_close(seq); }
};
using SeqHandle = std::unique_ptr<snd_seq_t, SeqCloser>;

struct PortInfo {
    int port = -1;
    std::string name;
    unsigned int capability = 0;
};

struct ClientInfo {
    int client = -1;
    std::string name;
    std::vector<PortInfo> ports;
};

// What `aconnect -l` lists: every client with its ports.
std::vector<ClientInfo> enumerate(snd_seq_t* seq) {
    std::vector<ClientInfo> clients;
    snd_seq_client_info_t* client;
    snd_seq_port_info_t* port;
    snd_seq_client_info_alloca(&client);
    snd_seq_port_info_alloca(&port);
    snd_seq_client_info_set_client(client, -1);
    while (snd_seq_query_next_client(seq, client) >= 0) {
        ClientInfo info;
        info.client = snd_seq_client_info_get_client(client);
        info.name = snd_seq_client_info_get_name(client);
        snd_seq_port_info_set_client(port, info.client);
        snd_seq_port_info_set_port(port, -1);
        while (snd_seq_query_next_port(seq, port) >= 0) {
            info.ports.push_back({snd_seq_port_info_get_port(port), snd_seq_port_info_get_name(port),
                                  snd_seq_port_info_get_capability(port)});
        }
        clients.push_back(std::move(info));
    }
    return clients;
}

const ClientInfo* findClient(const std::vector<ClientInfo>& clients, int number) {
    for (const auto& c : clients) {
        if (c.client == number) return &c;
    }
    return nullptr;
}

const PortInfo* findPort(const ClientInfo& client, int number) {
    for (const auto& p : client.ports) {
        if (p.port == number) return &p;
    }
    return nullptr;
}

class SequencerTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (::access("/dev/snd/seq", F_OK) != 0) {
            GTEST_SKIP() << "no ALSA sequencer here (/dev/snd/seq is absent); "
                            "scripts/vm/run-tests runs this suite in a VM that has one";
        }
        snd_seq_t* raw = nullptr;
        const int opened = snd_seq_open(&raw, "default", SND_SEQ_OPEN_DUPLEX, SND_SEQ_NONBLOCK);
        ASSERT_GE(opened, 0) << "snd_seq_open: " << snd_strerror(opened);
        seq_.reset(raw);
        ASSERT_GE(snd_seq_set_client_name(seq_.get(), "havrel-vm-test"), 0);
        self_ = snd_seq_client_id(seq_.get());
        ASSERT_GE(self_, 0);
        out_ = snd_seq_create_simple_port(seq_.get(), "havrel out",
                                          SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ,
                                          SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
        ASSERT_GE(out_, 0) << snd_strerror(out_);
        in_ = snd_seq_create_simple_port(seq_.get(), "havrel in",
                                         SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                         SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
        ASSERT_GE(in_, 0) << snd_strerror(in_);
        ASSERT_NE(out_, in_);
    }

    // Sends a note event from our output port straight to 14:0, without a queue.
    void sendNote(snd_seq_event_type_t type, int channel, int note, int velocity) {
        snd_seq_event_t ev;
        snd_seq_ev_clear(&ev);
        snd_seq_ev_set_source(&ev, out_);
        snd_seq_ev_set_dest(&ev, kThroughClient, kThroughPort);
        snd_seq_ev_set_direct(&ev);
        ev.type = type;
        ev.data.note.channel = static_cast<unsigned char>(channel);
        ev.data.note.note = static_cast<unsigned char>(note);
        ev.data.note.velocity = static_cast<unsigned char>(velocity);
        const int sent = snd_seq_event_output_direct(seq_.get(), &ev);
        ASSERT_GE(sent, 0) << "snd_seq_event_output_direct: " << snd_strerror(sent);
    }

    // The next event for us that is not a system announcement; nullptr when none came.
    snd_seq_event_t* nextEvent() {
        for (;;) {
            snd_seq_event_t* ev = nullptr;
            const int got = snd_seq_event_input(seq_.get(), &ev);
            if (got >= 0 && ev != nullptr) {
                if (ev->source.client == SND_SEQ_CLIENT_SYSTEM) continue;
                return ev;
            }
            if (got != -EAGAIN) {
                ADD_FAILURE() << "snd_seq_event_input: " << snd_strerror(got);
                return nullptr;
            }
            std::vector<pollfd> fds(static_cast<std::size_t>(snd_seq_poll_descriptors_count(seq_.get(), POLLIN)));
            snd_seq_poll_descriptors(seq_.get(), fds.data(), static_cast<unsigned int>(fds.size()), POLLIN);
            if (::poll(fds.data(), fds.size(), kGuardMilliseconds) <= 0) {
                ADD_FAILURE() << "no event arrived on our input port";
                return nullptr;
            }
        }
    }

    // Expects the next event to be this note, forwarded by 14:0 to our input port.
    void expectNote(snd_seq_event_type_t type, int channel, int note, int velocity) {
        const snd_seq_event_t* ev = nextEvent();
        ASSERT_NE(ev, nullptr);
        EXPECT_EQ(ev->type, type);
        EXPECT_EQ(ev->source.client, kThroughClient);
        EXPECT_EQ(ev->source.port, kThroughPort);
        EXPECT_EQ(ev->dest.client, self_);
        EXPECT_EQ(ev->dest.port, in_);
        EXPECT_EQ(ev->data.note.channel, channel);
        EXPECT_EQ(ev->data.note.note, note);
        EXPECT_EQ(ev->data.note.velocity, velocity);
    }

    SeqHandle seq_;
    int self_ = -1;
    int out_ = -1;
    int in_ = -1;
};

TEST_F(SequencerTest, EnumerationListsMidiThroughAndOurOwnPorts) {
    const auto clients = enumerate(seq_.get());

    const ClientInfo* through = findClient(clients, kThroughClient);
    ASSERT_NE(through, nullptr) << "client 14 is missing (is snd-seq-dummy loaded?)";
    EXPECT_EQ(through->name, "Midi Through");
    const PortInfo* throughPort = findPort(*through, kThroughPort);
    ASSERT_NE(throughPort, nullptr);
    EXPECT_NE(throughPort->name.find("Midi Through"), std::string::npos) << throughPort->name;
    const unsigned int both = SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ |
                              SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE;
    EXPECT_EQ(throughPort->capability & both, both);

    const ClientInfo* system = findClient(clients, SND_SEQ_CLIENT_SYSTEM);
    ASSERT_NE(system, nullptr);
    EXPECT_EQ(system->name, "System");

    const ClientInfo* self = findClient(clients, self_);
    ASSERT_NE(self, nullptr);
    EXPECT_EQ(self->name, "havrel-vm-test");
    ASSERT_EQ(self->ports.size(), 2u);
    const PortInfo* out = findPort(*self, out_);
    const PortInfo* in = findPort(*self, in_);
    ASSERT_NE(out, nullptr);
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(out->name, "havrel out");
    EXPECT_EQ(in->name, "havrel in");
    EXPECT_TRUE(out->capability & SND_SEQ_PORT_CAP_SUBS_READ);
    EXPECT_FALSE(out->capability & SND_SEQ_PORT_CAP_WRITE);
    EXPECT_TRUE(in->capability & SND_SEQ_PORT_CAP_SUBS_WRITE);
    EXPECT_FALSE(in->capability & SND_SEQ_PORT_CAP_READ);

    // A client that closes disappears from the list another client sees. (The second client is
    // opened first: the kernel hands a freed client number to the next client that opens.)
    snd_seq_t* other = nullptr;
    ASSERT_GE(snd_seq_open(&other, "default", SND_SEQ_OPEN_DUPLEX, 0), 0);
    SeqHandle second(other);
    EXPECT_NE(findClient(enumerate(second.get()), self_), nullptr);
    seq_.reset();
    const auto after = enumerate(second.get());
    EXPECT_EQ(findClient(after, self_), nullptr);
    EXPECT_NE(findClient(after, kThroughClient), nullptr);
}

TEST_F(SequencerTest, NotesComeBackThroughMidiThroughInOrder) {
    ASSERT_GE(snd_seq_connect_from(seq_.get(), in_, kThroughClient, kThroughPort), 0);

    sendNote(SND_SEQ_EVENT_NOTEON, 3, 60, 100);
    sendNote(SND_SEQ_EVENT_NOTEOFF, 3, 60, 64);
    sendNote(SND_SEQ_EVENT_NOTEON, 15, 127, 1);

    expectNote(SND_SEQ_EVENT_NOTEON, 3, 60, 100);
    expectNote(SND_SEQ_EVENT_NOTEOFF, 3, 60, 64);
    expectNote(SND_SEQ_EVENT_NOTEON, 15, 127, 1);
}

TEST_F(SequencerTest, OnlySubscribedPortsReceiveWhatMidiThroughForwards) {
    // Direct events are delivered while the sender writes them, so a note sent while we are not
    // subscribed is gone before the subscription exists: the first one we see is the later one.
    sendNote(SND_SEQ_EVENT_NOTEON, 0, 40, 10);
    ASSERT_GE(snd_seq_connect_from(seq_.get(), in_, kThroughClient, kThroughPort), 0);
    sendNote(SND_SEQ_EVENT_NOTEON, 0, 41, 11);
    expectNote(SND_SEQ_EVENT_NOTEON, 0, 41, 11);

    ASSERT_GE(snd_seq_disconnect_from(seq_.get(), in_, kThroughClient, kThroughPort), 0);
    sendNote(SND_SEQ_EVENT_NOTEON, 0, 42, 12);
    ASSERT_GE(snd_seq_connect_from(seq_.get(), in_, kThroughClient, kThroughPort), 0);
    sendNote(SND_SEQ_EVENT_NOTEON, 0, 43, 13);
    expectNote(SND_SEQ_EVENT_NOTEON, 0, 43, 13);
}

}  // namespace
}  // namespace havrel::testing
