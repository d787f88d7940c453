#pragma once
// The range checks shared by every bounded MIDI integer: checked, exact and floating-point
// conversions into 0...max of a storage type, failing with the library's Exception.

#include <cmath>
#include <concepts>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace MIDICore {

// Decoding a stored integer that is out of range ("Encoded value is not a valid UInt14.").
class DecodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

template <class T>
concept PlainInteger = std::integral<T> && !std::same_as<std::remove_cv_t<T>, bool>;

namespace detail {

// Throw MIDIInternals::Exception: "<name> integer overflowed" / "<name> integer underflowed".
[[noreturn]] void raiseOverflow(std::string_view integerName);
[[noreturn]] void raiseUnderflow(std::string_view integerName);
// Ends the process: "<source> value cannot be converted to <target> because it is outside the
// representable range".
[[noreturn]] void unrepresentableFloat(std::string_view sourceName, std::string_view targetName);
// Ends the process on arithmetic that leaves the storage type or divides by zero.
[[noreturn]] void arithmeticTrap(std::string_view what);
[[noreturn]] void decodingFailure(std::string_view integerName);

template <std::floating_point F>
constexpr std::string_view floatName() {
    if constexpr (std::same_as<F, float>) {
        return "Float";
    } else if constexpr (std::same_as<F, double>) {
        return "Double";
    } else {
        return "Float80";
    }
}

// Checked conversion of any integer into 0...max. std::cmp_* compare across sign and width,
// so no comparison overflows.
template <class Storage, PlainInteger I>
constexpr Storage checkedInteger(I value, Storage max, std::string_view name) {
    if (std::cmp_less(value, 0)) {
        raiseUnderflow(name);
    }
    if (std::cmp_greater(value, max)) {
        raiseOverflow(name);
    }
    return static_cast<Storage>(value);
}

template <class Storage, PlainInteger I>
constexpr std::optional<Storage> exactInteger(I value, Storage max) {
    if (std::cmp_less(value, 0) || std::cmp_greater(value, max)) {
        return std::nullopt;
    }
    return static_cast<Storage>(value);
}

template <class Storage, PlainInteger I>
constexpr Storage clampedInteger(I value, Storage max) {
    if (std::cmp_less(value, 0)) {
        return 0;
    }
    if (std::cmp_greater(value, max)) {
        return max;
    }
    return static_cast<Storage>(value);
}

// Checked floating-point conversion, in this order: below 0.0 underflows, above max overflows,
// then truncation toward zero. Not-a-number passes both checks and ends the process.
template <class Storage, std::floating_point F>
Storage checkedFloating(F value, Storage max, std::string_view name) {
    if (value < F(0)) {
        raiseUnderflow(name);
    }
    if (value > static_cast<F>(max)) {
        raiseOverflow(name);
    }
    if (std::isnan(value)) {
        unrepresentableFloat(floatName<F>(), name);
    }
    return static_cast<Storage>(value);
}

template <class Storage, std::floating_point F>
std::optional<Storage> exactFloating(F value, Storage max) {
    if (!(value >= F(0)) || value > static_cast<F>(max) || std::trunc(value) != value) {
        return std::nullopt;
    }
    return static_cast<Storage>(value);
}

}  // namespace detail
}  // namespace MIDICore
