#include "backends/midi_loopback/LoopbackTranslator.hpp"

#include "MIDICore/MIDI1Parser.hpp"
#include "MIDICore/MIDI2Parser.hpp"
#include "MIDIIO/MIDIPacketLayout.hpp"

#include <cstring>
#include <iterator>
#include <span>
#include <utility>

namespace MIDIIO {

struct LoopbackTranslator::State {
    MIDICore::MIDI1Parser midi1Parser;
    MIDICore::MIDI2Parser midi2Parser;
    // The events of the message last prepared, and where each packet's events lie among them.
    // Both lists keep their room from one message to the next.
    struct Packet {
        MIDITimeStamp timeStamp = 0;
        std::size_t begin = 0;
        std::size_t end = 0;
    };
    std::vector<MIDICore::MIDIEvent> events;
    std::vector<Packet> packets;
    std::vector<std::uint8_t> umpBytes;

    State() {
        // What was sent as a note on stays a note on; the receiver's own parser decides.
        midi1Parser.setTranslateNoteOnZeroVelocityToNoteOff(false);
    }
};

namespace {
template <class T>
void append(std::vector<std::uint8_t>& bytes, const T& value) {
    const auto* raw = reinterpret_cast<const std::uint8_t*>(&value);
    bytes.insert(bytes.end(), raw, raw + sizeof(T));
}
}  // namespace

LoopbackTranslator::LoopbackTranslator() : state_(std::make_unique<State>()) {}
LoopbackTranslator::~LoopbackTranslator() = default;
LoopbackTranslator::LoopbackTranslator(LoopbackTranslator&&) noexcept = default;
LoopbackTranslator& LoopbackTranslator::operator=(LoopbackTranslator&&) noexcept = default;

bool LoopbackTranslator::isInForm(const LoopbackMessage& message, std::optional<MIDIProtocolID> protocol) {
    if (!message.isEventList) {
        return !protocol.has_value();
    }
    if (!protocol || message.bytes.size() < 4) {
        return false;
    }
    std::int32_t listProtocol = 0;
    std::memcpy(&listProtocol, message.bytes.data(), 4);
    return listProtocol == static_cast<std::int32_t>(*protocol);
}

LoopbackThruFilter LoopbackThruFilter::of(const MIDIThruConnectionParams& params) {
    return {params.filterOutSysEx, params.filterOutMTC, params.filterOutBeatClock, params.filterOutTuneRequest,
            params.filterOutAllControls};
}

bool LoopbackThruFilter::drops(const MIDICore::MIDIEvent& event) const {
    using namespace MIDICore;
    if (event.isSystemExclusive()) {
        if (sysEx) {
            return true;
        }
        const auto* universal = event.get<MIDIEvent::UniversalSysEx7>();
        return mtc && universal && universal->universalType == UniversalSysExType::realTime &&
               universal->subID1.storage() == 0x01;
    }
    return (mtc && event.isSystemCommon(SysCommonType::timecodeQuarterFrame)) ||
           (beatClock && event.isSystemRealTime(SysRealTimeType::timingClock)) ||
           (tuneRequest && event.isSystemCommon(SysCommonType::tuneRequest)) ||
           (allControls && event.isChannelVoice({ChanVoiceType::cc, ChanVoiceType::rpn, ChanVoiceType::nrpn,
                                                 ChanVoiceType::noteCC}));
}

void LoopbackTranslator::prepare(const LoopbackMessage& message) {
    auto& state = *state_;
    state.events.clear();
    state.packets.clear();
    auto addPacket = [&](MIDITimeStamp timeStamp, std::size_t begin) {
        state.packets.push_back(State::Packet{timeStamp, begin, state.events.size()});
    };
    if (!message.isEventList) {
        forEachMIDIPacket(message.bytes, [&](std::span<const std::uint8_t> bytes, MIDITimeStamp timeStamp) {
            auto begin = state.events.size();
            state.midi1Parser.parse(bytes, MIDICore::UInt4(0),
                                    [&](MIDICore::MIDIEvent&& event) { state.events.push_back(std::move(event)); });
            addPacket(timeStamp, begin);
        });
        return;
    }
    std::int32_t protocol = 0;
    forEachMIDIEventPacket(message.bytes, &protocol, [&](std::span<const std::uint32_t> words, MIDITimeStamp timeStamp) {
        state.umpBytes.clear();
        for (auto word : words) {
            for (int shift = 24; shift >= 0; shift -= 8) {
                state.umpBytes.push_back(static_cast<std::uint8_t>(word >> shift));
            }
        }
        auto begin = state.events.size();
        auto events = state.midi2Parser.parsedEvents(state.umpBytes);
        std::move(events.begin(), events.end(), std::back_inserter(state.events));
        addPacket(timeStamp, begin);
    });
}

std::optional<std::vector<std::uint8_t>> LoopbackTranslator::render(const LoopbackMessage& message,
                                                                    std::optional<MIDIProtocolID> protocol,
                                                                    const LoopbackThruFilter& filter) const {
    if (!filter.any() && isInForm(message, protocol)) {
        return message.bytes;
    }
    const auto& state = *state_;
    auto eventsOf = [&](const State::Packet& packet) {
        return std::span<const MIDICore::MIDIEvent>(state.events).subspan(packet.begin, packet.end - packet.begin);
    };
    std::vector<std::uint8_t> list;
    std::uint32_t count = 0;
    if (!protocol) {
        append(list, count);
        for (const auto& packet : state.packets) {
            std::vector<std::uint8_t> data;
            for (const auto& event : eventsOf(packet)) {
                if (filter.drops(event)) {
                    continue;
                }
                auto bytes = event.midi1RawBytes();
                data.insert(data.end(), bytes.begin(), bytes.end());
            }
            if (data.empty() || data.size() > 0xFFFF) {
                continue;
            }
            append(list, packet.timeStamp);
            append(list, static_cast<std::uint16_t>(data.size()));
            list.insert(list.end(), data.begin(), data.end());
            ++count;
        }
        std::memcpy(list.data(), &count, 4);
    } else {
        append(list, static_cast<std::int32_t>(*protocol));
        append(list, count);
        auto version = *protocol == MIDIProtocolID::midi1_0 ? MIDICore::MIDIProtocolVersion::midi1_0
                                                            : MIDICore::MIDIProtocolVersion::midi2_0;
        std::vector<std::uint32_t> words;
        for (const auto& packet : state.packets) {
            for (const auto& event : eventsOf(packet)) {
                if (filter.drops(event)) {
                    continue;
                }
                words.clear();
                event.appendUMPWords(version, words);
                MIDICore::forEachUMPPacket(words, [&](std::span<const std::uint32_t> umpPacket) {
                    append(list, packet.timeStamp);
                    append(list, static_cast<std::uint32_t>(umpPacket.size()));
                    for (auto word : umpPacket) {
                        append(list, word);
                    }
                    ++count;
                });
            }
        }
        std::memcpy(list.data() + 4, &count, 4);
    }
    if (count == 0) {
        return std::nullopt;
    }
    return list;
}

}  // namespace MIDIIO
