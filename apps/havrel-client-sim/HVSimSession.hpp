#pragma once
// One run of the simulated client on the main queue: listens on 127.0.0.1 as a client app does
// on its tunnel, serves the first connection (the Central's), introduces itself, reads the
// Central's identity, sends its configuration and plays its frames in time. It ends once, with
// an exit code: after the last frame has left and a short grace, or at the first fault.

#include "havrel-client-sim/HVSimPerformance.hpp"
#include "platform/MainQueue.hpp"
#include "transport/usb/TNChannel.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace havrel {

inline constexpr int kHVSimExitDone = 0;
inline constexpr int kHVSimExitFailed = 1;        // cannot listen, bad input
inline constexpr int kHVSimExitRefused = 2;       // the Central's API version is older than the client's
inline constexpr int kHVSimExitCentralLost = 3;   // the Central went away or sent what cannot be read
inline constexpr int kHVSimExitTimeout = 4;       // no Central connected in time

class HVSimSession final : public TNChannelDelegate, public std::enable_shared_from_this<HVSimSession> {
public:
    struct Settings {
        std::uint16_t port = 4699;  // 0: any free port (see localPort)
        std::string apiVersion = "2.1";
        Bytes deviceInfo;   // payload of frame 100
        Bytes syncPayload;  // payload of frame 104
        std::vector<HVSimFrame> frames;
        double duration = 0.0;  // seconds, at least the time of the last frame
        MainQueue::Duration connectTimeout = std::chrono::seconds(30);
        MainQueue::Duration grace = std::chrono::milliseconds(200);
    };
    using LineSink = std::function<void(const std::string& line)>;
    using Finish = std::function<void(int exitCode)>;

    // `out` takes the lines for stdout, `progress` those for stderr (faults included).
    static std::shared_ptr<HVSimSession> create(Settings settings, LineSink out, LineSink progress, Finish finish);

    // On the main queue.
    void start();
    // The port it listens on, once listening.
    std::uint16_t localPort() const;

    // Payloads larger than this from the Central are refused.
    static constexpr std::uint32_t kMaximumCentralPayload = 1u << 20;

    std::uint8_t implementedOperations() const override {
        return kTNChannelDelegateShouldAccept | kTNChannelDelegateDidEnd | kTNChannelDelegateDidAccept;
    }
    void ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                                             std::uint32_t tag, const std::shared_ptr<TNData>& payload) override;
    bool ioFrameChannelShouldAcceptFrameOfType(const std::shared_ptr<TNChannel>& channel, std::uint32_t type,
                                               std::uint32_t tag, std::uint32_t payloadSize) override;
    void ioFrameChannelDidEndWithError(const std::shared_ptr<TNChannel>& channel,
                                       const TNOptionalError& error) override;
    void ioFrameChannelDidAcceptConnection(const std::shared_ptr<TNChannel>& listening,
                                           const std::shared_ptr<TNChannel>& newChannel,
                                           const TNAddress& address) override;

    HVSimSession(Settings settings, LineSink out, LineSink progress, Finish finish);

private:
    void send(std::uint32_t type, Bytes payload);
    void readCentralInfo(ByteView payload);
    void playDueFrames();
    void finishWhenSent();
    void end(int exitCode, const std::string& message);

    Settings settings_;
    LineSink out_;
    LineSink progress_;
    Finish finish_;
    std::shared_ptr<TNChannel> listening_;
    std::shared_ptr<TNChannel> channel_;
    bool centralInfoRead_ = false;
    bool ended_ = false;
    MainQueue::TimePoint performanceStart_{};
    std::size_t nextFrame_ = 0;
    std::size_t sendsInFlight_ = 0;
    bool performanceOver_ = false;
};

}  // namespace havrel
