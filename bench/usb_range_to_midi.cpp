// The way in, end to end: a client device's frame 108 written on a local-path socket, read by
// the USB transport's frame channel, dispatched through the registry's client record, sent by
// the application's MIDI manager on its virtual output, and received by a second application
// on the loopback MIDI server.
//
// BM_Frame108ToReceiver writes one range frame at a time and times it from the write on the
// device's socket to the receiver's callback (p50, p99, max in microseconds), 100,000 frames.
// The main queue runs on the benchmark's thread, as the host's main thread would run it. Log
// lines are formatted and discarded.
#include "BenchSupport.hpp"
#include "FrameWriting.hpp"
#include "../tests/central/RangeCommandBuilders.hpp"
#include "MIDIIO/MIDIManager.hpp"
#include "backends/midi_loopback/LoopbackMIDIServer.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "central/HVCentralTransmissionManager.hpp"
#include "central/RNClient.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "core/HavrelCoreBaseMac.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/PropertyList.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"
#include "transport/usb/TNFrameHeader.hpp"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace {

using namespace havrel;
using Clock = std::chrono::steady_clock;
using bench::frame;

void writeAll(int fd, const Bytes& bytes) {
    if (!bench::writeAll(fd, bytes)) {
        throw std::runtime_error("write to the Central failed");
    }
}

// The Central, its MIDI output and a listening application; the client device is a plain
// socket the Central connects to on the local path.
struct Path {
    std::shared_ptr<LogSink> previousSink = setLogSink(std::make_shared<bench::DiscardingSink>());
    std::filesystem::path folder;
    std::shared_ptr<MIDIIO::LoopbackMIDIServer> server;
    std::shared_ptr<MIDIIO::MIDIManager> listener;
    int listenFd = -1;
    int deviceFd = -1;
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

        const std::uint16_t port = listenOnLoopback();
        HVCentralUSBManager::Options options;
        options.localPort = port;
        options.useUSBHub = false;
        HVCentralUSBManager::instantiateWithProductToSendOut("Havrel Bench", "1.0", options);
        HavrelCoreBaseMac::instantiateWithProductToSendOut("Havrel Bench", "1.0", "2.1");

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

        acceptTheCentral();
        handshake();
    }
    ~Path() {
        if (deviceFd >= 0) ::close(deviceFd);
        if (listenFd >= 0) ::close(listenFd);
        HVCentralUSBManager::resetShared();
        MainQueue::shared().poll();
        HVTransmissionManager::setShared(nullptr);
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
        HVMIDIManager::setShared(nullptr);
        listener.reset();
        DefaultsStore::setStandard(nullptr);
        std::filesystem::remove_all(folder);
        setLogSink(previousSink);
    }

    std::uint16_t listenOnLoopback() {
        listenFd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (::bind(listenFd, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listenFd, 4) != 0 ||
            ::getsockname(listenFd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("cannot listen on 127.0.0.1");
        }
        return ntohs(address.sin_port);
    }

    void acceptTheCentral() {
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while ((deviceFd = ::accept(listenFd, nullptr, nullptr)) < 0) {
            if (Clock::now() > deadline) throw std::runtime_error("the Central did not connect");
            MainQueue::shared().poll();
        }
        int one = 1;
        ::setsockopt(deviceFd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    }

    // Frame 100, then a document with a CC fader (wrapper 1, channel 1, controller 7).
    void handshake() {
        Dictionary client = {{"type", "RNUSBClient"}, {"connectionName", "Bench Pad"}, {"apiVersion", "2.1"}};
        writeAll(deviceFd, frame(100, *propertyListData(Dictionary{{"usbClient", client}}, PropertyListFormat::binary).data));
        auto document = HVEncodedConfiguration::create();
        document->dataWrappers = {
            testing::wrapperWith(1, HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 7, false))};
        const std::string json = document->dictionary().dump();
        writeAll(deviceFd, frame(104, Bytes(json.begin(), json.end())));
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        for (;;) {
            MainQueue::shared().poll();
            auto registry = HVCentralConnectionManager::sharedInstance();
            auto record = registry ? registry->usbClientWithDeviceID(std::nullopt) : nullptr;
            if (record && record->configuration) break;
            if (Clock::now() > deadline) throw std::runtime_error("the Central did not take the configuration");
        }
    }

    void waitFor(std::uint64_t count) {
        while (received.load() < count) {
            MainQueue::shared().poll();
        }
    }
};

void BM_Frame108ToReceiver(benchmark::State& state) {
    Path path;
    // Positions that map to different 7-bit values, so no command repeats the last.
    const Bytes frames[2] = {
        frame(108, testing::rangeCommand({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 100.0 / 511.0)})),
        frame(108, testing::rangeCommand({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 400.0 / 511.0)}))};
    std::vector<double> latencies;
    latencies.reserve(static_cast<std::size_t>(state.max_iterations));
    std::uint64_t sent = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        writeAll(path.deviceFd, frames[sent % 2]);
        ++sent;
        path.waitFor(sent);
        const auto arrival = Clock::time_point(Clock::duration(path.lastArrival.load()));
        latencies.push_back(std::chrono::duration<double, std::micro>(arrival - start).count());
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["p50_us"] = bench::percentile(latencies, 0.50);
    state.counters["p99_us"] = bench::percentile(latencies, 0.99);
    state.counters["max_us"] = latencies.empty() ? 0.0 : latencies.back();
    state.counters["frames/s"] = benchmark::Counter(static_cast<double>(sent), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(BM_Frame108ToReceiver)->UseRealTime()->Iterations(100000);
BENCHMARK_MAIN();
