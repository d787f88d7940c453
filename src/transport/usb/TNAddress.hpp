#pragma once
// A copy of a peer's socket address.

#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

class TNAddress {
public:
    // Copies length bytes of the address (at most a sockaddr_storage); the address is required.
    TNAddress(const sockaddr* address, socklen_t length);
    // An IPv4 address and port, both in host order.
    static TNAddress ipv4(std::uint32_t address, std::uint16_t port);

    // The numeric host text of an IPv4 or IPv6 address; nothing for other kinds or no address.
    std::optional<std::string> name() const;
    // The port in host order; 0 without an address.
    std::uint16_t port() const;
    // "<name>:<port>", "(null)" for a name that cannot be given, or "(?)" without an address.
    std::string description() const;

    const struct sockaddr* address() const { return reinterpret_cast<const struct sockaddr*>(&storage_); }
    socklen_t length() const { return length_; }

    bool operator==(const TNAddress& other) const;

private:
    sockaddr_storage storage_{};
    socklen_t length_ = 0;
};

}  // namespace havrel
