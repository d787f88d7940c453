#pragma once
// Vocabulary types shared across the system.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <span>
#include <vector>

namespace havrel {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;
// A dictionary of JSON kinds: the form in which every model object persists and travels.
using Dictionary = nlohmann::json;

}  // namespace havrel
