#pragma once
// The HTTP and WebSocket server of the status page. Serves a fixed set of embedded resources
// and one WebSocket stream ("/ws") on 127.0.0.1, on an io_context that the caller runs.
//
// Guards: requests whose Host header is not the server's own address (127.0.0.1:<port> or
// localhost:<port>) are refused with 403, WebSocket upgrades also when their Origin is not the
// page's own; any other path is 404; a request head past the parser's limit is refused by the
// parser (431); incoming WebSocket messages are limited in size; each connection has a bounded
// send queue, and a connection whose queue would grow past it is closed.
//
// Knows nothing of what it shows: what a new connection receives first and what an incoming
// message is answered with come from the owner. Not thread-safe: every call on the thread that
// runs the io_context.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace asio {
class io_context;
}

namespace havrel {

class StatusServer {
public:
    struct Resource {
        std::string path;  // "/", "/status.js", ...
        std::string contentType;
        std::string body;
    };
    struct Options {
        std::uint16_t port = 4700;  // 0: any free port (tests)
        std::size_t maxQueuedBytes = 1 << 20;  // per connection
        std::size_t maxIncomingMessageBytes = 4096;
        std::size_t maxConnections = 256;
    };
    // The first message to a connection that has just opened; an empty text sends nothing.
    using GreetingHandler = std::function<std::string()>;
    // The answer to a message from the page; an empty text sends nothing.
    using MessageHandler = std::function<std::string(const std::string& text)>;

    StatusServer(asio::io_context& context, Options options, std::vector<Resource> resources);
    ~StatusServer();
    StatusServer(const StatusServer&) = delete;
    StatusServer& operator=(const StatusServer&) = delete;

    void setGreetingHandler(GreetingHandler handler);
    void setMessageHandler(MessageHandler handler);

    // Listens on 127.0.0.1. The port it listens on, or nothing with the reason in *error.
    std::optional<std::uint16_t> start(std::string* error = nullptr);
    // Stops listening, closes every connection and drops both handlers: what is still under way
    // for a connection reaches neither of them.
    void stop();

    // Sends the text to every open connection; a connection whose send queue it would overflow
    // is closed instead. Returns the number of connections it was queued on.
    std::size_t broadcast(const std::string& text);
    std::size_t connectionCount() const;
    // Connections closed for falling behind, since the start.
    std::uint64_t slowConnectionsClosed() const;

private:
    struct Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace havrel
