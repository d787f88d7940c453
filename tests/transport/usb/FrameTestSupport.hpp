#pragma once
// Helpers for frame tests over real sockets: the main queue is pumped with a bounded deadline,
// a recording delegate keeps what the channel reports, a hub stand-in hands one end of a socket
// pair to the channel, and raw frames are built by hand.

#include "platform/MainQueue.hpp"
#include "platform/Types.hpp"
#include "transport/usb/TNChannel.hpp"
#include "transport/usb/TNFrameHeader.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

namespace havrel::testing {

// Runs the main queue until the condition holds or five seconds have passed.
inline bool pumpUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds deadline = std::chrono::milliseconds(5000)) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    for (;;) {
        MainQueue::shared().poll();
        if (condition()) {
            return true;
        }
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

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
