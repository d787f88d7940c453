#include "transport/usb/TNUSBChannel.hpp"

#include "platform/Assert.hpp"
#include "platform/Log.hpp"
#include "transport/usb/TNUSBPacket.hpp"
#include "transport/usb/TNUSBSocketAddress.hpp"

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/read.hpp>
#include <asio/connect.hpp>
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

// The endpoint of a Unix path or an address literal; nothing for a host name, which needs a
// look-up.
std::optional<GenericEndpoint> literalEndpointOf(const TNUSBSocketAddress& address, std::error_code& error) {
    if (address.kind == TNUSBSocketAddress::Kind::unixSocket) {
        try {
            return GenericEndpoint(asio::local::stream_protocol::endpoint(address.path));
        } catch (const std::system_error&) {
            error = std::make_error_code(std::errc::filename_too_long);
            return std::nullopt;
        }
    }
    std::error_code notLiteral;
    const auto literal = asio::ip::make_address(address.host, notLiteral);
    if (notLiteral) {
        return std::nullopt;
    }
    return GenericEndpoint(asio::ip::tcp::endpoint(literal, address.port));
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

// The text connects at once and blocks its queue meanwhile; here the look-up of a host name and
// the connect run asynchronously, so that a slow or unreachable daemon address never holds up
// the main queue, and an attempt that has not connected within kOpenTimeout gives up.
void TNUSBChannel::openOnQueue(WorkQueue& queue, ErrorCallback onOpen, ErrorCallback onEnd) {
    HV_ASSERT(socket_ == nullptr);
    context_ = &queue.context();
    socket_ = std::make_unique<GenericSocket>(*context_);
    onOpen_ = std::move(onOpen);
    opening_ = true;
    const auto address = TNUSBSocketAddress::current();
    std::error_code error;
    auto endpoint = literalEndpointOf(address, error);
    if (error) {
        post([self = shared_from_this(), error] { self->didOpen(error, nullptr); });
        return;
    }
    if (endpoint) {
        connectTo({*endpoint}, std::move(onEnd));
        armOpenDeadline(queue);
        return;
    }
    resolver_ = std::make_unique<asio::ip::tcp::resolver>(*context_);
    resolver_->async_resolve(address.host, std::to_string(address.port),
                             [self = shared_from_this(), onEnd = std::move(onEnd)](
                                 std::error_code error, const asio::ip::tcp::resolver::results_type& results) mutable {
                                 if (error) {
                                     self->didOpen(error, nullptr);
                                     return;
                                 }
                                 std::vector<GenericEndpoint> endpoints;
                                 for (const auto& entry : results) {
                                     endpoints.emplace_back(entry.endpoint());
                                 }
                                 self->connectTo(std::move(endpoints), std::move(onEnd));
                             });
    armOpenDeadline(queue);
}

// Set only once the attempt is still pending after the turn that started it (a local socket
// answers at once, its completion queued ahead of this), so that a deadline invalidated at once
// is rarely left waiting on the queue to wake it for nothing.
void TNUSBChannel::armOpenDeadline(WorkQueue& queue) {
    post([weakSelf = weak_from_this(), queue = &queue] {
        auto self = weakSelf.lock();
        if (!self || !self->opening_) {
            return;
        }
        self->openDeadline_ = Timer::scheduled(*queue, kOpenTimeout, false, [weakSelf] {
            if (auto self = weakSelf.lock(); self && self->opening_) {
                self->openTimedOut_ = true;
                if (self->resolver_) {
                    self->resolver_->cancel();
                }
                std::error_code ignored;
                self->socket_->close(ignored);
            }
        });
    });
}

void TNUSBChannel::connectTo(std::vector<GenericEndpoint> endpoints, ErrorCallback onEnd) {
    if (ended_) {
        didOpen(asio::error::operation_aborted, nullptr);
        return;
    }
    auto shared = std::make_shared<std::vector<GenericEndpoint>>(std::move(endpoints));
    // Writes never raise SIGPIPE: Asio sends with MSG_NOSIGNAL.
    asio::async_connect(*socket_, *shared,
                        [self = shared_from_this(), shared, onEnd = std::move(onEnd)](std::error_code error,
                                                                                     const GenericEndpoint&) mutable {
                            self->didOpen(error, std::move(onEnd));
                        });
}

void TNUSBChannel::didOpen(std::error_code failure, ErrorCallback onEnd) {
    opening_ = false;
    if (openDeadline_) {
        openDeadline_->invalidate();
        openDeadline_.reset();
    }
    resolver_.reset();
    auto onOpen = std::exchange(onOpen_, nullptr);
    if (!failure && (ended_ || !socket_->is_open())) {
        failure = asio::error::operation_aborted;
    }
    if (failure) {
        const int number = openTimedOut_ ? ETIMEDOUT
                           : failure == asio::error::operation_aborted ? ECANCELED
                                                                        : errnoOf(failure);
        // A stop or invalidate while opening is the owner's doing, not worth a line.
        if (logsConnectFailures_ && number != ECANCELED) {
            logf("TNUSBChannel connect() to /var/run/usbmuxd failed: errno={} ({})", number,
                 std::generic_category().message(number));
        }
        if (socket_) {
            std::error_code ignored;
            socket_->close(ignored);
            socket_.reset();
        }
        if (onOpen) {
            onOpen(TNError::posix(number));
        }
        return;
    }
    logf("TNUSBChannel connect() to /var/run/usbmuxd succeeded, fd={}", socket_->native_handle());
    onEnd_ = std::move(onEnd);
    if (onOpen) {
        onOpen(std::nullopt);
    }
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
    return socket_ && !opening_ && socket_->is_open();
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
    onOpen_ = nullptr;
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
    if (resolver_) {
        resolver_->cancel();
    }
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
