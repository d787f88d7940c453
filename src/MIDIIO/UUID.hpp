#pragma once
// Fresh random UUID texts for queue labels.

#include <string>

namespace MIDIIO {

// A random (version 4) UUID in canonical upper-case form.
std::string randomUUIDString();

}  // namespace MIDIIO
