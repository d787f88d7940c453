#pragma once
// One socket to the USB multiplexer daemon, on a work queue: packet framing, tags, and the
// matching of replies to requests. Every call and every callback happens on that queue.
//
// Reading is one packet at a time and never beyond it (TNUSBPacketReader), so that after a
// successful Connect the socket can be handed over as a byte tunnel with nothing of the tunnel
// taken. A packet with tag 0 is a broadcast and goes to the broadcast handler; any other tag is
// a reply and goes to the callback of the request that holds it. With automatic reading on, the
// next read is scheduled after each packet; with it off, reading goes on only while a request
// waits for its reply.
//
// The socket ends when the daemon closes it, on a read error, on a packet whose size cannot be
// framed, or on stop() and cancel(). Then every request still waiting gets an error, and the
// end callback runs once with the error (none for a close by either side). A socket whose
// descriptor was released ends silently: it belongs to someone else.

#include "platform/Timer.hpp"
#include "platform/Types.hpp"
#include "platform/WorkQueue.hpp"
#include "transport/usb/TNError.hpp"
#include "transport/usb/TNUSBPacketReader.hpp"

#include <asio/generic/stream_protocol.hpp>
#include <asio/ip/tcp.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace havrel {

class TNUSBChannel : public std::enable_shared_from_this<TNUSBChannel> {
public:
    using ErrorCallback = std::function<void(const TNOptionalError& error)>;
    using ResponseCallback = std::function<void(const TNOptionalError& error, const std::optional<Dictionary>& reply)>;
    using BroadcastHandler = std::function<void(const std::optional<Dictionary>& packet)>;
    using PacketCallback = std::function<void(const TNOptionalError& error, const std::optional<Dictionary>& packet,
                                              std::uint32_t tag)>;

    static std::shared_ptr<TNUSBChannel> create();
    ~TNUSBChannel();
    TNUSBChannel(const TNUSBChannel&) = delete;
    TNUSBChannel& operator=(const TNUSBChannel&) = delete;

    // Connects to the daemon's socket (TNUSBSocketAddress::current()) without waiting: a host
    // name is looked up and the connect made in the background. onOpen gets the outcome on the
    // queue, a POSIX error on failure (ETIMEDOUT after kOpenTimeout); onEnd, which may be
    // empty, is kept for the end of an opened socket. Other requests wait for onOpen.
    void openOnQueue(WorkQueue& queue, ErrorCallback onOpen, ErrorCallback onEnd);
    static constexpr std::chrono::seconds kOpenTimeout{5};
    // Whether a failed open says so in a log line (the default).
    void setLogsConnectFailures(bool logs) { logsConnectFailures_ = logs; }

    // Turns automatic reading on and sends Listen; the callback gets the reply's outcome.
    void listenWithBroadcastHandler(BroadcastHandler handler, ErrorCallback callback);

    // Increments and returns: the first tag is 1.
    std::uint32_t nextPacketTag();
    // Sends with a new tag; the callback gets the reply, or the error of the write or of the
    // socket's end, exactly once.
    void sendRequest(const Dictionary& packet, ResponseCallback callback);

    // Schedules a read (without a broadcast handler) unless one is outstanding.
    void setNeedsReadingPacket();
    // Reads one packet and dispatches it by tag. No read may be outstanding.
    void scheduleReadPacketWithBroadcastHandler(BroadcastHandler handler);
    // Reads one packet and hands it over as it is.
    void scheduleReadPacketWithCallback(PacketCallback callback);

    void sendPacketOfType(std::uint32_t type, std::uint32_t protocol, std::uint32_t tag, ByteView payload,
                          ErrorCallback callback);
    // As an XML property list with type 8 over protocol 1.
    void sendPacket(const Dictionary& packet, std::uint32_t tag, ErrorCallback callback);
    // Raw write, after the writes before it.
    void sendData(Bytes data, ErrorCallback callback);

    // Opened, and neither ended nor handed over.
    bool valid() const;
    // The socket's descriptor, or -1.
    int fileDescriptor() const;
    // Hands the socket over, in blocking mode: the channel no longer reads, writes or closes
    // it. -1 when there is none.
    int releaseFileDescriptor();

    // Closes once the writes already sent have finished.
    void cancel();
    // Closes now.
    void stop();
    // Closes now without a word to anyone: no end report, no error to waiting requests. For an
    // owner that goes away with its callbacks.
    void invalidate();

    bool autoReadPackets() const { return autoReadPackets_; }
    void setAutoReadPackets(bool autoRead) { autoReadPackets_ = autoRead; }
    bool isReadingPackets() const { return isReadingPackets_; }

private:
    struct PendingWrite {
        Bytes data;
        ErrorCallback callback;
    };

    TNUSBChannel() = default;

    void connectTo(std::vector<asio::generic::stream_protocol::endpoint> endpoints, ErrorCallback onEnd);
    void didOpen(std::error_code failure, ErrorCallback onEnd);
    void armOpenDeadline(WorkQueue& queue);
    void readMore(PacketCallback callback);
    void didRead(std::error_code error, std::size_t count, const PacketCallback& callback);
    void deliver(TNUSBPacketReader::Result result, const PacketCallback& callback);
    void dispatchPacket(const TNOptionalError& error, const std::optional<Dictionary>& packet, std::uint32_t tag,
                        const BroadcastHandler& handler);
    void writeNext();
    // Closes the socket and, later on the queue, fails what waits and reports the end.
    void endStream(TNOptionalError error, TNError pendingError);
    void post(std::function<void()> work);

    asio::io_context* context_ = nullptr;
    std::unique_ptr<asio::generic::stream_protocol::socket> socket_;
    ErrorCallback onEnd_;
    ErrorCallback onOpen_;
    bool opening_ = false;
    std::unique_ptr<asio::ip::tcp::resolver> resolver_;
    std::shared_ptr<Timer> openDeadline_;
    bool openTimedOut_ = false;
    bool logsConnectFailures_ = true;
    bool ended_ = false;
    bool closeAfterWrites_ = false;

    std::uint32_t nextPacketTag_ = 0;
    std::optional<std::map<std::uint32_t, ResponseCallback>> responseQueue_;  // made on first request
    bool autoReadPackets_ = false;
    bool isReadingPackets_ = false;
    TNUSBPacketReader reader_;
    std::deque<PendingWrite> writes_;
};

}  // namespace havrel
