// The threads of a process with the application's MIDI service running: the loopback MIDI
// server with E endpoints (default 32: devices of one entity with one source and one
// destination each), the full HVMIDIManager set-up, and one connection refresh, which joins
// every named endpoint. Prints the thread count read from /proc/self/task.
//
// Run: build/default/bench/bench_midi_thread_count [E]
#include "MIDIIO/MIDIManager.hpp"
#include "backends/midi_loopback/LoopbackMIDIServer.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "central/HVConnectionTypeConfiguration.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace {

class DiscardingSink final : public havrel::LogSink {
public:
    void write(std::string_view) override {}
};

std::size_t threadCount() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        ++count;
    }
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace havrel;
    const int endpoints = argc > 1 ? std::atoi(argv[1]) : 32;
    setLogSink(std::make_shared<DiscardingSink>());
    char pattern[] = "/tmp/havrel-thread-count-XXXXXX";
    const std::filesystem::path folder = ::mkdtemp(pattern);
    DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder / "defaults.json"));
    const auto before = threadCount();

    havrel::installMIDILibraryServices();
    auto server = MIDIIO::LoopbackMIDIServer::create();
    MIDIIO::MIDIPlatform::setShared(server);
    for (int i = 0; i < endpoints / 2; ++i) {
        auto device = server->addDevice("Synth " + std::to_string(i));
        auto entity = server->addEntity(device, "Port " + std::to_string(i));
        server->addSource(entity, "Synth " + std::to_string(i) + " Out");
        server->addDestination(entity, "Synth " + std::to_string(i) + " In");
    }
    server->flush();

    auto configuration = HVConnectionTypeConfiguration::defaultConfiguration();
    configuration->productToSendOut = "Havrel Threads";
    auto midi = HVMIDIManager::initSharedWithConnectionConfiguration(configuration);
    server->flush();
    MainQueue::shared().poll();
    midi->refreshConnections();
    midi->scanNetworkSessions();
    server->flush();
    MainQueue::shared().poll();

    const auto running = threadCount();
    std::printf("endpoints on the server: %d\n", endpoints);
    std::printf("input connections: %zu, output connections: %zu\n", midi->midiManager()->managedInputConnections().size(),
                midi->midiManager()->managedOutputConnections().size());
    std::printf("threads before the MIDI service: %zu\n", before);
    std::printf("threads with the MIDI service running: %zu\n", running);

    midi->stopTimers();
    midi->midiManager()->removeAll();
    HVMIDIManager::setShared(nullptr);
    midi.reset();
    server->flush();
    DefaultsStore::setStandard(nullptr);
    std::filesystem::remove_all(folder);
    return 0;
}
