#pragma once
// A client device for tests: listens on 127.0.0.1 (any free port) as a client app does on its
// USB tunnel, records every frame the Central sends, and sends frames of its own. Everything
// runs on the main queue, which the test runs.

#include "FrameTestSupport.hpp"
#include "platform/PropertyList.hpp"
#include "support/MainQueueWaiting.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace havrel::testing {

class FakeClientDevice {
public:
    static std::unique_ptr<FakeClientDevice> listening() {
        auto device = std::unique_ptr<FakeClientDevice>(new FakeClientDevice());
        device->listener_ = TNChannel::channelWithDelegate(device->recorder_);
        bool started = false;
        device->listener_->listenOnPort(0, 0x7F000001, [&started](const TNOptionalError& error) { started = !error; });
        runMainQueueUntil([&] { return started; });
        return device;
    }
    ~FakeClientDevice() { stop(); }

    std::uint16_t port() const { return listener_ ? listener_->localPort() : 0; }
    // The latest connection the Central made.
    std::shared_ptr<TNChannel> peer() const {
        return recorder_->accepted.empty() ? nullptr : recorder_->accepted.back().channel;
    }
    bool connected() const { return peer() && peer()->isConnected(); }
    std::size_t acceptedCount() const { return recorder_->accepted.size(); }

    void send(std::uint32_t type, const Bytes& payload) {
        if (auto channel = peer()) {
            channel->sendFrameOfType(type, 0, std::make_shared<const Bytes>(payload), nullptr);
        }
    }
    void send(std::uint32_t type, const std::string& payload) { send(type, Bytes(payload.begin(), payload.end())); }
    // The client's first frame: its record as a binary property list under "usbClient".
    void introduce(const std::string& name, const std::string& uniqueIdentifier,
                   const std::string& apiVersion = "2.1") {
        const Dictionary client = {{"type", "RNUSBClient"},      {"connectionName", name},
                                   {"productID", "havrel-test"}, {"uniqueIdentifier", uniqueIdentifier},
                                   {"apiVersion", apiVersion},   {"version", "1.0"}};
        send(100, *propertyListData(Dictionary{{"usbClient", client}}, PropertyListFormat::binary).data);
    }

    // Frames of the type received so far, on any connection.
    std::vector<ReceivedFrame> framesOfType(std::uint32_t type) const {
        std::vector<ReceivedFrame> result;
        for (const auto& frame : recorder_->frames) {
            if (frame.type == type) {
                result.push_back(frame);
            }
        }
        return result;
    }

    void closePeer() {
        if (auto channel = peer()) {
            channel->close();
        }
    }
    // Closes every channel and drops the records, which hold channels that hold the recorder.
    void stop() {
        for (const auto& accepted : recorder_->accepted) {
            accepted.channel->close();
        }
        if (listener_) {
            listener_->close();
            listener_.reset();
        }
        recorder_->forget();
    }

private:
    FakeClientDevice() = default;

    std::shared_ptr<RecordingDelegate> recorder_ = std::make_shared<RecordingDelegate>();
    std::shared_ptr<TNChannel> listener_;
};

}  // namespace havrel::testing
