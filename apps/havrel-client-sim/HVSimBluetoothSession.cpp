#include "havrel-client-sim/HVSimBluetoothSession.hpp"

#include "havrel-client-sim/HVSimError.hpp"
#include "transport/usb/TNFrameType.hpp"

#include <fmt/format.h>

#include <utility>

namespace havrel {

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(50);
// How long the Central has to drop the link after the client asked it to.
constexpr auto kLeaveTimeout = std::chrono::seconds(2);

// Rounded up, so a frame waited for is due when the wait is over, also in virtual time.
MainQueue::Duration secondsToDuration(double seconds) {
    return std::chrono::ceil<MainQueue::Duration>(std::chrono::duration<double>(seconds));
}

double durationToSeconds(MainQueue::Duration duration) {
    return std::chrono::duration<double>(duration).count();
}

bool endsWithMarker(ByteView bytes) {
    return bytes.size() >= 2 && bytes[bytes.size() - 2] == '|' && bytes[bytes.size() - 1] == '|';
}

}  // namespace

std::shared_ptr<HVSimBluetoothSession> HVSimBluetoothSession::create(std::shared_ptr<SimulatedBluetoothRadio> radio,
                                                                     Settings settings, LineSink out,
                                                                     LineSink progress, Finish finish) {
    return std::make_shared<HVSimBluetoothSession>(std::move(radio), std::move(settings), std::move(out),
                                                   std::move(progress), std::move(finish));
}

HVSimBluetoothSession::HVSimBluetoothSession(std::shared_ptr<SimulatedBluetoothRadio> radio, Settings settings,
                                             LineSink out, LineSink progress, Finish finish)
    : radio_(std::move(radio)),
      settings_(std::move(settings)),
      out_(std::move(out)),
      progress_(std::move(progress)),
      finish_(std::move(finish)) {}

Bytes HVSimBluetoothSession::inMessage(std::uint8_t command, ByteView body) {
    Bytes message;
    message.reserve(body.size() + 3);
    message.push_back(command);
    message.insert(message.end(), body.begin(), body.end());
    message.push_back('|');
    message.push_back('|');
    return message;
}

Bytes HVSimBluetoothSession::introduction(const HVSimIdentity& identity) {
    Dictionary client = HVSimHandshake::clientDictionary(identity);
    client["type"] = "RNBluetoothClient";
    const std::string json = client.dump();
    return inMessage(0, ByteView(reinterpret_cast<const std::uint8_t*>(json.data()), json.size()));
}

void HVSimBluetoothSession::start() {
    SimulatedPeripheral::Settings peripheral;
    peripheral.name = settings_.identity.connectionName;
    peripheral_ = radio_->addPeripheral(peripheral);
    std::weak_ptr<HVSimBluetoothSession> weak = weak_from_this();
    peripheral_->onWrite = [weak](const std::string& characteristic, const Bytes& value) {
        if (auto self = weak.lock()) {
            self->centralWrote(characteristic, value);
        }
    };
    peripheral_->startAdvertising();
    started_ = MainQueue::shared().now();
    progress_(fmt::format("advertising as \"{}\" on the simulated radio, waiting for the Central",
                          settings_.identity.connectionName));
    watchLink();
}

void HVSimBluetoothSession::watchLink() {
    if (ended_) {
        return;
    }
    const bool connected = peripheral_->state() == CBPeripheralStateConnected;
    if (linked_ && !connected) {
        if (leaving_) {
            end(kHVSimExitDone, "script done");
            return;
        }
        end(kHVSimExitCentralLost, centralInfoRead_ ? "the Central dropped the link before the script was done"
                                                    : "the Central dropped the link during the handshake");
        return;
    }
    if (connected && !linked_) {
        linked_ = true;
        progress_("Central connected");
    }
    if (!linked_ && MainQueue::shared().now() - started_ >= settings_.connectTimeout) {
        end(kHVSimExitTimeout,
            fmt::format("no Central connected within {} s", durationToSeconds(settings_.connectTimeout)));
        return;
    }
    // The introduction goes once both client-to-Central characteristics are subscribed to.
    if (linked_ && !introduced_ && peripheral_->isSubscribed(kHavrelInCharacteristicUUID) &&
        peripheral_->isSubscribed(kHavrelRealtimeCharacteristicUUID)) {
        introduced_ = true;
        peripheral_->notifyInPieces(kHavrelInCharacteristicUUID, introduction(settings_.identity),
                                    settings_.pieceSize);
    }
    std::weak_ptr<HVSimBluetoothSession> weak = weak_from_this();
    MainQueue::shared().postAfter(kPollInterval, [weak] {
        if (auto self = weak.lock()) {
            self->watchLink();
        }
    });
}

void HVSimBluetoothSession::centralWrote(const std::string& characteristic, const Bytes& value) {
    if (ended_ || characteristic != kHavrelOutCharacteristicUUID) {
        return;
    }
    if (reply_.size() + value.size() > kMaximumCentralReply) {
        end(kHVSimExitCentralLost, fmt::format("the Central wrote more than {} bytes without an end marker",
                                               kMaximumCentralReply));
        return;
    }
    reply_.insert(reply_.end(), value.begin(), value.end());
    if (!endsWithMarker(value)) {
        return;
    }
    Bytes reply;
    reply.swap(reply_);
    readReply(ByteView(reply).first(reply.size() - 2));
}

void HVSimBluetoothSession::readReply(ByteView reply) {
    if (centralInfoRead_) {
        return;
    }
    // The first reply is the Central's API version alone: {"v": "2.1"}.
    Dictionary version = Dictionary::parse(reply.begin(), reply.end(), nullptr, false);
    if (version.is_object() && version.size() == 1 && version.contains("v")) {
        progress_(fmt::format("the Central speaks API {}", version["v"].dump()));
        return;
    }
    HVSimCentralInfo info;
    try {
        info = HVSimHandshake::readCentralInfo(reply, settings_.identity.apiVersion);
    } catch (const HVSimError& error) {
        end(kHVSimExitCentralLost, error.what());
        return;
    }
    centralInfoRead_ = true;
    out_(info.line());
    if (info.refusal) {
        end(kHVSimExitRefused, *info.refusal);
        return;
    }
    peripheral_->notifyInPieces(kHavrelInCharacteristicUUID, inMessage(1, settings_.syncPayload), settings_.pieceSize);
    progress_(fmt::format("configuration sent ({} bytes); playing {} frames over {:.2f} s", settings_.syncPayload.size(),
                          settings_.frames.size(), settings_.duration));
    performanceStart_ = MainQueue::shared().now();
    playDueFrames();
}

void HVSimBluetoothSession::send(const HVSimFrame& frame) {
    switch (frame.type) {
    case TNFrameTypeRangeData: {
        Bytes message(frame.payload);
        message.push_back('|');
        message.push_back('|');
        peripheral_->notifyInPieces(kHavrelRealtimeCharacteristicUUID, message, settings_.pieceSize);
        break;
    }
    case TNFrameTypePureMIDIData:
        peripheral_->notifyInPieces(kHavrelInCharacteristicUUID, inMessage(3, frame.payload), settings_.pieceSize);
        break;
    case TNFrameTypeChangeData:
        peripheral_->notifyInPieces(kHavrelInCharacteristicUUID, inMessage(2, frame.payload), settings_.pieceSize);
        break;
    default:
        break;
    }
}

void HVSimBluetoothSession::playDueFrames() {
    if (ended_) {
        return;
    }
    const double elapsed = durationToSeconds(MainQueue::shared().now() - performanceStart_);
    while (nextFrame_ < settings_.frames.size() && settings_.frames[nextFrame_].time <= elapsed) {
        const auto& frame = settings_.frames[nextFrame_++];
        if (!frame.cue.empty()) {
            progress_(fmt::format("t={:.2f}s {}", frame.time, frame.cue));
        }
        send(frame);
    }
    std::weak_ptr<HVSimBluetoothSession> weak = weak_from_this();
    if (nextFrame_ == settings_.frames.size() && elapsed >= settings_.duration) {
        MainQueue::shared().postAfter(settings_.grace, [weak] {
            if (auto self = weak.lock(); self && !self->ended_) {
                // The client leaves as an app does: it asks the Central to disconnect, and is
                // done once the link is down.
                self->leaving_ = true;
                self->peripheral_->notify(kHavrelInCharacteristicUUID, {inMessage(4, {})});
                MainQueue::shared().postAfter(kLeaveTimeout, [weak] {
                    if (auto session = weak.lock()) {
                        session->end(kHVSimExitDone, "script done; the Central kept the link");
                    }
                });
            }
        });
        return;
    }
    const double next = nextFrame_ < settings_.frames.size() ? settings_.frames[nextFrame_].time : settings_.duration;
    MainQueue::shared().postAfter(secondsToDuration(next - elapsed), [weak] {
        if (auto self = weak.lock()) {
            self->playDueFrames();
        }
    });
}

void HVSimBluetoothSession::end(int exitCode, const std::string& message) {
    if (ended_) {
        return;
    }
    ended_ = true;
    progress_(message);
    peripheral_->stopAdvertising();
    if (finish_) {
        finish_(exitCode);
    }
}

}  // namespace havrel
