// Decode and dispatch of binary range commands: 16 entries a command, a configuration of 64
// wrappers with CC, note and pitch containers, through the main queue to a counting
// transmission manager. With diag=1 every diagnostic line is formatted and handed to a sink
// that discards it (no terminal in the loop); with diag=0 the level is info. With async=1 the
// lines pass through the host's asynchronous sink on their way to the discarding one.
#include "AllocationCounter.hpp"
#include "central/HVCentralConnectionTypeManager.hpp"
#include "central/HVCentralThroughputMeter.hpp"
#include "central/RNClient.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/AsyncLogSink.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

using namespace havrel;

class DiscardingSink final : public LogSink {
public:
    void write(std::string_view line) override { benchmark::DoNotOptimize(line.data()); }
};

class CountingTransmissionManager final : public HVTransmissionManager {
public:
    std::uint64_t count = 0;
    void broadcastController(std::uint64_t, std::uint64_t, std::uint64_t) override { ++count; }
    void broadcastNote(std::uint64_t, std::uint64_t, std::uint64_t) override { ++count; }
    void broadcastProgramChange(std::uint64_t, std::uint64_t) override { ++count; }
    void broadcastPitchBendWithChannel(std::uint64_t, std::uint64_t, std::uint64_t) override { ++count; }
};

std::shared_ptr<HVEncodedConfiguration> makeConfiguration() {
    auto configuration = HVEncodedConfiguration::create();
    for (std::uint64_t n = 1; n <= 64; ++n) {
        auto container = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1 + n % 16, n % 128, n % 3 == 1);
        if (n % 3 == 2) {
            container->signalType = HVSignalTypePitch;
            container->values[1]->value = 16383;
        }
        auto axis = HVMidiAxisData::create();
        axis->addRangeContainer(container);
        auto wrapper = HVMidiAxisDataWrapper::midiAxisWrapperWithAxisArray({axis});
        wrapper->numericID = n;
        configuration->dataWrappers.push_back(wrapper);
    }
    return configuration;
}

void BM_RangeCommandDispatch(benchmark::State& state) {
    std::shared_ptr<LogSink> sink = std::make_shared<DiscardingSink>();
    if (state.range(1) != 0) {
        sink = std::make_shared<AsyncLogSink>(sink);
    }
    auto previousSink = setLogSink(sink);
    auto previousLevel = setLogLevel(state.range(0) != 0 ? LogLevel::diag : LogLevel::info);
    MainQueue::shared().resetForTesting();
    auto counter = std::make_shared<CountingTransmissionManager>();
    HVTransmissionManager::setShared(counter);
    HVCentralConnectionTypeManager manager;
    manager.registerValueChangeObserversIfNeeded();
    auto client = RNClient::create();
    client->configuration = makeConfiguration();

    // Commands whose positions change every time, so that no entry is a repeat.
    std::vector<Bytes> commands;
    for (int c = 0; c < 64; ++c) {
        std::vector<HVEncodedRangeValue> values;
        for (int i = 0; i < 16; ++i) {
            std::uint64_t wrapper = 1 + (c * 16 + i) % 64;
            values.push_back(HVEncodedRangeValue::rangeValueWithDataWraperID(wrapper, 0, ((c * 7 + i * 13) % 512) / 511.0));
        }
        commands.push_back(*HVEncodedRangeCommand::rangeCommandWithRangeValues(values).data());
    }
    std::size_t next = 0;
    std::int64_t entries = 0;
    const std::size_t allocationsBefore = bench::allocationCount();
    for (auto _ : state) {
        manager.didReceiveRangeData(commands[next], client);
        next = (next + 1) % commands.size();
        MainQueue::shared().poll();
        entries += 16;
    }
    state.counters["entries/s"] = benchmark::Counter(static_cast<double>(entries), benchmark::Counter::kIsRate);
    state.counters["allocs/entry"] = static_cast<double>(bench::allocationCount() - allocationsBefore) /
                                     static_cast<double>(entries > 0 ? entries : 1);
    state.counters["broadcasts"] = static_cast<double>(counter->count);
    HVTransmissionManager::setShared(nullptr);
    if (auto async = std::dynamic_pointer_cast<AsyncLogSink>(sink)) {
        state.counters["dropped"] = static_cast<double>(async->droppedCount());
    }
    setLogLevel(previousLevel);
    setLogSink(previousSink);
}

// The meter behind every broadcast of the real transmission manager: one record per message,
// a thousand messages in each virtual millisecond, so that the one-second window stays full.
void BM_ThroughputMeterRecord(benchmark::State& state) {
    ManualClockScope scope;
    HVCentralThroughputMeter meter;
    std::uint64_t n = 0;
    for (auto _ : state) {
        meter.recordController(n % 128, (n * 7) % 128, n % 16);
        if (++n % 1000 == 0) {
            scope.advance(std::chrono::milliseconds(1));
        }
    }
    benchmark::DoNotOptimize(meter.lastMessageDescription());
    state.counters["records/s"] = benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_ThroughputMeterRecord);
BENCHMARK(BM_RangeCommandDispatch)->ArgNames({"diag", "async"})->Args({1, 0})->Args({0, 0})->Args({1, 1});
BENCHMARK_MAIN();
