#pragma once
// The machine's own IPv4 addresses on Ethernet-type interfaces (Wi-Fi included): the addresses
// that the local-network permission probe sends to.

#include "platform/NetworkInterfaces.hpp"

#include <string>
#include <vector>

namespace havrel {

// Scans the machine's interfaces. Logs "Interfaces: " with the set of Ethernet-type interface
// names, then "Address: " for each address taken. Empty when the interfaces cannot be listed.
std::vector<std::string> HVLocalNetworkAddresses();

// The same over a given interface list: the IPv4 addresses, in list order, of the interfaces
// that have an Ethernet-type link entry. IPv6 addresses are not taken.
std::vector<std::string> HVLocalNetworkAddresses(const std::vector<NetworkInterfaceEntry>& entries);

}  // namespace havrel
