#pragma once
// Writing a new file so that it is on the disk when the call returns.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace havrel {

// Writes every byte to the open file, flushes it to the disk and closes it (also on failure).
// An error text on failure. Blocks: never on the main queue for outside data.
std::optional<std::string> writeDurablyAndClose(int fd, std::span<const std::uint8_t> bytes);

// Replaces the file with the bytes at once: they are written durably to a temporary file beside
// it (the folder made when missing), which then takes the file's name, so a reader sees the old
// file or the new one, never part of one. An error text on failure, with nothing changed. Blocks.
std::optional<std::string> replaceFileAtomically(const std::filesystem::path& file, std::string_view bytes);

// The written path, or the reason nothing was written.
struct NewFile {
    std::optional<std::filesystem::path> written;
    std::string error;
};
// Writes the bytes durably to a temporary file in the location's folder (made when missing),
// then gives it the location's name, or "stem (N).ext" for the first free N up to
// maximumNames; never replaces a file. Blocks.
NewFile writeNewFile(const std::filesystem::path& location, std::span<const std::uint8_t> bytes, int maximumNames);

}  // namespace havrel
