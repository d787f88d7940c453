#pragma once
// Identities of model objects.

#include <optional>
#include <string>

namespace havrel {

// A new random (version 4) UUID in canonical upper-case form.
std::string randomUUIDString();

// The canonical upper-case form of a UUID text, or nothing when the text is not one.
std::optional<std::string> parseUUIDString(const std::string& text);

// The decimal text of a 32-bit random number ("%u"), as axes and wrappers are named.
std::string randomDecimalIdentifier();

}  // namespace havrel
