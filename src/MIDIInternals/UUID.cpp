#include "MIDIInternals/UUID.hpp"

#include <array>
#include <cctype>
#include <cstdint>
#include <random>

namespace MIDIInternals {

std::string randomUUIDString() {
    // One engine per thread: no lock on the way.
    thread_local std::mt19937_64 engine{std::random_device{}()};
    std::array<std::uint8_t, 16> bytes{};
    const std::uint64_t high = engine();
    const std::uint64_t low = engine();
    for (std::size_t i = 0; i < 8; ++i) {
        bytes[i] = static_cast<std::uint8_t>(high >> (8 * i));
        bytes[i + 8] = static_cast<std::uint8_t>(low >> (8 * i));
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
    static constexpr const char* digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text.push_back('-');
        }
        text.push_back(digits[bytes[i] >> 4]);
        text.push_back(digits[bytes[i] & 0x0F]);
    }
    return text;
}

std::optional<std::string> parseUUIDString(const std::string& text) {
    if (text.size() != 36) {
        return std::nullopt;
    }
    std::string canonical = text;
    for (std::size_t i = 0; i < canonical.size(); ++i) {
        const char c = canonical[i];
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-') {
                return std::nullopt;
            }
        } else if (!std::isxdigit(static_cast<unsigned char>(c))) {
            return std::nullopt;
        } else {
            canonical[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        }
    }
    return canonical;
}

}  // namespace MIDIInternals
