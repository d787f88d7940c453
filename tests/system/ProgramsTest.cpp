// havrel-central and havrel-client-sim as separate processes over 127.0.0.1: the exact MIDI a
// scripted performance makes, devices that go and come back, a client that sends garbage, and a
// shutdown in the middle of traffic.

#include "Process.hpp"
#include "platform/TemporaryFolder.hpp"
#include "support/BluezStandIn.hpp"
#include "support/UsbmuxStandIn.hpp"
#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include "transport/usb/TNFrameHeader.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>

namespace havrel::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// A port nothing listens on right now.
std::uint16_t freePort() {
    const int fd = boundSocket(0);
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

// Whether a listener could bind the port now (a connection still closing holds it).
bool portIsFree(std::uint16_t port) {
    const int fd = boundSocket(port);
    if (fd >= 0) ::close(fd);
    return fd >= 0;
}

bool waitUntil(const std::function<bool()>& condition, milliseconds timeout = seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(milliseconds(10));
    }
    return true;
}

class ProgramsTest : public ::testing::Test {
protected:
    void TearDown() override {
        ::unsetenv("USBMUXD_SOCKET_ADDRESS");
    }

    std::unique_ptr<Process> sim(const std::string& name, const std::string& script, std::uint16_t port = 0) {
        return std::make_unique<Process>(
            HAVREL_CLIENT_SIM_PROGRAM,
            std::vector<std::string>{"--port", std::to_string(port != 0 ? port : port_), "--do", script}, folder_,
            name);
    }
    // With usbmux, the daemon is the one USBMUXD_SOCKET_ADDRESS names.
    std::unique_ptr<Process> central(const std::vector<std::string>& more = {}, bool usbmux = false) {
        std::vector<std::string> arguments{"--midi-backend", "loopback", "--print-midi", "--local-port",
                                           std::to_string(port_), "--config-dir", (folder_ / "config").string()};
        if (!usbmux) {
            arguments.push_back("--no-usbmux");
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        return std::make_unique<Process>(HAVREL_CENTRAL_PROGRAM, arguments, folder_, "central");
    }

    TemporaryFolder temporary_;
    const std::filesystem::path folder_ = temporary_.path();
    std::uint16_t port_ = freePort();
};

TEST_F(ProgramsTest, AScriptedPerformanceLeavesAsExactlyTheseMessages) {
    auto client = sim("sim", "set fader 0.5; set fader 0.5; tap pad 1.5; set program 1; set pitch 1; "
                             "set xy 0.25,0.75; midi 90 3C 64; wait 0.5");
    auto host = central();
    ASSERT_EQ(client->wait(seconds(30)), 0) << client->err();
    host->signal(SIGTERM);
    ASSERT_EQ(host->wait(seconds(10)), 0) << host->err();

    const auto lines = host->outLines();
    ASSERT_GE(lines.size(), 7u) << host->out();
    // The fader at 0.5 once: the repeat sends nothing.
    EXPECT_EQ(lines.front(), "midi-out \"Havrel Output\" ump=40B00700 7E000000 midi1=B0 07 3F");
    // The pad glides up to its stop at 1.0 one velocity step at a time, then its release.
    const std::regex noteLine(R"(midi-out "Havrel Output" ump=40903C00 ([0-9A-F]{8}) midi1=90 3C ([0-9A-F]{2}))");
    std::vector<int> velocities;
    std::size_t index = 1;
    for (; index < lines.size(); ++index) {
        std::smatch match;
        if (!std::regex_match(lines[index], match, noteLine)) break;
        velocities.push_back(std::stoi(match[2].str(), nullptr, 16));
    }
    ASSERT_GE(velocities.size(), 3u);
    EXPECT_EQ(velocities.front(), 1);
    EXPECT_TRUE(std::is_sorted(velocities.begin(), velocities.end() - 1));
    EXPECT_EQ(velocities[velocities.size() - 2], 127);
    EXPECT_EQ(lines[index - 2], "midi-out \"Havrel Output\" ump=40903C00 FFFF0000 midi1=90 3C 7F");
    // The release is a note on with velocity 0, which has no MIDI 1.0 velocity 0 form.
    EXPECT_EQ(lines[index - 1], "midi-out \"Havrel Output\" ump=40903C00 00000000 midi1=90 3C 01");
    const std::vector<std::string> rest(lines.begin() + static_cast<std::ptrdiff_t>(index), lines.end());
    EXPECT_EQ(rest, (std::vector<std::string>{
                        "midi-out \"Havrel Output\" ump=40C00000 7F000000 midi1=C0 7F",
                        "midi-out \"Havrel Output\" ump=40E00000 FFFFFFFF midi1=E0 7F 7F",
                        "midi-out \"Havrel Output\" ump=40B00100 40000000 midi1=B0 01 20",
                        "midi-out \"Havrel Output\" ump=40B00200 BEFBEFBE midi1=B0 02 5F",
                        "midi-out \"Havrel Output\" ump=40903C00 C9240000 midi1=90 3C 64",
                    }));
    // stdout carries the MIDI print and nothing else.
    for (const auto& line : lines) {
        EXPECT_TRUE(line.starts_with("midi-out \"")) << line;
    }
    EXPECT_NE(client->out().find("central-info {\"apiVersion\":\"2.1\""), std::string::npos);
}

// usbmuxd as Debian runs it: absent when havrel-central starts, then started by each plug-in
// and ended by each unplug. Each daemon is listened to, and its device plays.
TEST_F(ProgramsTest, TheDeviceOfEachDaemonThatComesAndGoesPlays) {
    const auto socket = folder_ / "usbmuxd";
    ::setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + socket.string()).c_str(), 1);
    auto host = central({}, true);
    ASSERT_TRUE(waitUntil([&] { return host->err().find("TNUSBHub failed to initialize") != std::string::npos; }))
        << host->err();
    const std::vector<std::string> values{"1", "0", "1"};
    for (std::size_t round = 0; round < values.size(); ++round) {
        SCOPED_TRACE(round);
        const std::uint16_t tunnelPort = freePort();
        auto client = sim("sim" + std::to_string(round), "set fader " + values[round] + "; wait 0.2", tunnelPort);
        // The app is open when the cable goes in: the first connect of the Attached message finds it.
        ASSERT_TRUE(waitUntil([&] { return client->err().find("waiting for the Central") != std::string::npos; }))
            << client->err();
        {
            UsbmuxStandIn daemon(socket);
            daemon.attachDevice(static_cast<std::int64_t>(round + 1), tunnelPort);
            ASSERT_EQ(client->wait(seconds(30)), 0) << client->err();
            ASSERT_TRUE(waitUntil([&] { return host->outLines().size() == round + 1; })) << host->out();
        }
        ASSERT_TRUE(waitUntil([&] {
            return host->err().find(fmt::format("TNUSBHub forgetting device #{}:", round + 1)) != std::string::npos;
        })) << host->err();
    }
    host->signal(SIGTERM);
    ASSERT_EQ(host->wait(seconds(10)), 0);
    EXPECT_EQ(host->outLines(), (std::vector<std::string>{
                                    "midi-out \"Havrel Output\" ump=40B00700 FFFFFFFF midi1=B0 07 7F",
                                    "midi-out \"Havrel Output\" ump=40B00700 00000000 midi1=B0 07 00",
                                    "midi-out \"Havrel Output\" ump=40B00700 FFFFFFFF midi1=B0 07 7F",
                                }));
}

// A daemon address whose connect never completes (a listener with a full backlog drops the
// handshake) while a client plays on the local path: every message still leaves at once.
TEST_F(ProgramsTest, AnUnansweredDaemonAddressLeavesTheLocalPathPlaying) {
    const int full = boundSocket(0);
    ASSERT_GE(full, 0);
    ASSERT_EQ(::listen(full, 0), 0);
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    ::getsockname(full, reinterpret_cast<sockaddr*>(&address), &length);
    std::vector<int> queued;
    for (int i = 0; i < 3; ++i) {
        queued.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        ::connect(queued.back(), reinterpret_cast<sockaddr*>(&address), length);
    }
    ::setenv("USBMUXD_SOCKET_ADDRESS", fmt::format("127.0.0.1:{}", ntohs(address.sin_port)).c_str(), 1);
    auto client = sim("sim", "set fader 1; wait 3; set fader 0; wait 4; set fader 1; wait 0.2");
    auto host = central({}, true);
    ASSERT_EQ(client->wait(seconds(30)), 0) << client->err();
    ASSERT_TRUE(waitUntil([&] { return host->outLines().size() == 3; })) << host->out();
    // The connect gave up meanwhile, and is tried again.
    EXPECT_NE(host->err().find("TNUSBHub failed to initialize: Error Domain=NSPOSIXErrorDomain Code=110"),
              std::string::npos)
        << host->err();
    host->signal(SIGTERM);
    EXPECT_EQ(host->wait(seconds(10)), 0);
    for (const int fd : queued) {
        ::close(fd);
    }
    ::close(full);
}

// After a glide has played and its client has left, the one-millisecond timer no longer fires:
// its count at the glide's end is its count at exit.
TEST_F(ProgramsTest, TheMillisecondTimerStopsWithTheLastGlide) {
    auto client = sim("sim", "tap pad 0.5; wait 0.5");
    auto host = central({"--log-level", "diag"});
    ASSERT_EQ(client->wait(seconds(30)), 0) << client->err();
    ASSERT_TRUE(waitUntil([&] { return host->err().find("Disconnected from device") != std::string::npos; }));
    const std::regex stopped(R"(playback timer stopped after (\d+) fires)");
    auto lastStop = [&] {
        const std::string err = host->err();
        std::optional<long> fires;
        for (auto it = std::sregex_iterator(err.begin(), err.end(), stopped); it != std::sregex_iterator(); ++it) {
            fires = std::stol((*it)[1].str());
        }
        return fires;
    };
    ASSERT_TRUE(waitUntil([&] { return lastStop().has_value(); })) << host->err();
    // Long enough for a timer left running to fire hundreds of times.
    std::this_thread::sleep_for(seconds(1));
    host->signal(SIGTERM);
    ASSERT_EQ(host->wait(seconds(10)), 0);
    std::smatch totals;
    const std::string err = host->err();
    ASSERT_TRUE(std::regex_search(err, totals, std::regex(R"(playback timer started (\d+) times, fired (\d+) times)")))
        << err;
    EXPECT_GE(std::stol(totals[1].str()), 1);
    // One fire may have been on its way when the timer stopped.
    EXPECT_LE(std::stol(totals[2].str()), *lastStop() + 1);
}

TEST_F(ProgramsTest, AClientSendingGarbageIsClosedAndTheCentralGoesOn) {
    // A raw client on the port: the Central connects to it and gets garbage.
    const int listener = boundSocket(port_);
    ASSERT_GE(listener, 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    auto host = central();
    const int peer = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_GE(peer, 0);
    // A frame of an unknown type with a payload, then bytes that are no frame at all.
    TNFrameHeader header;
    header.type = 99;
    header.payloadSize = 4;
    const auto bytes = encodeFrameHeader(header);
    ASSERT_EQ(::send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL), 16);
    ASSERT_EQ(::send(peer, "junkjunkjunkjunkjunk", 20, MSG_NOSIGNAL), 20);
    // The Central closes the connection: reading ends (pings may come first).
    char buffer[256];
    while (::recv(peer, buffer, sizeof(buffer), 0) > 0) {
    }
    ::close(peer);
    ::close(listener);
    EXPECT_TRUE(waitUntil([&] {
        return host->err().find("Unexpected frame of type 99 — closing channel") != std::string::npos;
    })) << host->err();

    // And serves the next client as usual, once the closed connection has let go of the port.
    ASSERT_TRUE(waitUntil([&] { return portIsFree(port_); }));
    auto client = sim("sim", "set fader 1; wait 0.2");
    ASSERT_EQ(client->wait(seconds(30)), 0) << client->err();
    ASSERT_TRUE(waitUntil([&] { return host->outLines().size() == 1; })) << host->out();
    host->signal(SIGTERM);
    ASSERT_EQ(host->wait(seconds(10)), 0);
    EXPECT_EQ(host->outLines().front(), "midi-out \"Havrel Output\" ump=40B00700 FFFFFFFF midi1=B0 07 7F");
}

// The first line of the status page's answer to a plain request, or nothing.
std::string statusPageAnswer(std::uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    std::string answer;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
        const std::string request = "GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n";
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        char buffer[256];
        const ssize_t n = ::recv(fd, buffer, sizeof(buffer), 0);
        answer.assign(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
    }
    ::close(fd);
    return answer.substr(0, answer.find("\r\n"));
}

TEST_F(ProgramsTest, AnAlertOnATerminalStopsNeitherOtherClientsNorTheStatusPage) {
    const std::uint16_t statusPort = freePort();
    int terminal = -1;
    Process host(HAVREL_CENTRAL_PROGRAM,
                 {"--midi-backend", "loopback", "--print-midi", "--no-usbmux", "--no-bluetooth", "--local-port",
                  std::to_string(port_), "--config-dir", (folder_ / "config").string(), "--status-port",
                  std::to_string(statusPort), "--receive-folder", (folder_ / "received").string()},
                 folder_, "central", &terminal);
    ASSERT_GE(terminal, 0);
    // A client too new for this Central raises the alert, which nobody answers.
    Process future(HAVREL_CLIENT_SIM_PROGRAM, {"--port", std::to_string(port_), "--api-version", "9.0", "--do", "wait 0.1"},
                   folder_, "future");
    ASSERT_EQ(future.wait(seconds(30)), 2) << future.err();
    ASSERT_TRUE(waitUntil([&] { return host.err().find("Central needs to be updated") != std::string::npos; }))
        << host.err();
    // Meanwhile the next client sends a file, whose question stands unanswered while the client
    // plays and the page answers; the answer typed later is taken.
    ASSERT_TRUE(waitUntil([&] { return portIsFree(port_); }));
    auto client = sim("sim", "file song.mid theirs; set fader 1; wait 0.2");
    ASSERT_EQ(client->wait(seconds(30)), 0) << client->err();
    EXPECT_TRUE(waitUntil([&] { return host.outLines().size() == 1; })) << host.out();
    EXPECT_NE(host.err().find("Save song.mid as ["), std::string::npos) << host.err();
    EXPECT_EQ(statusPageAnswer(statusPort), "HTTP/1.1 200 OK");
    const std::string answer = (folder_ / "chosen.mid").string() + "\n";
    ASSERT_EQ(::write(terminal, answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
    EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(folder_ / "chosen.mid"); })) << host.err();
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(seconds(10)), 0) << host.err();
    ::close(terminal);
}

TEST_F(ProgramsTest, SIGTERMDuringTrafficExitsCleanlyAndLeavesNoProcess) {
    auto client = sim("sim", "sweep fader 0 1 10");
    auto host = central();
    ASSERT_TRUE(waitUntil([&] { return host->outLines().size() >= 20; })) << host->err();
    host->signal(SIGTERM);
    EXPECT_EQ(host->wait(seconds(10)), 0) << host->err();
    EXPECT_NE(host->err().find("havrel-central: stopped"), std::string::npos);
    // The client sees the Central go away and ends with its own status for that.
    EXPECT_EQ(client->wait(seconds(10)), 3) << client->err();
    EXPECT_NE(::kill(host->pid(), 0), 0);
}

TEST_F(ProgramsTest, AMIDIPrintNobodyReadsCostsDroppedLinesAndTheCentralGoesOn) {
    // stdout is a pipe whose reader never reads: it fills after a thousand lines or so.
    const auto pipe = folder_ / "central.out";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    auto host = central();
    std::string script;
    for (int i = 0; i < 10; ++i) {
        script += "sweep pitch 0 1 0.3; sweep pitch 1 0 0.3; ";
    }
    Process client(HAVREL_CLIENT_SIM_PROGRAM,
                   {"--port", std::to_string(port_), "--rate", "1000", "--do", script + "wait 0.2"}, folder_, "sim");
    ASSERT_EQ(client.wait(seconds(60)), 0) << client.err();
    EXPECT_TRUE(waitUntil([&] {
        return host->err().find("--print-midi: the output is not being read") != std::string::npos;
    })) << host->err();
    host->signal(SIGTERM);
    EXPECT_EQ(host->wait(seconds(10)), 0) << host->err();
    EXPECT_NE(host->err().find("havrel-central: --print-midi dropped "), std::string::npos) << host->err();
    ::close(reader);
}

TEST_F(ProgramsTest, AScriptPlayedOverTheSimulatedRadioLeavesTheCentralAsMIDI) {
    Process client(HAVREL_CLIENT_SIM_PROGRAM,
                   {"--bluetooth", "--config-dir", (folder_ / "config").string(), "--do",
                    "set fader 0.5; set program 1; midi 90 3C 64; wait 0.3"},
                   folder_, "bluetooth");
    ASSERT_EQ(client.wait(seconds(60)), 0) << client.err();
    std::vector<std::string> midi;
    bool centralInfo = false;
    for (const auto& line : client.outLines()) {
        if (line.starts_with("midi-out ")) {
            midi.push_back(line);
        } else {
            centralInfo |= line.starts_with("central-info {\"apiVersion\":\"2.1\"");
        }
    }
    EXPECT_TRUE(centralInfo) << client.out();
    // Range commands take a turn of the Central's main queue that pure MIDI does not: compare
    // without order.
    std::sort(midi.begin(), midi.end());
    EXPECT_EQ(midi, (std::vector<std::string>{
                        "midi-out \"Havrel Output\" ump=40903C00 C9240000 midi1=90 3C 64",
                        "midi-out \"Havrel Output\" ump=40B00700 7E000000 midi1=B0 07 3F",
                        "midi-out \"Havrel Output\" ump=40C00000 7F000000 midi1=C0 7F",
                    }))
        << client.err();
    // The client left by asking the Central to disconnect, and the Central let the link go.
    EXPECT_NE(client.err().find("did disconnect peripheral"), std::string::npos) << client.err();
    EXPECT_NE(client.err().find("havrel-client-sim: script done\n"), std::string::npos) << client.err();
    // The connection marker went to the folder given, not the user's own.
    std::ifstream defaults(folder_ / "config" / "defaults.json");
    const std::string stored((std::istreambuf_iterator<char>(defaults)), std::istreambuf_iterator<char>());
    EXPECT_NE(stored.find("com.havrelapps.handoff.lastConnectedAt"), std::string::npos);
}

}  // namespace
}  // namespace havrel::testing

namespace havrel::testing {
namespace {

// havrel-central where the system bus has BlueZ with an adapter (a stand-in on a private bus,
// named by DBUS_SYSTEM_BUS_ADDRESS) scans for the Havrel service, connects to the device it
// finds and subscribes; where there is no system bus it says so in one line and runs on.
TEST_F(ProgramsTest, BluetoothThroughBlueZWhereTheSystemBusHasItAndOneLineWhereNot) {
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + (folder_ / "no-bus").string()).c_str(), 1);
    {
        auto host = central();
        ASSERT_TRUE(waitUntil([&] { return host->err().find("havrel-central 0.1.0 running") != std::string::npos; }))
            << host->err();
        const std::string err = host->err();
        EXPECT_NE(err.find("havrel-central: running without Bluetooth ("), std::string::npos) << err;
        EXPECT_EQ(err.find("Bluetooth through BlueZ"), std::string::npos);
        host->signal(SIGTERM);
        ASSERT_EQ(host->wait(seconds(10)), 0) << host->err();
    }

    std::string reason;
    auto bus = PrivateBus::start(reason);
    if (!bus) {
        ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
        GTEST_SKIP() << "no private D-Bus: " << reason;
    }
    BluezStandIn bluez(bus->address());
    bluez.addAdapter("hci0", true);
    const auto device = bluez.addDevice({});
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus->address().c_str(), 1);
    auto host = central();
    ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    EXPECT_TRUE(waitUntil([&] { return bluez.isSubscribed(device, kHavrelOutCharacteristicUUID); })) << host->err();
    EXPECT_NE(host->err().find("havrel-central: Bluetooth through BlueZ"), std::string::npos) << host->err();
    EXPECT_EQ(bluez.callCount("Connect"), 1u);
    EXPECT_EQ(bluez.filterUUIDs("hci0"), std::vector<std::string>{"293e27ba-4906-48da-9d70-696e1c95bebc"});
    host->signal(SIGTERM);
    ASSERT_EQ(host->wait(seconds(10)), 0) << host->err();
}

}  // namespace
}  // namespace havrel::testing
