// Arbitrary bytes from a device, cut into arbitrary pieces, through a frame channel's read loop
// over a socket pair. Nothing may crash, every delivered payload has the size its header
// declared, no frame of type 0 is delivered, and the channel reports its end exactly once.
//
// Input: a control byte (bit 0: the delegate refuses frames whose type is a multiple of 3), a
// count of split bytes (mod 16), the split bytes, then the stream.
#include "FuzzCheck.hpp"
#include "split_points.hpp"
#include "../tests/transport/usb/FrameTestSupport.hpp"

#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "transport/usb/TNChannel.hpp"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

using namespace havrel;

class Delegate : public TNChannelDelegate {
public:
    explicit Delegate(bool refuseSome) : refuseSome_(refuseSome) {}

    std::uint8_t implementedOperations() const override {
        return kTNChannelDelegateShouldAccept | kTNChannelDelegateDidEnd;
    }
    bool ioFrameChannelShouldAcceptFrameOfType(const std::shared_ptr<TNChannel>&, std::uint32_t type, std::uint32_t,
                                               std::uint32_t payloadSize) override {
        FUZZ_CHECK(payloadSize <= kTNMaximumFramePayloadSize);
        declaredSize_ = payloadSize;
        return !refuseSome_ || type % 3 != 0;
    }
    void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>&, std::uint32_t type, std::uint32_t,
                                             const std::shared_ptr<TNData>& payload) override {
        FUZZ_CHECK(type != 0);
        FUZZ_CHECK(!refuseSome_ || type % 3 != 0);
        if (payload) {
            FUZZ_CHECK(payload->length() == declaredSize_);
            FUZZ_CHECK(payload->bytes().size() == declaredSize_);
        } else {
            FUZZ_CHECK(declaredSize_ == 0);
        }
    }
    void ioFrameChannelDidEndWithError(const std::shared_ptr<TNChannel>&, const TNOptionalError&) override { ++ends; }

    int ends = 0;

private:
    const bool refuseSome_;
    std::uint32_t declaredSize_ = 0;
};

// Runs the main queue until the channel has taken every byte written so far (or its socket is
// closed) and nothing more is ready.
void drain(int channelSide) {
    for (int round = 0; round < 100000; ++round) {
        const std::size_t ran = MainQueue::shared().poll();
        int unread = 0;
        const bool open = ::ioctl(channelSide, FIONREAD, &unread) == 0;
        if (ran == 0 && (!open || unread == 0)) {
            return;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    ScopedLogCapture quiet;
    const ByteView input(data, size);
    const bool refuseSome = (input[0] & 1) != 0;
    const ByteView rest = input.subspan(2);
    const std::size_t splitCount = std::min<std::size_t>(input[1] % 16, rest.size());
    const auto pieces = splitPackets(rest.subspan(splitCount), rest.first(splitCount), 4);

    auto delegate = std::make_shared<Delegate>(refuseSome);
    auto channel = TNChannel::initWithProtocol(TNProtocol::create(), delegate);
    testing::SocketPairHub hub;
    channel->connectToPort(4699, hub, 1, nullptr);
    FUZZ_CHECK(channel->isConnected());

    for (const auto piece : pieces) {
        if (piece.empty()) {
            continue;
        }
        if (::send(hub.peer, piece.data(), piece.size(), MSG_NOSIGNAL | MSG_DONTWAIT) !=
            static_cast<ssize_t>(piece.size())) {
            break;  // the channel is gone or not reading
        }
        drain(hub.handedOver);
    }
    hub.closePeer();

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (delegate->ends == 0 && std::chrono::steady_clock::now() < deadline) {
        MainQueue::shared().poll();
    }
    FUZZ_CHECK(delegate->ends == 1);
    FUZZ_CHECK(!channel->isConnected());
    MainQueue::shared().poll();
    FUZZ_CHECK(delegate->ends == 1);
    channel->setDelegate(nullptr);
    return 0;
}
