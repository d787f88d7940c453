#pragma once
// Where the USB multiplexer daemon listens. "/var/run/usbmuxd" unless the environment variable
// USBMUXD_SOCKET_ADDRESS says otherwise: "UNIX:<path>" for another Unix socket, or
// "<host>:<port>" for TCP, split at the last colon, with brackets around the host removed
// ("[::1]:27015"). Unset, empty or any other form means the default path.

#include <cstdint>
#include <string>
#include <string_view>

namespace havrel {

inline constexpr const char* kUSBMuxDefaultSocketPath = "/var/run/usbmuxd";
inline constexpr const char* kUSBMuxSocketAddressVariable = "USBMUXD_SOCKET_ADDRESS";

struct TNUSBSocketAddress {
    enum class Kind { unixSocket, tcp };

    Kind kind = Kind::unixSocket;
    std::string path = kUSBMuxDefaultSocketPath;  // Unix socket
    std::string host;                             // TCP
    std::uint16_t port = 0;                       // TCP

    // The address a value of the variable names; nullptr for an unset variable.
    static TNUSBSocketAddress fromEnvironmentValue(const char* value);
    // The address the variable names now.
    static TNUSBSocketAddress current();

    bool operator==(const TNUSBSocketAddress&) const = default;
};

}  // namespace havrel
