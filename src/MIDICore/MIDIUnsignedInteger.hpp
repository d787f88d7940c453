#pragma once
// Range-checked MIDI integers: UInt4, UInt7, UInt9, UInt14, UInt25, and the byte pairs.
//
// A value out of range cannot exist. Construction:
//   UInt7 v = 60;                 an int literal or constant, checked at compile time (consteval)
//   UInt7(x), UInt7::checked(x)   any other integer or a floating-point number: checked at run
//                                 time, MIDIInternals::Exception "UInt7 integer overflowed" /
//                                 "... underflowed". An `int` variable goes through checked(x)
//                                 (or toUInt7(x)), as the int constructor is for constants only.
//   UInt7::exactly(x)             nothing when out of range (or fractional)
//   UInt7::clamping(x)            forced into min...max
//   UInt7::truncatingIfNeeded(x)  the low bitWidth bits of the two's-complement form
// Arithmetic re-validates its result: UInt7(100) + UInt7(100) raises "UInt7 integer
// overflowed". Leaving the storage type (a negative difference, a product past 255 for UInt7)
// and division by zero are fatal, as for plain unsigned integers.

#include "MIDICore/IntegerChecks.hpp"

#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace MIDICore {

namespace detail {
// Not constexpr: reaching it in a constant expression makes the literal a compile error.
void literalOutOfRange();
}  // namespace detail

template <class Derived, unsigned Bits, class StorageType>
class MIDIUnsignedInteger {
public:
    using Storage = StorageType;
    static constexpr unsigned bitWidth = Bits;
    static constexpr Storage maxStorage = static_cast<Storage>((1ULL << Bits) - 1);

    constexpr MIDIUnsignedInteger() = default;
    template <PlainInteger I>
        requires(!std::same_as<I, int>)
    constexpr explicit MIDIUnsignedInteger(I source)
        : value_(detail::checkedInteger<Storage>(source, maxStorage, Derived::integerName)) {}
    template <std::floating_point F>
    explicit MIDIUnsignedInteger(F source)
        : value_(detail::checkedFloating<Storage>(source, maxStorage, Derived::integerName)) {}

    template <PlainInteger I>
    static constexpr Derived checked(I source) {
        return fromStorage(detail::checkedInteger<Storage>(source, maxStorage, Derived::integerName));
    }
    template <std::floating_point F>
    static Derived checked(F source) {
        return fromStorage(detail::checkedFloating<Storage>(source, maxStorage, Derived::integerName));
    }
    template <PlainInteger I>
    static constexpr std::optional<Derived> exactly(I source) {
        auto storage = detail::exactInteger<Storage>(source, maxStorage);
        return storage ? std::optional<Derived>(fromStorage(*storage)) : std::nullopt;
    }
    template <std::floating_point F>
    static std::optional<Derived> exactly(F source) {
        auto storage = detail::exactFloating<Storage>(source, maxStorage);
        return storage ? std::optional<Derived>(fromStorage(*storage)) : std::nullopt;
    }
    template <PlainInteger I>
    static constexpr Derived clamping(I source) {
        return fromStorage(detail::clampedInteger<Storage>(source, maxStorage));
    }
    template <PlainInteger I>
    static constexpr Derived truncatingIfNeeded(I source) {
        return fromStorage(static_cast<Storage>(static_cast<std::uintmax_t>(source) & maxStorage));
    }
    static constexpr Derived fromStorage(Storage storage) {
        Derived result;
        result.value_ = storage;
        return result;
    }

    static constexpr Derived min() { return fromStorage(0); }
    static constexpr Derived max() { return fromStorage(maxStorage); }

    constexpr Storage storage() const { return value_; }
    constexpr int intValue() const { return static_cast<int>(value_); }
    constexpr unsigned trailingZeroBitCount() const {
        unsigned zeros = static_cast<unsigned>(std::countr_zero(value_));
        return zeros < Bits ? zeros : Bits;
    }

    // Stepping in a range: a checked advance, and a signed distance.
    constexpr Derived advanced(long long by) const { return checked(static_cast<long long>(value_) + by); }
    constexpr long long distance(Derived to) const {
        return static_cast<long long>(to.value_) - static_cast<long long>(value_);
    }

    // The stored integer, for encoding; decode() checks it.
    constexpr Storage encode() const { return value_; }
    static Derived decode(Storage encoded) {
        if (encoded > maxStorage) {
            detail::decodingFailure(Derived::integerName);
        }
        return fromStorage(encoded);
    }

    std::string description() const { return std::to_string(value_); }
    std::string debugDescription() const {
        return std::string(Derived::integerName) + "(" + description() + ")";
    }

    friend constexpr bool operator==(const Derived& a, const Derived& b) { return a.value_ == b.value_; }
    friend constexpr std::strong_ordering operator<=>(const Derived& a, const Derived& b) {
        return a.value_ <=> b.value_;
    }
    // Comparison with plain integers of any sign and width, by value.
    template <PlainInteger I>
    friend constexpr bool operator==(const Derived& a, I b) { return std::cmp_equal(a.value_, b); }
    template <PlainInteger I>
    friend constexpr std::strong_ordering operator<=>(const Derived& a, I b) {
        return std::cmp_less(a.value_, b) ? std::strong_ordering::less
               : std::cmp_equal(a.value_, b) ? std::strong_ordering::equal
                                             : std::strong_ordering::greater;
    }

    friend constexpr Derived operator+(Derived a, Derived b) { return fromWide(wide(a) + wide(b)); }
    friend constexpr Derived operator-(Derived a, Derived b) { return fromWide(wide(a) - wide(b)); }
    friend constexpr Derived operator*(Derived a, Derived b) { return fromWide(wide(a) * wide(b)); }
    friend constexpr Derived operator/(Derived a, Derived b) {
        if (b.value_ == 0) {
            detail::arithmeticTrap("Division by zero");
        }
        return fromWide(wide(a) / wide(b));
    }
    friend constexpr Derived operator%(Derived a, Derived b) {
        if (b.value_ == 0) {
            detail::arithmeticTrap("Division by zero in remainder operation");
        }
        return fromWide(wide(a) % wide(b));
    }
    friend constexpr Derived operator&(Derived a, Derived b) { return checked(a.value_ & b.value_); }
    friend constexpr Derived operator|(Derived a, Derived b) { return checked(a.value_ | b.value_); }
    friend constexpr Derived operator^(Derived a, Derived b) { return checked(a.value_ ^ b.value_); }
    // max with the operand's bits cleared, so it stays in range.
    friend constexpr Derived operator~(Derived a) { return fromStorage(static_cast<Storage>(maxStorage & ~a.value_)); }

    // Shifts behave as those of the storage type (a count past its width gives 0, a negative
    // count shifts the other way) and re-validate the result.
    template <PlainInteger I>
    friend constexpr Derived operator<<(Derived a, I count) { return checked(shifted(a.value_, count, true)); }
    template <PlainInteger I>
    friend constexpr Derived operator>>(Derived a, I count) { return checked(shifted(a.value_, count, false)); }

    constexpr Derived& operator+=(Derived b) { return self() = self() + b; }
    constexpr Derived& operator-=(Derived b) { return self() = self() - b; }
    constexpr Derived& operator*=(Derived b) { return self() = self() * b; }
    constexpr Derived& operator/=(Derived b) { return self() = self() / b; }
    constexpr Derived& operator%=(Derived b) { return self() = self() % b; }
    constexpr Derived& operator&=(Derived b) { return self() = self() & b; }
    constexpr Derived& operator|=(Derived b) { return self() = self() | b; }
    constexpr Derived& operator^=(Derived b) { return self() = self() ^ b; }
    template <PlainInteger I>
    constexpr Derived& operator<<=(I count) { return self() = self() << count; }
    template <PlainInteger I>
    constexpr Derived& operator>>=(I count) { return self() = self() >> count; }

protected:
    struct StorageTag {};
    constexpr MIDIUnsignedInteger(Storage storage, StorageTag) : value_(storage) {}

    static consteval Storage literalStorage(int literal) {
        if (literal < 0 || literal > static_cast<int>(maxStorage)) {
            detail::literalOutOfRange();
        }
        return static_cast<Storage>(literal);
    }

    Storage value_ = 0;

private:
    static constexpr long long wide(Derived a) { return static_cast<long long>(a.value_); }
    static constexpr Derived fromWide(long long result) {
        if (result < 0 || result > static_cast<long long>(std::numeric_limits<Storage>::max())) {
            detail::arithmeticTrap("Arithmetic overflow");
        }
        return checked(result);
    }
    template <PlainInteger I>
    static constexpr Storage shifted(Storage value, I count, bool left) {
        constexpr int width = std::numeric_limits<Storage>::digits;
        if (std::cmp_less(count, 0)) {
            left = !left;
            if (std::cmp_less_equal(count, -width)) {
                return 0;
            }
            count = static_cast<I>(-count);
        }
        if (std::cmp_greater_equal(count, width)) {
            return 0;
        }
        return left ? static_cast<Storage>(value << count) : static_cast<Storage>(value >> count);
    }
    constexpr Derived& self() { return static_cast<Derived&>(*this); }
};

// The members' constructors: those of the family, and the int literal checked at compile time.
// (Declared in each member: an inherited consteval constructor is not usable in g++ 12.)
#define MIDICORE_UNSIGNED_INTEGER_CONSTRUCTORS(Type)          \
    using MIDIUnsignedInteger::MIDIUnsignedInteger;           \
    consteval Type(int literal) : MIDIUnsignedInteger(literalStorage(literal), StorageTag{}) {}

class UInt4 : public MIDIUnsignedInteger<UInt4, 4, std::uint8_t> {
public:
    MIDICORE_UNSIGNED_INTEGER_CONSTRUCTORS(UInt4)
    static constexpr std::string_view integerName = "UInt4";
};

class UInt7 : public MIDIUnsignedInteger<UInt7, 7, std::uint8_t> {
public:
    MIDICORE_UNSIGNED_INTEGER_CONSTRUCTORS(UInt7)
    static constexpr std::string_view integerName = "UInt7";
    static constexpr UInt7 midpoint() { return fromStorage(64); }
};

class UInt9 : public MIDIUnsignedInteger<UInt9, 9, std::uint16_t> {
public:
    MIDICORE_UNSIGNED_INTEGER_CONSTRUCTORS(UInt9)
    static constexpr std::string_view integerName = "UInt9";
};

class UInt25 : public MIDIUnsignedInteger<UInt25, 25, std::uint32_t> {
public:
    MIDICORE_UNSIGNED_INTEGER_CONSTRUCTORS(UInt25)
    static constexpr std::string_view integerName = "UInt25";
    static constexpr UInt25 midpoint() { return fromStorage(0x1000000); }
};

// Two bytes, no range restriction. From a 16-bit value: high byte to msb, low byte to lsb.
struct BytePair {
    std::uint8_t msb = 0;
    std::uint8_t lsb = 0;

    constexpr BytePair() = default;
    constexpr BytePair(std::uint8_t msb, std::uint8_t lsb) : msb(msb), lsb(lsb) {}
    constexpr explicit BytePair(std::uint16_t value)
        : msb(static_cast<std::uint8_t>(value >> 8)), lsb(static_cast<std::uint8_t>(value & 0xFF)) {}
    constexpr std::uint16_t uInt16Value() const { return static_cast<std::uint16_t>((msb << 8) | lsb); }
    friend constexpr bool operator==(const BytePair&, const BytePair&) = default;
};

struct UInt7Pair {
    UInt7 msb;
    UInt7 lsb;
    friend constexpr bool operator==(const UInt7Pair&, const UInt7Pair&) = default;
    // "[msb: 0a, lsb: 7f]"
    std::string description() const;
};

class UInt14 : public MIDIUnsignedInteger<UInt14, 14, std::uint16_t> {
public:
    MIDICORE_UNSIGNED_INTEGER_CONSTRUCTORS(UInt14)
    static constexpr std::string_view integerName = "UInt14";
    static constexpr UInt14 midpoint() { return fromStorage(8192); }

    // High bits of either byte are dropped: this never raises.
    constexpr explicit UInt14(BytePair pair)
        : UInt14(fromStorage(static_cast<std::uint16_t>(((pair.msb & 0x7F) << 7) | (pair.lsb & 0x7F)))) {}
    constexpr explicit UInt14(UInt7Pair pair)
        : UInt14(fromStorage(static_cast<std::uint16_t>(pair.msb.storage() * 128 + pair.lsb.storage()))) {}

    constexpr BytePair bytePair() const {
        return BytePair(static_cast<std::uint8_t>((value_ >> 7) & 0x7F), static_cast<std::uint8_t>(value_ & 0x7F));
    }
    constexpr UInt7Pair midiUInt7Pair() const {
        auto pair = bytePair();
        return UInt7Pair{UInt7::fromStorage(pair.msb), UInt7::fromStorage(pair.lsb)};
    }

    // -1.0...1.0 (clamped) onto 0...16383 with 0.0 at 8192: 8191 steps above, 8192 below.
    static UInt14 bipolarUnitInterval(double value);
    // The inverse: -1.0 at 0, 0.0 at 8192, 1.0 at 16383.
    double bipolarUnitIntervalValue() const;
};

// Splitting and joining a status byte.
struct Nibbles {
    UInt4 high;
    UInt4 low;
};
constexpr Nibbles nibbles(std::uint8_t byte) {
    return Nibbles{UInt4::fromStorage(byte >> 4), UInt4::fromStorage(byte & 0x0F)};
}
constexpr std::uint8_t uInt8(UInt4 high, UInt4 low) {
    return static_cast<std::uint8_t>(high.storage() * 16 + low.storage());
}

// Conversions of plain numbers: toUInt7(x) checked, toUInt7Exactly(x) nothing when out of range;
// likewise for UInt4, UInt9, UInt14, UInt25.
#define MIDICORE_PLAIN_NUMBER_CONVERSIONS(Type)                                              \
    template <class N>                                                                      \
        requires PlainInteger<N> || std::floating_point<N>                                  \
    Type to##Type(N value) {                                                                \
        return Type::checked(value);                                                        \
    }                                                                                       \
    template <class N>                                                                      \
        requires PlainInteger<N> || std::floating_point<N>                                  \
    std::optional<Type> to##Type##Exactly(N value) {                                        \
        return Type::exactly(value);                                                        \
    }
MIDICORE_PLAIN_NUMBER_CONVERSIONS(UInt4)
MIDICORE_PLAIN_NUMBER_CONVERSIONS(UInt7)
MIDICORE_PLAIN_NUMBER_CONVERSIONS(UInt9)
MIDICORE_PLAIN_NUMBER_CONVERSIONS(UInt14)
MIDICORE_PLAIN_NUMBER_CONVERSIONS(UInt25)
#undef MIDICORE_PLAIN_NUMBER_CONVERSIONS

template <class T>
concept IsMIDIUnsignedInteger =
    std::derived_from<T, MIDIUnsignedInteger<T, T::bitWidth, typename T::Storage>>;

}  // namespace MIDICore

template <class T>
    requires MIDICore::IsMIDIUnsignedInteger<T>
struct std::hash<T> {
    std::size_t operator()(const T& value) const noexcept {
        return std::hash<typename T::Storage>{}(value.storage());
    }
};
