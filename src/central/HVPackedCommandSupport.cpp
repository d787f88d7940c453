#include "central/HVPackedCommandSupport.hpp"

#include "platform/Log.hpp"

#include <cmath>
#include <limits>

namespace havrel {

namespace {

// Truncation toward zero to an unsigned integer, defined for every input: NaN and negative
// values give 0 and values past the range saturate.
std::uint64_t truncatedUnsigned(double value) {
    if (!(value > 0.0)) {
        return 0;
    }
    constexpr double limit = 18446744073709551616.0;  // 2^64
    if (value >= limit) {
        return std::numeric_limits<std::uint64_t>::max();
    }
    return static_cast<std::uint64_t>(value);
}

}  // namespace

HVQuantisedPosition quantisePosition(double position) {
    const double scaled = position * 511.0;
    HVQuantisedPosition quantised;
    quantised.low = truncatedUnsigned(scaled) & 0xFFu;
    // The product goes through a 32-bit float before it is rounded down. Magnitudes beyond the
    // float range (where the conversion is undefined) saturate without it.
    const double shifted = scaled * 0.00390625;
    if (std::fabs(shifted) <= static_cast<double>(std::numeric_limits<float>::max())) {
        quantised.high = truncatedUnsigned(std::floor(static_cast<double>(static_cast<float>(shifted))));
    } else {
        quantised.high = truncatedUnsigned(shifted);
    }
    return quantised;
}

double positionFromQuantised(std::uint64_t high, std::uint64_t low) {
    return static_cast<double>(high * 256u + low) / 511.0;
}

bool hasWritableEntryCount(std::size_t count, std::size_t maximum) {
    if (count == 0) {
        log("error, a MIDI command can't be empty");
        return false;
    }
    if (count > maximum) {
        logf("error, a MIDI command can't contain more than {} values", maximum);
        return false;
    }
    return true;
}

bool hasPackedHeader(std::string_view reader, ByteView data, std::size_t headerSize) {
    if (data.size() >= headerSize) {
        return true;
    }
    logf("{}: {} bytes is too short, {} needed", reader, data.size(), headerSize);
    return false;
}

std::size_t entriesToRead(std::string_view reader, std::size_t announced, std::size_t available, ByteView data) {
    if (available >= announced) {
        return announced;
    }
    logf("{}: n={} but only {} entries in {} bytes", reader, announced, available, data.size());
    return available;
}

}  // namespace havrel
