// havrel-central against an hour of hostile clients on its local path, one connection after
// another: files before any introduction and after one, the introduction repeated thousands of
// times, a client the registry refuses sending files and MIDI, garbage, and a peer that stops
// reading and then resets the connection. The program must keep serving and its memory must not grow with the hours.

#include "platform/TemporaryFolder.hpp"
#include "system/Process.hpp"
#include "transport/usb/FrameTestSupport.hpp"

#include "central/HVFileRepresentation.hpp"
#include "model/HVDataHelpers.hpp"
#include "platform/PropertyList.hpp"
#include "transport/usb/TNFrameType.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdlib>
#include <iostream>

namespace havrel::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

Bytes introduction(const std::string& apiVersion) {
    Dictionary client = {{"type", "RNUSBClient"},      {"connectionName", "Soak"},
                         {"productID", "havrel-soak"}, {"uniqueIdentifier", "havrel-soak:1"},
                         {"apiVersion", apiVersion},   {"version", "1.0"}};
    return rawFrame(TNFrameTypeDeviceInfo, 0,
                    *propertyListData(Dictionary{{"usbClient", client}}, PropertyListFormat::binary).data);
}

Bytes file(const std::string& name) {
    auto representation = HVFileRepresentation::create();
    representation->filename = name;
    const std::string text = "soak";
    representation->data = *gzipDeflate(Bytes(text.begin(), text.end()));
    const std::string json = representation->dictionary().dump();
    return rawFrame(TNFrameTypeConfigurationDataFromCentral, 0, Bytes(json.begin(), json.end()));
}

// Writes everything unless the peer is gone; reads and drops what the Central sends meanwhile so
// that only the stalled peer stalls.
bool sendAll(int fd, const Bytes& bytes) {
    std::size_t sent = 0;
    char sink[4096];
    while (sent < bytes.size()) {
        while (::recv(fd, sink, sizeof(sink), MSG_DONTWAIT) > 0) {
        }
        const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    return true;
}

// Reads until the Central closes the connection or the time is up; true when it closed.
bool drainUntilClosed(int fd, milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    char sink[4096];
    while (Clock::now() < deadline) {
        pollfd poller{fd, POLLIN, 0};
        if (::poll(&poller, 1, 100) > 0 && ::recv(fd, sink, sizeof(sink), 0) <= 0) {
            return true;
        }
    }
    return false;
}

// Ends our side and lets the Central read to the end before the socket closes: closing with
// unread pings in our buffer would reset the connection and lose the frames still in flight.
void endGently(int fd) {
    ::shutdown(fd, SHUT_WR);
    drainUntilClosed(fd, std::chrono::seconds(5));
}

std::size_t residentKiB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::strtoul(line.c_str() + 6, nullptr, 10);
        }
    }
    return 0;
}

TEST(HostileClientsSoak, TheCentralKeepsServingAndItsMemoryStaysFlat) {
    const char* configured = std::getenv("HAVREL_SOAK_SECONDS");
    const auto length = seconds(configured ? std::atoi(configured) : 3600);
    TemporaryFolder temporary;
    const std::filesystem::path folder = temporary.path();

    const int listener = boundSocket(0);
    ASSERT_GE(listener, 0);
    ASSERT_EQ(::listen(listener, 4), 0);
    sockaddr_in address{};
    socklen_t size = sizeof(address);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    const auto port = std::to_string(ntohs(address.sin_port));

    // HAVREL_CENTRAL names another build of the program, one a rebuild cannot replace mid-run.
    const char* program = std::getenv("HAVREL_CENTRAL");
    Process central(program ? program : HAVREL_CENTRAL_PROGRAM,
                    {"--midi-backend", "loopback", "--no-usbmux", "--no-bluetooth", "--local-port", port,
                     "--status-port", "0", "--config-dir", (folder / "config").string(), "--receive-folder",
                     (folder / "received").string()},
                    folder, "central");
    ASSERT_TRUE(central.started());

    std::size_t startKiB = 0;
    std::size_t connections = 0;
    const auto end = Clock::now() + length;
    for (int round = 0; Clock::now() < end || round < 5; ++round) {
        const int peer = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        ASSERT_GE(peer, 0);
        ++connections;
        switch (round % 4) {
            case 0: {  // a file before any introduction, the introduction 3,000 times, a file
                Bytes burst = file("before.txt");
                const auto intro = introduction("2.1");
                for (int i = 0; i < 3000; ++i) burst.insert(burst.end(), intro.begin(), intro.end());
                const auto after = file("after.txt");
                burst.insert(burst.end(), after.begin(), after.end());
                sendAll(peer, burst);
                endGently(peer);
                break;
            }
            case 1: {  // refused: a newer API version, then files and pure MIDI
                Bytes burst = introduction("99.0");
                for (int i = 0; i < 100; ++i) {
                    const auto refusedFile = file("refused.txt");
                    burst.insert(burst.end(), refusedFile.begin(), refusedFile.end());
                    const auto midi = rawFrame(TNFrameTypePureMIDIData, 0, Bytes{0x90, 0x3C, 0x40});
                    burst.insert(burst.end(), midi.begin(), midi.end());
                }
                sendAll(peer, burst);
                endGently(peer);
                break;
            }
            case 2: {  // garbage: the Central closes the connection
                sendAll(peer, rawFrame(99, 0, Bytes(64, 0xAB)));
                EXPECT_TRUE(drainUntilClosed(peer, seconds(10))) << "garbage in round " << round;
                break;
            }
            case 3: {  // introduces itself, then reads nothing for a while and leaves abruptly
                sendAll(peer, introduction("2.1"));
                std::this_thread::sleep_for(seconds(8));
                break;
            }
        }
        ::close(peer);
        if (round == 3) {
            startKiB = residentKiB(central.pid());  // after every kind has been met once
        }
        ASSERT_TRUE(central.running()) << central.err();
    }
    const std::size_t endKiB = residentKiB(central.pid());
    std::cout << "soak: " << connections << " connections over " << length.count() << " s; RSS " << startKiB
              << " KiB after the first round of each kind, " << endKiB << " KiB at the end\n";

    central.signal(SIGTERM);
    EXPECT_EQ(central.wait(seconds(10)), 0) << central.err();
    // Once it has ended: nothing of the refused or unintroduced clients reached the disk, the
    // introduced one's did, and no temporary file is left.
    std::error_code noFolder;
    for (const auto& entry : std::filesystem::directory_iterator(folder / "received", noFolder)) {
        EXPECT_EQ(entry.path().filename().string().rfind("after", 0), 0u) << entry.path();
    }
    EXPECT_TRUE(std::filesystem::exists(folder / "received" / "after.txt")) << central.err();
    EXPECT_LT(endKiB, startKiB + 8 * 1024) << "RSS grew from " << startKiB << " to " << endKiB << " KiB";
    ::close(listener);
}

}  // namespace
}  // namespace havrel::testing
