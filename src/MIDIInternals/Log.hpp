#pragma once
// The MIDI library's log lines go through one replaceable function: standard error by default,
// the host's log sink once the host installs it. Safe to call from any thread.

#include <functional>
#include <string_view>

namespace MIDIInternals {

using LogFunction = std::function<void(std::string_view line)>;

// Replaces the log function; an empty one restores standard error.
void setLogFunction(LogFunction function);
// Logs one line (without its newline).
void log(std::string_view line);

}  // namespace MIDIInternals
