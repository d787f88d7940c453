#include "MIDIIO/MIDIEventPacket.hpp"

#include "MIDIInternals/Fatal.hpp"

#include <limits>

namespace MIDIIO {

MIDIInternalError::MIDIInternalError(Case kind, std::size_t bufferByteCount, std::optional<std::string> underlyingError)
    : case_(kind), bufferByteCount_(bufferByteCount), underlyingError_(std::move(underlyingError)) {
    switch (case_) {
        case Case::packetTooLarge:
            text_ = "Legacy MIDI Packet is too large (" + std::to_string(bufferByteCount_) +
                    " byte buffer). Maximum size is 65536 bytes.";
            break;
        case Case::packetBuildError:
            text_ = "Error building MIDI Packet. " + underlyingError_.value_or("");
            break;
        case Case::umpEmpty: text_ = "Universal MIDI Packet cannot be empty."; break;
        case Case::umpTooLarge: text_ = "Universal MIDI Packet cannot contain more than 64 UInt32 words."; break;
    }
}

MIDIInternalError MIDIInternalError::packetTooLarge(std::size_t bufferByteCount) {
    return MIDIInternalError(Case::packetTooLarge, bufferByteCount, std::nullopt);
}

MIDIInternalError MIDIInternalError::packetBuildError(std::optional<std::string> underlyingError) {
    return MIDIInternalError(Case::packetBuildError, 0, std::move(underlyingError));
}

namespace {
void checkWordCount(std::size_t count) {
    if (count == 0) {
        throw MIDIInternalError::umpEmpty();
    }
    if (count > kMIDIEventPacketMaxWords) {
        throw MIDIInternalError::umpTooLarge();
    }
}

// The system's packet builder: a fixed capacity, words appended one at a time.
class MIDIEventPacketBuilder {
public:
    explicit MIDIEventPacketBuilder(std::size_t maximumWords) : maximum_(maximumWords) {}
    void setTimeStamp(MIDITimeStamp timeStamp) { packet_.timeStamp = timeStamp; }
    bool append(std::uint32_t word) {
        if (packet_.wordCount >= maximum_) {
            return false;
        }
        packet_.words[packet_.wordCount++] = word;
        return true;
    }
    const MIDIEventPacket& packet() const { return packet_; }

private:
    std::size_t maximum_;
    MIDIEventPacket packet_;
};
}  // namespace

MIDIEventPacket makeMIDIEventPacket(std::span<const std::uint32_t> words, MIDITimeStamp timeStamp) {
    checkWordCount(words.size());
    MIDIEventPacket packet;
    packet.timeStamp = timeStamp;
    packet.wordCount = static_cast<std::uint32_t>(words.size());
    std::copy(words.begin(), words.end(), packet.words.begin());
    return packet;
}

MIDIEventPacket makeMIDIEventPacketUsingBuilder(std::span<const std::uint32_t> words, MIDITimeStamp timeStamp) {
    checkWordCount(words.size());
    MIDIEventPacketBuilder builder(kMIDIEventPacketMaxWords);
    builder.setTimeStamp(timeStamp);
    for (auto word : words) {
        if (!builder.append(word)) {
            throw MIDIInternalError::packetBuildError(std::nullopt);
        }
    }
    return builder.packet();
}

MIDIEventList makeMIDIEventList(MIDIProtocolID protocol, std::span<const std::uint32_t> packetWords,
                                MIDITimeStamp timeStamp) {
    MIDIEventList list;
    list.protocol = protocol;
    list.numPackets = 1;
    list.packet = makeMIDIEventPacket(packetWords, timeStamp);
    return list;
}

std::vector<std::uint8_t> makeMIDIPacketList(const std::vector<std::vector<std::uint8_t>>& data) {
    // Ten bytes a data byte: far more than needed, kept so that the size limit falls where it
    // always has.
    std::size_t needed = kSizeOfMIDIPacketListHeader;
    for (const auto& packet : data) {
        if (packet.size() > (std::numeric_limits<std::size_t>::max() - needed) / 10) {
            MIDIInternals::fatalError("packet list size overflows");
        }
        needed += 10 * packet.size();
    }
    if (needed > 65536) {
        throw MIDIInternalError::packetTooLarge(needed);
    }
    std::size_t exact = kSizeOfMIDIPacketListHeader;
    for (const auto& packet : data) {
        exact += kSizeOfMIDIPacketHeader + packet.size();
    }
    std::vector<std::uint8_t> buffer(std::max(needed, exact));
    MIDIPacketListBuilder builder(buffer);
    for (const auto& packet : data) {
        if (!builder.add(buffer.size(), 0, packet)) {
            throw MIDIInternalError::packetBuildError(std::nullopt);
        }
    }
    buffer.resize(builder.bytes().size());
    return buffer;
}

}  // namespace MIDIIO
