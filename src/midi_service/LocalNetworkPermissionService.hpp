#pragma once
// Sends one small UDP datagram to each of the machine's own addresses. On platforms that guard
// the local network behind a permission prompt, such traffic is what makes the prompt appear;
// network MIDI needs that grant. Nothing listens on the port and no result is looked at.
//
// Used on the main queue's thread: trigger() and destruction there. The sockets live on the
// main queue; their handlers hold the service weakly, so destroying the service (which closes
// every socket) before the main queue runs them sends nothing.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace havrel {

class LocalNetworkPermissionService {
public:
    explicit LocalNetworkPermissionService(std::uint16_t port);
    ~LocalNetworkPermissionService();
    LocalNetworkPermissionService(const LocalNetworkPermissionService&) = delete;
    LocalNetworkPermissionService& operator=(const LocalNetworkPermissionService&) = delete;

    // For each address of `interfaces`, in order: a UDP socket to address:port, connected on
    // the main queue, which then sends "Hello Cruel World!" once. Addresses that do not parse
    // and failures of the socket are ignored.
    void trigger();

    const std::uint16_t port;
    // The addresses to send to; filled by the caller (HVLocalNetworkAddresses).
    std::vector<std::string> interfaces;

private:
    struct Connection;
    struct Connections;
    // Owned here alone: the handlers' weak hold on the service.
    std::shared_ptr<Connections> connections_;
};

}  // namespace havrel
