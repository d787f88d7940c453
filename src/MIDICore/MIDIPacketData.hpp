#pragma once
// Received packets as plain values, copied out of the platform's lists at once. Generic over
// the time-stamp type and the source type, so that the core knows nothing of the platform.
//
// UniversalMIDIPacketData keeps its words as bytes, four a word, most significant first.

#include <cstdint>
#include <optional>
#include <span>
#include <variant>
#include <vector>

namespace MIDICore {

template <class TimeStamp, class Source>
struct MIDIPacketData {
    std::vector<std::uint8_t> bytes;
    TimeStamp timeStamp{};
    std::optional<Source> source;
};

template <class TimeStamp, class Source>
struct UniversalMIDIPacketData {
    std::vector<std::uint8_t> bytes;
    TimeStamp timeStamp{};
    std::optional<Source> source;

    UniversalMIDIPacketData() = default;
    UniversalMIDIPacketData(std::vector<std::uint8_t> bytes, TimeStamp timeStamp, std::optional<Source> source)
        : bytes(std::move(bytes)), timeStamp(timeStamp), source(std::move(source)) {}
    // From words: each word big-endian.
    static UniversalMIDIPacketData fromWords(std::span<const std::uint32_t> words, TimeStamp timeStamp,
                                             std::optional<Source> source) {
        std::vector<std::uint8_t> bytes;
        bytes.reserve(words.size() * 4);
        for (auto word : words) {
            bytes.push_back(static_cast<std::uint8_t>(word >> 24));
            bytes.push_back(static_cast<std::uint8_t>(word >> 16));
            bytes.push_back(static_cast<std::uint8_t>(word >> 8));
            bytes.push_back(static_cast<std::uint8_t>(word));
        }
        return UniversalMIDIPacketData(std::move(bytes), timeStamp, std::move(source));
    }
};

template <class TimeStamp, class Source>
struct AnyMIDIPacketData {
    std::variant<MIDIPacketData<TimeStamp, Source>, UniversalMIDIPacketData<TimeStamp, Source>> packet;

    bool isUniversal() const { return packet.index() == 1; }
    const std::vector<std::uint8_t>& bytes() const {
        return std::visit([](const auto& p) -> const std::vector<std::uint8_t>& { return p.bytes; }, packet);
    }
    TimeStamp timeStamp() const {
        return std::visit([](const auto& p) { return p.timeStamp; }, packet);
    }
    const std::optional<Source>& source() const {
        return std::visit([](const auto& p) -> const std::optional<Source>& { return p.source; }, packet);
    }
};

}  // namespace MIDICore
