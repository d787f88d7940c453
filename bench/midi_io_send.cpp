// The send path of the MIDI I/O library: what one send costs, and how many heap allocations it
// makes. Global operator new is counted; the platform below it swallows the lists, so the
// figures are the library's own. The last benchmark goes through the loopback server to a
// receiver, for comparison.
//
// Run: build/default/bench/bench_midi_io_send

#include "AllocationCounter.hpp"
#include "MIDIIO/MIDIManager.hpp"
#include "backends/midi_loopback/LoopbackMIDIServer.hpp"
#include "MIDIInternals/DispatchSync.hpp"
#include "MIDIInternals/SerialQueueFactory.hpp"

#include <benchmark/benchmark.h>

namespace {

using namespace MIDIIO;
using MIDICore::MIDIEvent;

// A loopback server whose sends go nowhere.
class SwallowingServer final : public LoopbackMIDIServer {
public:
    SwallowingServer() : LoopbackMIDIServer(true, MIDIInternals::makeSerialQueue("bench-loopback")) {}
    OSStatus received(MIDIEndpointRef, std::span<const std::uint8_t> list) override { return sink(list); }
    OSStatus receivedEventList(MIDIEndpointRef, std::span<const std::uint8_t> list) override { return sink(list); }
    OSStatus send(MIDIPortRef, MIDIEndpointRef, std::span<const std::uint8_t> list) override { return sink(list); }
    OSStatus sendEventList(MIDIPortRef, MIDIEndpointRef, std::span<const std::uint8_t> list) override { return sink(list); }

private:
    OSStatus sink(std::span<const std::uint8_t> list) {
        benchmark::DoNotOptimize(list.data());
        return noErr;
    }
};

std::shared_ptr<MIDIOutput> makeOutput(std::shared_ptr<MIDIPlatform> platform, CoreMIDIAPIVersion api) {
    static std::vector<std::shared_ptr<MIDIManager>> managers;  // kept for the process
    auto manager = MIDIManager::create(std::move(platform), "Bench", "Havrel", "HavrelApps");
    manager->start();
    manager->setPreferredAPI(api);
    manager->addOutput("Bench Out", "out", MIDIIdentifierPersistence::adHoc());
    managers.push_back(manager);
    return manager->managedOutput("out");
}

template <class Send>
void measure(benchmark::State& state, Send&& send) {
    const std::size_t before = havrel::bench::allocationCount();
    for (auto _ : state) {
        send();
    }
    state.counters["allocs/send"] =
        benchmark::Counter(static_cast<double>(havrel::bench::allocationCount() - before) / static_cast<double>(state.iterations()));
}

void BM_SendRawWords(benchmark::State& state) {
    auto output = makeOutput(std::make_shared<SwallowingServer>(), CoreMIDIAPIVersion::newCoreMIDI(MIDIProtocolVersion::midi2_0));
    const std::uint32_t words[] = {0x40903C00, 0x80000000};
    measure(state, [&] { output->send(std::span<const std::uint32_t>(words)); });
}
BENCHMARK(BM_SendRawWords);

void BM_SendRawBytesLegacy(benchmark::State& state) {
    auto output = makeOutput(std::make_shared<SwallowingServer>(), CoreMIDIAPIVersion::legacyCoreMIDI());
    const std::uint8_t bytes[] = {0x90, 0x3C, 0x40};
    measure(state, [&] { output->send(std::span<const std::uint8_t>(bytes)); });
}
BENCHMARK(BM_SendRawBytesLegacy);

// One event: encoded into words kept for the thread, then one event list a packet.
void sendNoteOn(benchmark::State& state, CoreMIDIAPIVersion api) {
    auto output = makeOutput(std::make_shared<SwallowingServer>(), api);
    auto event = MIDIEvent::noteOn(MIDICore::UInt7(60), MIDICore::ChanVoice7Bit16BitValue::midi1(MIDICore::UInt7(100)),
                                   MIDICore::UInt4(0));
    measure(state, [&] { output->send(event); });
}

void BM_SendEventMIDI2(benchmark::State& state) {
    sendNoteOn(state, CoreMIDIAPIVersion::newCoreMIDI(MIDIProtocolVersion::midi2_0));
}
BENCHMARK(BM_SendEventMIDI2);

void BM_SendEventMIDI1(benchmark::State& state) {
    sendNoteOn(state, CoreMIDIAPIVersion::newCoreMIDI(MIDIProtocolVersion::midi1_0));
}
BENCHMARK(BM_SendEventMIDI1);

void BM_SendEventLegacy(benchmark::State& state) { sendNoteOn(state, CoreMIDIAPIVersion::legacyCoreMIDI()); }
BENCHMARK(BM_SendEventLegacy);

void BM_SendThroughLoopbackToReceiver(benchmark::State& state) {
    auto server = LoopbackMIDIServer::create();
    auto output = makeOutput(server, CoreMIDIAPIVersion::newCoreMIDI(MIDIProtocolVersion::midi2_0));
    std::atomic<std::size_t> received{0};
    static std::vector<std::shared_ptr<MIDIManager>> listeners;
    auto listener = MIDIManager::create(server, "Listener", "Havrel", "HavrelApps");
    listener->start();
    listener->addInputConnection(MIDIInputConnectionMode::outputs({MIDIEndpointIdentity::name("Bench Out")}), "in", {},
                                 MIDIReceiver::events([&](const std::vector<MIDIEvent>& events, MIDITimeStamp,
                                                          const std::optional<MIDIOutputEndpoint>&) {
                                     received += events.size();
                                 }));
    listeners.push_back(listener);
    const std::uint32_t words[] = {0x10F80000};
    std::size_t sent = 0;
    measure(state, [&] {
        output->send(std::span<const std::uint32_t>(words));
        ++sent;
    });
    server->flush();
    MIDIInternals::syncOn(*listener->managedInputConnection("in")->queue(), [] {});
    state.counters["delivered"] = static_cast<double>(received.load()) / static_cast<double>(sent);
}
BENCHMARK(BM_SendThroughLoopbackToReceiver);

}  // namespace
BENCHMARK_MAIN();
