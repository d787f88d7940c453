// Encoding and decoding of a full binary range command (16 entries, 50 bytes), the form every
// fader movement travels in.
#include "central/HVEncodedRangeCommand.hpp"

#include <benchmark/benchmark.h>

namespace {

havrel::HVEncodedRangeCommand fullCommand() {
    std::vector<havrel::HVEncodedRangeValue> values;
    for (std::uint64_t i = 0; i < 16; ++i) {
        values.push_back(havrel::HVEncodedRangeValue::rangeValueWithDataWraperID(i * 37, i % 8, i / 15.0));
    }
    return havrel::HVEncodedRangeCommand::rangeCommandWithRangeValues(std::move(values));
}

void BM_EncodeRangeCommand(benchmark::State& state) {
    const auto command = fullCommand();
    for (auto _ : state) {
        auto bytes = command.data();
        benchmark::DoNotOptimize(bytes);
    }
}
BENCHMARK(BM_EncodeRangeCommand);

void BM_DecodeRangeCommand(benchmark::State& state) {
    const auto bytes = *fullCommand().data();
    for (auto _ : state) {
        auto command = havrel::HVEncodedRangeCommand::initWithData(bytes);
        benchmark::DoNotOptimize(command);
    }
}
BENCHMARK(BM_DecodeRangeCommand);

}  // namespace

BENCHMARK_MAIN();
