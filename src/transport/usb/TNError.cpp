#include "transport/usb/TNError.hpp"

#include <fmt/format.h>

#include <cstring>
#include <utility>

namespace havrel {

TNError TNError::posix(int errorNumber) {
    return TNError{kTNPOSIXErrorDomain, errorNumber, std::nullopt};
}

TNError TNError::make(std::string domain, std::int64_t code, std::optional<std::string> description) {
    return TNError{std::move(domain), code, std::move(description)};
}

std::string TNError::description() const {
    std::optional<std::string> text = localizedDescription;
    if (!text && isPOSIX()) {
        text = std::strerror(static_cast<int>(code));
    }
    if (!text) {
        return fmt::format("Error Domain={} Code={}", domain, code);
    }
    return fmt::format("Error Domain={} Code={} \"{}\"", domain, code, *text);
}

std::string describe(const TNOptionalError& error) {
    return error ? error->description() : std::string("(null)");
}

}  // namespace havrel
