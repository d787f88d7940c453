// A range command in, MIDI out at another application: the real dispatch, the central
// transmission manager, the application's MIDI manager and its virtual output, the loopback
// MIDI server, and a second application's input connection receiving at MIDI 2.0.
//
// BM_RangeCommandToReceiver sends one command at a time and times each from the call of
// didReceiveRangeData to the receiver's callback (p50 and p99 in microseconds).
// BM_RangeCommandBurst sends 64 commands back to back and waits for all of them: messages a
// second when the path is kept full. Log lines are formatted and discarded.
#include "BenchSupport.hpp"
#include "../tests/central/RangeCommandBuilders.hpp"
#include "MIDIIO/MIDIManager.hpp"
#include "backends/midi_loopback/LoopbackMIDIServer.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "central/HVCentralConnectionTypeManager.hpp"
#include "central/HVCentralTransmissionManager.hpp"
#include "central/RNClient.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>

namespace {

using namespace havrel;
using Clock = std::chrono::steady_clock;

// Everything from the dispatch to the listening application, built once per benchmark.
struct Path {
    std::shared_ptr<LogSink> previousSink = setLogSink(std::make_shared<bench::DiscardingSink>());
    std::filesystem::path folder;
    std::shared_ptr<MIDIIO::LoopbackMIDIServer> server;
    std::shared_ptr<HVMIDIManager> midi;
    std::shared_ptr<MIDIIO::MIDIManager> listener;
    HVCentralConnectionTypeManager dispatch;
    std::shared_ptr<RNClient> client = RNClient::create();
    std::atomic<std::uint64_t> received{0};
    std::atomic<std::int64_t> lastArrival{0};

    Path() {
        MainQueue::shared().resetForTesting();
        havrel::installMIDILibraryServices();
        char pattern[] = "/tmp/havrel-bench-XXXXXX";
        folder = ::mkdtemp(pattern);
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder / "defaults.json"));
        server = MIDIIO::LoopbackMIDIServer::create();
        MIDIIO::MIDIPlatform::setShared(server);

        auto configuration = HVConnectionTypeConfiguration::create();
        configuration->productToSendOut = "Havrel Bench";
        midi = HVMIDIManager::initSharedMinimalWithConnectionConfiguration(configuration);
        dispatch.registerValueChangeObserversIfNeeded();

        listener = MIDIIO::MIDIManager::create(server, "Listener", "Havrel", "HavrelApps");
        listener->start();
        listener->addInputConnection(
            MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::name("Havrel Bench Output")}),
            "in", {},
            MIDIIO::MIDIReceiver::events([this](const std::vector<MIDICore::MIDIEvent>& events, MIDIIO::MIDITimeStamp,
                                                const std::optional<MIDIIO::MIDIOutputEndpoint>&) {
                lastArrival.store(Clock::now().time_since_epoch().count());
                received.fetch_add(events.size());
            }));

        // A CC fader on channel 1, controller 7.
        auto document = HVEncodedConfiguration::create();
        document->dataWrappers = {
            testing::wrapperWith(1, HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 7, false))};
        client->configuration = document;
    }
    ~Path() {
        HVTransmissionManager::setShared(nullptr);
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
        HVMIDIManager::setShared(nullptr);
        listener.reset();
        midi.reset();
        DefaultsStore::setStandard(nullptr);
        std::filesystem::remove_all(folder);
        setLogSink(previousSink);
    }

    // Positions that map to different 7-bit values, so no command is a repeat of the last.
    Bytes command(std::uint64_t n) const {
        return testing::rangeCommand(
            {HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, static_cast<double>(n % 2 == 0 ? 100 : 400) / 511.0)});
    }

    // Runs the main queue (where the dispatch's notification is delivered) until `count`
    // events have arrived.
    void waitFor(std::uint64_t count) {
        while (received.load() < count) {
            MainQueue::shared().poll();
        }
    }
};

void BM_RangeCommandToReceiver(benchmark::State& state) {
    Path path;
    std::vector<double> latencies;
    latencies.reserve(1 << 20);
    std::uint64_t sent = 0;
    const auto commands = std::vector<Bytes>{path.command(0), path.command(1)};
    for (auto _ : state) {
        const auto start = Clock::now();
        path.dispatch.didReceiveRangeData(commands[sent % 2], path.client);
        ++sent;
        path.waitFor(sent);
        const auto arrival = Clock::time_point(Clock::duration(path.lastArrival.load()));
        latencies.push_back(std::chrono::duration<double, std::micro>(arrival - start).count());
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["p50_us"] = bench::percentile(latencies, 0.50);
    state.counters["p99_us"] = bench::percentile(latencies, 0.99);
    state.counters["max_us"] = latencies.empty() ? 0.0 : latencies.back();
    state.counters["messages/s"] = benchmark::Counter(static_cast<double>(sent), benchmark::Counter::kIsRate);
}

void BM_RangeCommandBurst(benchmark::State& state) {
    Path path;
    constexpr std::uint64_t burst = 64;
    std::uint64_t sent = 0;
    const auto commands = std::vector<Bytes>{path.command(0), path.command(1)};
    for (auto _ : state) {
        for (std::uint64_t i = 0; i < burst; ++i) {
            path.dispatch.didReceiveRangeData(commands[sent % 2], path.client);
            ++sent;
        }
        path.waitFor(sent);
    }
    state.counters["messages/s"] = benchmark::Counter(static_cast<double>(sent), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_RangeCommandToReceiver)->UseRealTime();
BENCHMARK(BM_RangeCommandBurst)->UseRealTime();
BENCHMARK_MAIN();
