#include "transport/usb/TNUSBChannel.hpp"

#include "platform/Assert.hpp"
#include "platform/Log.hpp"
#include "transport/usb/TNUSBPacket.hpp"
#include "transport/usb/TNUSBSocketAddress.hpp"

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

namespace havrel {

namespace {

using GenericSocket = asio::generic::stream_protocol::socket;
using GenericEndpoint = asio::generic::stream_protocol::endpoint;

// An errno number for an Asio error: resolver failures have numbers of their own.
int errnoOf(const std::error_code& error) {
    return error.category() == asio::system_category() ? error.value() : EHOSTUNREACH;
}

std::vector<GenericEndpoint> endpointsOf(const TNUSBSocketAddress& address, asio::io_context& context,
                                         std::error_code& error) {
    if (address.kind == TNUSBSocketAddress::Kind::unixSocket) {
        try {
            return {GenericEndpoint(asio::local::stream_protocol::endpoint(address.path))};
        } catch (const std::system_error&) {
            error = std::make_error_code(std::errc::filename_too_long);
            return {};
        }
    }
    const auto literal = asio::ip::make_address(address.host, error);
    if (!error) {
        return {GenericEndpoint(asio::ip::tcp::endpoint(literal, address.port))};
    }
    // A host name: resolved here, blocking, as the connect itself is.
    error.clear();
    asio::ip::tcp::resolver resolver(context);
    const auto results = resolver.resolve(address.host, std::to_string(address.port), error);
    std::vector<GenericEndpoint> endpoints;
    for (const auto& entry : results) {
        endpoints.emplace_back(entry.endpoint());
    }
    return endpoints;
}

// Connects at once, as the daemon's local socket answers at once. Writes never raise SIGPIPE:
// Asio sends with MSG_NOSIGNAL.
std::error_code connectSocket(GenericSocket& socket, asio::io_context& context, const TNUSBSocketAddress& address) {
    std::error_code error;
    const auto endpoints = endpointsOf(address, context, error);
    if (error) {
        return error;
    }
    error = std::make_error_code(std::errc::host_unreachable);
    for (const auto& endpoint : endpoints) {
        std::error_code ignored;
        socket.close(ignored);
        socket.connect(endpoint, error);
        if (!error) {
            return error;
        }
    }
    return error;
}

}  // namespace

std::shared_ptr<TNUSBChannel> TNUSBChannel::create() {
    return std::shared_ptr<TNUSBChannel>(new TNUSBChannel());
}

TNUSBChannel::~TNUSBChannel() {
    if (socket_) {
        std::error_code ignored;
        socket_->close(ignored);
    }
}

bool TNUSBChannel::openOnQueue(WorkQueue& queue, TNOptionalError& error, ErrorCallback onEnd) {
    HV_ASSERT(socket_ == nullptr);
    context_ = &queue.context();
    auto socket = std::make_unique<GenericSocket>(*context_);
    const std::error_code failure = connectSocket(*socket, *context_, TNUSBSocketAddress::current());
    if (failure) {
        const int number = errnoOf(failure);
        logf("TNUSBChannel connect() to /var/run/usbmuxd failed: errno={} ({})", number,
             std::generic_category().message(number));
        error = TNError::posix(number);
        return false;
    }
    logf("TNUSBChannel connect() to /var/run/usbmuxd succeeded, fd={}", socket->native_handle());
    socket_ = std::move(socket);
    onEnd_ = std::move(onEnd);
    return true;
}

void TNUSBChannel::listenWithBroadcastHandler(BroadcastHandler handler, ErrorCallback callback) {
    autoReadPackets_ = true;
    scheduleReadPacketWithBroadcastHandler(std::move(handler));
    sendRequest(listenRequest(), [callback = std::move(callback)](const TNOptionalError& error,
                                                                    const std::optional<Dictionary>& reply) {
        TNOptionalError outcome = error;
        errorFromPlistResponse(reply, outcome);
        if (callback) {
            callback(outcome);
        }
    });
}

std::uint32_t TNUSBChannel::nextPacketTag() {
    return ++nextPacketTag_;
}

void TNUSBChannel::sendRequest(const Dictionary& packet, ResponseCallback callback) {
    const std::uint32_t tag = nextPacketTag();
    // Registered before the write, so that no reply can arrive ahead of it; a failed write
    // takes it out again.
    if (!responseQueue_) {
        responseQueue_.emplace();
    }
    (*responseQueue_)[tag] = std::move(callback);
    std::weak_ptr<TNUSBChannel> weakSelf = weak_from_this();
    sendPacket(packet, tag, [weakSelf, tag](const TNOptionalError& error) {
        auto self = weakSelf.lock();
        if (!error || !self || !self->responseQueue_) {
            return;
        }
        auto found = self->responseQueue_->find(tag);
        if (found == self->responseQueue_->end()) {
            return;
        }
        auto waiting = std::move(found->second);
        self->responseQueue_->erase(found);
        waiting(error, std::nullopt);
    });
    setNeedsReadingPacket();
}

void TNUSBChannel::setNeedsReadingPacket() {
    if (!isReadingPackets_) {
        scheduleReadPacketWithBroadcastHandler(nullptr);
    }
}

void TNUSBChannel::scheduleReadPacketWithBroadcastHandler(BroadcastHandler handler) {
    HV_ASSERT(!isReadingPackets_);
    std::weak_ptr<TNUSBChannel> weakSelf = weak_from_this();
    scheduleReadPacketWithCallback(
        [weakSelf, handler = std::move(handler)](const TNOptionalError& error, const std::optional<Dictionary>& packet,
                                                 std::uint32_t tag) {
            if (auto self = weakSelf.lock()) {
                self->dispatchPacket(error, packet, tag, handler);
            }
        });
}

void TNUSBChannel::dispatchPacket(const TNOptionalError& error, const std::optional<Dictionary>& packet,
                                  std::uint32_t tag, const BroadcastHandler& handler) {
    if (tag == 0) {
        if (handler) {
            handler(packet);
        }
    } else if (responseQueue_) {
        auto found = responseQueue_->find(tag);
        if (found != responseQueue_->end()) {
            auto callback = std::move(found->second);
            responseQueue_->erase(found);
            callback(error, packet);
        } else {
            logf("Warning: Ignoring reply packet for which there is no registered callback. Packet => {}",
                 describePacket(packet));
        }
    }
    // A request still waiting keeps the reading going even without automatic reading, so that
    // a stray packet cannot leave its callback uncalled.
    const bool awaitingReply = responseQueue_ && !responseQueue_->empty();
    if (valid() && !isReadingPackets_ && (autoReadPackets_ || awaitingReply)) {
        scheduleReadPacketWithBroadcastHandler(handler);
    }
}

void TNUSBChannel::scheduleReadPacketWithCallback(PacketCallback callback) {
    isReadingPackets_ = true;
    readMore(std::move(callback));
}

void TNUSBChannel::readMore(PacketCallback callback) {
    if (!valid()) {
        isReadingPackets_ = false;
        return;
    }
    const auto buffer = reader_.nextBuffer();
    asio::async_read(*socket_, asio::buffer(buffer.data(), buffer.size()),
                     [self = shared_from_this(), callback = std::move(callback)](std::error_code error,
                                                                                 std::size_t count) {
                         self->didRead(error, count, callback);
                     });
}

void TNUSBChannel::didRead(std::error_code error, std::size_t count, const PacketCallback& callback) {
    if (!valid()) {
        // Stopped or handed over meanwhile: whatever arrived is not ours to read.
        isReadingPackets_ = false;
        return;
    }
    if (auto result = reader_.didRead(count)) {
        deliver(std::move(*result), callback);
        return;
    }
    if (!error) {
        readMore(callback);
        return;
    }
    if (error == asio::error::eof) {
        deliver(reader_.didReachEnd(), callback);
        return;
    }
    reader_.didReachEnd();
    TNUSBPacketReader::Result failure;
    failure.error = TNError::posix(errnoOf(error));
    failure.endsStream = true;
    deliver(std::move(failure), callback);
}

void TNUSBChannel::deliver(TNUSBPacketReader::Result result, const PacketCallback& callback) {
    isReadingPackets_ = false;
    if (result.error && !result.error->isPOSIX()) {
        logf("TNUSBChannel {} a packet from the daemon: {}", result.endsStream ? "closed the socket on" : "dropped",
             result.error->description());
    }
    if (result.endsStream) {
        // Closed before the callback, so that nothing schedules another read; the requests
        // still waiting learn of the end after it.
        std::error_code ignored;
        socket_->close(ignored);
    }
    if (callback) {
        callback(result.error, result.dictionary, result.tag);
    }
    if (result.endsStream) {
        endStream(result.error, result.error.value_or(TNError::posix(ECONNRESET)));
    }
}

void TNUSBChannel::sendPacketOfType(std::uint32_t type, std::uint32_t protocol, std::uint32_t tag, ByteView payload,
                                    ErrorCallback callback) {
    sendData(packetData(type, protocol, tag, payload), std::move(callback));
}

void TNUSBChannel::sendPacket(const Dictionary& packet, std::uint32_t tag, ErrorCallback callback) {
    auto encoding = plistPacketData(packet, tag);
    if (!encoding.data) {
        post([callback = std::move(callback), error = std::move(encoding.error)] {
            if (callback) {
                callback(error);
            }
        });
        return;
    }
    sendData(std::move(*encoding.data), std::move(callback));
}

void TNUSBChannel::sendData(Bytes data, ErrorCallback callback) {
    if (!valid() || closeAfterWrites_) {
        post([callback = std::move(callback)] {
            if (callback) {
                callback(TNError::posix(ENOTCONN));
            }
        });
        return;
    }
    writes_.push_back({std::move(data), std::move(callback)});
    if (writes_.size() == 1) {
        writeNext();
    }
}

void TNUSBChannel::writeNext() {
    const Bytes& data = writes_.front().data;
    asio::async_write(*socket_, asio::buffer(data), [self = shared_from_this()](std::error_code error, std::size_t) {
        PendingWrite done = std::move(self->writes_.front());
        self->writes_.pop_front();
        const bool open = self->valid();
        if (done.callback) {
            done.callback(error ? TNOptionalError(TNError::posix(open ? errnoOf(error) : ECANCELED)) : std::nullopt);
        }
        if (!self->valid()) {
            auto rest = std::exchange(self->writes_, {});
            for (auto& write : rest) {
                if (write.callback) {
                    write.callback(TNError::posix(ECANCELED));
                }
            }
            return;
        }
        if (!self->writes_.empty()) {
            self->writeNext();
        } else if (self->closeAfterWrites_) {
            self->endStream(std::nullopt, TNError::posix(ECANCELED));
        }
    });
}

bool TNUSBChannel::valid() const {
    return socket_ && socket_->is_open();
}

int TNUSBChannel::fileDescriptor() const {
    return valid() ? socket_->native_handle() : -1;
}

int TNUSBChannel::releaseFileDescriptor() {
    if (!valid()) {
        return -1;
    }
    std::error_code ignored;
    socket_->native_non_blocking(false, ignored);
    const int descriptor = socket_->release(ignored);
    ended_ = true;
    onEnd_ = nullptr;
    autoReadPackets_ = false;
    if (responseQueue_ && !responseQueue_->empty()) {
        auto waiting = std::exchange(*responseQueue_, {});
        post([waiting = std::move(waiting)] {
            for (const auto& [tag, callback] : waiting) {
                callback(TNError::posix(ECANCELED), std::nullopt);
            }
        });
    }
    return descriptor;
}

void TNUSBChannel::cancel() {
    if (writes_.empty()) {
        stop();
    } else {
        closeAfterWrites_ = true;
    }
}

void TNUSBChannel::stop() {
    endStream(std::nullopt, TNError::posix(ECANCELED));
}

void TNUSBChannel::invalidate() {
    onEnd_ = nullptr;
    if (responseQueue_) {
        responseQueue_->clear();
    }
    endStream(std::nullopt, TNError::posix(ECANCELED));
}

void TNUSBChannel::endStream(TNOptionalError error, TNError pendingError) {
    if (ended_ || !socket_) {
        return;
    }
    ended_ = true;
    std::error_code ignored;
    socket_->close(ignored);
    auto waiting = responseQueue_ ? std::exchange(*responseQueue_, {}) : std::map<std::uint32_t, ResponseCallback>{};
    post([waiting = std::move(waiting), onEnd = std::exchange(onEnd_, nullptr), error = std::move(error),
          pendingError = std::move(pendingError)] {
        for (const auto& [tag, callback] : waiting) {
            callback(pendingError, std::nullopt);
        }
        if (onEnd) {
            onEnd(error);
        }
    });
}

void TNUSBChannel::post(std::function<void()> work) {
    HV_ASSERT(context_ != nullptr);
    asio::post(*context_, std::move(work));
}

}  // namespace havrel
