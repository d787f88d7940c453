#pragma once
// Unrecoverable faults of the MIDI library: the message goes to standard error and the process
// ends. Only programming faults lead here, never outside input.

#include <string_view>

namespace MIDIInternals {

[[noreturn]] void fatalError(std::string_view message);

}  // namespace MIDIInternals
