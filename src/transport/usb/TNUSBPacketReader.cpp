#include "transport/usb/TNUSBPacketReader.hpp"

#include "platform/Assert.hpp"
#include "platform/PropertyList.hpp"
#include "transport/usb/TNUSBPacket.hpp"

#include <utility>

namespace havrel {

namespace {

TNUSBPacketReader::Result failure(std::int64_t code, const char* description, std::uint32_t tag,
                                  bool endsStream = false) {
    TNUSBPacketReader::Result result;
    result.error = TNError::make(TNUSBHubErrorDomain, code, description);
    result.tag = tag;
    result.endsStream = endsStream;
    return result;
}

}  // namespace

std::span<std::uint8_t> TNUSBPacketReader::nextBuffer() {
    if (sizeRead_ < sizeBytes_.size()) {
        return std::span<std::uint8_t>(sizeBytes_).subspan(sizeRead_);
    }
    return std::span<std::uint8_t>(rest_).subspan(restRead_);
}

std::optional<TNUSBPacketReader::Result> TNUSBPacketReader::didRead(std::size_t count) {
    HV_ASSERT(count <= nextBuffer().size());
    if (sizeRead_ < sizeBytes_.size()) {
        sizeRead_ += count;
        if (sizeRead_ < sizeBytes_.size()) {
            return std::nullopt;
        }
        size_ = readLittleEndian32(sizeBytes_.data());
        if (size_ < kUsbmuxPacketHeaderSize) {
            reset();
            return failure(0, "Received a packet that is too small", 0, true);
        }
        if (size_ > kMaximumPacketSize) {
            reset();
            return failure(1, "Received a packet that is too large", 0, true);
        }
        rest_.assign(size_ - sizeBytes_.size(), 0);
        restRead_ = 0;
        return std::nullopt;
    }
    restRead_ += count;
    if (restRead_ < rest_.size()) {
        return std::nullopt;
    }
    auto result = finishPacket();
    reset();
    return result;
}

TNUSBPacketReader::Result TNUSBPacketReader::didReachEnd() {
    Result result;
    result.endsStream = true;
    // Fewer than the four bytes of a size is how a close between packets looks.
    if (sizeRead_ == sizeBytes_.size()) {
        // The tag is known only once its field has arrived.
        const std::uint32_t tag = restRead_ >= 12 ? readLittleEndian32(rest_.data() + 8) : 0;
        result = failure(2, "Connection closed mid-packet", tag, true);
    }
    reset();
    return result;
}

TNUSBPacketReader::Result TNUSBPacketReader::finishPacket() {
    const std::uint32_t protocol = readLittleEndian32(rest_.data());
    const std::uint32_t type = readLittleEndian32(rest_.data() + 4);
    const std::uint32_t tag = readLittleEndian32(rest_.data() + 8);
    if (protocol != kUsbmuxPacketProtocolPlist) {
        return failure(0, "Unexpected package protocol", tag);
    }
    if (type != kUsbmuxPacketTypePlistPayload) {
        return failure(0, "Unexpected package type", tag);
    }
    Result result;
    result.tag = tag;
    const ByteView payload = ByteView(rest_).subspan(kUsbmuxPacketHeaderSize - sizeBytes_.size());
    if (payload.empty()) {
        return result;
    }
    auto dictionary = propertyListFromData(payload);
    if (!dictionary || !dictionary->is_object()) {
        return failure(0, "The packet's payload is not a property-list dictionary", tag);
    }
    result.dictionary = std::move(dictionary);
    return result;
}

void TNUSBPacketReader::reset() {
    sizeRead_ = 0;
    size_ = 0;
    rest_.clear();
    rest_.shrink_to_fit();
    restRead_ = 0;
}

}  // namespace havrel
