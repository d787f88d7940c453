#pragma once
// Writing a new file so that it is on the disk when the call returns.

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace havrel {

// Writes every byte to the open file, flushes it to the disk and closes it (also on failure).
// An error text on failure. Blocks: never on the main queue for outside data.
std::optional<std::string> writeDurablyAndClose(int fd, std::span<const std::uint8_t> bytes);

}  // namespace havrel
