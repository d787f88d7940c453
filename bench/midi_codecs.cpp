// The MIDI codecs on the receive and send paths.
//
// MIDI 1.0 parsing: MIDI1Parser against the MIDI byte parser of libasound
// (snd_midi_event_encode) on the same 1 MiB stream: mostly channel voice with running status,
// clock bytes interleaved (some inside messages), a few SysEx. Both count events a second.
// Run: build/default/bench/bench_midi_codecs
//
// UMP: encoding channel-voice events into a word list and decoding such words, at both
// protocols.
#include "MIDICore/MIDI1Parser.hpp"
#include "MIDICore/MIDI2Parser.hpp"

#include <alsa/asoundlib.h>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

using namespace MIDICore;

namespace {

// The stream as the packets a receiver gets: at most 256 bytes each, whole messages, running
// status carried from packet to packet.
std::vector<std::vector<std::uint8_t>> midi1Packets() {
    std::vector<std::vector<std::uint8_t>> packets(1);
    std::size_t total = 0;
    std::mt19937 random(7);
    auto data = [&] { return static_cast<std::uint8_t>(random() & 0x7F); };
    std::uint8_t status = 0x90;
    std::size_t messages = 0;
    while (total < (1u << 20)) {
        if (packets.back().size() > 180) {
            total += packets.back().size();
            packets.emplace_back();
        }
        auto& packet = packets.back();
        ++messages;
        if (messages % 2000 == 0) {
            packet.push_back(0xF0);
            packet.push_back(0x41);
            for (unsigned i = 0, n = 16 + random() % 48; i < n; ++i) {
                packet.push_back(data());
            }
            packet.push_back(0xF7);
            packet.push_back(status);  // SysEx cleared the running status
        } else if (messages % 16 == 0) {
            static constexpr std::uint8_t kinds[] = {0x90, 0x80, 0xB0, 0xE0, 0xA0, 0x90, 0xB0, 0x90};
            status = static_cast<std::uint8_t>(kinds[random() % 8] | (random() & 0x0F));
            packet.push_back(status);
        }
        packet.push_back(data());
        if (messages % 24 == 0) {
            packet.push_back(0xF8);  // a clock inside the message
        }
        packet.push_back(data());
    }
    return packets;
}

const std::vector<std::vector<std::uint8_t>>& packets() {
    static const auto all = midi1Packets();
    return all;
}

const std::vector<std::uint8_t>& stream() {
    static const auto bytes = [] {
        std::vector<std::uint8_t> joined;
        for (const auto& packet : packets()) {
            joined.insert(joined.end(), packet.begin(), packet.end());
        }
        return joined;
    }();
    return bytes;
}

// Events a second, and events per pass over the stream, which must be the same for every
// parser here: they all see the same bytes.
void reportEvents(benchmark::State& state, std::size_t events) {
    state.counters["events"] = benchmark::Counter(static_cast<double>(events), benchmark::Counter::kIsRate);
    state.counters["perPass"] = static_cast<double>(events) / static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * stream().size()));
}

// One parsedEvents call per packet, as a receiver makes them.
void MIDI1Parser_Havrel(benchmark::State& state) {
    const auto& all = packets();
    std::size_t events = 0;
    for (auto _ : state) {
        MIDI1Parser parser;  // a fresh running status each pass, as the libasound parser is reset
        for (const auto& packet : all) {
            auto parsed = parser.parsedEvents(packet);
            events += parsed.size();
            benchmark::DoNotOptimize(parsed.data());
        }
    }
    reportEvents(state, events);
}
BENCHMARK(MIDI1Parser_Havrel)->Unit(benchmark::kMillisecond);

// The whole 1 MiB in one call: the output list of every event is written to memory.
void MIDI1Parser_HavrelOneCall(benchmark::State& state) {
    const auto& bytes = stream();
    std::size_t events = 0;
    for (auto _ : state) {
        MIDI1Parser parser;  // a fresh running status each pass, as the libasound parser is reset
        auto parsed = parser.parsedEvents(bytes);
        events += parsed.size();
        benchmark::DoNotOptimize(parsed.data());
    }
    reportEvents(state, events);
}
BENCHMARK(MIDI1Parser_HavrelOneCall)->Unit(benchmark::kMillisecond);

// One parse call per packet with a sink that counts and touches each event: no list is built,
// which is how the byte parser of libasound below hands out its events too.
void MIDI1Parser_HavrelSink(benchmark::State& state) {
    const auto& all = packets();
    std::size_t events = 0;
    for (auto _ : state) {
        MIDI1Parser parser;  // a fresh running status each pass, as the libasound parser is reset
        for (const auto& packet : all) {
            parser.parse(packet, UInt4(0), [&](MIDIEvent&& event) {
                ++events;
                benchmark::DoNotOptimize(event);
            });
        }
    }
    reportEvents(state, events);
}
BENCHMARK(MIDI1Parser_HavrelSink)->Unit(benchmark::kMillisecond);

// The byte parser of libasound over the same bytes (its state runs on from packet to packet,
// so the joined stream is the same input).
void MIDI1Parser_ALSA(benchmark::State& state) {
    const auto& bytes = stream();
    snd_midi_event_t* encoder = nullptr;
    if (snd_midi_event_new(256, &encoder) < 0) {
        state.SkipWithError("snd_midi_event_new failed");
        return;
    }
    std::size_t events = 0;
    snd_seq_event_t event;
    for (auto _ : state) {
        snd_midi_event_reset_encode(encoder);
        const unsigned char* data = bytes.data();
        long remaining = static_cast<long>(bytes.size());
        while (remaining > 0) {
            long used = snd_midi_event_encode(encoder, data, remaining, &event);
            if (used <= 0) {
                break;
            }
            data += used;
            remaining -= used;
            if (event.type != SND_SEQ_EVENT_NONE) {
                ++events;
                benchmark::DoNotOptimize(event);
            }
        }
    }
    snd_midi_event_free(encoder);
    reportEvents(state, events);
}
BENCHMARK(MIDI1Parser_ALSA)->Unit(benchmark::kMillisecond);

std::vector<MIDIEvent> channelVoiceEvents() {
    std::vector<MIDIEvent> events;
    std::mt19937 random(11);
    auto u7 = [&] { return UInt7::fromStorage(static_cast<std::uint8_t>(random() & 0x7F)); };
    auto channel = [&] { return UInt4::fromStorage(static_cast<std::uint8_t>(random() & 0x0F)); };
    for (int i = 0; i < 1024; ++i) {
        switch (i % 8) {
            case 0:
            case 1: events.push_back(MIDIEvent::noteOn(u7(), ChanVoice7Bit16BitValue::midi1(u7()), channel())); break;
            case 2: events.push_back(MIDIEvent::noteOff(u7(), ChanVoice7Bit16BitValue::midi1(u7()), channel())); break;
            case 3:
            case 4: events.push_back(MIDIEvent::cc(u7(), ChanVoice7Bit32BitValue::midi1(u7()), channel())); break;
            case 5:
                events.push_back(MIDIEvent::pitchBend(ChanVoice14Bit32BitValue::midi1(UInt14::fromStorage(
                                                          static_cast<std::uint16_t>(random() & 0x3FFF))),
                                                      channel()));
                break;
            case 6: events.push_back(MIDIEvent::notePressure(MIDINote(u7()), ChanVoice7Bit32BitValue::midi1(u7()), channel())); break;
            default: events.push_back(MIDIEvent::programChange(u7(), channel())); break;
        }
    }
    return events;
}

MIDIProtocolVersion protocolOf(const benchmark::State& state) {
    return state.range(0) == 1 ? MIDIProtocolVersion::midi1_0 : MIDIProtocolVersion::midi2_0;
}

void UMPEncode(benchmark::State& state) {
    const auto events = channelVoiceEvents();
    const auto protocol = protocolOf(state);
    std::vector<std::uint32_t> words;
    words.reserve(events.size() * 2);
    for (auto _ : state) {
        words.clear();
        for (const auto& event : events) {
            event.appendUMPWords(protocol, words);
        }
        benchmark::DoNotOptimize(words.data());
    }
    state.counters["events"] =
        benchmark::Counter(static_cast<double>(state.iterations() * events.size()), benchmark::Counter::kIsRate);
}
BENCHMARK(UMPEncode)->Arg(1)->Arg(2);

// The allocating form that returns a list of packets, for comparison.
void UMPEncodePackets(benchmark::State& state) {
    const auto events = channelVoiceEvents();
    const auto protocol = protocolOf(state);
    for (auto _ : state) {
        for (const auto& event : events) {
            benchmark::DoNotOptimize(event.umpRawWords(protocol));
        }
    }
    state.counters["events"] =
        benchmark::Counter(static_cast<double>(state.iterations() * events.size()), benchmark::Counter::kIsRate);
}
BENCHMARK(UMPEncodePackets)->Arg(1)->Arg(2);

void UMPDecode(benchmark::State& state) {
    const auto events = channelVoiceEvents();
    const auto protocol = protocolOf(state);
    std::vector<std::uint32_t> words;
    for (const auto& event : events) {
        event.appendUMPWords(protocol, words);
    }
    const auto bytes = umpBytes(words);
    MIDI2Parser parser;
    std::size_t decoded = 0;
    for (auto _ : state) {
        auto parsed = parser.parsedEvents(bytes);
        decoded += parsed.size();
        benchmark::DoNotOptimize(parsed.data());
    }
    state.counters["events"] = benchmark::Counter(static_cast<double>(decoded), benchmark::Counter::kIsRate);
}
BENCHMARK(UMPDecode)->Arg(1)->Arg(2);

}  // namespace
BENCHMARK_MAIN();
