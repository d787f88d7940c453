#include "transport/usb/TNFrameHeader.hpp"

namespace havrel {

namespace {

void putBigEndian(std::uint8_t* out, std::uint32_t value) {
    out[0] = static_cast<std::uint8_t>(value >> 24);
    out[1] = static_cast<std::uint8_t>(value >> 16);
    out[2] = static_cast<std::uint8_t>(value >> 8);
    out[3] = static_cast<std::uint8_t>(value);
}

std::uint32_t getBigEndian(const std::uint8_t* in) {
    return (std::uint32_t{in[0]} << 24) | (std::uint32_t{in[1]} << 16) | (std::uint32_t{in[2]} << 8) |
           std::uint32_t{in[3]};
}

}  // namespace

std::array<std::uint8_t, kTNFrameHeaderSize> encodeFrameHeader(const TNFrameHeader& header) {
    std::array<std::uint8_t, kTNFrameHeaderSize> bytes{};
    putBigEndian(bytes.data(), header.version);
    putBigEndian(bytes.data() + 4, header.type);
    putBigEndian(bytes.data() + 8, header.tag);
    putBigEndian(bytes.data() + 12, header.payloadSize);
    return bytes;
}

std::optional<TNFrameHeader> decodeFrameHeader(ByteView bytes) {
    if (bytes.size() < kTNFrameHeaderSize) {
        return std::nullopt;
    }
    return TNFrameHeader{getBigEndian(bytes.data()), getBigEndian(bytes.data() + 4), getBigEndian(bytes.data() + 8),
                         getBigEndian(bytes.data() + 12)};
}

}  // namespace havrel
