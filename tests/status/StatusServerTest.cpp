// The status page's server alone, over real sockets on 127.0.0.1: what it serves and refuses,
// a request head far past any limit, a reader that falls behind, and many WebSocket clients
// that come and go without leaving a descriptor behind.

#include "StatusServer.hpp"

#include <asio.hpp>
#include <gtest/gtest.h>

#include <dirent.h>

#include <chrono>
#include <future>
#include <thread>

namespace havrel::testing {
namespace {

using asio::ip::tcp;

std::size_t openDescriptors() {
    std::size_t count = 0;
    if (DIR* dir = ::opendir("/proc/self/fd")) {
        while (::readdir(dir)) ++count;
        ::closedir(dir);
    }
    return count;
}

bool eventually(const std::function<bool()>& condition, std::chrono::seconds timeout = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// The server on an io_context of its own thread; the test talks to it over blocking sockets
// and asks it questions on that thread.
class StatusServerTest : public ::testing::Test {
protected:
    void startServer(StatusServer::Options options = {}) {
        options.port = 0;
        server_ = std::make_unique<StatusServer>(
            io_, options,
            std::vector<StatusServer::Resource>{{"/", "text/html", "<title>page</title>"},
                                                {"/status.js", "text/javascript", "connect();"}});
        server_->setGreetingHandler([] { return std::string(R"({"type":"state"})"); });
        server_->setMessageHandler([](const std::string& text) { return "echo:" + text; });
        std::string error;
        auto port = server_->start(&error);
        ASSERT_TRUE(port) << error;
        port_ = *port;
        thread_ = std::thread([this] { io_.run(); });
    }

    template <class Function>
    auto onServer(Function function) {
        std::packaged_task<decltype(function())()> task(function);
        auto result = task.get_future();
        asio::post(io_, [&task] { task(); });
        return result.get();
    }
    std::size_t connections() {
        return onServer([this] { return server_->connectionCount(); });
    }

    tcp::socket connect() {
        tcp::socket socket(clientIO_);
        socket.connect(tcp::endpoint(asio::ip::make_address("127.0.0.1"), port_));
        return socket;
    }
    void TearDown() override {
        if (thread_.joinable()) {
            onServer([this] {
                server_.reset();
                return 0;
            });
            guard_.reset();
            thread_.join();
        }
    }

    std::string host() const { return "127.0.0.1:" + std::to_string(port_); }

    // Sends the request and reads the response head (and what came with it). Empty when the
    // server closed or reset the connection first.
    std::string exchange(tcp::socket& socket, const std::string& request) {
        asio::error_code error;
        asio::write(socket, asio::buffer(request), error);
        asio::streambuf buffer;
        asio::read_until(socket, buffer, "\r\n\r\n", error);
        return std::string(asio::buffers_begin(buffer.data()), asio::buffers_end(buffer.data()));
    }
    std::string get(const std::string& path, const std::string& hostHeader) {
        auto socket = connect();
        return exchange(socket, "GET " + path + " HTTP/1.1\r\nHost: " + hostHeader + "\r\nConnection: close\r\n\r\n");
    }
    std::string upgrade(tcp::socket& socket, const std::string& path, const std::string& hostHeader,
                        const std::string& origin) {
        std::string request = "GET " + path + " HTTP/1.1\r\nHost: " + hostHeader +
                              "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                              "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n";
        if (!origin.empty()) request += "Origin: " + origin + "\r\n";
        return exchange(socket, request + "\r\n");
    }
    static std::string statusLine(const std::string& response) { return response.substr(0, response.find("\r\n")); }

    asio::io_context io_;
    asio::executor_work_guard<asio::io_context::executor_type> guard_ = asio::make_work_guard(io_);
    asio::io_context clientIO_;
    std::unique_ptr<StatusServer> server_;
    std::thread thread_;
    std::uint16_t port_ = 0;
};

TEST_F(StatusServerTest, ServesOnlyTheEmbeddedPageToItsOwnHostAndOrigin) {
    startServer();
    const std::string own = host();
    const std::string page = get("/", own);
    EXPECT_EQ(statusLine(page), "HTTP/1.1 200 OK");
    EXPECT_NE(page.find("Content-Type: text/html"), std::string::npos);
    EXPECT_EQ(statusLine(get("/status.js?v=1", "localhost:" + std::to_string(port_))), "HTTP/1.1 200 OK");

    // DNS rebinding: the right socket, another name.
    EXPECT_EQ(statusLine(get("/", "attacker.example:" + std::to_string(port_))), "HTTP/1.1 403 Forbidden");
    EXPECT_EQ(statusLine(get("/", "127.0.0.1:1")), "HTTP/1.1 403 Forbidden");
    EXPECT_EQ(statusLine(get("/", "")).substr(0, 12), "HTTP/1.1 400");  // no Host at all

    for (const char* path : {"/index.html", "/../CMakeLists.txt", "/etc/passwd", "/status.css", "//", "/ws"}) {
        EXPECT_EQ(statusLine(get(path, own)), "HTTP/1.1 404 Not Found") << path;
    }

    // WebSocket: the page's own origin only, on the stream's path only.
    for (const auto& [hostHeader, origin] : std::vector<std::pair<std::string, std::string>>{
             {own, "http://attacker.example"},
             {own, ""},
             {own, "http://" + own + ".attacker.example"},
             {own, "https://" + own},
             {"attacker.example:" + std::to_string(port_), "http://attacker.example:" + std::to_string(port_)}}) {
        auto socket = connect();
        EXPECT_EQ(statusLine(upgrade(socket, "/ws", hostHeader, origin)), "HTTP/1.1 403 Forbidden")
            << hostHeader << " " << origin;
    }
    {
        auto socket = connect();
        EXPECT_EQ(statusLine(upgrade(socket, "/other", own, "http://" + own)), "HTTP/1.1 404 Not Found");
    }
    EXPECT_EQ(connections(), 0u);

    auto socket = connect();
    const std::string accepted = upgrade(socket, "/ws", own, "http://" + own);
    EXPECT_EQ(statusLine(accepted), "HTTP/1.1 101 Switching Protocols");
    // The greeting follows as one text frame.
    std::string received = accepted;
    if (received.find(R"({"type":"state"})") == std::string::npos) {
        asio::streambuf more;
        asio::read_until(socket, more, "}");
        received.append(asio::buffers_begin(more.data()), asio::buffers_end(more.data()));
    }
    EXPECT_NE(received.find(R"({"type":"state"})"), std::string::npos);
    EXPECT_TRUE(eventually([&] { return connections() == 1; }));
}

TEST_F(StatusServerTest, RefusesARequestLineOfOneMebibyteAndServesTheNext) {
    startServer();
    auto socket = connect();
    const std::string request = "GET /" + std::string(1 << 20, 'a') + " HTTP/1.1\r\nHost: " + host() + "\r\n\r\n";
    const std::string response = exchange(socket, request);
    // Refused with 431, or cut off before the answer arrived; never served.
    if (!response.empty()) {
        EXPECT_EQ(statusLine(response).substr(0, 12), "HTTP/1.1 431");
    }
    asio::error_code error;
    char byte;
    socket.read_some(asio::buffer(&byte, 1), error);
    EXPECT_TRUE(error) << "the connection stays open";
    EXPECT_EQ(statusLine(get("/", host())), "HTTP/1.1 200 OK");
}

TEST_F(StatusServerTest, ClosesAConnectionThatFallsBehindAndKeepsServingTheOthers) {
    StatusServer::Options options;
    options.maxQueuedBytes = 256 * 1024;
    startServer(options);
    auto slow = connect();  // never reads after its handshake
    ASSERT_EQ(statusLine(upgrade(slow, "/ws", host(), "http://" + host())), "HTTP/1.1 101 Switching Protocols");
    ASSERT_TRUE(eventually([&] { return connections() == 1; }));

    const std::string message(64 * 1024, 'x');
    int broadcasts = 0;
    while (onServer([this] { return server_->slowConnectionsClosed(); }) == 0 && broadcasts < 4000) {
        onServer([&] { return server_->broadcast(message); });
        ++broadcasts;
    }
    EXPECT_EQ(onServer([this] { return server_->slowConnectionsClosed(); }), 1u) << broadcasts << " broadcasts";
    EXPECT_EQ(connections(), 0u);
    EXPECT_EQ(onServer([&] { return server_->broadcast(message); }), 0u);
    EXPECT_EQ(statusLine(get("/", host())), "HTTP/1.1 200 OK");
}

TEST_F(StatusServerTest, TwoHundredWebSocketClientsLeaveNoDescriptorBehind) {
    startServer();
    // The clients' own reactor (made with their first socket) is there before the count.
    {
        tcp::socket socket(clientIO_);
        socket.open(tcp::v4());
    }
    const std::size_t before = openDescriptors();

    std::vector<tcp::socket> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(connect());
        ASSERT_EQ(statusLine(upgrade(clients.back(), "/ws", host(), "http://" + host())),
                  "HTTP/1.1 101 Switching Protocols")
            << "client " << i;
    }
    ASSERT_TRUE(eventually([&] { return connections() == 200; }));
    EXPECT_EQ(onServer([this] { return server_->broadcast(R"({"type":"state"})"); }), 200u);
    EXPECT_GE(openDescriptors(), before + 400);

    // Half leave cleanly, half vanish mid-stream (reset).
    for (std::size_t i = 0; i < clients.size(); ++i) {
        asio::error_code ignored;
        if (i % 2 == 0) {
            clients[i].set_option(asio::socket_base::linger(true, 0), ignored);
        } else {
            clients[i].shutdown(tcp::socket::shutdown_both, ignored);
        }
        clients[i].close(ignored);
    }
    clients.clear();
    EXPECT_TRUE(eventually([&] { return connections() == 0 && openDescriptors() == before; }))
        << connections() << " connections, " << openDescriptors() << " descriptors, " << before << " before";
}

}  // namespace
}  // namespace havrel::testing
