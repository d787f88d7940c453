#include "midi_service/LocalNetworkPermissionService.hpp"

#include "platform/MainQueue.hpp"

#include <asio/buffer.hpp>
#include <asio/ip/address.hpp>
#include <asio/ip/udp.hpp>

#include <string_view>
#include <system_error>

namespace havrel {

namespace {
constexpr std::string_view kHelloMessage = "Hello Cruel World!";
}  // namespace

struct LocalNetworkPermissionService::Connection {
    explicit Connection(asio::io_context& context) : socket(context) {}
    asio::ip::udp::socket socket;
};

struct LocalNetworkPermissionService::Connections {
    std::vector<std::shared_ptr<Connection>> list;
};

LocalNetworkPermissionService::LocalNetworkPermissionService(std::uint16_t port)
    : port(port), connections_(std::make_shared<Connections>()) {}

LocalNetworkPermissionService::~LocalNetworkPermissionService() {
    // Closing cancels what is pending; the cancelled handlers find the service gone.
    for (const auto& connection : connections_->list) {
        std::error_code ignored;
        connection->socket.close(ignored);
    }
}

void LocalNetworkPermissionService::trigger() {
    auto& queue = MainQueue::shared();
    for (const auto& address : interfaces) {
        auto connection = std::make_shared<Connection>(queue.context());
        std::weak_ptr<Connections> weakService = connections_;
        std::weak_ptr<Connection> weakConnection = connection;
        queue.post([weakService, weakConnection, address, port = port] {
            auto service = weakService.lock();
            auto connection = weakConnection.lock();
            if (!service || !connection) {
                return;
            }
            std::error_code error;
            const auto host = asio::ip::make_address(address, error);
            if (error) {
                return;
            }
            connection->socket.async_connect(
                asio::ip::udp::endpoint(host, port), [weakService, weakConnection](std::error_code connectError) {
                    auto service = weakService.lock();
                    auto connection = weakConnection.lock();
                    if (connectError || !service || !connection) {
                        return;
                    }
                    connection->socket.async_send(asio::buffer(kHelloMessage.data(), kHelloMessage.size()),
                                                  [](std::error_code, std::size_t) {});
                });
        });
        connections_->list.push_back(std::move(connection));
    }
}

}  // namespace havrel
