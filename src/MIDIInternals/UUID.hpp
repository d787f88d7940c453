#pragma once
// Random UUID texts: labels of queues and connections, identities of objects that persist.

#include <optional>
#include <string>

namespace MIDIInternals {

// A new random (version 4) UUID in canonical upper-case form. Any thread.
std::string randomUUIDString();

// The canonical upper-case form of a UUID text, or nothing when the text is not one.
std::optional<std::string> parseUUIDString(const std::string& text);

}  // namespace MIDIInternals
