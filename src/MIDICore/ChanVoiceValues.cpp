#include "MIDICore/ChanVoiceValues.hpp"

#include <cmath>
#include <sstream>

namespace MIDICore {

namespace detail {
std::string formatDouble(double value) {
    std::ostringstream stream;
    stream.precision(17);
    stream << value;
    return stream.str();
}

std::size_t hashCombine(std::size_t kind, std::size_t payload) {
    return payload ^ (kind + 0x9e3779b97f4a7c15ULL + (payload << 6) + (payload >> 2));
}
}  // namespace detail

// ChanVoice14Bit32BitValue

double ChanVoice14Bit32BitValue::unitIntervalValue() const {
    switch (case_) {
        case Case::unitInterval: return unit_;
        case Case::bipolarUnitInterval: return unit_ * 0.5 + 0.5;
        case Case::midi1: return scaling::toUnitInterval<14>(integer_);
        case Case::midi2: return scaling::toUnitInterval<32>(integer_);
    }
    return 0.0;
}

double ChanVoice14Bit32BitValue::bipolarUnitIntervalValue() const {
    switch (case_) {
        case Case::unitInterval: return unit_ <= 0.0 ? -1.0 : (std::min(unit_, 1.0) - 0.5) * 2.0;
        case Case::bipolarUnitInterval: return unit_;
        case Case::midi1: return UInt14::fromStorage(static_cast<std::uint16_t>(integer_)).bipolarUnitIntervalValue();
        case Case::midi2: {
            double offset = static_cast<double>(integer_) - 2147483648.0;
            return integer_ <= 0x80000000U ? offset * 4.656612873077393e-10 : offset / 2147483647.0;
        }
    }
    return 0.0;
}

UInt14 ChanVoice14Bit32BitValue::midi1Value() const {
    switch (case_) {
        case Case::unitInterval: return UInt14::fromStorage(static_cast<std::uint16_t>(scaling::fromUnitInterval<14>(unit_)));
        case Case::bipolarUnitInterval: return UInt14::bipolarUnitInterval(unit_);
        case Case::midi1: return UInt14::fromStorage(static_cast<std::uint16_t>(integer_));
        case Case::midi2: return UInt14::fromStorage(static_cast<std::uint16_t>(integer_ >> 18));
    }
    return UInt14();
}

std::uint32_t ChanVoice14Bit32BitValue::midi2Value() const {
    switch (case_) {
        case Case::unitInterval: return scaling::fromUnitInterval<32>(unit_);
        case Case::bipolarUnitInterval: {
            // The negative half spans 2^31 steps, the positive half 2^31 - 1.
            if (unit_ <= -1.0) {
                return 0;
            }
            if (unit_ <= 0.0) {
                return 0x80000000U - detail::checkedFloating<std::uint32_t>(std::fabs(unit_) * 2147483648.0,
                                                                           0x80000000U, "UInt32");
            }
            return 0x80000000U + detail::checkedFloating<std::uint32_t>(std::min(unit_, 1.0) * 2147483647.0,
                                                                       0x7FFFFFFFU, "UInt32");
        }
        case Case::midi1: return scaling::upscale14To32(static_cast<std::uint16_t>(integer_));
        case Case::midi2: return integer_;
    }
    return 0;
}

bool operator==(const ChanVoice14Bit32BitValue& a, const ChanVoice14Bit32BitValue& b) {
    using Case = ChanVoice14Bit32BitValue::Case;
    auto isFloating = [](Case c) { return c == Case::unitInterval || c == Case::bipolarUnitInterval; };
    if (a.case_ == b.case_) {
        return isFloating(a.case_) ? a.unit_ == b.unit_ : a.integer_ == b.integer_;
    }
    if (isFloating(a.case_) && isFloating(b.case_)) {
        return a.unitIntervalValue() == b.unitIntervalValue();
    }
    if (a.case_ == Case::midi1 || b.case_ == Case::midi1) {
        return a.midi1Value() == b.midi1Value();
    }
    return a.midi2Value() == b.midi2Value();
}

std::size_t ChanVoice14Bit32BitValue::hashValue() const {
    bool floating = case_ == Case::unitInterval || case_ == Case::bipolarUnitInterval;
    std::size_t payload = floating ? std::hash<double>{}(unit_) : std::hash<std::uint32_t>{}(integer_);
    return detail::hashCombine(static_cast<std::size_t>(case_), payload);
}

std::string ChanVoice14Bit32BitValue::description() const {
    switch (case_) {
        case Case::unitInterval: return "unitInterval(" + detail::formatDouble(unit_) + ")";
        case Case::bipolarUnitInterval: return "bipolarUnitInterval(" + detail::formatDouble(unit_) + ")";
        case Case::midi1: return "midi1(" + std::to_string(integer_) + ")";
        case Case::midi2: return "midi2(" + std::to_string(integer_) + ")";
    }
    return "";
}

// ChanVoice32BitValue

double ChanVoice32BitValue::unitIntervalValue() const {
    return case_ == Case::unitInterval ? unit_ : scaling::toUnitInterval<32>(integer_);
}

std::uint32_t ChanVoice32BitValue::midi2Value() const {
    return case_ == Case::midi2 ? integer_ : scaling::fromUnitInterval<32>(unit_);
}

UInt7 ChanVoice32BitValue::midi1_7BitValue() const {
    auto value = case_ == Case::midi2 ? integer_ >> 25 : scaling::fromUnitInterval<7>(unit_);
    return UInt7::fromStorage(static_cast<std::uint8_t>(value));
}

UInt14 ChanVoice32BitValue::midi1_14BitValue() const {
    auto value = case_ == Case::midi2 ? integer_ >> 18 : scaling::fromUnitInterval<14>(unit_);
    return UInt14::fromStorage(static_cast<std::uint16_t>(value));
}

bool operator==(const ChanVoice32BitValue& a, const ChanVoice32BitValue& b) {
    if (a.case_ == b.case_) {
        return a.case_ == ChanVoice32BitValue::Case::unitInterval ? a.unit_ == b.unit_ : a.integer_ == b.integer_;
    }
    return a.midi2Value() == b.midi2Value();
}

std::size_t ChanVoice32BitValue::hashValue() const {
    std::size_t payload = case_ == Case::unitInterval ? std::hash<double>{}(unit_) : std::hash<std::uint32_t>{}(integer_);
    return detail::hashCombine(static_cast<std::size_t>(case_), payload);
}

std::string ChanVoice32BitValue::description() const {
    return case_ == Case::unitInterval ? "unitInterval(" + detail::formatDouble(unit_) + ")"
                                       : "midi2(" + std::to_string(integer_) + ")";
}

}  // namespace MIDICore
