#pragma once
// The error of every asynchronous transport result: a domain and an integer code, with an
// optional description. Domains are the POSIX domain (codes are errno numbers) and the
// transport's own: "TNProtocolError", "TNUSBHubError", "TNError".

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

inline constexpr const char* kTNPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr const char* kTNProtocolErrorDomain = "TNProtocolError";
inline constexpr const char* TNUSBHubErrorDomain = "TNUSBHubError";
inline constexpr const char* kTNErrorDomain = "TNError";

struct TNError {
    std::string domain;
    std::int64_t code = 0;
    std::optional<std::string> localizedDescription;

    static TNError posix(int errorNumber);
    static TNError make(std::string domain, std::int64_t code,
                        std::optional<std::string> description = std::nullopt);

    bool isPOSIX() const { return domain == kTNPOSIXErrorDomain; }
    // "Error Domain=<domain> Code=<code> \"<description>\"", the description part only when
    // there is one (for POSIX errors, the system's text of the number).
    std::string description() const;

    bool operator==(const TNError&) const = default;
};

using TNOptionalError = std::optional<TNError>;

// "(null)" for no error, else the error's description.
std::string describe(const TNOptionalError& error);

}  // namespace havrel
