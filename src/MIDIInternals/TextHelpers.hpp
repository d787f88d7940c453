#pragma once
// Small text and collection helpers used by descriptions and diagnostics of the MIDI library.
//
// Hexadecimal digits are upper case, the prefixes "0x" and "0b". Negative integers print their
// magnitude after a minus sign. Padding is with leading zeros to at least the given digit count.

#include "MIDIInternals/Ranges.hpp"

#include <algorithm>
#include <bitset>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ranges>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace MIDIInternals {

namespace detail {
std::string digits(unsigned long long magnitude, unsigned radix, std::size_t padTo);

template <std::integral I>
std::string radixString(I value, unsigned radix, int padTo, std::string_view prefix) {
    bool negative = false;
    unsigned long long magnitude = 0;
    if constexpr (std::is_signed_v<I>) {
        negative = value < 0;
        magnitude = negative ? 0ULL - static_cast<unsigned long long>(value)
                             : static_cast<unsigned long long>(value);
    } else {
        magnitude = static_cast<unsigned long long>(value);
    }
    return (negative ? "-" : "") + std::string(prefix) + digits(magnitude, radix, static_cast<std::size_t>(padTo < 1 ? 1 : padTo));
}

template <class C, class F>
std::string joined(const C& values, std::string_view separator, F&& format) {
    std::string result;
    bool first = true;
    for (const auto& value : values) {
        if (!first) {
            result += separator;
        }
        first = false;
        result += format(value);
    }
    return result;
}
}  // namespace detail

// Integers.
template <std::integral I>
std::string hexString(I value, bool prefix = false) {
    return detail::radixString(value, 16, 1, prefix ? "0x" : "");
}
template <std::integral I>
std::string hexString(I value, int padTo, bool prefix = false) {
    return detail::radixString(value, 16, padTo, prefix ? "0x" : "");
}
template <std::integral I>
std::string binaryString(I value, bool prefix = false) {
    return detail::radixString(value, 2, 1, prefix ? "0b" : "");
}
template <std::integral I>
std::string binaryString(I value, int padTo, bool prefix = false) {
    return detail::radixString(value, 2, padTo, prefix ? "0b" : "");
}
// Decimal text, optionally zero-padded to a digit count.
template <std::integral I>
std::string string(I value, int paddedTo = 1) {
    return detail::radixString(value, 10, paddedTo, "");
}

// Collections of integers, each element formatted as above and joined by the separator.
template <std::ranges::range C>
std::string hexString(const C& values, bool prefixes = false, std::string_view separator = " ") {
    return detail::joined(values, separator, [&](auto v) { return hexString(v, prefixes); });
}
template <std::ranges::range C>
std::string hexString(const C& values, int padEachTo, bool prefixes = false,
                      std::string_view separator = " ") {
    return detail::joined(values, separator, [&](auto v) { return hexString(v, padEachTo, prefixes); });
}
// "[0x01, 0x7F]", a literal to paste into code.
template <std::ranges::range C>
std::string hexStringArrayLiteral(const C& values, int padEachTo = 2) {
    return "[" + hexString(values, padEachTo, true, ", ") + "]";
}
template <std::ranges::range C>
std::string binaryString(const C& values, bool prefixes = false, std::string_view separator = " ") {
    return detail::joined(values, separator, [&](auto v) { return binaryString(v, prefixes); });
}
template <std::ranges::range C>
std::string binaryString(const C& values, int padEachTo, bool prefixes = false,
                         std::string_view separator = " ") {
    return detail::joined(values, separator,
                          [&](auto v) { return binaryString(v, padEachTo, prefixes); });
}
template <std::ranges::range C>
std::string binaryStringArrayLiteral(const C& values, int padEachTo = 8) {
    return "[" + binaryString(values, padEachTo, true, ", ") + "]";
}

// The text in double quotes.
std::string quoted(std::string_view text);

// Sets of byte values (characters of the 8-bit range).
using CharacterSet = std::bitset<256>;
CharacterSet ascii();              // 0...127
CharacterSet asciiPrintable();     // 32...126
CharacterSet asciiNonPrintable();  // 0...31 and 127
CharacterSet asciiExtended();      // 128...255
CharacterSet asciiFull();          // 0...255
CharacterSet alphanumerics();      // A-Z, a-z, 0-9

std::string only(std::string_view text, const CharacterSet& characters);
std::string onlyAlphanumerics(std::string_view text);
std::string removing(std::string_view text, const CharacterSet& characters);

// Pieces of `every` elements from the start; with `backwards`, from the end, so that the short
// piece (if any) comes first. `every` must be at least 1.
template <class C>
std::vector<C> split(const C& collection, std::size_t every, bool backwards = false) {
    std::vector<C> pieces;
    std::size_t size = collection.size();
    std::size_t start = 0;
    if (backwards && size % every != 0) {
        start = size % every;
        pieces.emplace_back(collection.begin(), collection.begin() + start);
    }
    for (; start < size; start += every) {
        std::size_t end = std::min(size, start + every);
        pieces.emplace_back(collection.begin() + start, collection.begin() + end);
    }
    return pieces;
}

// Clamping over each range form. Half-open forms need a type with a predecessor (integers).
template <class T>
constexpr T clamped(T value, const ClosedRange<T>& range) {
    return value < range.lowerBound ? range.lowerBound : (range.upperBound < value ? range.upperBound : value);
}
template <std::integral T>
constexpr T clamped(T value, const Range<T>& range) {
    return clamped(value, ClosedRange<T>{range.lowerBound, static_cast<T>(range.upperBound - 1)});
}
template <class T>
constexpr T clamped(T value, const PartialRangeFrom<T>& range) {
    return value < range.lowerBound ? range.lowerBound : value;
}
template <class T>
constexpr T clamped(T value, const PartialRangeThrough<T>& range) {
    return range.upperBound < value ? range.upperBound : value;
}
template <std::integral T>
constexpr T clamped(T value, const PartialRangeUpTo<T>& range) {
    return value < range.upperBound ? value : static_cast<T>(range.upperBound - 1);
}

enum class RoundingRule { toNearestOrAwayFromZero, toNearestOrEven, up, down, towardZero, awayFromZero };
// The value rounded to a number of decimal places by the rule.
double rounded(double value, RoundingRule rule, int decimalPlaces);

// ASCII conversion. Without `lossy`, a text with a byte above 127 gives nothing; with it, each
// such UTF-8 character becomes one "?".
std::optional<std::vector<std::uint8_t>> toASCIIBytes(std::string_view text, bool lossy = false);
std::optional<std::vector<std::uint8_t>> toASCIIData(std::string_view text, bool lossy = false);
// Bytes as ASCII text: nothing when a byte is above 127; the lossy form writes "?" for those.
std::optional<std::string> asciiDataToString(std::span<const std::uint8_t> bytes);
std::string asciiDataToStringLossy(std::span<const std::uint8_t> bytes);

// Offsets from the start of a collection. Offsets past the end give nothing.
template <class C>
auto atOffset(const C& collection, std::size_t offset)
    -> std::optional<std::decay_t<decltype(*collection.begin())>> {
    if (offset >= collection.size()) {
        return std::nullopt;
    }
    return *(collection.begin() + static_cast<std::ptrdiff_t>(offset));
}
// The half-open index range [begin, end) of a closed range of offsets, or nothing when it does
// not lie within the collection.
template <class C>
std::optional<Range<std::size_t>> range(const C& collection, ClosedRange<std::size_t> offsets) {
    if (offsets.upperBound >= collection.size() || offsets.upperBound < offsets.lowerBound) {
        return std::nullopt;
    }
    return Range<std::size_t>{offsets.lowerBound, offsets.upperBound + 1};
}
template <class C>
std::optional<C> atOffsets(const C& collection, ClosedRange<std::size_t> offsets) {
    auto indexes = range(collection, offsets);
    if (!indexes) {
        return std::nullopt;
    }
    return C(collection.begin() + static_cast<std::ptrdiff_t>(indexes->lowerBound),
             collection.begin() + static_cast<std::ptrdiff_t>(indexes->upperBound));
}

// Pairs elements by position; the shorter collection is padded with absent values.
template <class A, class B>
auto optionalZip(const A& first, const B& second) {
    using X = std::decay_t<decltype(*first.begin())>;
    using Y = std::decay_t<decltype(*second.begin())>;
    std::vector<std::pair<std::optional<X>, std::optional<Y>>> pairs;
    auto a = first.begin();
    auto b = second.begin();
    while (a != first.end() || b != second.end()) {
        std::optional<X> x;
        std::optional<Y> y;
        if (a != first.end()) {
            x = *a++;
        }
        if (b != second.end()) {
            y = *b++;
        }
        pairs.emplace_back(std::move(x), std::move(y));
    }
    return pairs;
}

}  // namespace MIDIInternals
