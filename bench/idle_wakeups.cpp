// How idle an idle havrel-central is: it starts the program (loopback MIDI, no Bluetooth, the
// usbmux daemon absent), and over a window reads the context switches of all its threads
// (voluntary + involuntary, /proc/PID/task/*/status) and its CPU time (/proc/PID/stat). Then a
// simulated client plays a glide and leaves, and the same is read over a second window.
//
// Run: build/default/bench/bench_idle_wakeups [--seconds N]     (the window; default 10)
#include "../tests/system/Process.hpp"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

// Context switches of every thread of the process so far.
long long contextSwitches(pid_t pid) {
    long long total = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("voluntary_ctxt_switches:") || line.starts_with("nonvoluntary_ctxt_switches:")) {
                total += std::stoll(line.substr(line.find(':') + 1));
            }
        }
    }
    return total;
}

// User + system CPU time of the process so far, in clock ticks (fields 14 and 15 of stat).
long long cpuTicks(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    long long utime = 0;
    long long stime = 0;
    for (int index = 3; fields >> field; ++index) {
        if (index == 14) {
            utime = std::stoll(field);
        } else if (index == 15) {
            stime = std::stoll(field);
            break;
        }
    }
    return utime + stime;
}

void measure(const char* label, pid_t pid, int seconds) {
    const long long switches = contextSwitches(pid);
    const long long ticks = cpuTicks(pid);
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const double wakeups = static_cast<double>(contextSwitches(pid) - switches) / seconds;
    const double share = 100.0 * static_cast<double>(cpuTicks(pid) - ticks) /
                         (static_cast<double>(::sysconf(_SC_CLK_TCK)) * seconds);
    std::printf("%-28s %8.2f wake-ups/s %8.3f %% of a core over %d s\n", label, wakeups, share, seconds);
}

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 2 && std::string(argv[1]) == "--seconds" ? std::max(1, std::atoi(argv[2])) : 10;
    char pattern[] = "/tmp/havrel-idle-XXXXXX";
    const std::filesystem::path folder = ::mkdtemp(pattern);
    const std::string absent = "UNIX:" + (folder / "usbmuxd").string();
    ::setenv("USBMUXD_SOCKET_ADDRESS", absent.c_str(), 1);
    const std::string port = "46991";
    using havrel::testing::Process;
    auto central = std::make_unique<Process>(
        HAVREL_CENTRAL_PROGRAM,
        std::vector<std::string>{"--midi-backend", "loopback", "--no-bluetooth", "--local-port", port, "--config-dir",
                                 (folder / "config").string()},
        folder, "central");
    if (!central->started()) {
        std::cerr << "cannot start havrel-central\n";
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));  // past its start-up
    measure("no client", central->pid(), seconds);

    Process client(HAVREL_CLIENT_SIM_PROGRAM, {"--port", port, "--do", "tap pad 0.5; wait 0.5"}, folder, "sim");
    if (client.wait(std::chrono::seconds(30)) != 0) {
        std::cerr << "the client did not play its glide\n";
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));
    measure("after a glide, client gone", central->pid(), seconds);

    central->signal(SIGTERM);
    central->wait(std::chrono::seconds(10));
    central.reset();
    std::filesystem::remove_all(folder);
    return 0;
}
