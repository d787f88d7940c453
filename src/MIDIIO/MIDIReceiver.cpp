#include "MIDIIO/MIDIReceiver.hpp"

#include "MIDICore/MIDIEventFilter.hpp"
#include "MIDIInternals/TextHelpers.hpp"
#include "MIDIInternals/Log.hpp"

namespace MIDIIO {

std::shared_ptr<MIDIReceiverProtocol> MIDIReceiver::create(std::shared_ptr<MIDIInternals::DispatchQueue> queue) const {
    struct Make {
        const std::shared_ptr<MIDIInternals::DispatchQueue>& queue;

        std::shared_ptr<MIDIReceiverProtocol> operator()(const GroupCase& c) const {
            std::vector<std::shared_ptr<MIDIReceiverProtocol>> members;
            for (const auto& receiver : c.receivers) {
                members.push_back(receiver.create(queue));
            }
            return std::make_shared<Group>(std::move(members));
        }
        std::shared_ptr<MIDIReceiverProtocol> operator()(const EventsCase& c) const {
            return ready(std::make_shared<Events>(c.options, c.handler));
        }
        std::shared_ptr<MIDIReceiverProtocol> operator()(const EventsLoggingCase& c) const {
            LogHandler log = c.handler ? c.handler : LogHandler([](const std::string& text) { MIDIInternals::log(text); });
            return ready(std::make_shared<Events>(
                c.options, [log](const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp,
                                 const std::optional<MIDIOutputEndpoint>& source) {
                    log(eventsLogText(events, timeStamp, source));
                }));
        }
        std::shared_ptr<MIDIReceiverProtocol> operator()(const RawDataCase& c) const {
            return std::make_shared<RawData>(c.handler);
        }
        std::shared_ptr<MIDIReceiverProtocol> operator()(const RawDataLoggingCase& c) const {
            LogHandler log = c.handler ? c.handler : LogHandler([](const std::string& text) { MIDIInternals::log(text); });
            return std::make_shared<RawData>([log](const AnyMIDIPacketData& packet) { log(rawDataLogText(packet)); });
        }
        std::shared_ptr<MIDIReceiverProtocol> operator()(const StrongCase& c) const {
            return ready(std::make_shared<StrongEventsReceiver>(c.receiver, c.options));
        }
        std::shared_ptr<MIDIReceiverProtocol> operator()(const WeakCase& c) const {
            return ready(std::make_shared<WeakEventsReceiver>(c.receiver, c.options));
        }
        std::shared_ptr<MIDIReceiverProtocol> ready(std::shared_ptr<EventsBase> receiver) const {
            receiver->setUp(queue);
            return receiver;
        }
    };
    return std::visit(Make{queue}, storage_);
}

void MIDIReceiver::Group::packetListReceived(const std::vector<MIDIPacketData>& packets) {
    for (const auto& handler : receiveHandlers) {
        handler->packetListReceived(packets);
    }
}

void MIDIReceiver::Group::eventListReceived(const std::vector<UniversalMIDIPacketData>& packets,
                                            MIDIProtocolVersion protocol) {
    for (const auto& handler : receiveHandlers) {
        handler->eventListReceived(packets, protocol);
    }
}

MIDIReceiver::EventsBase::EventsBase(MIDIReceiverOptions options) : options(options) {
    midi1Parser.setTranslateNoteOnZeroVelocityToNoteOff(
        options.contains(MIDIReceiverOptions::translateMIDI1NoteOnZeroVelocityToNoteOff));
    if (!options.contains(MIDIReceiverOptions::bundleRPNAndNRPNDataEntryLSB)) {
        midi2Parser = std::make_unique<MIDICore::MIDI2Parser>();
    }
}

void MIDIReceiver::EventsBase::setUp(std::shared_ptr<MIDIInternals::DispatchQueue> queue) {
    if (!options.contains(MIDIReceiverOptions::bundleRPNAndNRPNDataEntryLSB)) {
        return;
    }
    std::weak_ptr<EventsBase> weakSelf = weak_from_this();
    advancedMIDI2Parser = std::make_unique<AdvancedParser>(
        [weakSelf](std::vector<MIDIEvent> events, MIDITimeStamp timeStamp, std::optional<MIDIOutputEndpoint> source) {
            if (auto self = weakSelf.lock()) {
                self->handle(std::move(events), timeStamp, source);
            }
        },
        std::move(queue));
}

namespace {
const auto activeSensingAndClock = MIDICore::SysRealTimeTypes::dropTypes(
    {MIDICore::SysRealTimeType::activeSensing, MIDICore::SysRealTimeType::timingClock});
}  // namespace

void MIDIReceiver::EventsBase::handle(std::vector<MIDIEvent> events, MIDITimeStamp timeStamp,
                                      const std::optional<MIDIOutputEndpoint>& source) {
    if (options.contains(MIDIReceiverOptions::filterActiveSensingAndClock)) {
        events = MIDICore::filter(events, activeSensingAndClock);
    }
    if (!events.empty()) {
        deliver(events, timeStamp, source);
    }
}

void MIDIReceiver::EventsBase::packetListReceived(const std::vector<MIDIPacketData>& packets) {
    // The events of a packet are collected in one list kept between packets, the filter applied
    // as they come.
    const bool dropClock = options.contains(MIDIReceiverOptions::filterActiveSensingAndClock);
    for (const auto& packet : packets) {
        parsed_.clear();
        midi1Parser.parse(packet.bytes, MIDICore::UInt4(0), [&](MIDIEvent&& event) {
            if (!dropClock || activeSensingAndClock.passes(event)) {
                parsed_.push_back(std::move(event));
            }
        });
        if (!parsed_.empty()) {
            deliver(parsed_, packet.timeStamp, packet.source);
        }
    }
}

void MIDIReceiver::EventsBase::eventListReceived(const std::vector<UniversalMIDIPacketData>& packets,
                                                 MIDIProtocolVersion) {
    for (const auto& packet : packets) {
        if (midi2Parser) {
            auto events = midi2Parser->parsedEvents(packet.bytes);
            if (!events.empty()) {
                handle(std::move(events), packet.timeStamp, packet.source);
            }
        } else if (advancedMIDI2Parser) {
            advancedMIDI2Parser->parseEvents(packet.bytes, packet.timeStamp, packet.source);
        }
    }
}

void MIDIReceiver::RawData::packetListReceived(const std::vector<MIDIPacketData>& packets) {
    for (const auto& packet : packets) {
        handler(AnyMIDIPacketData{packet});
    }
}

void MIDIReceiver::RawData::eventListReceived(const std::vector<UniversalMIDIPacketData>& packets, MIDIProtocolVersion) {
    for (const auto& packet : packets) {
        handler(AnyMIDIPacketData{packet});
    }
}

namespace {
std::string timeAndSource(MIDITimeStamp timeStamp, const std::optional<MIDIOutputEndpoint>& source) {
    std::string text = " timeStamp:" + std::to_string(timeStamp);
    if (source) {
        text += " source:" + MIDIInternals::quoted(source->name);
    }
    return text;
}
}  // namespace

std::string eventsLogText(const std::vector<MIDIEvent>& events, MIDITimeStamp timeStamp,
                          const std::optional<MIDIOutputEndpoint>& source) {
    std::string text;
    for (std::size_t i = 0; i < events.size(); ++i) {
        text += (i == 0 ? "" : ", ") + events[i].description();
    }
    return text + timeAndSource(timeStamp, source);
}

std::string rawDataLogText(const AnyMIDIPacketData& packet) {
    return MIDIInternals::hexString(packet.bytes(), 2, false, " ") + timeAndSource(packet.timeStamp(), packet.source());
}

}  // namespace MIDIIO
