#pragma once
// Receivers: what the application gives an input or connection to be handed incoming MIDI.
// MIDIReceiver is a description; create() makes the live object that runs the parsers and calls
// the application, always on the owner's queue, one call at a time, in packet order.

#include "MIDICore/AdvancedMIDI2Parser.hpp"
#include "MIDICore/MIDI1Parser.hpp"
#include "MIDICore/MIDI2Parser.hpp"
#include "MIDICore/MIDIEvent.hpp"
#include "MIDICore/MIDIPacketData.hpp"
#include "MIDIIO/MIDIIOObject.hpp"
#include "MIDIInternals/DispatchQueue.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace MIDIIO {

using MIDICore::MIDIEvent;
using MIDICore::MIDIProtocolVersion;
using MIDIPacketData = MIDICore::MIDIPacketData<MIDITimeStamp, MIDIOutputEndpoint>;
using UniversalMIDIPacketData = MIDICore::UniversalMIDIPacketData<MIDITimeStamp, MIDIOutputEndpoint>;
using AnyMIDIPacketData = MIDICore::AnyMIDIPacketData<MIDITimeStamp, MIDIOutputEndpoint>;

struct MIDIReceiverOptions {
    std::intptr_t rawValue = 0;

    static constexpr std::intptr_t translateMIDI1NoteOnZeroVelocityToNoteOff = 1;
    static constexpr std::intptr_t filterActiveSensingAndClock = 2;
    static constexpr std::intptr_t bundleRPNAndNRPNDataEntryLSB = 4;

    constexpr MIDIReceiverOptions() = default;
    constexpr MIDIReceiverOptions(std::intptr_t raw) : rawValue(raw) {}  // NOLINT: bits combine
    constexpr bool contains(std::intptr_t bit) const { return (rawValue & bit) != 0; }
    friend constexpr bool operator==(const MIDIReceiverOptions&, const MIDIReceiverOptions&) = default;
};

// What an application object adopts to receive events.
class ReceivesMIDIEvents {
public:
    virtual ~ReceivesMIDIEvents() = default;
    virtual void midiIn(const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp,
                        const std::optional<MIDIOutputEndpoint>& source) = 0;
};

// The live receiver, called on the owner's queue.
class MIDIReceiverProtocol {
public:
    virtual ~MIDIReceiverProtocol() = default;
    virtual void packetListReceived(const std::vector<MIDIPacketData>& packets) = 0;
    virtual void eventListReceived(const std::vector<UniversalMIDIPacketData>& packets, MIDIProtocolVersion protocol) = 0;
};

class MIDIReceiver {
public:
    using EventsHandler = std::function<void(const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp,
                                             const std::optional<MIDIOutputEndpoint>& source)>;
    using RawDataHandler = std::function<void(const AnyMIDIPacketData& packet)>;
    using LogHandler = std::function<void(const std::string& text)>;

    // The descriptions, in case order.
    struct GroupCase { std::vector<MIDIReceiver> receivers; };
    struct EventsCase { MIDIReceiverOptions options; EventsHandler handler; };
    struct EventsLoggingCase { MIDIReceiverOptions options; LogHandler handler; };
    struct RawDataCase { RawDataHandler handler; };
    struct RawDataLoggingCase { LogHandler handler; };
    struct StrongCase { std::shared_ptr<ReceivesMIDIEvents> receiver; MIDIReceiverOptions options; };
    struct WeakCase { std::weak_ptr<ReceivesMIDIEvents> receiver; MIDIReceiverOptions options; };
    using Storage = std::variant<GroupCase, EventsCase, EventsLoggingCase, RawDataCase, RawDataLoggingCase, StrongCase,
                                 WeakCase>;

    static constexpr MIDIReceiverOptions defaultOptions = MIDIReceiverOptions::translateMIDI1NoteOnZeroVelocityToNoteOff;

    static MIDIReceiver group(std::vector<MIDIReceiver> receivers) { return MIDIReceiver(GroupCase{std::move(receivers)}); }
    static MIDIReceiver events(EventsHandler handler, MIDIReceiverOptions options = defaultOptions) {
        return MIDIReceiver(EventsCase{options, std::move(handler)});
    }
    // A null handler logs through the system log.
    static MIDIReceiver eventsLogging(LogHandler handler = nullptr, MIDIReceiverOptions options = defaultOptions) {
        return MIDIReceiver(EventsLoggingCase{options, std::move(handler)});
    }
    static MIDIReceiver rawData(RawDataHandler handler) { return MIDIReceiver(RawDataCase{std::move(handler)}); }
    static MIDIReceiver rawDataLogging(LogHandler handler = nullptr) { return MIDIReceiver(RawDataLoggingCase{std::move(handler)}); }
    static MIDIReceiver strong(std::shared_ptr<ReceivesMIDIEvents> receiver, MIDIReceiverOptions options = defaultOptions) {
        return MIDIReceiver(StrongCase{std::move(receiver), options});
    }
    static MIDIReceiver weak(std::weak_ptr<ReceivesMIDIEvents> receiver, MIDIReceiverOptions options = defaultOptions) {
        return MIDIReceiver(WeakCase{std::move(receiver), options});
    }

    const Storage& storage() const { return storage_; }

    // The live object. `queue` is the owner's queue, where held parameter-number events that
    // time out are delivered.
    std::shared_ptr<MIDIReceiverProtocol> create(std::shared_ptr<MIDIInternals::DispatchQueue> queue) const;

    // The live forms.
    class Group;
    class EventsBase;
    class Events;
    class StrongEventsReceiver;
    class WeakEventsReceiver;
    class RawData;

private:
    explicit MIDIReceiver(Storage storage) : storage_(std::move(storage)) {}
    Storage storage_;
};

class MIDIReceiver::Group final : public MIDIReceiverProtocol {
public:
    explicit Group(std::vector<std::shared_ptr<MIDIReceiverProtocol>> receiveHandlers)
        : receiveHandlers(std::move(receiveHandlers)) {}
    void packetListReceived(const std::vector<MIDIPacketData>& packets) override;
    void eventListReceived(const std::vector<UniversalMIDIPacketData>& packets, MIDIProtocolVersion protocol) override;

    const std::vector<std::shared_ptr<MIDIReceiverProtocol>> receiveHandlers;
};

// Parses and hands events on; exactly one of the two MIDI 2.0 parsers is in use.
class MIDIReceiver::EventsBase : public MIDIReceiverProtocol, public std::enable_shared_from_this<EventsBase> {
public:
    using AdvancedParser = MIDICore::AdvancedMIDI2Parser<MIDITimeStamp, MIDIOutputEndpoint>;

    void packetListReceived(const std::vector<MIDIPacketData>& packets) override;
    void eventListReceived(const std::vector<UniversalMIDIPacketData>& packets, MIDIProtocolVersion protocol) override;

    MIDICore::MIDI1Parser midi1Parser;
    std::unique_ptr<MIDICore::MIDI2Parser> midi2Parser;
    std::unique_ptr<AdvancedParser> advancedMIDI2Parser;
    const MIDIReceiverOptions options;

protected:
    explicit EventsBase(MIDIReceiverOptions options);
    // Makes the parser that may hold events back; after construction, as it holds this object
    // weakly.
    void setUp(std::shared_ptr<MIDIInternals::DispatchQueue> queue);
    // Applies the clock and active-sensing filter when the options ask for it, then delivers
    // what is left.
    void handle(std::vector<MIDIEvent> events, MIDITimeStamp timeStamp, const std::optional<MIDIOutputEndpoint>& source);
    virtual void deliver(const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp,
                         const std::optional<MIDIOutputEndpoint>& source) = 0;

    friend class MIDIReceiver;

private:
    // The events of the packet being delivered; used on the owner's queue only.
    std::vector<MIDIEvent> parsed_;
};

class MIDIReceiver::Events final : public EventsBase {
public:
    Events(MIDIReceiverOptions options, EventsHandler handler) : EventsBase(options), handler(std::move(handler)) {}
    const EventsHandler handler;

private:
    void deliver(const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp,
                 const std::optional<MIDIOutputEndpoint>& source) override {
        handler(events, timeStamp, source);
    }
};

class MIDIReceiver::StrongEventsReceiver final : public EventsBase {
public:
    StrongEventsReceiver(std::shared_ptr<ReceivesMIDIEvents> receiver, MIDIReceiverOptions options)
        : EventsBase(options), receiver(std::move(receiver)) {}
    const std::shared_ptr<ReceivesMIDIEvents> receiver;

private:
    void deliver(const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp,
                 const std::optional<MIDIOutputEndpoint>& source) override {
        receiver->midiIn(events, timeStamp, source);
    }
};

class MIDIReceiver::WeakEventsReceiver final : public EventsBase {
public:
    WeakEventsReceiver(std::weak_ptr<ReceivesMIDIEvents> receiver, MIDIReceiverOptions options)
        : EventsBase(options), receiver(std::move(receiver)) {}
    const std::weak_ptr<ReceivesMIDIEvents> receiver;

private:
    void deliver(const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp,
                 const std::optional<MIDIOutputEndpoint>& source) override {
        if (auto strong = receiver.lock()) {
            strong->midiIn(events, timeStamp, source);
        }
    }
};

class MIDIReceiver::RawData final : public MIDIReceiverProtocol {
public:
    explicit RawData(RawDataHandler handler) : handler(std::move(handler)) {}
    void packetListReceived(const std::vector<MIDIPacketData>& packets) override;
    void eventListReceived(const std::vector<UniversalMIDIPacketData>& packets, MIDIProtocolVersion protocol) override;
    const RawDataHandler handler;
};

// The text the logging receivers write for events and for raw packets.
std::string eventsLogText(const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp,
                          const std::optional<MIDIOutputEndpoint>& source);
std::string rawDataLogText(const AnyMIDIPacketData& packet);

}  // namespace MIDIIO
