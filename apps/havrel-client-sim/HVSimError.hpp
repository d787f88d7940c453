#pragma once
// The errors of the client simulator: bad input from a file, an option or the Central, each
// with the one line the program prints before it exits.

#include <cstddef>
#include <stdexcept>
#include <string>

namespace havrel {

class HVSimError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A fault in one line of a script: what() is "line <n>: <message>".
class HVSimScriptError final : public HVSimError {
public:
    HVSimScriptError(std::size_t line, const std::string& message)
        : HVSimError("line " + std::to_string(line) + ": " + message), line_(line), message_(message) {}

    std::size_t line() const { return line_; }
    // The message without the line number.
    const std::string& message() const { return message_; }

private:
    std::size_t line_;
    std::string message_;
};

}  // namespace havrel
