#include "transport/usb/TNAddress.hpp"

#include "platform/Assert.hpp"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>

namespace havrel {

TNAddress::TNAddress(const struct sockaddr* address, socklen_t length) {
    HV_ASSERT(address != nullptr);
    length_ = std::min<socklen_t>(length, sizeof storage_);
    std::memcpy(&storage_, address, length_);
}

TNAddress TNAddress::ipv4(std::uint32_t address, std::uint16_t port) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_port = htons(port);
    in.sin_addr.s_addr = htonl(address);
    return TNAddress(reinterpret_cast<const struct sockaddr*>(&in), sizeof in);
}

std::optional<std::string> TNAddress::name() const {
    if (length_ == 0) {
        return std::nullopt;
    }
    char text[INET6_ADDRSTRLEN] = {};
    const void* host = nullptr;
    if (storage_.ss_family == AF_INET && length_ >= sizeof(sockaddr_in)) {
        host = &reinterpret_cast<const sockaddr_in*>(&storage_)->sin_addr;
    } else if (storage_.ss_family == AF_INET6 && length_ >= sizeof(sockaddr_in6)) {
        host = &reinterpret_cast<const sockaddr_in6*>(&storage_)->sin6_addr;
    }
    if (host == nullptr || inet_ntop(storage_.ss_family, host, text, sizeof text) == nullptr) {
        return std::nullopt;
    }
    return std::string(text);
}

std::uint16_t TNAddress::port() const {
    if (storage_.ss_family == AF_INET && length_ >= sizeof(sockaddr_in)) {
        return ntohs(reinterpret_cast<const sockaddr_in*>(&storage_)->sin_port);
    }
    if (storage_.ss_family == AF_INET6 && length_ >= sizeof(sockaddr_in6)) {
        return ntohs(reinterpret_cast<const sockaddr_in6*>(&storage_)->sin6_port);
    }
    return 0;
}

std::string TNAddress::description() const {
    if (length_ == 0) {
        return "(?)";
    }
    return fmt::format("{}:{}", name().value_or("(null)"), port());
}

bool TNAddress::operator==(const TNAddress& other) const {
    return length_ == other.length_ && std::memcmp(&storage_, &other.storage_, length_) == 0;
}

}  // namespace havrel
