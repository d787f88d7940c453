#include "platform/NetworkInterfaces.hpp"

#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>

namespace havrel {

namespace {

// Numeric host text of an IPv4 address, formatted as getnameinfo gives it.
std::optional<std::string> numericHost(const sockaddr* address) {
    std::array<char, 1025> host{};
    if (getnameinfo(address, sizeof(sockaddr_in), host.data(), host.size(), nullptr, 0,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return std::nullopt;
    }
    return std::string(host.data());
}

}  // namespace

std::optional<std::vector<NetworkInterfaceEntry>> readNetworkInterfaces() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return std::nullopt;
    }
    std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
    std::vector<NetworkInterfaceEntry> entries;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        NetworkInterfaceEntry record;
        record.name = entry->ifa_name != nullptr ? entry->ifa_name : "";
        if (entry->ifa_addr != nullptr) {
            switch (entry->ifa_addr->sa_family) {
            case AF_PACKET: {
                record.family = NetworkInterfaceEntry::Family::link;
                const auto* link = reinterpret_cast<const sockaddr_ll*>(entry->ifa_addr);
                record.ethernetType = link->sll_hatype == ARPHRD_ETHER;
                break;
            }
            case AF_INET:
                record.family = NetworkInterfaceEntry::Family::ipv4;
                record.numericAddress = numericHost(entry->ifa_addr);
                break;
            default:
                break;
            }
        }
        entries.push_back(std::move(record));
    }
    return entries;
}

std::optional<std::string> hostName() {
    std::array<char, 256> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') {
        return std::nullopt;
    }
    return std::string(name.data());
}

}  // namespace havrel
