#pragma once
// The system's layouts of packet lists and event lists, as bytes in host order:
//   packet list:  numPackets u32, then each packet: timeStamp u64, length u16, `length` bytes
//   event list:   protocol i32, numPackets u32, then each packet: timeStamp u64, wordCount u32,
//                 `wordCount` words (at most 64)
// Packets follow one another with no padding. The fixed structures below (packed to four bytes,
// the system's sizes) hold one packet each; a list of one is a view of the structure's first
// bytes, so building one to send needs no allocation.
//
// The walks read lists handed in by a backend and so trust nothing: a packet that does not fit
// in the bytes, or an event packet of more than 64 words, ends the walk.

#include "MIDIIO/MIDIPlatform.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace MIDIIO {

constexpr std::size_t kSizeOfMIDIPacketList = 272;
constexpr std::size_t kSizeOfMIDIPacket = 268;
constexpr std::size_t kSizeOfMIDIPacketListHeader = 4;
constexpr std::size_t kSizeOfMIDIPacketHeader = 10;
constexpr std::size_t kSizeOfMIDIPacketCombinedHeaders = 14;
constexpr std::size_t kSizeOfMIDIEventList = 276;
constexpr std::size_t kSizeOfMIDIEventPacket = 268;
constexpr std::size_t kMIDIEventPacketMaxWords = 64;
constexpr std::size_t kSizeOfMIDIEventListHeader = 8;
constexpr std::size_t kSizeOfMIDIEventPacketHeader = 12;

#pragma pack(push, 4)
struct MIDIEventPacket {
    MIDITimeStamp timeStamp = 0;
    std::uint32_t wordCount = 0;
    std::array<std::uint32_t, kMIDIEventPacketMaxWords> words{};

    std::span<const std::uint32_t> rawWords() const { return {words.data(), wordCount}; }
};

// An event list of one packet.
struct MIDIEventList {
    MIDIProtocolID protocol = MIDIProtocolID::midi2_0;
    std::uint32_t numPackets = 0;
    MIDIEventPacket packet;

    // The list's bytes in the system layout: header and the used words of the packet.
    std::span<const std::uint8_t> bytes() const {
        std::size_t size = kSizeOfMIDIEventListHeader + (numPackets == 0 ? 0 : kSizeOfMIDIEventPacketHeader + packet.wordCount * 4);
        return {reinterpret_cast<const std::uint8_t*>(this), size};
    }
};
#pragma pack(pop)
static_assert(sizeof(MIDIEventPacket) == kSizeOfMIDIEventPacket);
static_assert(sizeof(MIDIEventList) == kSizeOfMIDIEventList);

// Walks a packet list: `visit(std::span<const std::uint8_t> bytes, MIDITimeStamp timeStamp)` for
// each packet in order. Returns false when the list was cut short or malformed.
template <class Visit>
bool forEachMIDIPacket(std::span<const std::uint8_t> list, Visit&& visit) {
    if (list.size() < kSizeOfMIDIPacketListHeader) {
        return false;
    }
    std::uint32_t count = 0;
    std::memcpy(&count, list.data(), 4);
    std::size_t offset = kSizeOfMIDIPacketListHeader;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (list.size() - offset < kSizeOfMIDIPacketHeader) {
            return false;
        }
        MIDITimeStamp timeStamp = 0;
        std::uint16_t length = 0;
        std::memcpy(&timeStamp, list.data() + offset, 8);
        std::memcpy(&length, list.data() + offset + 8, 2);
        offset += kSizeOfMIDIPacketHeader;
        if (list.size() - offset < length) {
            return false;
        }
        visit(list.subspan(offset, length), timeStamp);
        offset += length;
    }
    return true;
}

// Walks an event list: `visit(std::span<const std::uint32_t> words, MIDITimeStamp timeStamp)`
// for each packet in order, the words copied out of the (possibly unaligned) bytes. The protocol
// is stored in *protocol when the header is there. Returns false when cut short or malformed.
template <class Visit>
bool forEachMIDIEventPacket(std::span<const std::uint8_t> list, std::int32_t* protocol, Visit&& visit) {
    if (list.size() < kSizeOfMIDIEventListHeader) {
        return false;
    }
    std::uint32_t count = 0;
    std::memcpy(protocol, list.data(), 4);
    std::memcpy(&count, list.data() + 4, 4);
    std::size_t offset = kSizeOfMIDIEventListHeader;
    std::array<std::uint32_t, kMIDIEventPacketMaxWords> words{};
    for (std::uint32_t i = 0; i < count; ++i) {
        if (list.size() - offset < kSizeOfMIDIEventPacketHeader) {
            return false;
        }
        MIDITimeStamp timeStamp = 0;
        std::uint32_t wordCount = 0;
        std::memcpy(&timeStamp, list.data() + offset, 8);
        std::memcpy(&wordCount, list.data() + offset + 8, 4);
        offset += kSizeOfMIDIEventPacketHeader;
        if (wordCount > kMIDIEventPacketMaxWords || (list.size() - offset) / 4 < wordCount) {
            return false;
        }
        std::memcpy(words.data(), list.data() + offset, wordCount * 4);
        visit(std::span<const std::uint32_t>(words.data(), wordCount), timeStamp);
        offset += wordCount * 4;
    }
    return true;
}

}  // namespace MIDIIO

namespace MIDIIO {

// Builds a packet list in a caller's buffer, as the system's list-init and list-add calls do.
class MIDIPacketListBuilder {
public:
    // Starts an empty list at the start of the buffer (at least the list header long).
    explicit MIDIPacketListBuilder(std::span<std::uint8_t> buffer) : buffer_(buffer) {
        std::uint32_t zero = 0;
        std::memcpy(buffer_.data(), &zero, 4);
        size_ = kSizeOfMIDIPacketListHeader;
    }
    // Appends one packet; false when it does not fit in `listSize` (and the buffer).
    bool add(std::size_t listSize, MIDITimeStamp timeStamp, std::span<const std::uint8_t> data) {
        std::size_t limit = listSize < buffer_.size() ? listSize : buffer_.size();
        if (data.size() > 0xFFFF || limit < size_ || limit - size_ < kSizeOfMIDIPacketHeader + data.size()) {
            return false;
        }
        auto length = static_cast<std::uint16_t>(data.size());
        std::memcpy(buffer_.data() + size_, &timeStamp, 8);
        std::memcpy(buffer_.data() + size_ + 8, &length, 2);
        if (!data.empty()) {
            std::memcpy(buffer_.data() + size_ + kSizeOfMIDIPacketHeader, data.data(), data.size());
        }
        size_ += kSizeOfMIDIPacketHeader + data.size();
        std::uint32_t count = 0;
        std::memcpy(&count, buffer_.data(), 4);
        ++count;
        std::memcpy(buffer_.data(), &count, 4);
        return true;
    }
    std::span<const std::uint8_t> bytes() const { return buffer_.first(size_); }

private:
    std::span<std::uint8_t> buffer_;
    std::size_t size_ = 0;
};

}  // namespace MIDIIO
