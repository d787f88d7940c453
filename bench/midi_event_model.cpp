// The event model on the send and receive paths: value scaling, event construction with its
// accessors, and filtering a list of mixed events.
#include "MIDICore/MIDIEventFilter.hpp"

#include <benchmark/benchmark.h>

using namespace MIDICore;

static void ScaleMidi1ToMidi2(benchmark::State& state) {
    std::uint8_t value = 0;
    for (auto _ : state) {
        auto scaled = ChanVoice7Bit32BitValue::midi1(UInt7::fromStorage(value)).midi2Value();
        benchmark::DoNotOptimize(scaled);
        value = static_cast<std::uint8_t>((value + 1) & 0x7F);
    }
}
BENCHMARK(ScaleMidi1ToMidi2);

static void ScaleUnitIntervalToMidi1(benchmark::State& state) {
    double value = 0.0;
    for (auto _ : state) {
        auto scaled = ChanVoice7Bit16BitValue::unitInterval(value).midi1Value();
        benchmark::DoNotOptimize(scaled);
        value = value >= 1.0 ? 0.0 : value + 0.001;
    }
}
BENCHMARK(ScaleUnitIntervalToMidi1);

static void BuildControlChangeAndReadChannel(benchmark::State& state) {
    std::uint8_t value = 0;
    for (auto _ : state) {
        auto event = MIDIEvent::cc(Controller::modWheel, ChanVoice7Bit32BitValue::midi1(UInt7::fromStorage(value)), UInt4(3));
        benchmark::DoNotOptimize(event.channel());
        value = static_cast<std::uint8_t>((value + 1) & 0x7F);
    }
}
BENCHMARK(BuildControlChangeAndReadChannel);

static void FilterThousandEvents(benchmark::State& state) {
    std::vector<MIDIEvent> events;
    for (int i = 0; i < 1000; ++i) {
        auto number = UInt7::fromStorage(static_cast<std::uint8_t>(i & 0x7F));
        events.push_back(i % 3 == 0 ? MIDIEvent::timingClock()
                                    : MIDIEvent::cc(Controller(number), ChanVoice7Bit32BitValue::midi1(number), UInt4(0)));
    }
    auto selector = ChanVoiceTypes::keepCCs(std::vector<UInt7>{UInt7(1), UInt7(7), UInt7(64)});
    for (auto _ : state) {
        benchmark::DoNotOptimize(filter(events, selector));
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(FilterThousandEvents);
BENCHMARK_MAIN();
