#pragma once
// The status numbers a MIDI backend answers failing operations with, and the property keys every
// backend knows, so the backends speak the same words.

#include "MIDIIO/MIDIPlatform.hpp"

#include <string>

namespace MIDIIO {

inline constexpr OSStatus kMIDIInvalidClient = -10830;
inline constexpr OSStatus kMIDIInvalidPort = -10831;
inline constexpr OSStatus kMIDIWrongEndpointType = -10832;
inline constexpr OSStatus kMIDINoConnection = -10833;
inline constexpr OSStatus kMIDIUnknownEndpoint = -10834;
inline constexpr OSStatus kMIDIUnknownProperty = -10835;
inline constexpr OSStatus kMIDIWrongPropertyType = -10836;
inline constexpr OSStatus kMIDIMsgSendErr = -10838;
inline constexpr OSStatus kMIDIServerStartErr = -10839;
inline constexpr OSStatus kMIDIObjectNotFound = -10842;
inline constexpr OSStatus kMIDIIDNotUnique = -10843;
inline constexpr OSStatus kMIDINotPermitted = -10844;

inline const std::string kMIDIPropertyName = "name";
inline const std::string kMIDIPropertyUniqueID = "uniqueID";
inline const std::string kMIDIPropertyDisplayName = "displayName";
inline const std::string kMIDIPropertyOffline = "offline";
inline const std::string kMIDIPropertyPrivate = "private";
inline const std::string kMIDIPropertyProtocol = "protocol";

}  // namespace MIDIIO
