#pragma once
// Frames for benchmarks that play a client device on a plain socket.

#include "platform/Types.hpp"
#include "transport/usb/TNFrameHeader.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <cstdint>

namespace havrel::bench {

// One frame: its 16-byte header and the payload.
inline Bytes frame(std::uint32_t type, const Bytes& payload) {
    TNFrameHeader header;
    header.type = type;
    header.payloadSize = static_cast<std::uint32_t>(payload.size());
    const auto head = encodeFrameHeader(header);
    Bytes bytes(head.size() + payload.size());
    std::copy(head.begin(), head.end(), bytes.begin());
    std::copy(payload.begin(), payload.end(), bytes.begin() + static_cast<std::ptrdiff_t>(head.size()));
    return bytes;
}

// Writes every byte on a blocking socket; false when the peer has gone.
inline bool writeAll(int fd, const Bytes& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace havrel::bench
