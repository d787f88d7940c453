#pragma once
// Note names as the control surfaces show them: note 60 is "C 3", note 0 is "C -2".

#include <array>
#include <cstdint>
#include <string>

namespace havrel {

// "C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B".
const std::array<std::string, 12>& notesStringArray();

// The name at note modulo 12 and the octave note / 12 - 2, separated by a space.
std::string noteStringFromNoteValue(std::int64_t note);

}  // namespace havrel
