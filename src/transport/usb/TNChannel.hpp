#pragma once
// One framed connection to one peer, or one listening socket. The channel owns the stream,
// tracks the connection state, runs the frame read loop and turns frames and the stream's end
// into calls of its delegate, which it holds strongly.
//
// States: none -> connecting (a connect is under way) -> connected (the read loop runs) ->
// none once close or cancel drops the stream; none -> listening. The end of a connection is
// told by ioFrameChannelDidEndWithError after the socket is closed: a read or protocol error
// as the error, a clean end of stream as none.
//
// Everything runs on the protocol's queue; the channel keeps itself alive through the
// callbacks it gives its stream until the stream's clean-up has run.

#include "platform/Types.hpp"
#include "platform/WorkQueue.hpp"
#include "transport/usb/TNAddress.hpp"
#include "transport/usb/TNData.hpp"
#include "transport/usb/TNError.hpp"
#include "transport/usb/TNProtocol.hpp"
#include "transport/usb/TNStreamChannel.hpp"
#include "transport/usb/TNUSBDeviceConnector.hpp"

#include <asio/ip/tcp.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace havrel {

class TNChannel;

// What may wait to be written on one channel (TNStreamChannel::queuedWriteBytes): a send that
// would pass it closes the channel, so a peer that stops reading cannot grow our memory.
inline constexpr std::size_t kTNChannelMaximumQueuedWriteBytes = std::size_t{1} << 20;

class TNChannelDelegate {
public:
    virtual ~TNChannelDelegate() = default;
    // bit 1 shouldAccept, bit 2 didEnd, bit 4 didAccept: what the delegate implements.
    virtual std::uint8_t implementedOperations() const { return 0; }
    // payload nullptr: the frame has none.
    virtual void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                                                     std::uint32_t tag, const std::shared_ptr<TNData>& payload) = 0;
    virtual bool ioFrameChannelShouldAcceptFrameOfType([[maybe_unused]] const std::shared_ptr<TNChannel>& channel,
                                                       [[maybe_unused]] std::uint32_t type,
                                                       [[maybe_unused]] std::uint32_t tag,
                                                       [[maybe_unused]] std::uint32_t payloadSize) {
        return true;
    }
    virtual void ioFrameChannelDidEndWithError([[maybe_unused]] const std::shared_ptr<TNChannel>& channel,
                                               [[maybe_unused]] const TNOptionalError& error) {}
    virtual void ioFrameChannelDidAcceptConnection([[maybe_unused]] const std::shared_ptr<TNChannel>& channel,
                                                   [[maybe_unused]] const std::shared_ptr<TNChannel>& newChannel,
                                                   [[maybe_unused]] const TNAddress& address) {}
};

inline constexpr std::uint8_t kTNChannelDelegateShouldAccept = 1;
inline constexpr std::uint8_t kTNChannelDelegateDidEnd = 2;
inline constexpr std::uint8_t kTNChannelDelegateDidAccept = 4;

class TNChannel : public std::enable_shared_from_this<TNChannel> {
public:
    using ErrorCallback = std::function<void(const TNOptionalError&)>;
    using ConnectCallback = std::function<void(const TNOptionalError&, std::optional<TNAddress>)>;

    enum ConnState : std::int8_t {
        kConnStateNone = 0,
        kConnStateConnecting = 1,
        kConnStateConnected = 2,
        kConnStateListening = 3,
    };

    // A channel with the queue's shared protocol (the main queue's without a queue).
    static std::shared_ptr<TNChannel> channelWithDelegate(std::shared_ptr<TNChannelDelegate> delegate);
    static std::shared_ptr<TNChannel> channelWithDelegate(std::shared_ptr<TNChannelDelegate> delegate,
                                                          WorkQueue& queue);
    static std::shared_ptr<TNChannel> initWithProtocol(std::shared_ptr<TNProtocol> protocol,
                                                       std::shared_ptr<TNChannelDelegate> delegate = nullptr);

    // Through the USB hub: on success the tunnel's socket becomes the stream. A hub error puts
    // the channel back to state none.
    void connectToPort(std::int32_t port, TNUSBDeviceConnector& hub, std::int64_t deviceID, ErrorCallback callback);
    // A TCP connection to the address (host order, e.g. 0x7F000001). A failed attempt leaves the
    // channel connecting: it is spent, the next attempt takes a new channel.
    void connectToPort(std::uint16_t port, std::uint32_t ipv4Address, ConnectCallback callback);
    // Port 0: any free port (see localPort).
    void listenOnPort(std::uint16_t port, std::uint32_t ipv4Address, ErrorCallback callback);
    // The bound port while listening, else 0.
    std::uint16_t localPort() const;

    // payload nullptr: none; the callback may be empty. Outside states connecting and
    // connected (or without a stream yet) the callback gets POSIX error 1. A frame that would
    // take the writes waiting past kTNChannelMaximumQueuedWriteBytes closes the channel with a
    // log line instead, and the callback gets POSIX error ENOBUFS; a frame on an empty queue
    // always goes, whatever its size.
    void sendFrameOfType(std::uint32_t type, std::uint32_t tag, std::shared_ptr<const Bytes> payload,
                         ErrorCallback callback);

    // Stops the stream at once: outstanding reads and writes end with ECANCELED. Listening,
    // stops accepting. A pending TCP connect ends with ECANCELED.
    void close();
    // Ends the stream after what is outstanding.
    void cancel();

    bool isConnected() const;
    bool isListening() const;
    ConnState connState() const { return connState_; }

    std::shared_ptr<TNProtocol> protocol() const { return protocol_; }
    std::shared_ptr<TNChannelDelegate> delegate() const { return delegate_; }
    void setDelegate(std::shared_ptr<TNChannelDelegate> delegate);

    std::string uuid();
    void setUuid(std::string uuid);
    std::string hvUserInfo;  // display label
    std::optional<std::int64_t> deviceID;
    std::string userInfo;  // free label shown in description()

    // "<TNChannel: 0x... (connected) label>"
    std::string description() const;

    TNChannel(std::shared_ptr<TNProtocol> protocol, std::shared_ptr<TNChannelDelegate> delegate);

private:
    struct ListeningSource;

    void setConnState(ConnState state) { connState_ = state; }
    void setDispatchChannel(std::shared_ptr<TNStreamChannel> stream);
    void setDispatchSource(std::shared_ptr<ListeningSource> source);
    void closeWith(bool stopOutstanding);

    void waitForConnections(const std::shared_ptr<ListeningSource>& source);
    void sourceCancelled(const std::shared_ptr<ListeningSource>& source);
    // Accepts one waiting connection; false when there is none or accepting failed.
    bool acceptIncomingConnection(ListeningSource& source);

    bool startReadingFromConnectedChannel(const std::shared_ptr<TNStreamChannel>& stream, TNOptionalError& error);
    void onFrame(const std::shared_ptr<TNStreamChannel>& stream, const TNOptionalError& error, std::uint32_t type,
                 std::uint32_t tag, std::uint32_t payloadSize, TNProtocol::ResumeCallback resume);
    void discardPayload(const std::shared_ptr<TNStreamChannel>& stream, std::uint32_t payloadSize,
                        TNProtocol::ResumeCallback resume);
    // The check after each read of the loop: false when the loop must stop.
    bool continueAfter(const TNOptionalError& error, bool endOfStream);

    // Clean-up of a TCP or accepted stream: the stream's error, else the loop's.
    TNStreamChannel::CleanupHandler socketCleanup(std::shared_ptr<TNChannel> listening = nullptr);
    // Clean-up of a stream handed over by the hub: only the stream's own error.
    TNStreamChannel::CleanupHandler hubCleanup();

    std::shared_ptr<TNStreamChannel> stream_;
    std::shared_ptr<ListeningSource> source_;
    std::shared_ptr<asio::ip::tcp::socket> pendingConnect_;  // a TCP connect under way
    TNOptionalError endError_;
    std::shared_ptr<TNChannelDelegate> delegate_;
    std::uint8_t delegateFlags_ = 0;
    ConnState connState_ = kConnStateNone;
    std::shared_ptr<TNProtocol> protocol_;
    std::optional<std::string> uuid_;
};

}  // namespace havrel
