#pragma once
// The kinds of MIDI signal a control can send, an 8-bit number.

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

using HVSignalType = std::uint8_t;

inline constexpr HVSignalType HVSignalTypeCC = 0;
inline constexpr HVSignalType HVSignalTypeNote = 1;
inline constexpr HVSignalType HVSignalTypePC = 2;
inline constexpr HVSignalType HVSignalTypePitch = 3;

// "CC", "Note", "PC", "Pitch"; nothing beyond 3.
std::optional<std::string> titleForSignalType(HVSignalType type);

// "Control Change", "Note", "Program Change", "Pitchbend"; the empty string beyond 3.
std::string singalToString(HVSignalType type);

}  // namespace havrel
