#include "model/HVNoteNames.hpp"

#include <fmt/format.h>

namespace havrel {

const std::array<std::string, 12>& notesStringArray() {
    static const std::array<std::string, 12> names{"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
    return names;
}

std::string noteStringFromNoteValue(std::int64_t note) {
    // A negative note would index before the table; it wraps into it instead.
    auto index = static_cast<std::size_t>(((note % 12) + 12) % 12);
    return fmt::format("{} {}", notesStringArray()[index], note / 12 - 2);
}

}  // namespace havrel
