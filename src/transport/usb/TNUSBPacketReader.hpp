#pragma once
// Reads the daemon's packets from a byte stream, one at a time and never past the end of the
// packet in progress: after a successful Connect the same socket carries the device's bytes, so
// not one byte beyond the reply may be taken. The caller reads exactly nextBuffer().size()
// bytes (or fewer, if that is all it gets) into nextBuffer() and reports them with didRead().
//
// Sizes are bounded: a size below 16 or above kMaximumPacketSize (16 MiB, far beyond any reply
// or broadcast of the daemon) refuses the packet and ends the stream, since nothing after it can
// be framed. Bad protocol or type fields and payloads that are not a property-list dictionary
// give an error for that packet only; the stream goes on.

#include "platform/Types.hpp"
#include "transport/usb/TNError.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace havrel {

class TNUSBPacketReader {
public:
    static constexpr std::uint32_t kMaximumPacketSize = 16 * 1024 * 1024;

    struct Result {
        TNOptionalError error;
        // Absent for an empty packet (size 16), on errors, and at the end of the stream.
        std::optional<Dictionary> dictionary;
        std::uint32_t tag = 0;
        // The stream can carry no further packet: refused size, or the end of the stream.
        bool endsStream = false;
    };

    // Where the next bytes go: the rest of the size field, then the rest of the packet.
    std::span<std::uint8_t> nextBuffer();
    // Counts bytes written to the start of nextBuffer(). A result once a packet is complete or
    // refused; the reader is then ready for the next packet.
    std::optional<Result> didRead(std::size_t count);
    // The stream ended. Before the whole size field of a packet this is a quiet end (no error,
    // no dictionary); after it, the error "Connection closed mid-packet".
    Result didReachEnd();

private:
    Result finishPacket();
    void reset();

    std::array<std::uint8_t, 4> sizeBytes_{};
    std::size_t sizeRead_ = 0;
    std::uint32_t size_ = 0;
    Bytes rest_;  // the packet after its size field: protocol, type, tag, payload
    std::size_t restRead_ = 0;
};

}  // namespace havrel
