#pragma once
// A second sequencer client owned by a test: one port others write to ("peer in") and one they
// read from ("peer out"), the events that reach it, and what it sends. Made with gtest
// assertions; check ok() after open().

#include <gtest/gtest.h>

#include <alsa/asoundlib.h>
#include <poll.h>

#include <string>
#include <utility>
#include <vector>

namespace havrel::testing {

class SequencerPeer {
public:
    // Only a guard against a lost event hanging the run; delivery takes far less.
    static constexpr int kGuardMilliseconds = 30000;

    SequencerPeer() = default;
    SequencerPeer(const SequencerPeer&) = delete;
    SequencerPeer& operator=(const SequencerPeer&) = delete;
    ~SequencerPeer() {
        if (seq) {
            snd_seq_close(seq);
        }
    }

    void open(const std::string& name) {
        snd_seq_t* raw = nullptr;
        ASSERT_GE(snd_seq_open(&raw, "default", SND_SEQ_OPEN_DUPLEX, 0), 0);
        seq = raw;
        ASSERT_GE(snd_seq_set_client_name(seq, name.c_str()), 0);
        self = snd_seq_client_id(seq);
        in = snd_seq_create_simple_port(seq, "peer in", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                        SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
        out = snd_seq_create_simple_port(seq, "peer out", SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ,
                                         SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
        ASSERT_GE(in, 0);
        ASSERT_GE(out, 0);
    }
    bool ok() const { return seq != nullptr && in >= 0 && out >= 0; }

    // The port of a client with this name: its number and capabilities; -1 when there is none.
    std::pair<int, unsigned int> port(int client, const std::string& name) const {
        snd_seq_port_info_t* info;
        snd_seq_port_info_alloca(&info);
        snd_seq_port_info_set_client(info, client);
        snd_seq_port_info_set_port(info, -1);
        while (snd_seq_query_next_port(seq, info) >= 0) {
            if (name == snd_seq_port_info_get_name(info)) {
                return {snd_seq_port_info_get_port(info), snd_seq_port_info_get_capability(info)};
            }
        }
        return {-1, 0};
    }

    // The next event at the peer that is not an announcement; nullptr when none came.
    snd_seq_event_t* nextEvent(int timeoutMilliseconds = kGuardMilliseconds) {
        for (;;) {
            if (snd_seq_event_input_pending(seq, 1) == 0) {
                std::vector<pollfd> fds(static_cast<std::size_t>(snd_seq_poll_descriptors_count(seq, POLLIN)));
                snd_seq_poll_descriptors(seq, fds.data(), static_cast<unsigned int>(fds.size()), POLLIN);
                if (::poll(fds.data(), fds.size(), timeoutMilliseconds) <= 0) {
                    return nullptr;
                }
            }
            snd_seq_event_t* ev = nullptr;
            if (snd_seq_event_input(seq, &ev) < 0 || ev == nullptr) {
                ADD_FAILURE() << "the peer could not read an event";
                return nullptr;
            }
            if (ev->source.client != SND_SEQ_CLIENT_SYSTEM) {
                return ev;
            }
        }
    }

    // From "peer out" to one port, or to the subscribers of "peer out" when client is -1.
    void send(snd_seq_event_t ev, int client = -1, int destinationPort = 0) {
        snd_seq_ev_set_source(&ev, out);
        if (client < 0) {
            snd_seq_ev_set_subs(&ev);
        } else {
            snd_seq_ev_set_dest(&ev, client, destinationPort);
        }
        snd_seq_ev_set_direct(&ev);
        ASSERT_GE(snd_seq_event_output_direct(seq, &ev), 0);
    }

    snd_seq_t* seq = nullptr;
    int self = -1;
    int in = -1;
    int out = -1;
};

}  // namespace havrel::testing
