#pragma once
// The exception raised for range failures of the MIDI library ("UInt7 integer overflowed").
// A failed range check is a programmer's fault; the exception carries a name and a reason.

#include <exception>
#include <optional>
#include <string>

namespace MIDIInternals {

class Exception : public std::exception {
public:
    enum Kind { overflow, underflow, divisionByZero };

    Exception(std::string name, std::string reason);

    // The exception name of a kind: one distinct name per case.
    static std::string nameOf(Kind kind);

    // Throws an exception of the kind's name with the reason (empty when absent).
    [[noreturn]] static void raise(Kind kind, std::optional<std::string> reason = std::nullopt);
    // Throws an exception of any name.
    [[noreturn]] static void raiseException(std::string name, std::optional<std::string> reason);

    const std::string& name() const noexcept { return name_; }
    const std::string& reason() const noexcept { return reason_; }
    // The reason, so that an uncaught exception prints what went wrong.
    const char* what() const noexcept override { return reason_.c_str(); }

private:
    std::string name_;
    std::string reason_;
};

}  // namespace MIDIInternals
