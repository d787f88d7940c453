#pragma once
// A byte stream over one connected socket, the stream the frame layer reads and writes:
//
// - read(n) reports the bytes as they arrive, in pieces (done false), then once with done true.
//   The done report carries the piece that completes the n bytes. An empty done report means
//   that the peer closed the stream first; a non-zero error number that the read failed.
// - write(buffers) sends the buffers as one gather write, in order of issue after the writes
//   before it; it keeps the buffers alive until its done report.
// - Every report runs on the stream's queue, never inside the call that issued the operation.
// - close(stopOutstanding) refuses new operations (ECANCELED). With stopOutstanding the
//   operations under way end at once with ECANCELED; without, they run to their end. Once the
//   stream is closed and nothing is outstanding, the socket is closed and the clean-up handler
//   runs, exactly once, on the queue.
// - Once reading has ended (end of stream or an error), later reads end the same way; once a
//   write has failed, later writes fail with the same error.
//
// Sends go through the socket layer with MSG_NOSIGNAL: a write to a closed peer reports EPIPE
// instead of raising SIGPIPE. All calls are made on the stream's queue.

#include "platform/Types.hpp"
#include "platform/WorkQueue.hpp"

#include <asio/generic/stream_protocol.hpp>

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace havrel {

// A chain of byte buffers written as one: a frame is its header buffer and its payload buffer,
// which is referenced, not copied.
using TNDispatchData = std::vector<std::shared_ptr<const Bytes>>;

class TNStreamChannel : public std::enable_shared_from_this<TNStreamChannel> {
public:
    using Socket = asio::generic::stream_protocol::socket;
    using CleanupHandler = std::function<void(int errorNumber)>;
    using ReadHandler = std::function<void(bool done, ByteView piece, int errorNumber)>;
    using WriteHandler = std::function<void(bool done, int errorNumber)>;

    // Largest piece a read asks the socket for; a long read grows its result piece by piece.
    static constexpr std::size_t kReadChunkSize = 64 * 1024;
    // Least a receive asks for, whatever the read: what it brings beyond the read waits in the
    // stream for the reads that follow.
    static constexpr std::size_t kReadAheadSize = 4096;

    // Over a connected stream socket's descriptor, which belongs to the stream from then on
    // (on failure it is closed). nullptr when the descriptor is no connected stream socket;
    // errorNumber, if given, receives the reason.
    static std::shared_ptr<TNStreamChannel> createWithDescriptor(WorkQueue& queue, int fileDescriptor,
                                                                 CleanupHandler cleanup,
                                                                 int* errorNumber = nullptr);
    // Over an open socket of the queue's context.
    static std::shared_ptr<TNStreamChannel> create(Socket socket, CleanupHandler cleanup);

    ~TNStreamChannel();
    TNStreamChannel(const TNStreamChannel&) = delete;
    TNStreamChannel& operator=(const TNStreamChannel&) = delete;

    void read(std::size_t length, ReadHandler handler);
    void write(TNDispatchData buffers, WriteHandler handler);
    void close(bool stopOutstanding);

    bool isClosed() const { return closed_; }
    // Bytes of the writes issued and not yet reported done, each charged with
    // kWriteBookkeepingBytes for what holds it: what a peer that stops reading makes us keep.
    std::size_t queuedWriteBytes() const { return queuedWriteBytes_; }
    static constexpr std::size_t kWriteBookkeepingBytes = 256;
    // The socket's descriptor while it is open, else -1.
    int nativeHandle();

    // Builds through the factories only; public for make_shared.
    TNStreamChannel(Socket socket, CleanupHandler cleanup);

private:
    struct PendingRead {
        std::size_t remaining;
        ReadHandler handler;
    };
    struct PendingWrite {
        TNDispatchData buffers;
        WriteHandler handler;
        std::size_t charge = 0;  // counted in queuedWriteBytes_
    };

    void startRead();
    void startWrite();
    // Reports to the first read what waits in the read buffer, or the receive's error.
    void onRead(const std::error_code& error);
    void onWrite(const std::error_code& error);
    // Reports ECANCELED for an operation refused after close, later on the queue.
    void postRefusal(std::function<void()> report);
    // Starts what is queued, or finishes the stream, once no report is running.
    void advance();
    void finishIfDone();
    // Removes the first pending write from the queue and the count; returns its handler.
    WriteHandler popWrite();

    Socket socket_;
    CleanupHandler cleanup_;
    std::deque<PendingRead> reads_;
    std::deque<PendingWrite> writes_;
    Bytes readBuffer_;
    std::size_t aheadBegin_ = 0;  // readBuffer_[aheadBegin_, aheadEnd_) is received and not yet read
    std::size_t aheadEnd_ = 0;
    std::size_t postedRefusals_ = 0;
    std::size_t queuedWriteBytes_ = 0;
    std::optional<int> readEnd_;  // how the stream's reading ended: 0 end of stream, else errno
    int writeError_ = 0;          // errno of the write that failed
    bool readInFlight_ = false;
    bool writeInFlight_ = false;
    bool reporting_ = false;  // a report is running: starting more waits until it returns
    bool closed_ = false;
    bool stopping_ = false;
    bool finished_ = false;
};

}  // namespace havrel
