#pragma once
// Range checks for numbers in sequencing dictionaries that come from clients: a number outside
// the range of its field is refused instead of being cut to the field's width.

#include "platform/Types.hpp"

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace havrel {

// A text naming the key and the value when the key holds a number outside [lowest, highest];
// nothing when it is absent, of another kind, or within the range.
std::optional<std::string> outOfRange(const Dictionary& dictionary, std::string_view key, std::int64_t lowest,
                                      std::int64_t highest);

}  // namespace havrel
