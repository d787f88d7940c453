#pragma once
// The 16-byte header in front of every frame: version, type, tag and payload size, each an
// unsigned 32-bit integer in network byte order. Encoding and decoding are pure functions.

#include "platform/Types.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace havrel {

inline constexpr std::size_t kTNFrameHeaderSize = 16;
inline constexpr std::uint32_t kTNFrameProtocolVersion = 1;
// Largest payload a received frame may declare; a larger one is refused before anything is
// allocated for it.
inline constexpr std::uint32_t kTNMaximumFramePayloadSize = 64u * 1024u * 1024u;

struct TNFrameHeader {
    std::uint32_t version = kTNFrameProtocolVersion;
    std::uint32_t type = 0;
    std::uint32_t tag = 0;
    std::uint32_t payloadSize = 0;

    bool operator==(const TNFrameHeader&) const = default;
};

std::array<std::uint8_t, kTNFrameHeaderSize> encodeFrameHeader(const TNFrameHeader& header);

// The header in the first 16 bytes; nothing when fewer are given. The version is not checked.
std::optional<TNFrameHeader> decodeFrameHeader(ByteView bytes);

}  // namespace havrel
