#pragma once
// Tolerant readers for values of a dictionary that came from outside. A value of the right kind
// is converted the way the model objects expect (numbers from numbers, booleans and numeric
// strings); a value of the wrong kind, or a missing key, reads as absent, so that the caller
// keeps its class default. None of them throws.

#include "platform/Types.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace havrel {

// The value under the key when the dictionary is an object that holds it.
const Dictionary* dictionaryValue(const Dictionary& dictionary, std::string_view key);

// A whole number: integers as they stand, floats truncated toward zero (saturating), booleans as
// 0 or 1, strings by their leading decimal integer (0 when there is none). Other kinds: absent.
std::optional<std::int64_t> integerValue(const Dictionary& value);
std::optional<std::int64_t> integerValue(const Dictionary& dictionary, std::string_view key);

// A 32-bit reading extended with its sign, as model objects read most integers.
std::optional<std::int32_t> intValue(const Dictionary& value);
std::optional<std::int32_t> intValue(const Dictionary& dictionary, std::string_view key);

// A floating-point number: numbers, booleans and numeric strings.
std::optional<double> doubleValue(const Dictionary& value);
std::optional<double> doubleValue(const Dictionary& dictionary, std::string_view key);

// A truth value: booleans, numbers (non-zero is true), and strings starting with Y, y, T, t or a
// non-zero digit.
std::optional<bool> boolValue(const Dictionary& value);
std::optional<bool> boolValue(const Dictionary& dictionary, std::string_view key);

// A string: strings only.
std::optional<std::string> stringValue(const Dictionary& dictionary, std::string_view key);

// An object or an array under the key; nullptr for any other kind.
const Dictionary* objectValue(const Dictionary& dictionary, std::string_view key);
const Dictionary* arrayValue(const Dictionary& dictionary, std::string_view key);

}  // namespace havrel

namespace havrel {

// The deepest nesting of arrays and objects accepted in JSON from outside: deeper documents
// would exhaust the stack when they are copied or compared.
inline constexpr std::size_t kMaximumJSONDepth = 256;

// Parses JSON text from outside. Malformed text, or text nested deeper than the bound, gives a
// discarded value (is_discarded()); the depth refusal logs one line naming the reader. With an
// error text given, a refusal also says there why the text was refused.
Dictionary parseJSONFromOutside(ByteView text, std::string_view reader, std::string* error = nullptr);

}  // namespace havrel
