#include "midi_service/HVLocalNetworkAddresses.hpp"
#include "midi_service/LocalNetworkPermissionService.hpp"

#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>

namespace havrel {
namespace {

using Entry = NetworkInterfaceEntry;
using Family = NetworkInterfaceEntry::Family;

TEST(LocalNetworkAddresses, TakesIPv4AddressesOfEthernetTypeInterfacesOnly) {
    ScopedLogCapture log;
    const std::vector<Entry> machine{
        {"lo", Family::link, false, std::nullopt},
        {"lo", Family::ipv4, false, "127.0.0.1"},
        {"eth0", Family::link, true, std::nullopt},
        {"wlan0", Family::link, true, std::nullopt},
        {"eth0", Family::ipv4, false, "192.168.1.5"},
        {"eth0", Family::other, false, std::nullopt},
        {"tun0", Family::ipv4, false, "10.8.0.2"},
        {"wlan0", Family::ipv4, false, std::nullopt},
        {"wlan0", Family::ipv4, false, "192.168.1.6"},
    };
    EXPECT_EQ(HVLocalNetworkAddresses(machine), (std::vector<std::string>{"192.168.1.5", "192.168.1.6"}));
    // Without an Ethernet-type interface nothing is taken, not even the loopback address.
    EXPECT_TRUE(HVLocalNetworkAddresses({machine[0], machine[1], machine[6]}).empty());
}

TEST(LocalNetworkAddresses, TheSystemListShowsTheLoopbackAddress) {
    auto entries = readNetworkInterfaces();
    ASSERT_TRUE(entries.has_value());
    const Entry loopback{"lo", Family::ipv4, false, "127.0.0.1"};
    EXPECT_NE(std::find(entries->begin(), entries->end(), loopback), entries->end());
    for (const auto& entry : *entries) {
        if (entry.name == "lo") {
            EXPECT_FALSE(entry.ethernetType);
        }
    }
}

// A UDP socket on 127.0.0.1 at a free port, read without blocking.
struct Listener {
    asio::io_context context;
    asio::ip::udp::socket socket{context, asio::ip::udp::endpoint(asio::ip::make_address("127.0.0.1"), 0)};

    Listener() { socket.non_blocking(true); }
    std::uint16_t port() const { return socket.local_endpoint().port(); }
    // The next datagram, or nothing when none is waiting.
    std::optional<std::string> receive() {
        std::array<char, 256> buffer{};
        std::error_code error;
        const auto size = socket.receive(asio::buffer(buffer), 0, error);
        if (error) {
            return std::nullopt;
        }
        return std::string(buffer.data(), size);
    }
};

class LocalNetworkPermissionServiceTest : public ::testing::Test {
protected:
    ManualClockScope clock;
    Listener listener;
};

TEST_F(LocalNetworkPermissionServiceTest, SendsOneGreetingToEachAddressOnTheMainQueueWhileItLives) {
    {
        LocalNetworkPermissionService service(listener.port());
        service.interfaces = {"not an address", "127.0.0.1"};
        service.trigger();
        EXPECT_EQ(listener.receive(), std::nullopt);
        MainQueue::shared().poll();
        EXPECT_EQ(listener.receive(), "Hello Cruel World!");
        MainQueue::shared().poll();
        EXPECT_EQ(listener.receive(), std::nullopt);
    }
    MainQueue::shared().poll();

    // With no addresses there is nothing to do.
    LocalNetworkPermissionService idle(listener.port());
    idle.trigger();
    EXPECT_EQ(MainQueue::shared().poll(), 0u);

    // Destroyed before the main queue runs it, it sends nothing.
    {
        LocalNetworkPermissionService service(listener.port());
        service.interfaces = {"127.0.0.1", "127.0.0.1"};
        service.trigger();
    }
    EXPECT_GT(MainQueue::shared().poll(), 0u);
    EXPECT_EQ(listener.receive(), std::nullopt);
}

}  // namespace
}  // namespace havrel
