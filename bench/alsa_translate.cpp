// The ALSA backend's own work per message sent, without the sequencer: an event list of one
// note on, at MIDI 1.0 and at MIDI 2.0, turned into the MIDI 1.0 bytes of a sequencer event.
// Beside bench_alsa_send_arrival (which needs the VM), this is the part the backend adds.

#include "MIDICore/MIDIEvent.hpp"
#include "MIDIIO/MIDIEventPacket.hpp"
#include "backends/midi_alsa/AlsaTranslator.hpp"

#include <benchmark/benchmark.h>

namespace {

void translate(benchmark::State& state, MIDICore::MIDIProtocolVersion version) {
    std::vector<std::uint32_t> words;
    MIDICore::MIDIEvent::noteOn(MIDICore::UInt7(60), MIDICore::ChanVoice7Bit16BitValue::midi1(MIDICore::UInt7(100)),
                                MIDICore::UInt4(0))
        .appendUMPWords(version, words);
    auto list = MIDIIO::makeMIDIEventList(
        version == MIDICore::MIDIProtocolVersion::midi1_0 ? MIDIIO::MIDIProtocolID::midi1_0
                                                          : MIDIIO::MIDIProtocolID::midi2_0,
        words, 0);
    MIDIIO::AlsaOutgoingTranslator translator;
    std::size_t bytes = 0;
    for (auto _ : state) {
        translator.eventList(list.bytes(), [&](std::span<const std::uint8_t> message) { bytes += message.size(); });
    }
    benchmark::DoNotOptimize(bytes);
}

void BM_TranslateNoteOnMIDI1(benchmark::State& state) { translate(state, MIDICore::MIDIProtocolVersion::midi1_0); }
void BM_TranslateNoteOnMIDI2(benchmark::State& state) { translate(state, MIDICore::MIDIProtocolVersion::midi2_0); }
BENCHMARK(BM_TranslateNoteOnMIDI1);
BENCHMARK(BM_TranslateNoteOnMIDI2);

}  // namespace

BENCHMARK_MAIN();
