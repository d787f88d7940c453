#include "MIDIIO/MIDIManaged.hpp"

#include "MIDICore/MIDI1Wire.hpp"
#include "MIDIIO/MIDIEventPacket.hpp"
#include "MIDIInternals/QueueRelease.hpp"
#include "MIDIIO/MIDIManager.hpp"
#include "MIDIInternals/SerialQueueFactory.hpp"
#include "MIDIInternals/TargetQueue.hpp"

#include <array>

namespace MIDIIO {

// --- Sending. ---

namespace {
// The words of one event being sent, kept for the thread so that a send reuses the room of the
// last one. Nothing in a send re-enters it on the same thread, but should a platform call back
// into a send, the inner one takes a list of its own rather than clear the outer one's words.
class EventWords {
public:
    EventWords() { words_.reserve(kMIDIEventPacketMaxWords); }
    std::vector<std::uint32_t>* acquire() {
        if (inUse_) {
            return nullptr;
        }
        inUse_ = true;
        words_.clear();
        return &words_;
    }
    void release() {
        inUse_ = false;
        // A large SysEx does not keep its room for the life of the thread.
        if (words_.capacity() > kMIDIEventPacketMaxWords * 16) {
            std::vector<std::uint32_t>().swap(words_);
            words_.reserve(kMIDIEventPacketMaxWords);
        }
    }

private:
    std::vector<std::uint32_t> words_;
    bool inUse_ = false;
};
}  // namespace

void MIDIManagedSendsMessages::send(const MIDIEvent& event) {
    if (api_.isLegacy()) {
        if (event.isSystemExclusive()) {
            auto bytes = event.midi1RawBytes();
            send(std::span<const std::uint8_t>(bytes));
            return;
        }
        auto bytes = MIDICore::detail::midi1ShortBytes(event);
        send(std::span<const std::uint8_t>(bytes.bytes.data(), bytes.count));
        return;
    }
    thread_local EventWords kept;
    std::vector<std::uint32_t> own;
    auto* words = kept.acquire();
    if (words == nullptr) {
        words = &own;
    }
    struct Release {
        EventWords& kept;
        bool owned;
        ~Release() {
            if (owned) {
                kept.release();
            }
        }
    } release{kept, words != &own};
    event.appendUMPWords(api_.midiProtocol(), *words);
    MIDICore::forEachUMPPacket(*words, [&](std::span<const std::uint32_t> packet) { send(packet); });
}

void MIDIManagedSendsMessages::send(const std::vector<MIDIEvent>& events) {
    for (const auto& event : events) {
        send(event);
    }
}

void MIDIManagedSendsMessages::send(std::span<const std::uint32_t> rawWords) {
    if (api_.isLegacy()) {
        throw MIDIIOError::internalInconsistency("Universal MIDI Packet words cannot be sent using old Core MIDI API.");
    }
    MIDIEventList list;
    try {
        list = makeMIDIEventList(api_.protocolID(), rawWords, platform_->hostTime());
    } catch (const MIDIInternalError& error) {
        throw MIDIIOError::internalInconsistency(error.description());
    }
    sendEventList(list.bytes());
}

void MIDIManagedSendsMessages::send(std::span<const std::uint8_t> rawBytes) {
    if (!api_.isLegacy()) {
        throw MIDIIOError::internalInconsistency("Raw bytes cannot be sent using new Core MIDI API.");
    }
    std::size_t listSize = rawBytes.size() + kSizeOfMIDIPacketCombinedHeaders;
    std::array<std::uint8_t, kSizeOfMIDIPacketList> fixed;
    std::vector<std::uint8_t> large;
    std::span<std::uint8_t> buffer(fixed);
    if (listSize > fixed.size()) {
        large.resize(listSize);
        buffer = large;
    }
    MIDIPacketListBuilder builder(buffer);
    if (!builder.add(listSize, platform_->hostTime(), rawBytes)) {
        throw MIDIIOError::internalInconsistency(MIDIInternalError::packetBuildError(std::nullopt).description());
    }
    sendPacketList(builder.bytes());
}

// --- Receiving. ---

namespace {
// The owner's queue runs on its manager's receive queue; an owner made without a manager gets a
// serial queue of its own.
std::shared_ptr<MIDIInternals::DispatchQueue> ownerQueue(const std::weak_ptr<MIDIManager>& manager, std::string label) {
    if (auto owner = manager.lock()) {
        return MIDIInternals::TargetQueue::create(std::move(label), owner->receiveQueue());
    }
    return MIDIInternals::makeSerialQueue(std::move(label));
}
}  // namespace

MIDIManagedReceivesMessages::MIDIManagedReceivesMessages(std::weak_ptr<MIDIManager> manager, CoreMIDIAPIVersion api,
                                                         std::shared_ptr<MIDIPlatform> platform,
                                                         std::string queueLabel, const MIDIReceiver& receiver)
    : MIDIManaged(manager, api, std::move(platform)),
      queue_(ownerQueue(manager, std::move(queueLabel))),
      receiveHandler_(receiver.create(queue_)) {}

MIDIManagedReceivesMessages::~MIDIManagedReceivesMessages() { MIDIInternals::releaseQueue(std::move(queue_)); }

std::shared_ptr<MIDIReceiverProtocol> MIDIManagedReceivesMessages::receiveHandler() const {
    std::lock_guard lock(handlerMutex_);
    return receiveHandler_;
}

void MIDIManagedReceivesMessages::setReceiver(const MIDIReceiver& receiver) {
    std::weak_ptr<MIDIManagedReceivesMessages> weakSelf = weak_from_this();
    auto handler = receiver.create(queue_);
    queue_->async([weakSelf, handler] {
        if (auto self = weakSelf.lock()) {
            std::lock_guard lock(self->handlerMutex_);
            self->receiveHandler_ = handler;
        }
    });
}

MIDIPlatform::ReadBlock MIDIManagedReceivesMessages::makeReadBlock(bool lookUpSource) {
    std::weak_ptr<MIDIManagedReceivesMessages> weakSelf = weak_from_this();
    return [weakSelf, platform = platform_, lookUpSource](std::span<const std::uint8_t> list, MIDIRefCon refCon) {
        auto packets = readPacketList(list, platform, lookUpSource ? std::optional<MIDIEndpointRef>(static_cast<MIDIEndpointRef>(refCon))
                                                         : std::nullopt);
        auto self = weakSelf.lock();
        if (!self || packets.empty()) {
            return;
        }
        self->queue_->async([weakSelf, packets = std::move(packets)] {
            if (auto owner = weakSelf.lock()) {
                if (auto handler = owner->receiveHandler()) {
                    handler->packetListReceived(packets);
                }
            }
        });
    };
}

MIDIPlatform::ReceiveBlock MIDIManagedReceivesMessages::makeReceiveBlock(bool lookUpSource) {
    std::weak_ptr<MIDIManagedReceivesMessages> weakSelf = weak_from_this();
    return [weakSelf, platform = platform_, lookUpSource](std::span<const std::uint8_t> list, MIDIRefCon refCon) {
        auto [protocol, packets] = readEventList(
            list, platform, lookUpSource ? std::optional<MIDIEndpointRef>(static_cast<MIDIEndpointRef>(refCon)) : std::nullopt);
        auto self = weakSelf.lock();
        if (!self || !protocol || packets.empty()) {
            return;
        }
        self->queue_->async([weakSelf, protocol = *protocol, packets = std::move(packets)] {
            if (auto owner = weakSelf.lock()) {
                if (auto handler = owner->receiveHandler()) {
                    handler->eventListReceived(packets, protocol);
                }
            }
        });
    };
}

std::optional<MIDIOutputEndpoint> lookUpSourceEndpoint(const std::shared_ptr<MIDIPlatform>& platform, MIDIEndpointRef ref) {
    std::string name;
    std::string displayName;
    std::int32_t uniqueID = 0;
    if (platform->objectGetStringProperty(ref, std::string(PropertyKey::kName), &name) != noErr ||
        platform->objectGetStringProperty(ref, std::string(PropertyKey::kDisplayName), &displayName) != noErr ||
        platform->objectGetIntegerProperty(ref, std::string(PropertyKey::kUniqueID), &uniqueID) != noErr) {
        return std::nullopt;
    }
    return MIDIOutputEndpoint(platform, ref);
}

std::vector<MIDIPacketData> readPacketList(std::span<const std::uint8_t> packetList, const std::shared_ptr<MIDIPlatform>& platform,
                                           std::optional<MIDIEndpointRef> sourceRef) {
    std::optional<MIDIOutputEndpoint> source;
    if (sourceRef) {
        source = lookUpSourceEndpoint(platform, *sourceRef);
    }
    std::vector<MIDIPacketData> packets;
    forEachMIDIPacket(packetList, [&](std::span<const std::uint8_t> bytes, MIDITimeStamp timeStamp) {
        packets.push_back(MIDIPacketData{{bytes.begin(), bytes.end()}, timeStamp, source});
    });
    return packets;
}

std::pair<std::optional<MIDIProtocolVersion>, std::vector<UniversalMIDIPacketData>> readEventList(
    std::span<const std::uint8_t> eventList, const std::shared_ptr<MIDIPlatform>& platform,
    std::optional<MIDIEndpointRef> sourceRef) {
    std::int32_t protocolID = 0;
    std::vector<UniversalMIDIPacketData> packets;
    std::optional<MIDIOutputEndpoint> source;
    bool looked = false;
    forEachMIDIEventPacket(eventList, &protocolID, [&](std::span<const std::uint32_t> words, MIDITimeStamp timeStamp) {
        if (sourceRef && !looked) {
            source = lookUpSourceEndpoint(platform, *sourceRef);
            looked = true;
        }
        packets.push_back(UniversalMIDIPacketData::fromWords(words, timeStamp, source));
    });
    std::optional<MIDIProtocolVersion> protocol;
    if (protocolID == static_cast<std::int32_t>(MIDIProtocolID::midi1_0)) {
        protocol = MIDIProtocolVersion::midi1_0;
    } else if (protocolID == static_cast<std::int32_t>(MIDIProtocolID::midi2_0)) {
        protocol = MIDIProtocolVersion::midi2_0;
    } else {
        packets.clear();
    }
    return {protocol, std::move(packets)};
}

}  // namespace MIDIIO
