#pragma once
// Helpers for frame tests over real sockets: the main queue is run until nothing more comes, a
// recording delegate keeps what the channel reports, a hub stand-in hands one end of a socket
// pair to the channel, and raw frames are built by hand.

#include "platform/MainQueue.hpp"
#include "platform/Types.hpp"
#include "transport/usb/TNChannel.hpp"
#include "transport/usb/TNFrameHeader.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

namespace havrel::testing {

// Runs what is ready on the main queue until nothing more comes for a short while.
inline void pumpIdle() {
    int quiet = 0;
    while (quiet < 20) {
        quiet = MainQueue::shared().poll() == 0 ? quiet + 1 : 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

struct ReceivedFrame {
    std::shared_ptr<TNChannel> channel;
    std::uint32_t type = 0;
    std::uint32_t tag = 0;
    std::optional<Bytes> payload;  // nothing: the frame had no payload object
};

class RecordingDelegate : public TNChannelDelegate {
public:
    explicit RecordingDelegate(std::uint8_t flags = kTNChannelDelegateDidEnd | kTNChannelDelegateDidAccept)
        : flags(flags) {}

    std::uint8_t implementedOperations() const override { return flags; }

    void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                                             std::uint32_t tag, const std::shared_ptr<TNData>& payload) override {
        ReceivedFrame frame{channel, type, tag, std::nullopt};
        if (payload) {
            frame.payload = Bytes(payload->bytes().begin(), payload->bytes().end());
        }
        frames.push_back(std::move(frame));
    }
    bool ioFrameChannelShouldAcceptFrameOfType(const std::shared_ptr<TNChannel>&, std::uint32_t type,
                                               std::uint32_t tag, std::uint32_t payloadSize) override {
        asked.push_back({type, tag, payloadSize});
        return !shouldAccept || shouldAccept(type, tag, payloadSize);
    }
    void ioFrameChannelDidEndWithError(const std::shared_ptr<TNChannel>& channel,
                                       const TNOptionalError& error) override {
        ends.push_back({channel, error});
    }
    void ioFrameChannelDidAcceptConnection(const std::shared_ptr<TNChannel>& channel,
                                           const std::shared_ptr<TNChannel>& newChannel,
                                           const TNAddress& address) override {
        accepted.push_back({channel, newChannel, address});
    }

    struct Asked {
        std::uint32_t type, tag, payloadSize;
    };
    struct End {
        std::shared_ptr<TNChannel> channel;
        TNOptionalError error;
    };
    struct Accepted {
        std::shared_ptr<TNChannel> listening, channel;
        TNAddress address;
    };

    std::uint8_t flags;
    std::function<bool(std::uint32_t type, std::uint32_t tag, std::uint32_t payloadSize)> shouldAccept;
    std::vector<ReceivedFrame> frames;
    std::vector<Asked> asked;
    std::vector<End> ends;
    std::vector<Accepted> accepted;

    // Drops the records, which hold channels that hold this delegate.
    void forget() {
        frames.clear();
        ends.clear();
        accepted.clear();
    }
};

// A plain blocking TCP listener on 127.0.0.1 for a channel to connect to, and the accepted
// peer socket that a test writes raw bytes to.
class RawTCPPeer {
public:
    RawTCPPeer() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listener_, 4);
        socklen_t length = sizeof address;
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    ~RawTCPPeer() {
        closePeer();
        ::close(listener_);
    }
    std::uint16_t port() const { return port_; }
    // Takes the connection that a channel made (blocks until there is one).
    bool accept() {
        peer_ = ::accept(listener_, nullptr, nullptr);
        return peer_ >= 0;
    }
    bool write(ByteView bytes) const {
        return ::send(peer_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    // Bytes the channel sent, without waiting.
    Bytes readAvailable() const {
        Bytes bytes(1 << 16);
        const auto size = ::recv(peer_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return bytes;
    }
    // True once the channel closed its end.
    bool sawEndOfStream() const {
        std::uint8_t byte;
        return ::recv(peer_, &byte, 1, MSG_DONTWAIT) == 0;
    }
    void closePeer() {
        if (peer_ >= 0) {
            ::close(peer_);
            peer_ = -1;
        }
    }

private:
    int listener_ = -1;
    int peer_ = -1;
    std::uint16_t port_ = 0;
};

// Hands the channel one end of a socket pair, or an error; the test keeps the other end.
class SocketPairHub : public TNUSBDeviceConnector {
public:
    ~SocketPairHub() override {
        if (peer >= 0) {
            ::close(peer);
        }
    }
    void connectToDevice(std::int64_t deviceID, std::int32_t port, StartCallback onStart) override {
        requests.push_back({deviceID, port});
        if (error) {
            onStart(error, -1);
            return;
        }
        int fds[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
            onStart(TNError::posix(errno), -1);
            return;
        }
        peer = fds[1];
        handedOver = fds[0];
        onStart(std::nullopt, fds[0]);
    }
    void closePeer() {
        ::close(peer);
        peer = -1;
    }
    bool writeToChannel(ByteView bytes) const {
        return ::send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    TNOptionalError error;
    std::vector<std::pair<std::int64_t, std::int32_t>> requests;
    int peer = -1;
    int handedOver = -1;
};

inline Bytes rawFrame(std::uint32_t type, std::uint32_t tag, const Bytes& payload, std::uint32_t version = 1,
                      std::optional<std::uint32_t> declaredSize = std::nullopt) {
    const auto header = encodeFrameHeader(
        TNFrameHeader{version, type, tag, declaredSize.value_or(static_cast<std::uint32_t>(payload.size()))});
    Bytes bytes(header.begin(), header.end());
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

inline std::shared_ptr<const Bytes> shared(Bytes bytes) {
    return std::make_shared<const Bytes>(std::move(bytes));
}

}  // namespace havrel::testing
