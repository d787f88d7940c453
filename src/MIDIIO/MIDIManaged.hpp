#pragma once
// The common ground of the five managed kinds: the send half (virtual outputs and output
// connections) and the receive half (virtual inputs and input connections).

#include "MIDICore/MIDIEvent.hpp"
#include "MIDIIO/CoreMIDIAPIVersion.hpp"
#include "MIDIIO/MIDIIOError.hpp"
#include "MIDIIO/MIDIReceiver.hpp"
#include "MIDIInternals/DispatchQueue.hpp"

#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace MIDIIO {

class MIDIManager;

class MIDIManaged {
public:
    virtual ~MIDIManaged() = default;
    const CoreMIDIAPIVersion& api() const { return api_; }
    MIDIProtocolVersion midiProtocol() const { return api_.midiProtocol(); }

protected:
    MIDIManaged(std::weak_ptr<MIDIManager> manager, CoreMIDIAPIVersion api, std::shared_ptr<MIDIPlatform> platform)
        : midiManager(std::move(manager)), api_(api), platform_(std::move(platform)) {}

    std::weak_ptr<MIDIManager> midiManager;
    const CoreMIDIAPIVersion api_;
    const std::shared_ptr<MIDIPlatform> platform_;
};

// Sending: events are encoded for the object's API, one packet list or event list a packet,
// on the caller's thread. Nothing is allocated beyond the list (a packet list longer than a
// system packet list takes a heap buffer).
class MIDIManagedSendsMessages : public MIDIManaged {
public:
    void send(const MIDIEvent& event);
    // One after another; the first failure ends it.
    void send(const std::vector<MIDIEvent>& events);
    // New API only.
    void send(std::span<const std::uint32_t> rawWords);
    // Legacy API only.
    void send(std::span<const std::uint8_t> rawBytes);

protected:
    using MIDIManaged::MIDIManaged;
    // The final step: hands one list to the system.
    virtual void sendPacketList(std::span<const std::uint8_t> packetList) = 0;
    virtual void sendEventList(std::span<const std::uint8_t> eventList) = 0;
};

// Receiving: the system's callback copies each list into packet values on the backend's thread
// and hops to the object's own queue, holding the object weakly; the receiver runs there. The
// object's queue is a queue of its own that runs on the manager's receive queue, so that the
// threads of a process do not grow with its inputs.
class MIDIManagedReceivesMessages : public MIDIManaged,
                                    public std::enable_shared_from_this<MIDIManagedReceivesMessages> {
public:
    ~MIDIManagedReceivesMessages() override;
    // Replaces the receiver, on the object's queue.
    void setReceiver(const MIDIReceiver& receiver);
    const std::shared_ptr<MIDIInternals::DispatchQueue>& queue() const { return queue_; }

protected:
    MIDIManagedReceivesMessages(std::weak_ptr<MIDIManager> manager, CoreMIDIAPIVersion api,
                                std::shared_ptr<MIDIPlatform> platform, std::string queueLabel,
                                const MIDIReceiver& receiver);
    // The system callbacks. With `lookUpSource` the reference constant names the source.
    MIDIPlatform::ReadBlock makeReadBlock(bool lookUpSource);
    MIDIPlatform::ReceiveBlock makeReceiveBlock(bool lookUpSource);

private:
    std::shared_ptr<MIDIReceiverProtocol> receiveHandler() const;

    std::shared_ptr<MIDIInternals::DispatchQueue> queue_;
    mutable std::mutex handlerMutex_;
    std::shared_ptr<MIDIReceiverProtocol> receiveHandler_;
};

// Reading what the system hands in. Both copy at once; a malformed list yields the packets
// before the fault. The source endpoint is read by reference; a failed read leaves it absent.
std::vector<MIDIPacketData> readPacketList(std::span<const std::uint8_t> packetList, const std::shared_ptr<MIDIPlatform>& platform,
                                           std::optional<MIDIEndpointRef> sourceRef);
// The protocol of the list (nothing for an unknown one, with no packets) and its packets.
std::pair<std::optional<MIDIProtocolVersion>, std::vector<UniversalMIDIPacketData>> readEventList(
    std::span<const std::uint8_t> eventList, const std::shared_ptr<MIDIPlatform>& platform,
    std::optional<MIDIEndpointRef> sourceRef);
std::optional<MIDIOutputEndpoint> lookUpSourceEndpoint(const std::shared_ptr<MIDIPlatform>& platform, MIDIEndpointRef ref);

}  // namespace MIDIIO
