#include "transport/usb/TNUSBSocketAddress.hpp"

#include <charconv>
#include <cstdlib>

namespace havrel {

namespace {

// A decimal port of 1 to 65535, digits only.
bool parsePort(std::string_view text, std::uint16_t& port) {
    if (text.empty() || text.size() > 5) {
        return false;
    }
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value == 0 || value > 65535) {
        return false;
    }
    port = static_cast<std::uint16_t>(value);
    return true;
}

}  // namespace

TNUSBSocketAddress TNUSBSocketAddress::fromEnvironmentValue(const char* value) {
    TNUSBSocketAddress address;
    if (value == nullptr) {
        return address;
    }
    const std::string_view text(value);
    constexpr std::string_view unixPrefix = "UNIX:";
    if (text.starts_with(unixPrefix)) {
        if (text.size() > unixPrefix.size()) {
            address.path = std::string(text.substr(unixPrefix.size()));
        }
        return address;
    }
    const auto colon = text.rfind(':');
    if (colon == std::string_view::npos) {
        return address;
    }
    std::string_view host = text.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    std::uint16_t port = 0;
    if (host.empty() || !parsePort(text.substr(colon + 1), port)) {
        return address;
    }
    address.kind = Kind::tcp;
    address.path.clear();
    address.host = std::string(host);
    address.port = port;
    return address;
}

TNUSBSocketAddress TNUSBSocketAddress::current() {
    return fromEnvironmentValue(std::getenv(kUSBMuxSocketAddressVariable));
}

}  // namespace havrel
