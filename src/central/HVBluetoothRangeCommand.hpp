#pragma once
// The range command of the Bluetooth path: positions addressed by screen and component.
//
// Wire form, 2 + 3 * n bytes: byte 0 is the first value's screenID * 8 (8 bits; bits 0-2 the
// command type, 0 when written, and the screen is one for the whole command), byte 1 is n, then
// per entry the componentID; bits 0-3 the axis (16 or more as 15), bits 6-7 the ninth bit of the
// position; the low 8 bits of the position.

#include "platform/Types.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace havrel {

struct HVBluetoothRangeValue {
    std::uint8_t screenID = 0;
    std::uint8_t componentID = 0;
    std::uint8_t axisNumber = 0;
    double rangeValue = 0.0;

    static HVBluetoothRangeValue rangeValueWithComponentID(std::uint8_t componentID, std::uint8_t screenID,
                                                           std::uint8_t axisNumber, double rangeValue);

    bool operator==(const HVBluetoothRangeValue&) const = default;
};

struct HVBluetoothRangeCommand {
    std::uint8_t commandType = 0;
    std::vector<HVBluetoothRangeValue> rangeValues;

    static HVBluetoothRangeCommand rangeCommandWithRangeValues(std::vector<HVBluetoothRangeValue> rangeValues);

    // The wire form; nothing, with a log line, for no entries or more than 16.
    std::optional<Bytes> data() const;

    // Reads n entries from the count byte; every value takes the screen of byte 0. A buffer that
    // holds fewer gives the whole entries that fit and one log line; one shorter than the 2
    // header bytes gives nothing.
    static std::optional<HVBluetoothRangeCommand> initWithData(ByteView data);

    bool operator==(const HVBluetoothRangeCommand&) const = default;
};

}  // namespace havrel
