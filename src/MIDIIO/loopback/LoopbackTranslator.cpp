#include "MIDIIO/loopback/LoopbackTranslator.hpp"

#include "MIDICore/MIDI1Parser.hpp"
#include "MIDICore/MIDI2Parser.hpp"
#include "MIDIIO/MIDIPacketLayout.hpp"

#include <cstring>
#include <utility>

namespace MIDIIO {

struct LoopbackTranslator::State {
    MIDICore::MIDI1Parser midi1Parser;
    MIDICore::MIDI2Parser midi2Parser;
    // The events of the message last prepared, a list per packet.
    std::vector<std::pair<MIDITimeStamp, std::vector<MIDICore::MIDIEvent>>> parsed;

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

void LoopbackTranslator::prepare(const LoopbackMessage& message) {
    auto& parsed = state_->parsed;
    parsed.clear();
    if (!message.isEventList) {
        forEachMIDIPacket(message.bytes, [&](std::span<const std::uint8_t> bytes, MIDITimeStamp timeStamp) {
            parsed.emplace_back(timeStamp, state_->midi1Parser.parsedEvents(bytes));
        });
        return;
    }
    std::int32_t protocol = 0;
    forEachMIDIEventPacket(message.bytes, &protocol, [&](std::span<const std::uint32_t> words, MIDITimeStamp timeStamp) {
        std::vector<std::uint8_t> bytes;
        for (auto word : words) {
            for (int shift = 24; shift >= 0; shift -= 8) {
                bytes.push_back(static_cast<std::uint8_t>(word >> shift));
            }
        }
        parsed.emplace_back(timeStamp, state_->midi2Parser.parsedEvents(bytes));
    });
}

std::optional<std::vector<std::uint8_t>> LoopbackTranslator::render(const LoopbackMessage& message,
                                                                    std::optional<MIDIProtocolID> protocol) const {
    if (isInForm(message, protocol)) {
        return message.bytes;
    }
    std::vector<std::uint8_t> list;
    std::uint32_t count = 0;
    if (!protocol) {
        append(list, count);
        for (const auto& [timeStamp, events] : state_->parsed) {
            std::vector<std::uint8_t> data;
            for (const auto& event : events) {
                auto bytes = event.midi1RawBytes();
                data.insert(data.end(), bytes.begin(), bytes.end());
            }
            if (data.empty() || data.size() > 0xFFFF) {
                continue;
            }
            append(list, timeStamp);
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
        for (const auto& [timeStamp, events] : state_->parsed) {
            for (const auto& event : events) {
                for (const auto& words : event.umpRawWords(version)) {
                    if (words.empty() || words.size() > kMIDIEventPacketMaxWords) {
                        continue;
                    }
                    append(list, timeStamp);
                    append(list, static_cast<std::uint32_t>(words.size()));
                    for (auto word : words) {
                        append(list, word);
                    }
                    ++count;
                }
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
