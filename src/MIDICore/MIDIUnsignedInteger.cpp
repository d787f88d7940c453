#include "MIDICore/MIDIUnsignedInteger.hpp"

#include "MIDIInternals/TextHelpers.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace MIDICore {

namespace detail {
void literalOutOfRange() {}
}  // namespace detail

std::string UInt7Pair::description() const {
    auto lower = [](UInt7 v) {
        std::string hex = MIDIInternals::hexString(v.storage(), 2);
        std::transform(hex.begin(), hex.end(), hex.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return hex;
    };
    return "[msb: " + lower(msb) + ", lsb: " + lower(lsb) + "]";
}

UInt14 UInt14::bipolarUnitInterval(double value) {
    double clamped = std::clamp(value, -1.0, 1.0);
    if (clamped > 0.0) {
        return fromStorage(static_cast<std::uint16_t>(
            8192 + detail::checkedFloating<std::uint16_t>(clamped * 8191.0, 8191, integerName)));
    }
    return fromStorage(static_cast<std::uint16_t>(
        8192 - detail::checkedFloating<std::uint16_t>(std::fabs(clamped) * 8192.0, 8192, integerName)));
}

double UInt14::bipolarUnitIntervalValue() const {
    double offset = static_cast<double>(value_) - 8192.0;
    if (value_ <= 8192) {
        return offset * 0.0001220703125;
    }
    return offset / 8191.0;
}

}  // namespace MIDICore
