// Built as C++17: the WebSocket library's headers do not compile as C++20. This file includes
// nothing of the rest of the system for that reason.
#include "StatusServer.hpp"

#include <websocketpp/config/asio_no_tls.hpp>
#include <websocketpp/server.hpp>

#include <set>
#include <utility>

namespace havrel {

namespace {

using Server = websocketpp::server<websocketpp::config::asio>;
using Handle = websocketpp::connection_hdl;
using websocketpp::http::status_code::value;
namespace status = websocketpp::http::status_code;

constexpr const char* kStreamPath = "/ws";

}  // namespace

struct StatusServer::Impl : std::enable_shared_from_this<StatusServer::Impl> {
    Impl(asio::io_context& context, Options options, std::vector<Resource> resources)
        : context(context), options(options), resources(std::move(resources)) {}

    asio::io_context& context;
    const Options options;
    const std::vector<Resource> resources;
    Server server;
    std::set<Handle, std::owner_less<Handle>> open;
    std::uint16_t port = 0;
    bool listening = false;
    bool isSetUp = false;
    std::uint64_t slowClosed = 0;
    GreetingHandler greeting;
    MessageHandler onMessage;

    bool hostIsOwn(const std::string& host) const {
        const std::string suffix = ":" + std::to_string(port);
        return host == "127.0.0.1" + suffix || host == "localhost" + suffix;
    }
    bool originIsOwn(const std::string& origin) const {
        return origin.rfind("http://", 0) == 0 && hostIsOwn(origin.substr(7));
    }

    void setUp() {
        server.clear_access_channels(websocketpp::log::alevel::all);
        server.clear_error_channels(websocketpp::log::elevel::all);
        server.init_asio(&context);
        server.set_reuse_addr(true);
        server.set_max_message_size(options.maxIncomingMessageBytes);
        server.set_max_http_body_size(options.maxIncomingMessageBytes);
        server.set_open_handshake_timeout(5000);
        server.set_close_handshake_timeout(1000);
        // The handlers hold the server weakly: after it is gone, what is left on the io_context
        // completes without reaching it.
        std::weak_ptr<Impl> weak = shared_from_this();
        server.set_http_handler([weak](Handle handle) {
            if (auto self = weak.lock()) self->serveHTTP(handle);
        });
        server.set_validate_handler([weak](Handle handle) {
            auto self = weak.lock();
            return self && self->validateUpgrade(handle);
        });
        server.set_open_handler([weak](Handle handle) {
            if (auto self = weak.lock()) self->opened(handle);
        });
        server.set_close_handler([weak](Handle handle) {
            if (auto self = weak.lock()) self->open.erase(handle);
        });
        server.set_fail_handler([weak](Handle handle) {
            if (auto self = weak.lock()) self->open.erase(handle);
        });
        server.set_message_handler([weak](Handle handle, Server::message_ptr message) {
            auto self = weak.lock();
            if (!self || !self->onMessage || message->get_opcode() != websocketpp::frame::opcode::text) return;
            // A copy: the handler may stop the server, which drops it.
            const MessageHandler handler = self->onMessage;
            const std::string reply = handler(message->get_payload());
            if (!reply.empty()) self->send(handle, reply);
        });
    }

    static void respond(const Server::connection_ptr& connection, value code, const std::string& type,
                        const std::string& body) {
        connection->set_status(code);
        connection->replace_header("Content-Type", type);
        connection->replace_header("Cache-Control", "no-store");
        connection->replace_header("X-Content-Type-Options", "nosniff");
        connection->replace_header("X-Frame-Options", "DENY");
        connection->set_body(body);
    }

    void serveHTTP(Handle handle) {
        std::error_code error;
        auto connection = server.get_con_from_hdl(handle, error);
        if (error) return;
        const auto& request = connection->get_request();
        if (!hostIsOwn(request.get_header("Host"))) {
            respond(connection, status::forbidden, "text/plain", "forbidden\n");
            return;
        }
        if (request.get_method() != "GET" && request.get_method() != "HEAD") {
            respond(connection, status::method_not_allowed, "text/plain", "method not allowed\n");
            return;
        }
        std::string path = connection->get_resource();
        path = path.substr(0, path.find('?'));
        for (const auto& resource : resources) {
            if (resource.path == path) {
                respond(connection, status::ok, resource.contentType, resource.body);
                connection->replace_header(
                    "Content-Security-Policy",
                    "default-src 'self'; connect-src 'self' ws://127.0.0.1:" + std::to_string(port) +
                        " ws://localhost:" + std::to_string(port) + "; img-src 'self' data:; frame-ancestors 'none'");
                return;
            }
        }
        respond(connection, status::not_found, "text/plain", "not found\n");
    }

    bool validateUpgrade(Handle handle) {
        std::error_code error;
        auto connection = server.get_con_from_hdl(handle, error);
        if (error) return false;
        if (!hostIsOwn(connection->get_request_header("Host")) || !originIsOwn(connection->get_origin())) {
            connection->set_status(status::forbidden);
            return false;
        }
        std::string path = connection->get_resource();
        if (path.substr(0, path.find('?')) != kStreamPath) {
            connection->set_status(status::not_found);
            return false;
        }
        if (open.size() >= options.maxConnections) {
            connection->set_status(status::service_unavailable);
            return false;
        }
        return true;
    }

    void opened(Handle handle) {
        open.insert(handle);
        if (greeting) {
            const GreetingHandler handler = greeting;
            const std::string text = handler();
            if (!text.empty()) send(handle, text);
        }
    }

    bool send(Handle handle, const std::string& text) {
        std::error_code error;
        auto connection = server.get_con_from_hdl(handle, error);
        if (error || connection->get_state() != websocketpp::session::state::open) return false;
        if (connection->get_buffered_amount() + text.size() > options.maxQueuedBytes) {
            // The reader falls behind: no close handshake, which would queue behind the rest.
            ++slowClosed;
            open.erase(handle);
            drop(connection);
            return false;
        }
        return !connection->send(text, websocketpp::frame::opcode::text);
    }

    // Ends a connection at once: the socket is shut, the pending reads and writes fail and the
    // connection is released.
    static void drop(const Server::connection_ptr& connection) {
        std::error_code ignored;
        connection->get_raw_socket().shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
        connection->get_raw_socket().cancel(ignored);
    }

    void stop() {
        // What is still queued for the connections must not reach the owner's objects.
        greeting = nullptr;
        onMessage = nullptr;
        std::error_code ignored;
        if (listening) {
            server.stop_listening(ignored);
            listening = false;
        }
        for (const auto& handle : open) {
            if (auto connection = server.get_con_from_hdl(handle, ignored)) {
                drop(connection);
            }
        }
        open.clear();
    }
};

StatusServer::StatusServer(asio::io_context& context, Options options, std::vector<Resource> resources)
    : impl_(std::make_shared<Impl>(context, options, std::move(resources))) {}

StatusServer::~StatusServer() {
    impl_->stop();
    // What is still queued on the io_context for the listener and the connections refers to the
    // server's objects: they stay until it has run (or the io_context is destroyed).
    std::shared_ptr<Impl> keep = std::move(impl_);
    asio::post(keep->context, [keep] {});
}

void StatusServer::setGreetingHandler(GreetingHandler handler) {
    impl_->greeting = std::move(handler);
}

void StatusServer::setMessageHandler(MessageHandler handler) {
    impl_->onMessage = std::move(handler);
}

std::optional<std::uint16_t> StatusServer::start(std::string* error) {
    std::error_code code;
    auto fail = [&](const std::string& what) -> std::optional<std::uint16_t> {
        if (error) *error = what + ": " + code.message();
        return std::nullopt;
    };
    if (impl_->listening) return impl_->port;
    if (!impl_->isSetUp) {
        impl_->setUp();
        impl_->isSetUp = true;
    }
    const asio::ip::tcp::endpoint endpoint(asio::ip::make_address("127.0.0.1"), impl_->options.port);
    impl_->server.listen(endpoint, code);
    if (code) return fail("cannot listen on 127.0.0.1:" + std::to_string(impl_->options.port));
    impl_->listening = true;
    impl_->port = impl_->server.get_local_endpoint(code).port();
    if (code) return fail("cannot read the local address");
    impl_->server.start_accept(code);
    if (code) return fail("cannot accept");
    return impl_->port;
}

void StatusServer::stop() {
    impl_->stop();
}

std::size_t StatusServer::broadcast(const std::string& text) {
    // send() may drop a connection from the set.
    const std::vector<Handle> handles(impl_->open.begin(), impl_->open.end());
    std::size_t queued = 0;
    for (const auto& handle : handles) {
        queued += impl_->send(handle, text) ? 1 : 0;
    }
    return queued;
}

std::size_t StatusServer::connectionCount() const {
    return impl_->open.size();
}

std::uint64_t StatusServer::slowConnectionsClosed() const {
    return impl_->slowClosed;
}

}  // namespace havrel
