#pragma once
// The machine's network interfaces as the system lists them (getifaddrs): one entry per
// (interface, address) pair, with what the rest of the system needs to know of it and nothing
// OS-specific.

#include <optional>
#include <string>
#include <vector>

namespace havrel {

struct NetworkInterfaceEntry {
    enum class Family { link, ipv4, other };

    std::string name;
    Family family = Family::other;
    // Link entries: the hardware type is Ethernet, which takes in Wi-Fi.
    bool ethernetType = false;
    // IPv4 entries: the address as numeric text, when the system could format it.
    std::optional<std::string> numericAddress;

    bool operator==(const NetworkInterfaceEntry&) const = default;
};

// Every entry in the system's order; none when the list cannot be read.
std::optional<std::vector<NetworkInterfaceEntry>> readNetworkInterfaces();

// The machine's host name; none when the system gives none.
std::optional<std::string> hostName();

}  // namespace havrel
