#include "MIDIInternals/TextHelpers.hpp"

#include <cmath>

namespace MIDIInternals {

namespace detail {
std::string digits(unsigned long long magnitude, unsigned radix, std::size_t padTo) {
    static constexpr char symbols[] = "0123456789ABCDEF";
    std::string reversed;
    do {
        reversed += symbols[magnitude % radix];
        magnitude /= radix;
    } while (magnitude != 0);
    while (reversed.size() < padTo) {
        reversed += '0';
    }
    return {reversed.rbegin(), reversed.rend()};
}
}  // namespace detail

std::string quoted(std::string_view text) {
    return "\"" + std::string(text) + "\"";
}

namespace {
CharacterSet rangeSet(unsigned first, unsigned last) {
    CharacterSet set;
    for (unsigned c = first; c <= last; ++c) {
        set.set(c);
    }
    return set;
}

std::string filtered(std::string_view text, const CharacterSet& characters, bool keep) {
    std::string result;
    for (char c : text) {
        if (characters.test(static_cast<unsigned char>(c)) == keep) {
            result += c;
        }
    }
    return result;
}
}  // namespace

CharacterSet ascii() { return rangeSet(0, 127); }
CharacterSet asciiPrintable() { return rangeSet(32, 126); }
CharacterSet asciiNonPrintable() { return rangeSet(0, 31) | rangeSet(127, 127); }
CharacterSet asciiExtended() { return rangeSet(128, 255); }
CharacterSet asciiFull() { return rangeSet(0, 255); }
CharacterSet alphanumerics() { return rangeSet('A', 'Z') | rangeSet('a', 'z') | rangeSet('0', '9'); }

std::string only(std::string_view text, const CharacterSet& characters) {
    return filtered(text, characters, true);
}

std::string onlyAlphanumerics(std::string_view text) {
    return only(text, alphanumerics());
}

std::string removing(std::string_view text, const CharacterSet& characters) {
    return filtered(text, characters, false);
}

double rounded(double value, RoundingRule rule, int decimalPlaces) {
    double scale = std::pow(10.0, decimalPlaces);
    double scaled = value * scale;
    double result = scaled;
    switch (rule) {
        case RoundingRule::toNearestOrAwayFromZero: result = std::round(scaled); break;
        case RoundingRule::toNearestOrEven: result = std::nearbyint(scaled); break;
        case RoundingRule::up: result = std::ceil(scaled); break;
        case RoundingRule::down: result = std::floor(scaled); break;
        case RoundingRule::towardZero: result = std::trunc(scaled); break;
        case RoundingRule::awayFromZero:
            result = scaled < 0 ? std::floor(scaled) : std::ceil(scaled);
            break;
    }
    return result / scale;
}

std::optional<std::vector<std::uint8_t>> toASCIIBytes(std::string_view text, bool lossy) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size());
    for (char c : text) {
        auto byte = static_cast<std::uint8_t>(c);
        if (byte < 0x80) {
            bytes.push_back(byte);
        } else if (!lossy) {
            return std::nullopt;
        } else if ((byte & 0xC0) != 0x80) {
            // The lead byte of a UTF-8 sequence stands for the character; continuation bytes go.
            bytes.push_back('?');
        }
    }
    return bytes;
}

std::optional<std::vector<std::uint8_t>> toASCIIData(std::string_view text, bool lossy) {
    return toASCIIBytes(text, lossy);
}

std::optional<std::string> asciiDataToString(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (auto byte : bytes) {
        if (byte >= 0x80) {
            return std::nullopt;
        }
        text += static_cast<char>(byte);
    }
    return text;
}

std::string asciiDataToStringLossy(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (auto byte : bytes) {
        text += byte < 0x80 ? static_cast<char>(byte) : '?';
    }
    return text;
}

}  // namespace MIDIInternals
