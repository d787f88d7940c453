#pragma once
// A signed 7-bit value, -64...63, kept as its two's-complement pattern in two pieces: the low
// six bits (`sixBitStorage`) and the seventh bit (`isNegative`). -1 is 63 and true, -64 is 0 and
// true, 63 is 63 and false. Construction follows the family of MIDIUnsignedInteger.hpp:
// an int literal is checked at compile time, other integers with Int7::checked(x).

#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <compare>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace MIDICore {

class Int7 {
public:
    static constexpr std::string_view integerName = "Int7";

    constexpr Int7() = default;
    consteval Int7(int literal) : Int7(fromPattern(literalPattern(literal))) {}
    template <PlainInteger I>
        requires(!std::same_as<I, int>)
    constexpr explicit Int7(I source) : Int7(checked(source)) {}

    // Raises "Int7 integer underflowed" below -64, "Int7 integer overflowed" above 63.
    template <PlainInteger I>
    static constexpr Int7 checked(I source) {
        if (std::cmp_less(source, -64)) {
            detail::raiseUnderflow(integerName);
        }
        if (std::cmp_greater(source, 63)) {
            detail::raiseOverflow(integerName);
        }
        return fromPattern(static_cast<std::uint8_t>(static_cast<int>(source) & 0x7F));
    }
    template <PlainInteger I>
    static constexpr std::optional<Int7> exactly(I source) {
        if (std::cmp_less(source, -64) || std::cmp_greater(source, 63)) {
            return std::nullopt;
        }
        return fromPattern(static_cast<std::uint8_t>(static_cast<int>(source) & 0x7F));
    }
    // The low seven bits of the two's-complement form.
    template <PlainInteger I>
    static constexpr Int7 truncatingIfNecessary(I source) {
        return fromPattern(static_cast<std::uint8_t>(static_cast<std::uintmax_t>(source) & 0x7F));
    }
    template <std::unsigned_integral U>
    static constexpr Int7 bitPattern(U source) {
        return fromPattern(static_cast<std::uint8_t>(source & 0x7F));
    }

    static constexpr Int7 min() { return fromPattern(0x40); }
    static constexpr Int7 max() { return fromPattern(0x3F); }

    constexpr std::uint8_t sixBitStorage() const { return sixBitStorage_; }
    constexpr bool isNegative() const { return isNegative_; }
    // The seven-bit pattern.
    constexpr std::uint8_t rawByte() const {
        return static_cast<std::uint8_t>(isNegative_ ? sixBitStorage_ + 64 : sixBitStorage_);
    }
    constexpr UInt7 rawUInt7Byte() const { return UInt7::fromStorage(rawByte()); }
    constexpr int intValue() const { return isNegative_ ? -(64 - sixBitStorage_) : sixBitStorage_; }

    // "0b" and the seven-bit pattern, as "0b1111111".
    std::string binaryString() const;
    std::string description() const { return std::to_string(intValue()); }
    std::string debugDescription() const { return "Int7(" + description() + ")"; }

    friend constexpr bool operator==(const Int7&, const Int7&) = default;
    friend constexpr std::strong_ordering operator<=>(const Int7& a, const Int7& b) {
        return a.intValue() <=> b.intValue();
    }

private:
    static constexpr Int7 fromPattern(std::uint8_t pattern) {
        Int7 result;
        result.sixBitStorage_ = pattern & 0x3F;
        result.isNegative_ = (pattern & 0x40) != 0;
        return result;
    }
    static consteval std::uint8_t literalPattern(int literal) {
        if (literal < -64 || literal > 63) {
            detail::literalOutOfRange();
        }
        return static_cast<std::uint8_t>(literal & 0x7F);
    }

    std::uint8_t sixBitStorage_ = 0;
    bool isNegative_ = false;
};

}  // namespace MIDICore
