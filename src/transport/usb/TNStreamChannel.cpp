#include "transport/usb/TNStreamChannel.hpp"

#include "platform/SocketDescriptor.hpp"

#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace havrel {

namespace {

// The errno of a failed socket operation; 0 for end of stream.
int errorNumberOf(const std::error_code& error) {
    if (!error || error == asio::error::eof) {
        return 0;
    }
    if (error.category() == asio::system_category() || error.category() == std::generic_category()) {
        return error.value();
    }
    return EIO;
}

}  // namespace

std::shared_ptr<TNStreamChannel> TNStreamChannel::createWithDescriptor(WorkQueue& queue, int fileDescriptor,
                                                                       CleanupHandler cleanup, int* errorNumber) {
    auto fail = [&](int number) -> std::shared_ptr<TNStreamChannel> {
        closeDescriptor(fileDescriptor);
        if (errorNumber != nullptr) {
            *errorNumber = number;
        }
        return nullptr;
    };
    int why = 0;
    const auto domain = streamSocketDomain(fileDescriptor, why);
    if (!domain) {
        return fail(why);
    }
    Socket socket(queue.context());
    std::error_code error;
    socket.assign(asio::generic::stream_protocol(*domain, 0), fileDescriptor, error);
    if (error) {
        return fail(errorNumberOf(error));
    }
    return create(std::move(socket), std::move(cleanup));
}

std::shared_ptr<TNStreamChannel> TNStreamChannel::create(Socket socket, CleanupHandler cleanup) {
    return std::make_shared<TNStreamChannel>(std::move(socket), std::move(cleanup));
}

TNStreamChannel::TNStreamChannel(Socket socket, CleanupHandler cleanup)
    : socket_(std::move(socket)), cleanup_(std::move(cleanup)) {}

TNStreamChannel::~TNStreamChannel() {
    std::error_code ignored;
    socket_.close(ignored);
}

int TNStreamChannel::nativeHandle() {
    return socket_.is_open() ? socket_.native_handle() : -1;
}

void TNStreamChannel::read(std::size_t length, ReadHandler handler) {
    if (closed_) {
        postRefusal([handler = std::move(handler)] { handler(true, {}, ECANCELED); });
        return;
    }
    reads_.push_back(PendingRead{length, std::move(handler)});
    advance();
}

void TNStreamChannel::write(TNDispatchData buffers, WriteHandler handler) {
    if (closed_) {
        postRefusal([handler = std::move(handler)] {
            if (handler) {
                handler(true, ECANCELED);
            }
        });
        return;
    }
    std::size_t charge = kWriteBookkeepingBytes;
    for (const auto& buffer : buffers) {
        charge += buffer ? buffer->size() : 0;
    }
    queuedWriteBytes_ += charge;
    writes_.push_back(PendingWrite{std::move(buffers), std::move(handler), charge});
    advance();
}

void TNStreamChannel::close(bool stopOutstanding) {
    if (closed_) {
        if (stopOutstanding && !stopping_) {
            stopping_ = true;
            std::error_code ignored;
            socket_.cancel(ignored);
        }
        return;
    }
    closed_ = true;
    if (stopOutstanding) {
        stopping_ = true;
        std::error_code ignored;
        socket_.cancel(ignored);
    }
    advance();
}

void TNStreamChannel::postRefusal(std::function<void()> report) {
    ++postedRefusals_;
    asio::post(socket_.get_executor(), [self = shared_from_this(), report = std::move(report)] {
        --self->postedRefusals_;
        self->reporting_ = true;
        report();
        self->reporting_ = false;
        self->advance();
    });
}

void TNStreamChannel::advance() {
    if (reporting_) {
        return;
    }
    startRead();
    startWrite();
    finishIfDone();
}

void TNStreamChannel::startRead() {
    if (readInFlight_) {
        return;
    }
    // Queued reads that a stopping close overtook end as cancelled.
    while (stopping_ && !reads_.empty()) {
        auto handler = std::move(reads_.front().handler);
        reads_.pop_front();
        postRefusal([handler = std::move(handler)] { handler(true, {}, ECANCELED); });
    }
    // After the end of the stream or a failed read, later reads end the same way at once.
    while (readEnd_ && !reads_.empty()) {
        auto handler = std::move(reads_.front().handler);
        reads_.pop_front();
        postRefusal([handler = std::move(handler), errorNumber = *readEnd_] { handler(true, {}, errorNumber); });
    }
    if (reads_.empty()) {
        return;
    }
    readInFlight_ = true;
    // What an earlier receive brought beyond the read it served goes out first, without a
    // system call; a read of 0 bytes takes this path too and ends empty at once.
    if (aheadEnd_ > aheadBegin_ || reads_.front().remaining == 0) {
        asio::post(socket_.get_executor(), [self = shared_from_this()] {
            self->onRead(self->stopping_ ? asio::error::operation_aborted : std::error_code{});
        });
        return;
    }
    // One receive takes all that is waiting, up to the buffer: several frames of a busy
    // client cost one system call, and a short receive tells the reactor the socket is drained.
    const std::size_t chunk = std::max(std::min(reads_.front().remaining, kReadChunkSize), kReadAheadSize);
    readBuffer_.resize(chunk);
    aheadBegin_ = aheadEnd_ = 0;
    socket_.async_read_some(asio::buffer(readBuffer_.data(), chunk),
                            [self = shared_from_this()](const std::error_code& error, std::size_t size) {
                                self->aheadEnd_ = error ? 0 : size;
                                self->onRead(error);
                            });
}

void TNStreamChannel::onRead(const std::error_code& error) {
    readInFlight_ = false;
    PendingRead& read = reads_.front();
    reporting_ = true;
    const std::size_t size = error ? 0 : std::min(aheadEnd_ - aheadBegin_, read.remaining);
    if (size > 0) {
        read.remaining -= size;
        const ByteView piece(readBuffer_.data() + aheadBegin_, size);
        aheadBegin_ += size;
        if (read.remaining == 0) {
            auto handler = std::move(read.handler);
            reads_.pop_front();
            handler(true, piece, 0);
        } else {
            read.handler(false, piece, 0);
        }
    } else {
        // End of stream (or a request of 0 bytes) gives the empty done report.
        auto handler = std::move(read.handler);
        reads_.pop_front();
        const int errorNumber = errorNumberOf(error);
        if (error && errorNumber != ECANCELED) {
            readEnd_ = errorNumber;
        }
        handler(true, {}, errorNumber);
    }
    reporting_ = false;
    advance();
}

void TNStreamChannel::startWrite() {
    if (writeInFlight_) {
        return;
    }
    while (stopping_ && !writes_.empty()) {
        auto handler = popWrite();
        postRefusal([handler = std::move(handler)] {
            if (handler) {
                handler(true, ECANCELED);
            }
        });
    }
    // A socket that failed a write fails every later one: nothing more gets through.
    while (writeError_ != 0 && !writes_.empty()) {
        auto handler = popWrite();
        postRefusal([handler = std::move(handler), errorNumber = writeError_] {
            if (handler) {
                handler(true, errorNumber);
            }
        });
    }
    if (writes_.empty()) {
        return;
    }
    std::vector<asio::const_buffer> buffers;
    for (const auto& buffer : writes_.front().buffers) {
        if (buffer && !buffer->empty()) {
            buffers.emplace_back(buffer->data(), buffer->size());
        }
    }
    writeInFlight_ = true;
    // The pending entry keeps the buffers alive until the write's report.
    asio::async_write(socket_, buffers, [self = shared_from_this()](const std::error_code& error, std::size_t) {
        self->onWrite(error);
    });
}

void TNStreamChannel::onWrite(const std::error_code& error) {
    writeInFlight_ = false;
    auto handler = popWrite();
    const int errorNumber = errorNumberOf(error);
    if (errorNumber != ECANCELED) {
        writeError_ = errorNumber;
    }
    reporting_ = true;
    if (handler) {
        handler(true, errorNumber);
    }
    reporting_ = false;
    advance();
}

TNStreamChannel::WriteHandler TNStreamChannel::popWrite() {
    auto handler = std::move(writes_.front().handler);
    queuedWriteBytes_ -= writes_.front().charge;
    writes_.pop_front();
    return handler;
}

void TNStreamChannel::finishIfDone() {
    if (!closed_ || finished_ || readInFlight_ || writeInFlight_ || !reads_.empty() || !writes_.empty() ||
        postedRefusals_ > 0) {
        return;
    }
    finished_ = true;
    std::error_code ignored;
    socket_.close(ignored);
    if (auto cleanup = std::exchange(cleanup_, nullptr)) {
        asio::post(socket_.get_executor(), [cleanup = std::move(cleanup)] { cleanup(0); });
    }
}

}  // namespace havrel
