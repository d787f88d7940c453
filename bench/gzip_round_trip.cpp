// Gzip round trip of a configuration-sized JSON document (about 100 KB).
#include "model/HVDataHelpers.hpp"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

namespace {

havrel::Bytes makeDocument() {
    nlohmann::json wrappers = nlohmann::json::array();
    for (int i = 0; wrappers.dump().size() < 100 * 1024; ++i) {
        wrappers.push_back({{"numericID", i},
                            {"name", "Fader " + std::to_string(i)},
                            {"axies", {{{"containers", {{{"channel", i % 16 + 1}, {"midiNumber", i % 128}}}}}}}});
    }
    std::string text = nlohmann::json{{"dataWrappers", wrappers}}.dump();
    return havrel::Bytes(text.begin(), text.end());
}

void BM_GzipDeflate(benchmark::State& state) {
    const auto document = makeDocument();
    for (auto _ : state) {
        benchmark::DoNotOptimize(havrel::gzipDeflate(document));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * document.size()));
}

void BM_GzipInflate(benchmark::State& state) {
    const auto document = makeDocument();
    const auto compressed = *havrel::gzipDeflate(document);
    for (auto _ : state) {
        benchmark::DoNotOptimize(havrel::gzipInflate(compressed));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * document.size()));
}

void BM_GzipRoundTrip(benchmark::State& state) {
    const auto document = makeDocument();
    for (auto _ : state) {
        auto back = havrel::gzipInflate(*havrel::gzipDeflate(document));
        benchmark::DoNotOptimize(back);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * document.size()));
}

}  // namespace

BENCHMARK(BM_GzipDeflate);
BENCHMARK(BM_GzipInflate);
BENCHMARK(BM_GzipRoundTrip);
BENCHMARK_MAIN();
