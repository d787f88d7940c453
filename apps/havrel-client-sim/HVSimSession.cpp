#include "havrel-client-sim/HVSimSession.hpp"

#include "havrel-client-sim/HVSimError.hpp"
#include "havrel-client-sim/HVSimHandshake.hpp"
#include "havrel-client-sim/HVSimTime.hpp"

#include <fmt/format.h>

#include <utility>

namespace havrel {

namespace {

constexpr std::uint32_t kLoopback = 0x7F000001;

// A command as a progress line shows it: long change commands are cut.
std::string shortened(const std::string& cue) {
    constexpr std::size_t kLongest = 100;
    return cue.size() <= kLongest ? cue : cue.substr(0, kLongest - 3) + "...";
}

}  // namespace

std::shared_ptr<HVSimSession> HVSimSession::create(Settings settings, LineSink out, LineSink progress, Finish finish) {
    return std::make_shared<HVSimSession>(std::move(settings), std::move(out), std::move(progress), std::move(finish));
}

HVSimSession::HVSimSession(Settings settings, LineSink out, LineSink progress, Finish finish)
    : settings_(std::move(settings)), out_(std::move(out)), progress_(std::move(progress)), finish_(std::move(finish)) {}

void HVSimSession::start() {
    listening_ = TNChannel::channelWithDelegate(shared_from_this());
    std::weak_ptr<HVSimSession> weak = weak_from_this();
    listening_->listenOnPort(settings_.port, kLoopback, [weak](const TNOptionalError& error) {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        if (error) {
            self->end(kHVSimExitFailed,
                      fmt::format("cannot listen on 127.0.0.1:{}: {}", self->settings_.port, describe(error)));
            return;
        }
        self->progress_(fmt::format("listening on 127.0.0.1:{}, waiting for the Central", self->localPort()));
        MainQueue::shared().postAfter(self->settings_.connectTimeout, [weak] {
            auto session = weak.lock();
            if (session && !session->channel_) {
                session->end(kHVSimExitTimeout,
                             fmt::format("no Central connected within {} s",
                                         durationToSeconds(session->settings_.connectTimeout)));
            }
        });
    });
}

std::uint16_t HVSimSession::localPort() const {
    return listening_ ? listening_->localPort() : 0;
}

void HVSimSession::ioFrameChannelDidAcceptConnection(const std::shared_ptr<TNChannel>& listening,
                                                     const std::shared_ptr<TNChannel>& newChannel,
                                                     const TNAddress& address) {
    if (channel_ || ended_ || listening != listening_) {
        // Only the first connection is served. It is closed once the channel has started.
        MainQueue::shared().post([newChannel] { newChannel->close(); });
        return;
    }
    channel_ = newChannel;
    progress_(fmt::format("Central connected from {}", address.description()));
    MainQueue::shared().post([listening] { listening->close(); });
    send(TNFrameTypeDeviceInfo, settings_.deviceInfo);
}

bool HVSimSession::ioFrameChannelShouldAcceptFrameOfType(const std::shared_ptr<TNChannel>& channel,
                                                         std::uint32_t type, std::uint32_t, std::uint32_t payloadSize) {
    if (channel != channel_ || ended_) {
        return false;
    }
    if (payloadSize > kMaximumCentralPayload) {
        end(kHVSimExitCentralLost,
            fmt::format("the Central sent a frame of type {} with {} bytes; refused", type, payloadSize));
        return false;
    }
    return true;
}

void HVSimSession::ioFrameChannelDidReceiveFrameOfType(const std::shared_ptr<TNChannel>& channel,
                                                       std::uint32_t type, std::uint32_t,
                                                       const std::shared_ptr<TNData>& payload) {
    if (channel != channel_ || ended_) {
        return;
    }
    // Pings and the Central's other frames need no answer from a client.
    if (type == TNFrameTypeCentralInfo && !centralInfoRead_) {
        centralInfoRead_ = true;
        readCentralInfo(payload ? payload->bytes() : ByteView{});
    }
}

void HVSimSession::readCentralInfo(ByteView payload) {
    HVSimCentralInfo info;
    try {
        info = HVSimHandshake::readCentralInfo(payload, settings_.apiVersion);
    } catch (const HVSimError& error) {
        end(kHVSimExitCentralLost, error.what());
        return;
    }
    out_(info.line());
    if (info.refusal) {
        end(kHVSimExitRefused, *info.refusal);
        return;
    }
    send(TNFrameTypeSyncData, settings_.syncPayload);
    progress_(fmt::format("configuration sent ({} bytes); playing {} frames over {:.2f} s", settings_.syncPayload.size(),
                          settings_.frames.size(), settings_.duration));
    performanceStart_ = MainQueue::shared().now();
    playDueFrames();
}

void HVSimSession::playDueFrames() {
    if (ended_) {
        return;
    }
    const double elapsed = durationToSeconds(MainQueue::shared().now() - performanceStart_);
    while (nextFrame_ < settings_.frames.size() && settings_.frames[nextFrame_].time <= elapsed) {
        auto& frame = settings_.frames[nextFrame_++];
        if (!frame.cue.empty()) {
            progress_(fmt::format("t={:.2f}s {}", frame.time, shortened(frame.cue)));
        }
        send(frame.type, std::move(frame.payload));
        if (ended_) {
            return;
        }
    }
    std::weak_ptr<HVSimSession> weak = weak_from_this();
    const double next = nextFrame_ < settings_.frames.size() ? settings_.frames[nextFrame_].time : settings_.duration;
    if (nextFrame_ == settings_.frames.size() && elapsed >= settings_.duration) {
        performanceOver_ = true;
        finishWhenSent();
        return;
    }
    MainQueue::shared().postAfter(secondsToDuration(next - elapsed), [weak] {
        if (auto self = weak.lock()) {
            self->playDueFrames();
        }
    });
}

void HVSimSession::send(std::uint32_t type, Bytes payload) {
    ++sendsInFlight_;
    std::weak_ptr<HVSimSession> weak = weak_from_this();
    channel_->sendFrameOfType(type, 0, std::make_shared<const Bytes>(std::move(payload)),
                              [weak, type](const TNOptionalError& error) {
                                  auto self = weak.lock();
                                  if (!self) {
                                      return;
                                  }
                                  --self->sendsInFlight_;
                                  if (error) {
                                      self->end(kHVSimExitCentralLost,
                                                fmt::format("sending frame {} to the Central failed: {}", type,
                                                            describe(error)));
                                      return;
                                  }
                                  self->finishWhenSent();
                              });
}

void HVSimSession::finishWhenSent() {
    if (!performanceOver_ || sendsInFlight_ > 0 || ended_) {
        return;
    }
    std::weak_ptr<HVSimSession> weak = weak_from_this();
    MainQueue::shared().postAfter(settings_.grace, [weak] {
        if (auto self = weak.lock()) {
            self->end(kHVSimExitDone, "script done");
        }
    });
}

void HVSimSession::ioFrameChannelDidEndWithError(const std::shared_ptr<TNChannel>& channel,
                                                 const TNOptionalError& error) {
    if (channel != channel_ || ended_) {
        return;
    }
    if (performanceOver_ && sendsInFlight_ == 0) {
        end(kHVSimExitDone, "script done; the Central closed the connection");
        return;
    }
    std::string reason = error ? ": " + describe(error) : "";
    end(kHVSimExitCentralLost, centralInfoRead_ ? "the Central went away before the script was done" + reason
                                                : "the Central went away during the handshake" + reason);
}

void HVSimSession::end(int exitCode, const std::string& message) {
    if (ended_) {
        return;
    }
    ended_ = true;
    progress_(message);
    // Dropping the channels breaks the cycle with their strong delegate references.
    auto listening = std::exchange(listening_, nullptr);
    auto channel = std::exchange(channel_, nullptr);
    if (listening) {
        listening->close();
    }
    // Every send has completed or failed by now, so nothing is cut short; a reading channel
    // would not end by itself.
    if (channel) {
        channel->close();
    }
    if (finish_) {
        finish_(exitCode);
    }
}

}  // namespace havrel
