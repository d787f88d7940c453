#include "MIDIIO/MIDIIOError.hpp"

#include <array>

namespace MIDIIO {

namespace {
struct StatusEntry {
    MIDIOSStatus::Case kind;
    OSStatus status;
    const char* text;
};

constexpr std::array<StatusEntry, 18> statusTable{{
    {MIDIOSStatus::Case::invalidClient, -10830, "An invalid MIDIClientRef was passed. (kMIDIInvalidClient)"},
    {MIDIOSStatus::Case::invalidPort, -10831, "An invalid MIDIPortRef was passed. (kMIDIInvalidPort)"},
    {MIDIOSStatus::Case::wrongEndpointType, -10832,
     "A source endpoint was passed to a function expecting a destination, or vice versa. (kMIDIWrongEndpointType)"},
    {MIDIOSStatus::Case::noConnection, -10833, "Attempt to close a non-existent connection. (kMIDINoConnection)"},
    {MIDIOSStatus::Case::unknownEndpoint, -10834, "An invalid MIDIEndpointRef was passed. (kMIDIUnknownEndpoint)"},
    {MIDIOSStatus::Case::unknownProperty, -10835, "Attempt to query a property not set on the object. (kMIDIUnknownProperty)"},
    {MIDIOSStatus::Case::wrongPropertyType, -10836,
     "Attempt to set a property with a value not of the correct type. (kMIDIWrongPropertyType)"},
    {MIDIOSStatus::Case::noCurrentSetup, -10837, "Internal error; there is no current MIDI setup object. (kMIDINoCurrentSetup)"},
    {MIDIOSStatus::Case::messageSendErr, -10838, "Communication with MIDIServer failed. (kMIDIMessageSendErr)"},
    {MIDIOSStatus::Case::serverStartErr, -10839, "Unable to start MIDIServer. (kMIDIServerStartErr)"},
    {MIDIOSStatus::Case::setupFormatErr, -10840, "Unable to read the saved state. (kMIDISetupFormatErr)"},
    {MIDIOSStatus::Case::wrongThread, -10841,
     "A driver is calling a non-I/O function in the server from a thread other than the server's main thread. "
     "(kMIDIWrongThread)"},
    {MIDIOSStatus::Case::objectNotFound, -10842, "The requested object does not exist. (kMIDIObjectNotFound)"},
    {MIDIOSStatus::Case::idNotUnique, -10843, "Attempt to set a non-unique kMIDIPropertyUniqueID on an object. (kMIDIIDNotUnique)"},
    {MIDIOSStatus::Case::notPermitted, -10844,
     "The process does not have privileges for the requested operation. (kMIDINotPermitted)"},
    {MIDIOSStatus::Case::unknownError, -10845, "Internal error; unable to perform the requested operation. (kMIDIUnknownError)"},
    {MIDIOSStatus::Case::ioError, 7, "I/O Error. (kMIDIMsgIOError)"},
    {MIDIOSStatus::Case::internalError, -50, "Internal OSStatus error -50."},
}};
}  // namespace

MIDIOSStatus::MIDIOSStatus(OSStatus rawValue) : case_(Case::other), rawValue_(rawValue) {
    for (const auto& entry : statusTable) {
        if (entry.status == rawValue) {
            case_ = entry.kind;
        }
    }
}

MIDIOSStatus MIDIOSStatus::of(Case kind) {
    for (const auto& entry : statusTable) {
        if (entry.kind == kind) {
            return MIDIOSStatus(entry.status);
        }
    }
    return MIDIOSStatus(0);
}

std::string MIDIOSStatus::description() const {
    for (const auto& entry : statusTable) {
        if (entry.kind == case_) {
            return entry.text;
        }
    }
    return "Unknown OSStatus error: " + std::to_string(rawValue_);
}

MIDIIOError::MIDIIOError(Payload payload) : payload_(std::move(payload)) {
    struct Text {
        std::string operator()(const InternalInconsistency& p) const { return "Internal inconsistency: " + p.text; }
        std::string operator()(const Malformed& p) const { return p.text; }
        std::string operator()(const NotSupported& p) const { return p.text; }
        std::string operator()(const ConnectionError& p) const { return "Connection Error: " + p.text; }
        std::string operator()(const ReadError& p) const { return p.text; }
        std::string operator()(const OSStatusError& p) const { return p.status.description(); }
        std::string operator()(const ManagerNotStarted&) const { return "Manager has not yet been started."; }
    };
    text_ = std::visit(Text{}, payload_);
}

}  // namespace MIDIIO
