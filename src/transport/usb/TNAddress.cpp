#include "transport/usb/TNAddress.hpp"

#include <fmt/format.h>

#include <system_error>

namespace havrel {

TNAddress TNAddress::ipv4(std::uint32_t address, std::uint16_t port) {
    return TNAddress(asio::ip::tcp::endpoint(asio::ip::address_v4(address), port));
}

std::optional<std::string> TNAddress::name() const {
    try {
        return endpoint_.address().to_string();
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

std::string TNAddress::description() const { return fmt::format("{}:{}", name().value_or("(null)"), port()); }

}  // namespace havrel
