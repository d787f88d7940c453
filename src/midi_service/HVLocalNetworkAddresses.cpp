#include "midi_service/HVLocalNetworkAddresses.hpp"

#include "platform/Log.hpp"

#include <fmt/format.h>

#include <set>

namespace havrel {

std::vector<std::string> HVLocalNetworkAddresses(const std::vector<NetworkInterfaceEntry>& entries) {
    std::set<std::string> names;
    for (const auto& entry : entries) {
        if (entry.family == NetworkInterfaceEntry::Family::link && entry.ethernetType) {
            names.insert(entry.name);
        }
    }
    std::string listed;
    for (const auto& name : names) {
        listed += fmt::format("{}\"{}\"", listed.empty() ? "" : ", ", name);
    }
    logf("Interfaces: [{}]", listed);

    std::vector<std::string> addresses;
    for (const auto& entry : entries) {
        if (entry.family != NetworkInterfaceEntry::Family::ipv4 || !entry.numericAddress ||
            names.count(entry.name) == 0) {
            continue;
        }
        logf("Address: {}", *entry.numericAddress);
        addresses.push_back(*entry.numericAddress);
    }
    return addresses;
}

std::vector<std::string> HVLocalNetworkAddresses() {
    auto entries = readNetworkInterfaces();
    if (!entries) {
        return {};
    }
    return HVLocalNetworkAddresses(*entries);
}

}  // namespace havrel
