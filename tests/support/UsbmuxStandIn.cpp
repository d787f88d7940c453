#include "support/UsbmuxStandIn.hpp"

#include "platform/PropertyList.hpp"
#include "transport/usb/TNUSBPacket.hpp"

#include <asio/connect.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>

#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

namespace havrel::testing {

namespace {

using LocalSocket = asio::local::stream_protocol::socket;
using TcpSocket = asio::ip::tcp::socket;

// Larger than any request a client sends.
constexpr std::uint32_t kLargestRequest = 1024 * 1024;

struct Device {
    std::uint16_t tunnelPort = 0;
    std::string connectionType;
};

Dictionary attachPacket(std::int64_t deviceID, const Device& device) {
    return {{"MessageType", "Attached"},
            {"DeviceID", deviceID},
            {"Properties",
             {{"ConnectionType", device.connectionType},
              {"DeviceID", deviceID},
              {"SerialNumber", "standin-" + std::to_string(deviceID)},
              {"ProductID", 4776},
              {"LocationID", 0},
              {"ConnectionSpeed", 480000000}}}};
}

Dictionary resultPacket(std::int64_t number) {
    return {{"MessageType", "Result"}, {"Number", number}};
}

}  // namespace

struct UsbmuxStandIn::Impl {
    class Session;
    class Tunnel;

    asio::io_context io{1};
    asio::executor_work_guard<asio::io_context::executor_type> guard{io.get_executor()};
    asio::local::stream_protocol::acceptor acceptor{io};
    std::filesystem::path path;
    std::thread thread;

    // On the stand-in's thread only.
    std::map<std::int64_t, Device> devices;
    std::set<std::shared_ptr<Session>> sessions;
    std::set<std::shared_ptr<Tunnel>> tunnels;

    std::atomic<std::size_t> listeners{0};
    std::atomic<std::size_t> tunnelsOpen{0};
    mutable std::mutex waitMutex;
    mutable std::condition_variable changed;

    void accept();
    void broadcast(const Dictionary& packet);
    void countChanged() {
        std::lock_guard lock(waitMutex);
        changed.notify_all();
    }
};

// Splices a client's socket and a TCP connection until both directions have ended.
class UsbmuxStandIn::Impl::Tunnel : public std::enable_shared_from_this<Tunnel> {
public:
    Tunnel(Impl& owner, LocalSocket client, TcpSocket device)
        : owner_(owner), client_(std::move(client)), device_(std::move(device)) {}

    void start() {
        ++owner_.tunnelsOpen;
        owner_.countChanged();
        pump(client_, device_, clientToDevice_);
        pump(device_, client_, deviceToClient_);
    }

    void close() {
        std::error_code ignored;
        client_.close(ignored);
        device_.close(ignored);
        if (!closed_) {
            closed_ = true;
            --owner_.tunnelsOpen;
            owner_.countChanged();
        }
    }

private:
    struct Direction {
        std::array<std::uint8_t, 16 * 1024> buffer{};
        bool done = false;
    };

    template <typename From, typename To>
    void pump(From& from, To& to, Direction& direction) {
        from.async_read_some(asio::buffer(direction.buffer),
                             [self = shared_from_this(), &from, &to, &direction](std::error_code error, std::size_t count) {
                                 if (error) {
                                     self->finish(to, direction, error == asio::error::eof);
                                     return;
                                 }
                                 asio::async_write(to, asio::buffer(direction.buffer.data(), count),
                                                   [self, &from, &to, &direction](std::error_code error, std::size_t) {
                                                       if (error) {
                                                           self->finish(to, direction, false);
                                                           return;
                                                       }
                                                       self->pump(from, to, direction);
                                                   });
                             });
    }

    // The source ended: pass the end on (cleanly on EOF), and close once both have ended.
    template <typename To>
    void finish(To& to, Direction& direction, bool cleanly) {
        direction.done = true;
        std::error_code ignored;
        if (cleanly) {
            to.shutdown(asio::socket_base::shutdown_send, ignored);
        }
        if (!cleanly || (clientToDevice_.done && deviceToClient_.done)) {
            close();
            owner_.tunnels.erase(shared_from_this());
        }
    }

    Impl& owner_;
    LocalSocket client_;
    TcpSocket device_;
    Direction clientToDevice_;
    Direction deviceToClient_;
    bool closed_ = false;
};

// One client's socket while it speaks the packet protocol.
class UsbmuxStandIn::Impl::Session : public std::enable_shared_from_this<Session> {
public:
    Session(Impl& owner, LocalSocket socket) : owner_(owner), socket_(std::move(socket)) {}

    void start() { readHeader(); }

    void send(const Dictionary& packet, std::uint32_t tag) {
        auto encoded = plistPacketData(packet, tag);
        if (!encoded.data) {
            return;
        }
        writes_.push_back(std::move(*encoded.data));
        if (writes_.size() == 1) {
            writeNext();
        }
    }

    bool isListener() const { return listening_; }

    void close() {
        if (closed_) {
            return;
        }
        closed_ = true;
        std::error_code ignored;
        socket_.close(ignored);
        if (listening_) {
            --owner_.listeners;
            owner_.countChanged();
        }
        owner_.sessions.erase(shared_from_this());
    }

private:
    void readHeader() {
        asio::async_read(socket_, asio::buffer(header_), [self = shared_from_this()](std::error_code error, std::size_t) {
            if (error) {
                self->close();
                return;
            }
            const auto header = decodePacketHeader(self->header_);
            if (header.size < kUsbmuxPacketHeaderSize || header.size > kLargestRequest) {
                self->close();
                return;
            }
            self->tag_ = header.tag;
            self->payload_.assign(header.size - kUsbmuxPacketHeaderSize, 0);
            asio::async_read(self->socket_, asio::buffer(self->payload_), [self](std::error_code error, std::size_t) {
                if (error) {
                    self->close();
                    return;
                }
                self->handleRequest();
            });
        });
    }

    void handleRequest() {
        // Like the daemon, no reply to a payload it cannot read.
        const auto request = propertyListFromData(payload_);
        if (!request || !request->is_object() || !request->contains("MessageType") ||
            !(*request)["MessageType"].is_string()) {
            readHeader();
            return;
        }
        const std::string type = (*request)["MessageType"].get<std::string>();
        if (type == "Listen") {
            if (!listening_) {
                listening_ = true;
                ++owner_.listeners;
                owner_.countChanged();
            }
            send(resultPacket(0), tag_);
            for (const auto& [deviceID, device] : owner_.devices) {
                send(attachPacket(deviceID, device), 0);
            }
        } else if (type == "ListDevices") {
            Dictionary list = Dictionary::array();
            for (const auto& [deviceID, device] : owner_.devices) {
                list.push_back(attachPacket(deviceID, device));
            }
            send({{"DeviceList", list}}, tag_);
        } else if (type == "Connect") {
            connect(*request);
            return;  // reading resumes only if the Connect fails
        } else {
            send(resultPacket(1), tag_);
        }
        readHeader();
    }

    void connect(const Dictionary& request) {
        const auto deviceID = request.value("DeviceID", Dictionary()).is_number_integer()
                                  ? request["DeviceID"].get<std::int64_t>()
                                  : -1;
        const auto device = owner_.devices.find(deviceID);
        if (device == owner_.devices.end()) {
            send(resultPacket(2), tag_);
            readHeader();
            return;
        }
        auto target = std::make_shared<TcpSocket>(owner_.io);
        const asio::ip::tcp::endpoint endpoint(asio::ip::address_v4::loopback(), device->second.tunnelPort);
        target->async_connect(endpoint, [self = shared_from_this(), target](std::error_code error) {
            if (error) {
                self->send(resultPacket(3), self->tag_);
                self->readHeader();
                return;
            }
            self->spliceAfterReply(std::move(*target));
        });
    }

    // Replies Number 0 and, once that is written, gives the socket to a tunnel.
    void spliceAfterReply(TcpSocket target) {
        device_ = std::make_unique<TcpSocket>(std::move(target));
        send(resultPacket(0), tag_);
        tunnelAfterWrites_ = true;
    }

    void writeNext() {
        asio::async_write(socket_, asio::buffer(writes_.front()), [self = shared_from_this()](std::error_code error, std::size_t) {
            self->writes_.pop_front();
            if (error) {
                self->close();
                return;
            }
            if (!self->writes_.empty()) {
                self->writeNext();
            } else if (self->tunnelAfterWrites_) {
                self->becomeTunnel();
            }
        });
    }

    void becomeTunnel() {
        auto tunnel = std::make_shared<Tunnel>(owner_, std::move(socket_), std::move(*device_));
        owner_.tunnels.insert(tunnel);
        tunnel->start();
        closed_ = true;
        owner_.sessions.erase(shared_from_this());
    }

    Impl& owner_;
    LocalSocket socket_;
    std::array<std::uint8_t, kUsbmuxPacketHeaderSize> header_{};
    Bytes payload_;
    std::uint32_t tag_ = 0;
    std::deque<Bytes> writes_;
    bool listening_ = false;
    bool closed_ = false;
    bool tunnelAfterWrites_ = false;
    std::unique_ptr<TcpSocket> device_;
};

void UsbmuxStandIn::Impl::accept() {
    // The stand-in's destructor closes the acceptor and stops the loop before this goes away.
    acceptor.async_accept([self = this](std::error_code error, LocalSocket socket) {
        if (error) {
            return;  // closed
        }
        auto session = std::make_shared<Session>(*self, std::move(socket));
        self->sessions.insert(session);
        session->start();
        self->accept();
    });
}

void UsbmuxStandIn::Impl::broadcast(const Dictionary& packet) {
    for (const auto& session : sessions) {
        if (session->isListener()) {
            session->send(packet, 0);
        }
    }
}

UsbmuxStandIn::UsbmuxStandIn(std::filesystem::path socketPath) : impl_(std::make_shared<Impl>()) {
    impl_->path = std::move(socketPath);
    std::error_code ignored;
    std::filesystem::remove(impl_->path, ignored);
    const asio::local::stream_protocol::endpoint endpoint(impl_->path.string());
    impl_->acceptor.open(endpoint.protocol());
    impl_->acceptor.bind(endpoint);
    impl_->acceptor.listen();
    impl_->accept();
    impl_->thread = std::thread([impl = impl_.get()] { impl->io.run(); });
}

UsbmuxStandIn::~UsbmuxStandIn() {
    asio::post(impl_->io, [impl = impl_.get()] {
        std::error_code ignored;
        impl->acceptor.close(ignored);
        for (auto session : std::set(impl->sessions)) {
            session->close();
        }
        for (const auto& tunnel : impl->tunnels) {
            tunnel->close();
        }
        impl->tunnels.clear();
        impl->io.stop();
    });
    impl_->thread.join();
    std::error_code ignored;
    std::filesystem::remove(impl_->path, ignored);
}

std::string UsbmuxStandIn::socketAddress() const {
    return "UNIX:" + impl_->path.string();
}

void UsbmuxStandIn::attachDevice(std::int64_t deviceID, std::uint16_t tunnelPort, std::string connectionType) {
    asio::post(impl_->io, [impl = impl_.get(), deviceID, tunnelPort, connectionType = std::move(connectionType)] {
        Device device{tunnelPort, connectionType};
        impl->devices[deviceID] = device;
        impl->broadcast(attachPacket(deviceID, device));
    });
}

void UsbmuxStandIn::detachDevice(std::int64_t deviceID) {
    asio::post(impl_->io, [impl = impl_.get(), deviceID] {
        if (impl->devices.erase(deviceID) > 0) {
            impl->broadcast({{"MessageType", "Detached"}, {"DeviceID", deviceID}});
        }
    });
}

std::size_t UsbmuxStandIn::listenerCount() const {
    return impl_->listeners.load();
}

std::size_t UsbmuxStandIn::tunnelCount() const {
    return impl_->tunnelsOpen.load();
}

bool UsbmuxStandIn::waitForListenerCount(std::size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(impl_->waitMutex);
    return impl_->changed.wait_for(lock, timeout, [&] { return impl_->listeners.load() == count; });
}

}  // namespace havrel::testing
