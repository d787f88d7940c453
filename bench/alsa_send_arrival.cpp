// Send -> arrival on the kernel's sequencer: how long a note sent through the MIDI library's
// virtual output takes to reach another sequencer client, beside the same figure for a note
// written by hand with snd_seq_event_output_direct (the floor). Needs /dev/snd/seq; runs inside
// the test VM with
//   scripts/vm/run-tests build/default/bench/bench_alsa_send_arrival
// Prints p50, p99 and max of each over the notes (10,000 unless a count is given).

#include "MIDIIO/MIDIManager.hpp"
#include "MIDIInternals/MainThread.hpp"
#include "MIDIInternals/SerialQueueFactory.hpp"
#include "backends/midi_alsa/AlsaMIDIBackend.hpp"
#include "BenchSupport.hpp"

#include <alsa/asoundlib.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// The receiving client: one port subscribed to the sender under test.
struct Receiver {
    snd_seq_t* seq = nullptr;
    int port = -1;
    std::vector<pollfd> fds;

    bool open() {
        if (snd_seq_open(&seq, "default", SND_SEQ_OPEN_DUPLEX, 0) < 0) {
            return false;
        }
        snd_seq_set_client_name(seq, "bench receiver");
        port = snd_seq_create_simple_port(seq, "in", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                          SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
        fds.resize(static_cast<std::size_t>(snd_seq_poll_descriptors_count(seq, POLLIN)));
        snd_seq_poll_descriptors(seq, fds.data(), static_cast<unsigned int>(fds.size()), POLLIN);
        return port >= 0;
    }
    // Waits for the next note on; false after a second without one.
    bool awaitNote() {
        for (;;) {
            if (snd_seq_event_input_pending(seq, 1) == 0 && ::poll(fds.data(), fds.size(), 1000) <= 0) {
                return false;
            }
            snd_seq_event_t* ev = nullptr;
            if (snd_seq_event_input(seq, &ev) >= 0 && ev != nullptr && ev->type == SND_SEQ_EVENT_NOTEON) {
                return true;
            }
        }
    }
    ~Receiver() {
        if (seq) {
            snd_seq_close(seq);
        }
    }
};

struct Figures {
    double p50 = 0;
    double p99 = 0;
    double max = 0;
    int lost = 0;
};

// Times `count` sends, each waited for at the receiver, in microseconds.
Figures measure(int count, Receiver& receiver, const std::function<void(int)>& send) {
    std::vector<double> sample;
    sample.reserve(static_cast<std::size_t>(count));
    Figures figures;
    for (int i = 0; i < count; ++i) {
        const auto start = Clock::now();
        send(i);
        if (!receiver.awaitNote()) {
            ++figures.lost;
            continue;
        }
        sample.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::sort(sample.begin(), sample.end());
    figures.p50 = havrel::bench::percentile(sample, 0.50);
    figures.p99 = havrel::bench::percentile(sample, 0.99);
    figures.max = sample.empty() ? 0.0 : sample.back();
    return figures;
}

void print(const char* what, const Figures& figures) {
    std::printf("%-44s p50 %8.1f us  p99 %8.1f us  max %8.1f us  lost %d\n", what, figures.p50, figures.p99,
                figures.max, figures.lost);
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10000;
    if (!MIDIIO::AlsaMIDIBackend::isAvailable()) {
        std::printf("bench_alsa_send_arrival: no ALSA sequencer here (/dev/snd/seq); run it in the test VM\n");
        return 0;
    }

    // The floor: a note written by hand to the subscribers of a port.
    Figures floor;
    {
        Receiver receiver;
        snd_seq_t* sender = nullptr;
        if (!receiver.open() || snd_seq_open(&sender, "default", SND_SEQ_OPEN_OUTPUT, 0) < 0) {
            std::printf("bench_alsa_send_arrival: could not open the sequencer\n");
            return 1;
        }
        snd_seq_set_client_name(sender, "bench raw sender");
        int port = snd_seq_create_simple_port(sender, "out", SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ,
                                              SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
        snd_seq_connect_from(receiver.seq, receiver.port, snd_seq_client_id(sender), port);
        floor = measure(count, receiver, [&](int i) {
            snd_seq_event_t ev;
            snd_seq_ev_clear(&ev);
            snd_seq_ev_set_noteon(&ev, 0, i % 128, 100);
            snd_seq_ev_set_source(&ev, port);
            snd_seq_ev_set_subs(&ev);
            snd_seq_ev_set_direct(&ev);
            snd_seq_event_output_direct(sender, &ev);
        });
        snd_seq_close(sender);
    }

    // The library: its virtual output, as the application sends.
    Figures library;
    {
        auto mainQueue = MIDIInternals::makeSerialQueue("main");
        MIDIInternals::setMainQueue(mainQueue);
        auto server = MIDIIO::AlsaMIDIBackend::create();
        auto manager = MIDIIO::MIDIManager::create(server, "Bench", "Havrel", "HavrelApps");
        manager->start();
        manager->addOutput("Bench Output", "out", MIDIIO::MIDIIdentifierPersistence::adHoc());
        Receiver receiver;
        if (server->status() != MIDIIO::noErr || !receiver.open()) {
            std::printf("bench_alsa_send_arrival: could not open the sequencer\n");
            return 1;
        }
        snd_seq_port_info_t* info;
        snd_seq_port_info_alloca(&info);
        snd_seq_port_info_set_client(info, server->sequencerClient());
        snd_seq_port_info_set_port(info, -1);
        int port = -1;
        while (snd_seq_query_next_port(receiver.seq, info) >= 0) {
            if (std::string(snd_seq_port_info_get_name(info)) == "Bench Output") {
                port = snd_seq_port_info_get_port(info);
            }
        }
        snd_seq_connect_from(receiver.seq, receiver.port, server->sequencerClient(), port);
        auto output = manager->managedOutput("out");
        library = measure(count, receiver, [&](int i) {
            output->send(MIDICore::MIDIEvent::noteOn(MIDICore::UInt7(static_cast<std::uint8_t>(i % 128)),
                                                     MIDICore::ChanVoice7Bit16BitValue::midi1(MIDICore::UInt7(100)),
                                                     MIDICore::UInt4(0)));
        });
        manager->removeAll();
        manager.reset();
        server.reset();
        MIDIInternals::setMainQueue(nullptr);
    }

    std::printf("send -> arrival at another sequencer client, %d notes\n", count);
    print("snd_seq_event_output_direct by hand (floor)", floor);
    print("MIDI library virtual output", library);
    std::printf("ratio p50 %.2f, p99 %.2f\n", floor.p50 > 0 ? library.p50 / floor.p50 : 0.0,
                floor.p99 > 0 ? library.p99 / floor.p99 : 0.0);
    return floor.lost + library.lost == 0 ? 0 : 1;
}
