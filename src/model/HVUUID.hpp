#pragma once
// Identities of model objects. UUIDs come from the MIDI library's generator.

#include "MIDIInternals/UUID.hpp"

#include <string>

namespace havrel {

using MIDIInternals::parseUUIDString;
using MIDIInternals::randomUUIDString;

// The decimal text of a 32-bit random number ("%u"), as axes and wrappers are named.
std::string randomDecimalIdentifier();

}  // namespace havrel
