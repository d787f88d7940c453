// Load on a running havrel-central: N simulated client devices, each attached through a usbmux
// stand-in (the local path carries one client only), each sending range frames at a fixed rate
// to its own fader (controller 7 on its own channel). havrel-central runs as a child process
// with the MIDI print on; every midi-out line is matched to the client's send that caused it.
// With --page the status page is open during the run: a WebSocket reader takes and parses every
// state, as a browser does.
//
//   bench_central_load [--clients N] [--rate POSITIONS_PER_SECOND] [--seconds S] [--page]
//                      [--status-port P] [--log-level L] [--status-control] [--hardware-midi]
//
// The havrel-central options are passed on; --status-port 0 runs it without the page.
// Reports, per run: messages sent and received (lost = sent - received), messages a second,
// latency from the client's write to the midi-out line (p50, p99, max, in microseconds), the
// resident set of havrel-central after start (before any client) and at the end of the traffic,
// and with --page what the page received.

#include "BenchSupport.hpp"
#include "FrameWriting.hpp"
#include "StatusPageReader.hpp"
#include "../tests/central/RangeCommandBuilders.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/Log.hpp"
#include "platform/PropertyList.hpp"
#include "support/UsbmuxStandIn.hpp"
#include "transport/usb/TNFrameHeader.hpp"
#include "transport/usb/TNFrameType.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using namespace havrel;
using Clock = std::chrono::steady_clock;
using bench::frame;
using bench::percentile;
using bench::writeAll;

struct Options {
    int clients = 1;
    double rate = 2400;
    double seconds = 10;
    bool page = false;
    // Passed on to havrel-central. The status port defaults to a free one (the program's own
    // default may be taken on a desktop that runs it).
    std::optional<std::uint16_t> statusPort;
    std::string logLevel = "quiet";
    bool statusControl = false;
    bool hardwareMIDI = false;
};

int listenOnLoopback(std::uint16_t& port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(fd, 4) != 0) return -1;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    return fd;
}

// One simulated device: its listening socket (the far end of its usbmux tunnel), the Central's
// connection, and the times of its sends not yet seen on the Central's output.
struct Client {
    int index = 0;
    int listenFd = -1;
    std::uint16_t port = 0;
    int fd = -1;
    std::mutex mutex;
    std::deque<Clock::time_point> pending;
    std::uint64_t sent = 0;
    std::uint64_t received = 0;
    std::vector<double> latencies;

    // Channel index+1 stored, so the wire carries channel `index`.
    Bytes document() const {
        auto configuration = HVEncodedConfiguration::create();
        configuration->dataWrappers = {testing::wrapperWith(
            1, HVMidiRangeContainer::containerWithDefaultValuesAndChannel(static_cast<std::uint8_t>(index + 1), 7, false))};
        const std::string json = configuration->dictionary().dump();
        return Bytes(json.begin(), json.end());
    }
    Bytes deviceInfo() const {
        Dictionary client = {{"type", "RNUSBClient"},
                             {"connectionName", "Load " + std::to_string(index)},
                             {"uniqueIdentifier", "load-" + std::to_string(index)},
                             {"apiVersion", "2.1"}};
        return *propertyListData(Dictionary{{"usbClient", client}}, PropertyListFormat::binary).data;
    }
};

std::size_t residentKilobytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::strtoul(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"bench_central_load: simulated client devices at a fixed rate against havrel-central"};
    app.add_option("--clients", options.clients, "client devices, one channel each")
        ->check(CLI::Range(1, 16))
        ->capture_default_str();
    app.add_option("--rate", options.rate, "positions a second, per client")
        ->check(CLI::Range(1.0, 1e6))
        ->capture_default_str();
    app.add_option("--seconds", options.seconds, "length of the traffic")->check(CLI::Range(0.1, 1e5))->capture_default_str();
    app.add_flag("--page", options.page, "hold the status page open and read every state during the run");
    app.add_option("--status-port", options.statusPort, "havrel-central: port of the status page; 0 turns it off "
                                                        "(default: a free port)");
    app.add_option("--log-level", options.logLevel, "havrel-central: quiet, info or diag")
        ->check(CLI::IsMember({"quiet", "info", "diag"}))
        ->capture_default_str();
    app.add_flag("--status-control", options.statusControl, "havrel-central: let the page make changes");
    app.add_flag("--hardware-midi", options.hardwareMIDI, "havrel-central: send to hardware destinations as well");
    CLI11_PARSE(app, argc, argv);
    if (options.page && options.statusPort == std::uint16_t{0}) {
        std::cerr << "bench_central_load: --page needs the status page (--status-port other than 0)\n";
        return 2;
    }
    setLogSink(std::make_shared<CaptureLogSink>());

    char pattern[] = "/tmp/havrel-load-XXXXXX";
    const std::filesystem::path folder = ::mkdtemp(pattern);
    testing::UsbmuxStandIn standIn(folder / "usbmuxd");
    ::setenv("USBMUXD_SOCKET_ADDRESS", standIn.socketAddress().c_str(), 1);

    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < options.clients; ++i) {
        auto client = std::make_unique<Client>();
        client->index = i;
        client->listenFd = listenOnLoopback(client->port);
        clients.push_back(std::move(client));
    }

    // havrel-central, its stdout into a pipe.
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) return 1;
    std::uint16_t unusedPort = 0;
    const int unused = listenOnLoopback(unusedPort);
    if (!options.statusPort) {
        std::uint16_t port = 0;
        ::close(listenOnLoopback(port));
        options.statusPort = port;
    }
    ::close(unused);
    std::vector<std::string> words = {HAVREL_CENTRAL_PROGRAM, "--midi-backend", "loopback", "--print-midi",
                                      "--local-port", std::to_string(unusedPort), "--log-level", options.logLevel,
                                      "--status-port", std::to_string(*options.statusPort),
                                      "--config-dir", (folder / "config").string()};
    if (options.statusControl) words.push_back("--status-control");
    if (options.hardwareMIDI) words.push_back("--hardware-midi");
    std::vector<char*> argvCentral;
    for (auto& word : words) argvCentral.push_back(word.data());
    argvCentral.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    pid_t central = -1;
    if (posix_spawn(&central, HAVREL_CENTRAL_PROGRAM, &actions, nullptr, argvCentral.data(), environ) != 0) {
        std::cerr << "cannot start havrel-central\n";
        return 1;
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);

    standIn.waitForListenerCount(1, std::chrono::seconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const std::size_t idleRSS = residentKilobytes(central);

    // The output reader: one midi-out line per message, "... midi1=B<channel> 07 <value>".
    std::atomic<bool> readerDone{false};
    std::thread reader([&] {
        FILE* in = ::fdopen(pipeFds[0], "r");
        char line[512];
        while (std::fgets(line, sizeof(line), in)) {
            const auto now = Clock::now();
            const char* bytes = std::strstr(line, "midi1=B");
            if (!bytes) continue;
            const int channel = static_cast<int>(std::strtol(std::string(1, bytes[7]).c_str(), nullptr, 16));
            if (channel >= static_cast<int>(clients.size())) continue;
            auto& client = *clients[static_cast<std::size_t>(channel)];
            std::lock_guard lock(client.mutex);
            if (client.pending.empty()) continue;
            client.latencies.push_back(std::chrono::duration<double, std::micro>(now - client.pending.front()).count());
            client.pending.pop_front();
            ++client.received;
        }
        readerDone = true;
    });

    // Attach every device and handshake.
    for (auto& client : clients) {
        standIn.attachDevice(100 + client->index, client->port);
    }
    for (auto& client : clients) {
        client->fd = ::accept4(client->listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        int one = 1;
        ::setsockopt(client->fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
        writeAll(client->fd, frame(TNFrameTypeDeviceInfo, client->deviceInfo()));
        writeAll(client->fd, frame(TNFrameTypeSyncData, client->document()));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    std::unique_ptr<bench::StatusPageReader> page;
    if (options.page) {
        page = std::make_unique<bench::StatusPageReader>(*options.statusPort);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    const std::size_t startRSS = residentKilobytes(central);

    // Traffic: each client alternates between two positions that map to different values.
    const Bytes positions[2] = {
        frame(TNFrameTypeRangeData, testing::rangeCommand({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 100.0 / 511.0)})),
        frame(TNFrameTypeRangeData, testing::rangeCommand({HVEncodedRangeValue::rangeValueWithDataWraperID(1, 0, 400.0 / 511.0)}))};
    const auto interval = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1.0 / options.rate));
    const auto start = Clock::now();
    const auto end = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.seconds));
    std::vector<std::thread> senders;
    for (auto& client : clients) {
        senders.emplace_back([&, c = client.get()] {
            auto next = start;
            std::uint64_t n = 0;
            while (next < end) {
                std::this_thread::sleep_until(next);
                {
                    std::lock_guard lock(c->mutex);
                    c->pending.push_back(Clock::now());
                    ++c->sent;
                }
                if (!writeAll(c->fd, positions[n++ % 2])) break;
                // The Central's pings and answers are read and dropped.
                char drain[4096];
                while (::recv(c->fd, drain, sizeof(drain), MSG_DONTWAIT) > 0) {
                }
                next += interval;
            }
        });
    }
    for (auto& sender : senders) sender.join();
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const std::size_t endRSS = residentKilobytes(central);
    const auto pageCounts = page ? page->counts() : bench::StatusPageReader::Counts{};
    page.reset();

    ::kill(central, SIGTERM);
    int status = 0;
    ::waitpid(central, &status, 0);
    reader.join();

    std::uint64_t sent = 0, received = 0;
    std::vector<double> all;
    for (auto& client : clients) {
        sent += client->sent;
        received += client->received;
        all.insert(all.end(), client->latencies.begin(), client->latencies.end());
        ::close(client->fd);
        ::close(client->listenFd);
    }
    std::sort(all.begin(), all.end());
    std::printf("clients=%d rate=%.0f/s/client seconds=%.1f\n", options.clients, options.rate, options.seconds);
    std::printf("sent=%llu received=%llu lost=%llu messages/s=%.0f\n", static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(received), static_cast<unsigned long long>(sent - received),
                static_cast<double>(received) / elapsed);
    std::printf("latency_us p50=%.1f p99=%.1f max=%.1f\n", percentile(all, 0.5), percentile(all, 0.99),
                all.empty() ? 0.0 : all.back());
    std::printf("havrel-central RSS idle=%zu kB start=%zu kB end=%zu kB (end - start %+lld kB), exit status %d\n",
                idleRSS, startRSS, endRSS, static_cast<long long>(endRSS) - static_cast<long long>(startRSS),
                WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    if (options.page) {
        std::printf("page: %s, states=%llu bytes=%llu monitor entries=%llu, monitor dropped=%llu log dropped=%llu%s%s\n",
                    pageCounts.opened ? "open" : "never opened", static_cast<unsigned long long>(pageCounts.states),
                    static_cast<unsigned long long>(pageCounts.bytes),
                    static_cast<unsigned long long>(pageCounts.monitorEntries),
                    static_cast<unsigned long long>(pageCounts.monitorDropped),
                    static_cast<unsigned long long>(pageCounts.logDropped), pageCounts.error.empty() ? "" : ", ",
                    pageCounts.error.c_str());
    }
    std::filesystem::remove_all(folder);
    return sent == received ? 0 : 1;
}
