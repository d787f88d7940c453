#pragma once
// What the packed command forms share: the 9-bit position quantisation of the two range forms,
// and the length checks every reader makes before it touches a byte.

#include "platform/Types.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace havrel {

// A position as it travels: high is the ninth bit (it can exceed 1 for positions above 1.0, and
// the writers keep only the bits their field holds), low the eight bits below it.
struct HVQuantisedPosition {
    std::uint64_t high = 0;
    std::uint64_t low = 0;  // already cut to 8 bits
};

// Carries `position` (expected 0.0 to 1.0) as a number out of 511. `low` is the truncated
// product with 511.0; `high` is the same product divided by 256, narrowed to a 32-bit float
// before it is rounded down. The narrowing is part of the form: a product just below 256.0
// becomes high 1, low 255, which reads back as 1.0. NaN and negative products count as 0.
HVQuantisedPosition quantisePosition(double position);

// (high * 256 + low) / 511.0.
double positionFromQuantised(std::uint64_t high, std::uint64_t low);

// The writers' check of their entry count: no entries logs "error, a MIDI command can't be empty",
// more than `maximum` logs "error, a MIDI command can't contain more than <maximum> values";
// both give false.
bool hasWritableEntryCount(std::size_t count, std::size_t maximum);

// Checks that a packed command holds at least `headerSize` bytes. Shorter input logs
// "<reader>: <size> bytes is too short, <headerSize> needed" and gives false.
bool hasPackedHeader(std::string_view reader, ByteView data, std::size_t headerSize);

// The number of entries to read when the header announces `announced` and `available` whole
// entries fit in the buffer: the smaller of the two. Fewer than announced logs one line,
// "<reader>: n=<announced> but only <available> entries in <size> bytes".
std::size_t entriesToRead(std::string_view reader, std::size_t announced, std::size_t available, ByteView data);

// The layout of the two range forms: a first byte, the entry count, then three bytes per entry.
inline constexpr std::size_t kRangeHeaderSize = 2;
inline constexpr std::size_t kRangeEntrySize = 3;
inline constexpr std::size_t kRangeMaximumEntries = 16;
using HVRangeEntry = std::array<std::uint8_t, kRangeEntrySize>;

// Writes a range form: `entry(value, quantisedPosition)` gives the three bytes of each value.
// Nothing, with the writers' log line, for no values or more than 16.
template <typename Value, typename EntryWriter>
std::optional<Bytes> writeRangeEntries(std::uint8_t firstByte, const std::vector<Value>& values,
                                       EntryWriter&& entry) {
    if (!hasWritableEntryCount(values.size(), kRangeMaximumEntries)) {
        return std::nullopt;
    }
    Bytes bytes;
    bytes.reserve(kRangeHeaderSize + kRangeEntrySize * values.size());
    bytes.push_back(firstByte);
    bytes.push_back(static_cast<std::uint8_t>(values.size()));
    for (const Value& value : values) {
        const HVRangeEntry written = entry(value, quantisePosition(value.rangeValue));
        bytes.insert(bytes.end(), written.begin(), written.end());
    }
    return bytes;
}

// Reads the entries of a range form whose header is present: as many as byte 1 announces, or
// the whole entries that fit with one log line. `value(entry)` makes each value.
template <typename Value, typename EntryReader>
std::vector<Value> readRangeEntries(std::string_view reader, ByteView data, EntryReader&& value) {
    const std::size_t count =
        entriesToRead(reader, data[1], (data.size() - kRangeHeaderSize) / kRangeEntrySize, data);
    std::vector<Value> values;
    values.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t offset = kRangeHeaderSize + kRangeEntrySize * i;
        values.push_back(value(HVRangeEntry{data[offset], data[offset + 1], data[offset + 2]}));
    }
    return values;
}

}  // namespace havrel
