#pragma once
// One raw MIDI message of three bytes, its status byte flipped in bit 7 on the wire (a Note On
// on channel 1, 0x90, travels as 0x10).
//
// The flip sits at the object's edges, not symmetrically: MIDICommandWithStatus stores the
// status already flipped and data() writes the field as it stands, while initWithData flips the
// first byte back. So `status` holds the wire form on an object built for sending and the true
// MIDI status on one that was received.

#include "platform/Types.hpp"

#include <cstdint>
#include <optional>

namespace havrel {

struct RNBluetoothMIDICommandPure {
    std::uint8_t status = 0;
    std::uint8_t data1 = 0;
    std::uint8_t data2 = 0;

    // Stores status XOR 0x80, keeping 8 bits of it.
    static RNBluetoothMIDICommandPure MIDICommandWithStatus(std::int64_t status, std::uint8_t data1,
                                                            std::uint8_t data2);

    // Always 3 bytes.
    std::optional<Bytes> data() const;

    // The first 3 bytes, the first flipped back to the true status; extra bytes are ignored.
    // Fewer than 3 give nothing and one log line.
    static std::optional<RNBluetoothMIDICommandPure> initWithData(ByteView data);

    bool operator==(const RNBluetoothMIDICommandPure&) const = default;
};

}  // namespace havrel
