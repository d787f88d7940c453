#pragma once
// A client device for tests: listens on 127.0.0.1 (any free port) as a client app does on its
// USB tunnel, records every frame the Central sends, and sends frames of its own. Everything
// runs on the main queue, which the test pumps.

#include "platform/MainQueue.hpp"
#include "transport/usb/TNChannel.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace havrel::testing {

// Runs the main queue on the calling thread until the condition holds or the deadline passes.
inline bool pumpUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds deadline = std::chrono::milliseconds(5000)) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        MainQueue::shared().runFor(std::chrono::milliseconds(1));
    }
    return true;
}

struct ReceivedFrame {
    std::uint32_t type;
    std::uint32_t tag;
    Bytes payload;
};

class FakeClientDevice final : public TNChannelDelegate, public std::enable_shared_from_this<FakeClientDevice> {
public:
    static std::shared_ptr<FakeClientDevice> listening() {
        auto device = std::make_shared<FakeClientDevice>();
        device->listener_ = TNChannel::channelWithDelegate(device);
        bool started = false;
        device->listener_->listenOnPort(0, 0x7F000001, [&started](const TNOptionalError& error) {
            started = !error;
        });
        pumpUntil([&] { return started; });
        return device;
    }

    std::uint16_t port() const { return listener_->localPort(); }
    bool connected() const { return peer_ && peer_->isConnected(); }
    const std::shared_ptr<TNChannel>& peer() const { return peer_; }

    void send(std::uint32_t type, const Bytes& payload) {
        if (peer_) {
            peer_->sendFrameOfType(type, 0, std::make_shared<const Bytes>(payload), nullptr);
        }
    }
    void send(std::uint32_t type, const std::string& payload) { send(type, Bytes(payload.begin(), payload.end())); }

    // Frames of the type received so far.
    std::vector<ReceivedFrame> framesOfType(std::uint32_t type) const {
        std::vector<ReceivedFrame> result;
        for (const auto& frame : frames) {
            if (frame.type == type) {
                result.push_back(frame);
            }
        }
        return result;
    }

    void closePeer() {
        if (peer_) {
            peer_->close();
        }
    }
    // Closes both channels and breaks their references back to this device.
    void stop() {
        for (auto* channel : {&peer_, &listener_}) {
            if (*channel) {
                (*channel)->close();
                (*channel)->setDelegate(nullptr);
                channel->reset();
            }
        }
    }

    std::vector<ReceivedFrame> frames;
    int ended = 0;
    int accepted = 0;

    std::uint8_t implementedOperations() const override { return 2 | 4; }
    void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>&, std::uint32_t type, std::uint32_t tag,
                                             const std::shared_ptr<TNData>& payload) override {
        Bytes bytes;
        if (payload) {
            bytes.assign(payload->bytes().begin(), payload->bytes().end());
        }
        frames.push_back({type, tag, std::move(bytes)});
    }
    void ioFrameChannelDidEndWithError(const std::shared_ptr<TNChannel>& channel, const TNOptionalError&) override {
        if (channel == peer_) {
            ++ended;
        }
    }
    void ioFrameChannelDidAcceptConnection(const std::shared_ptr<TNChannel>&, const std::shared_ptr<TNChannel>& newChannel,
                                           const TNAddress&) override {
        ++accepted;
        peer_ = newChannel;
    }

private:
    std::shared_ptr<TNChannel> listener_;
    std::shared_ptr<TNChannel> peer_;
};

}  // namespace havrel::testing
