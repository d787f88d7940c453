#pragma once
// The binary range command: a list of positions, each addressed to a wrapper and an axis.
//
// Wire form, 2 + 3 * n bytes: the command type (1 when written), n, then per entry
//   A  dataWrapperID >> 2, low 8 bits
//   B  bits 0-1 dataWrapperID & 3, bits 2-3 state & 3, bits 4-6 axis (8 or more as 7),
//      bit 7 the ninth bit of the position
//   C  the low 8 bits of the position
// So a wrapper number has 10 bits and higher bits are dropped.

#include "platform/Types.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace havrel {

struct HVEncodedRangeValue {
    std::uint8_t axisNumber = 0;
    // Carried for the client's use; the desktop side does not consult it.
    std::uint8_t state = 0;
    std::uint64_t dataWrapperID = 0;
    double rangeValue = 0.0;

    // State 0.
    static HVEncodedRangeValue rangeValueWithDataWraperID(std::uint64_t dataWrapperID, std::uint8_t axisNumber,
                                                          double rangeValue);
    static HVEncodedRangeValue rangeValueWithDataWraperID(std::uint64_t dataWrapperID, std::uint8_t axisNumber,
                                                          double rangeValue, std::uint8_t state);

    bool operator==(const HVEncodedRangeValue&) const = default;
};

struct HVEncodedRangeCommand {
    // Bits 0-2 of the first byte as read; nothing consults it.
    std::uint8_t commandType = 0;
    std::vector<HVEncodedRangeValue> rangeValues;

    static HVEncodedRangeCommand rangeCommandWithRangeValues(std::vector<HVEncodedRangeValue> rangeValues);

    // The wire form; nothing, with a log line, for no entries or more than 16.
    std::optional<Bytes> data() const;

    // Reads n entries from the count byte (up to 255). A buffer that holds fewer gives the whole
    // entries that fit and one log line; one shorter than the 2 header bytes gives nothing.
    static std::optional<HVEncodedRangeCommand> initWithData(ByteView data);

    bool operator==(const HVEncodedRangeCommand&) const = default;
};

}  // namespace havrel
