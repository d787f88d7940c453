#pragma once
// A copy of a peer's socket address: an IPv4 or IPv6 address and a port.

#include <asio/ip/tcp.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

class TNAddress {
public:
    explicit TNAddress(const asio::ip::tcp::endpoint& endpoint) : endpoint_(endpoint) {}
    // An IPv4 address and port, both in host order.
    static TNAddress ipv4(std::uint32_t address, std::uint16_t port);

    // The numeric host text; nothing when it cannot be given.
    std::optional<std::string> name() const;
    // The port in host order.
    std::uint16_t port() const { return endpoint_.port(); }
    // "<name>:<port>", "(null)" for a name that cannot be given.
    std::string description() const;

    const asio::ip::tcp::endpoint& endpoint() const { return endpoint_; }

    bool operator==(const TNAddress& other) const { return endpoint_ == other.endpoint_; }

private:
    asio::ip::tcp::endpoint endpoint_;
};

}  // namespace havrel
