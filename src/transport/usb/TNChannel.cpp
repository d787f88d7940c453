#include "transport/usb/TNChannel.hpp"

#include "MIDIInternals/UUID.hpp"
#include "platform/Assert.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <asio/error.hpp>
#include <asio/ip/address_v4.hpp>

#include <fmt/format.h>

#include <cerrno>
#include <utility>

namespace havrel {

struct TNChannel::ListeningSource {
    explicit ListeningSource(asio::io_context& context) : acceptor(context) {}
    asio::ip::tcp::acceptor acceptor;
    bool cancelled = false;
};

namespace {

int errorNumberOf(const std::error_code& error) {
    if (error.category() == asio::system_category() || error.category() == std::generic_category()) {
        return error.value();
    }
    return EIO;
}

const char* stateWord(TNChannel::ConnState state) {
    switch (state) {
    case TNChannel::kConnStateConnecting:
        return "connecting";
    case TNChannel::kConnStateConnected:
        return "connected";
    case TNChannel::kConnStateListening:
        return "listening";
    case TNChannel::kConnStateNone:
        break;
    }
    return "closed";
}

}  // namespace

std::shared_ptr<TNChannel> TNChannel::channelWithDelegate(std::shared_ptr<TNChannelDelegate> delegate) {
    return channelWithDelegate(std::move(delegate), MainQueue::shared());
}

std::shared_ptr<TNChannel> TNChannel::channelWithDelegate(std::shared_ptr<TNChannelDelegate> delegate,
                                                          WorkQueue& queue) {
    return initWithProtocol(TNProtocol::sharedProtocolForQueue(queue), std::move(delegate));
}

std::shared_ptr<TNChannel> TNChannel::initWithProtocol(std::shared_ptr<TNProtocol> protocol,
                                                       std::shared_ptr<TNChannelDelegate> delegate) {
    return std::make_shared<TNChannel>(std::move(protocol), std::move(delegate));
}

TNChannel::TNChannel(std::shared_ptr<TNProtocol> protocol, std::shared_ptr<TNChannelDelegate> delegate)
    : protocol_(std::move(protocol)) {
    setDelegate(std::move(delegate));
}

void TNChannel::setDelegate(std::shared_ptr<TNChannelDelegate> delegate) {
    delegate_ = std::move(delegate);
    delegateFlags_ = delegate_ ? delegate_->implementedOperations() : 0;
}

std::string TNChannel::uuid() {
    if (!uuid_) {
        uuid_ = MIDIInternals::randomUUIDString();
    }
    return *uuid_;
}

void TNChannel::setUuid(std::string uuid) {
    uuid_ = std::move(uuid);
}

bool TNChannel::isConnected() const {
    return connState_ == kConnStateConnecting || connState_ == kConnStateConnected;
}

bool TNChannel::isListening() const {
    return connState_ == kConnStateListening;
}

std::string TNChannel::description() const {
    return fmt::format("<TNChannel: {} ({}){}{}>", fmt::ptr(this), stateWord(connState_), userInfo.empty() ? "" : " ",
                       userInfo);
}

void TNChannel::setDispatchChannel(std::shared_ptr<TNStreamChannel> stream) {
    HV_ASSERT(connState_ == kConnStateConnecting || connState_ == kConnStateConnected ||
              connState_ == kConnStateNone);
    if (stream == stream_) {
        return;
    }
    stream_ = std::move(stream);
    if (!stream_ && !source_) {
        setConnState(kConnStateNone);
    }
}

void TNChannel::setDispatchSource(std::shared_ptr<ListeningSource> source) {
    HV_ASSERT(connState_ == kConnStateListening || connState_ == kConnStateNone);
    if (source == source_) {
        return;
    }
    source_ = std::move(source);
    if (!stream_ && !source_) {
        setConnState(kConnStateNone);
    }
}

// Connecting

void TNChannel::connectToPort(std::int32_t port, TNUSBDeviceConnector& hub, std::int64_t deviceID,
                              ErrorCallback callback) {
    HV_ASSERT(protocol_ != nullptr);
    if (connState_ != kConnStateNone) {
        if (callback) {
            callback(TNError::posix(1));
        }
        return;
    }
    setConnState(kConnStateConnecting);
    hub.connectToDevice(deviceID, port,
                        [self = shared_from_this(), callback = std::move(callback)](TNOptionalError error,
                                                                                    int fileDescriptor) {
                            TNOptionalError result;
                            auto queue = self->protocol_->queue();
                            if (error || !queue) {
                                self->setConnState(kConnStateNone);
                                result = error ? error : TNError::make(kTNErrorDomain, 0);
                            } else if (auto stream = TNStreamChannel::createWithDescriptor(*queue, fileDescriptor,
                                                                                           self->hubCleanup())) {
                                self->startReadingFromConnectedChannel(stream, result);
                            } else {
                                self->setConnState(kConnStateNone);
                                result = TNError::make(kTNErrorDomain, 0);
                            }
                            if (callback) {
                                callback(result);
                            }
                        });
}

void TNChannel::connectToPort(std::uint16_t port, std::uint32_t ipv4Address, ConnectCallback callback) {
    HV_ASSERT(protocol_ != nullptr);
    if (connState_ != kConnStateNone) {
        if (callback) {
            callback(TNError::posix(1), std::nullopt);
        }
        return;
    }
    setConnState(kConnStateConnecting);
    auto queue = protocol_->queue();
    HV_ASSERT(queue != nullptr);
    auto socket = std::make_shared<asio::ip::tcp::socket>(queue->context());
    std::error_code error;
    socket->open(asio::ip::tcp::v4(), error);
    if (error) {
        log("socket(AF_INET, SOCK_STREAM, 0) failed");
        if (callback) {
            callback(TNError::posix(errorNumberOf(error)), std::nullopt);
        }
        return;
    }
    pendingConnect_ = socket;
    const asio::ip::tcp::endpoint endpoint(asio::ip::address_v4(ipv4Address), port);
    socket->async_connect(endpoint, [self = shared_from_this(), socket, ipv4Address, port,
                                     callback = std::move(callback)](const std::error_code& connectError) {
        if (self->pendingConnect_ == socket) {
            self->pendingConnect_.reset();
        }
        if (connectError) {
            // The channel stays connecting: a failed attempt spends it.
            std::error_code ignored;
            socket->close(ignored);
            if (callback) {
                callback(TNError::posix(errorNumberOf(connectError)), std::nullopt);
            }
            return;
        }
        auto stream = TNStreamChannel::create(TNStreamChannel::Socket(std::move(*socket)), self->socketCleanup());
        TNOptionalError result;
        self->startReadingFromConnectedChannel(stream, result);
        if (callback) {
            callback(result, TNAddress::ipv4(ipv4Address, port));
        }
    });
}

TNStreamChannel::CleanupHandler TNChannel::socketCleanup(std::shared_ptr<TNChannel> listening) {
    return [self = shared_from_this(), listening = std::move(listening)](int errorNumber) {
        if ((self->delegateFlags_ & kTNChannelDelegateDidEnd) != 0) {
            const TNOptionalError error = errorNumber != 0 ? TNOptionalError(TNError::posix(errorNumber))
                                                           : self->endError_;
            auto delegate = self->delegate_;
            delegate->ioFrameChannelDidEndWithError(self, error);
            self->endError_.reset();
        }
    };
}

TNStreamChannel::CleanupHandler TNChannel::hubCleanup() {
    return [self = shared_from_this()](int errorNumber) {
        if ((self->delegateFlags_ & kTNChannelDelegateDidEnd) != 0) {
            const TNOptionalError error =
                errorNumber != 0 ? TNOptionalError(TNError::posix(errorNumber)) : std::nullopt;
            auto delegate = self->delegate_;
            delegate->ioFrameChannelDidEndWithError(self, error);
            self->endError_.reset();
        }
    };
}

// Listening

void TNChannel::listenOnPort(std::uint16_t port, std::uint32_t ipv4Address, ErrorCallback callback) {
    HV_ASSERT(source_ == nullptr);
    auto queue = protocol_->queue();
    HV_ASSERT(queue != nullptr);
    auto source = std::make_shared<ListeningSource>(queue->context());
    auto& acceptor = source->acceptor;
    std::error_code error;
    acceptor.open(asio::ip::tcp::v4(), error);
    if (!error) {
        acceptor.set_option(asio::socket_base::reuse_address(true), error);
    }
    if (!error) {
        acceptor.non_blocking(true, error);
    }
    if (!error) {
        acceptor.bind(asio::ip::tcp::endpoint(asio::ip::address_v4(ipv4Address), port), error);
    }
    if (!error) {
        acceptor.listen(512, error);
    }
    if (error) {
        std::error_code ignored;
        acceptor.close(ignored);
        if (callback) {
            callback(TNError::posix(errorNumberOf(error)));
        }
        return;
    }
    setDispatchSource(source);
    waitForConnections(source);
    setConnState(kConnStateListening);
    if (callback) {
        callback(std::nullopt);
    }
}

std::uint16_t TNChannel::localPort() const {
    if (!source_) {
        return 0;
    }
    std::error_code error;
    const auto endpoint = source_->acceptor.local_endpoint(error);
    return error ? 0 : endpoint.port();
}

void TNChannel::waitForConnections(const std::shared_ptr<ListeningSource>& source) {
    source->acceptor.async_wait(asio::socket_base::wait_read,
                                [self = shared_from_this(), source](const std::error_code& error) {
                                    if (error || source->cancelled) {
                                        self->sourceCancelled(source);
                                        return;
                                    }
                                    while (!source->cancelled && self->acceptIncomingConnection(*source)) {
                                    }
                                    if (source->cancelled) {
                                        self->sourceCancelled(source);
                                        return;
                                    }
                                    self->waitForConnections(source);
                                });
}

void TNChannel::sourceCancelled(const std::shared_ptr<ListeningSource>& source) {
    // The source is dropped directly: the channel stays in state listening.
    if (source_ == source) {
        source_.reset();
    }
    std::error_code ignored;
    source->acceptor.close(ignored);
    if ((delegateFlags_ & kTNChannelDelegateDidEnd) != 0) {
        auto delegate = delegate_;
        delegate->ioFrameChannelDidEndWithError(shared_from_this(), endError_);
        endError_.reset();
    }
}

bool TNChannel::acceptIncomingConnection(ListeningSource& source) {
    asio::ip::tcp::socket socket(source.acceptor.get_executor());
    asio::ip::tcp::endpoint peer;
    std::error_code error;
    source.acceptor.accept(socket, peer, error);
    if (error == asio::error::would_block || error == asio::error::try_again) {
        return false;  // nothing more waiting
    }
    if (error) {
        log("accept()");
        return false;
    }
    socket.non_blocking(true, error);
    if (error) {
        log("fcntl(.. O_NONBLOCK)");
        std::error_code ignored;
        socket.close(ignored);
        return false;
    }
    if ((delegateFlags_ & kTNChannelDelegateDidAccept) == 0) {
        std::error_code ignored;
        socket.close(ignored);
        return true;
    }
    auto newChannel = initWithProtocol(protocol_, delegate_);
    auto stream = TNStreamChannel::create(TNStreamChannel::Socket(std::move(socket)),
                                          newChannel->socketCleanup(shared_from_this()));
    newChannel->setConnState(kConnStateConnected);
    newChannel->setDispatchChannel(stream);
    const TNAddress address(peer);
    auto delegate = delegate_;
    delegate->ioFrameChannelDidAcceptConnection(shared_from_this(), newChannel, address);
    TNOptionalError startError;
    if (!newChannel->startReadingFromConnectedChannel(stream, startError)) {
        logf("startReadingFromConnectedChannel failed in accept: {}", describe(startError));
    }
    return true;
}

// Reading

bool TNChannel::startReadingFromConnectedChannel(const std::shared_ptr<TNStreamChannel>& stream,
                                                 TNOptionalError& error) {
    if (connState_ == kConnStateListening) {
        error = TNError::posix(1);
        return false;
    }
    if (stream != stream_) {
        if (stream_) {
            stream_->close(true);
        }
        setDispatchChannel(stream);
    }
    setConnState(kConnStateConnected);
    protocol_->readFramesOverChannel(
        stream, [self = shared_from_this(), stream](const TNOptionalError& readError, std::uint32_t type,
                                                    std::uint32_t tag, std::uint32_t payloadSize,
                                                    TNProtocol::ResumeCallback resume) {
            self->onFrame(stream, readError, type, tag, payloadSize, std::move(resume));
        });
    return true;
}

bool TNChannel::continueAfter(const TNOptionalError& error, bool endOfStream) {
    if (error) {
        endError_ = error;
        close();
        return false;
    }
    if (endOfStream) {
        cancel();
        return false;
    }
    return true;
}

void TNChannel::onFrame(const std::shared_ptr<TNStreamChannel>& stream, const TNOptionalError& error,
                        std::uint32_t type, std::uint32_t tag, std::uint32_t payloadSize,
                        TNProtocol::ResumeCallback resume) {
    if (!continueAfter(error, type == 0)) {
        return;
    }
    auto self = shared_from_this();
    if (stream != stream_) {
        // A frame of a stream that has since been replaced is never delivered.
        if (payloadSize == 0) {
            resume();
        } else {
            discardPayload(stream, payloadSize, std::move(resume));
        }
        return;
    }
    if ((delegateFlags_ & kTNChannelDelegateShouldAccept) != 0) {
        auto delegate = delegate_;
        if (!delegate->ioFrameChannelShouldAcceptFrameOfType(self, type, tag, payloadSize)) {
            if (payloadSize == 0) {
                resume();
            } else {
                discardPayload(stream, payloadSize, std::move(resume));
            }
            return;
        }
    }
    if (payloadSize == 0) {
        if (auto delegate = delegate_) {
            delegate->ioFrameChannelDidReceiveFrameOfType(self, type, tag, nullptr);
        }
        resume();
        return;
    }
    protocol_->readPayloadOfSize(
        payloadSize, stream,
        [self, type, tag, resume = std::move(resume)](const TNOptionalError& readError,
                                                      std::shared_ptr<const Bytes> buffer) {
            if (!self->continueAfter(readError, !buffer || buffer->empty())) {
                return;
            }
            if (auto delegate = self->delegate_) {
                delegate->ioFrameChannelDidReceiveFrameOfType(self, type, tag,
                                                              TNData::dataWithContentsOfDispatchData(std::move(buffer)));
            }
            resume();
        });
}

void TNChannel::discardPayload(const std::shared_ptr<TNStreamChannel>& stream, std::uint32_t payloadSize,
                               TNProtocol::ResumeCallback resume) {
    protocol_->readAndDiscardDataOfSize(
        payloadSize, stream,
        [self = shared_from_this(), resume = std::move(resume)](const TNOptionalError& error, bool endOfStream) {
            if (self->continueAfter(error, endOfStream)) {
                resume();
            }
        });
}

// Sending and closing

void TNChannel::sendFrameOfType(std::uint32_t type, std::uint32_t tag, std::shared_ptr<const Bytes> payload,
                                ErrorCallback callback) {
    if ((connState_ == kConnStateConnecting || connState_ == kConnStateConnected) && stream_) {
        // Departure: the write queue has a bound. A peer that stops reading (a suspended app, a
        // stalled tunnel) is closed rather than kept in memory.
        const std::size_t queued = stream_->queuedWriteBytes();
        const std::size_t frame = kTNFrameHeaderSize + (payload ? payload->size() : 0) +
                                  TNStreamChannel::kWriteBookkeepingBytes;
        if (queued > 0 && queued + frame > kTNChannelMaximumQueuedWriteBytes) {
            logf("TNChannel {}: the peer is not reading, {} bytes wait to be sent — closing channel", description(),
                 queued);
            endError_ = TNError::posix(ENOBUFS);
            close();
            if (callback) {
                callback(TNError::posix(ENOBUFS));
            }
            return;
        }
        protocol_->sendFrameOfType(type, tag, std::move(payload), stream_, std::move(callback));
        return;
    }
    if (callback) {
        callback(TNError::posix(1));
    }
}

void TNChannel::close() {
    closeWith(true);
}

void TNChannel::cancel() {
    closeWith(false);
}

void TNChannel::closeWith(bool stopOutstanding) {
    if ((connState_ == kConnStateConnecting || connState_ == kConnStateConnected) && stream_) {
        stream_->close(stopOutstanding);
        setDispatchChannel(nullptr);
    } else if (connState_ == kConnStateListening && source_) {
        source_->cancelled = true;
        std::error_code ignored;
        source_->acceptor.cancel(ignored);
    } else if (connState_ == kConnStateConnecting && pendingConnect_) {
        // The connect ends with ECANCELED; the channel stays connecting, spent.
        std::error_code ignored;
        pendingConnect_->close(ignored);
        pendingConnect_.reset();
    }
}

}  // namespace havrel
