#pragma once
// The errors of the MIDI I/O library: MIDIOSStatus reads a status of the system, MIDIIOError is
// what every failing input or output operation throws.

#include "MIDIIO/MIDIPlatform.hpp"

#include <exception>
#include <optional>
#include <string>
#include <variant>

namespace MIDIIO {

class MIDIOSStatus {
public:
    enum class Case {
        invalidClient, invalidPort, wrongEndpointType, noConnection, unknownEndpoint, unknownProperty,
        wrongPropertyType, noCurrentSetup, messageSendErr, serverStartErr, setupFormatErr, wrongThread,
        objectNotFound, idNotUnique, notPermitted, unknownError, ioError, internalError, other,
    };

    // The case of a status; `other` keeps any number the table does not know.
    explicit MIDIOSStatus(OSStatus rawValue);
    static MIDIOSStatus of(Case kind);

    Case kind() const { return case_; }
    OSStatus rawValue() const { return rawValue_; }
    std::string description() const;

    friend bool operator==(const MIDIOSStatus&, const MIDIOSStatus&) = default;

private:
    Case case_;
    OSStatus rawValue_;
};

class MIDIIOError : public std::exception {
public:
    struct InternalInconsistency { std::string text; };
    struct Malformed { std::string text; };
    struct NotSupported { std::string text; };
    struct ConnectionError { std::string text; };
    struct ReadError { std::string text; };
    struct OSStatusError { MIDIOSStatus status; };
    struct ManagerNotStarted {};
    using Payload = std::variant<InternalInconsistency, Malformed, NotSupported, ConnectionError, ReadError,
                                 OSStatusError, ManagerNotStarted>;

    static MIDIIOError internalInconsistency(std::string text) { return MIDIIOError(InternalInconsistency{std::move(text)}); }
    static MIDIIOError malformed(std::string text) { return MIDIIOError(Malformed{std::move(text)}); }
    static MIDIIOError notSupported(std::string text) { return MIDIIOError(NotSupported{std::move(text)}); }
    static MIDIIOError connectionError(std::string text) { return MIDIIOError(ConnectionError{std::move(text)}); }
    static MIDIIOError readError(std::string text) { return MIDIIOError(ReadError{std::move(text)}); }
    static MIDIIOError osStatus(MIDIOSStatus status) { return MIDIIOError(OSStatusError{status}); }
    static MIDIIOError osStatus(OSStatus status) { return osStatus(MIDIOSStatus(status)); }
    static MIDIIOError managerNotStarted() { return MIDIIOError(ManagerNotStarted{}); }

    // Throws osStatus for a status other than 0.
    static void check(OSStatus status) {
        if (status != noErr) {
            throw osStatus(status);
        }
    }

    const Payload& payload() const { return payload_; }
    template <class P>
    const P* get() const { return std::get_if<P>(&payload_); }
    const std::string& description() const { return text_; }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    explicit MIDIIOError(Payload payload);
    Payload payload_;
    std::string text_;
};

}  // namespace MIDIIO
