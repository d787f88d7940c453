// Built as C++17 with the WebSocket library: includes nothing of the rest of the system.
#include "StatusPageReader.hpp"

#include <nlohmann/json.hpp>
#include <websocketpp/client.hpp>
#include <websocketpp/config/asio_no_tls_client.hpp>

#include <mutex>
#include <thread>

namespace havrel::bench {

namespace {
using Client = websocketpp::client<websocketpp::config::asio_client>;
}  // namespace

struct StatusPageReader::Impl {
    Client client;
    websocketpp::connection_hdl handle;
    mutable std::mutex mutex;
    Counts counts;
    bool closing = false;
    std::thread thread;

    void received(const std::string& text) {
        const auto message = nlohmann::json::parse(text, nullptr, false);
        std::lock_guard lock(mutex);
        ++counts.states;
        counts.bytes += text.size();
        if (message.is_object() && message.value("type", "") == "state") {
            const auto& throughput = message["throughput"];
            counts.monitorEntries += message["monitor"].size();
            counts.monitorDropped = throughput.value("monitorDropped", std::uint64_t{0});
            counts.logDropped = throughput.value("logDropped", std::uint64_t{0});
        }
    }
    void failed(const std::string& why) {
        std::lock_guard lock(mutex);
        if (!closing && counts.error.empty()) counts.error = why;
    }
};

StatusPageReader::StatusPageReader(std::uint16_t port) : impl_(std::make_unique<Impl>()) {
    Impl& impl = *impl_;
    impl.client.clear_access_channels(websocketpp::log::alevel::all);
    impl.client.clear_error_channels(websocketpp::log::elevel::all);
    impl.client.init_asio();
    impl.client.set_max_message_size(64 << 20);
    impl.client.set_open_handler([&impl](websocketpp::connection_hdl) {
        std::lock_guard lock(impl.mutex);
        impl.counts.opened = true;
    });
    impl.client.set_message_handler(
        [&impl](websocketpp::connection_hdl, Client::message_ptr message) { impl.received(message->get_payload()); });
    impl.client.set_fail_handler([&impl](websocketpp::connection_hdl handle) {
        impl.failed("failed: " + impl.client.get_con_from_hdl(handle)->get_ec().message());
    });
    impl.client.set_close_handler([&impl](websocketpp::connection_hdl handle) {
        impl.failed("closed by the Central: " + impl.client.get_con_from_hdl(handle)->get_remote_close_reason());
    });
    const std::string address = "127.0.0.1:" + std::to_string(port);
    std::error_code error;
    auto connection = impl.client.get_connection("ws://" + address + "/ws", error);
    if (error) {
        impl.failed(error.message());
        return;
    }
    connection->replace_header("Origin", "http://" + address);
    impl.handle = connection->get_handle();
    impl.client.connect(connection);
    impl.thread = std::thread([&impl] { impl.client.run(); });
}

StatusPageReader::~StatusPageReader() {
    if (!impl_->thread.joinable()) return;
    {
        std::lock_guard lock(impl_->mutex);
        impl_->closing = true;
    }
    impl_->client.get_io_service().post([this] {
        std::error_code ignored;
        impl_->client.close(impl_->handle, websocketpp::close::status::going_away, "", ignored);
    });
    impl_->client.stop_perpetual();
    impl_->thread.join();
}

StatusPageReader::Counts StatusPageReader::counts() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->counts;
}

}  // namespace havrel::bench
