// Time from the usbmux daemon's socket appearing to the hub's Listen, over daemon restarts: a
// following hub runs on this thread's main queue; a stand-in daemon is started (its socket
// appears), waited on until the hub has listened, then ended, and the next one started after
// the hub has noticed. Prints p50, p99 and the largest, in milliseconds.
//
// Run: build/default/bench/bench_usbmux_listen_latency [restarts]     (default 50)
#include "BenchSupport.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "support/UsbmuxStandIn.hpp"
#include "transport/usb/TNUSBHub.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

bool runUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        havrel::MainQueue::shared().runFor(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace havrel;
    const int restarts = argc > 1 ? std::max(1, std::atoi(argv[1])) : 50;
    setLogSink(std::make_shared<bench::DiscardingSink>());
    char pattern[] = "/tmp/havrel-listen-latency-XXXXXX";
    const std::filesystem::path folder = ::mkdtemp(pattern);
    const auto socket = folder / "usbmuxd";
    ::setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + socket.string()).c_str(), 1);

    auto hub = TNUSBHub::create();
    hub->followDaemon(MainQueue::shared());
    std::mt19937 random(7);
    std::vector<double> latencies;
    for (int round = 0; round < restarts; ++round) {
        // The daemon comes back after a while of its own, as a plug-in does.
        const auto pause = std::chrono::milliseconds(std::uniform_int_distribution<int>(0, 1500)(random));
        runUntil([&, until = std::chrono::steady_clock::now() + pause] { return std::chrono::steady_clock::now() >= until; });
        const auto start = std::chrono::steady_clock::now();
        std::optional<testing::UsbmuxStandIn> daemon(std::in_place, socket);
        if (!runUntil([&] { return daemon->listenerCount() == 1; })) {
            std::fprintf(stderr, "round %d: no Listen within 10 s\n", round);
            return 1;
        }
        latencies.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
        runUntil([&] { return hub->isListening(); });
        // The daemon exits; the hub notices before the next one starts.
        daemon.reset();
        runUntil([&] { return !hub->isListening(); });
    }
    std::sort(latencies.begin(), latencies.end());
    std::printf("socket appearing to Listen over %d daemon restarts: p50 %.2f ms, p99 %.2f ms, max %.2f ms\n",
                restarts, bench::percentile(latencies, 0.5), bench::percentile(latencies, 0.99), latencies.back());
    hub.reset();
    std::filesystem::remove_all(folder);
    return 0;
}
