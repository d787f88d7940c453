#include "central/HVStringOperations.hpp"

#include <algorithm>
#include <charconv>
#include <vector>

namespace havrel {

namespace {

std::vector<std::string_view> components(std::string_view version) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t dot = version.find('.', start);
        if (dot == std::string_view::npos) {
            parts.push_back(version.substr(start));
            return parts;
        }
        parts.push_back(version.substr(start, dot - start));
        start = dot + 1;
    }
}

// A component as a signed decimal: an optional sign and digits only, else 0 (also on overflow).
std::int64_t componentValue(std::string_view component) {
    if (!component.empty() && component.front() == '+') {
        component.remove_prefix(1);
        if (!component.empty() && component.front() == '-') {
            return 0;
        }
    }
    std::int64_t value = 0;
    const char* end = component.data() + component.size();
    const auto [last, error] = std::from_chars(component.data(), end, value);
    if (error != std::errc() || last != end) {
        return 0;
    }
    return value;
}

}  // namespace

int compareToVersion(std::string_view version, std::string_view other) {
    if (version == other) {
        return 0;
    }
    const auto mine = components(version);
    const auto theirs = components(other);
    const std::size_t count = std::max(mine.size(), theirs.size());
    for (std::size_t i = 0; i < count; ++i) {
        const std::int64_t a = i < mine.size() ? componentValue(mine[i]) : 0;
        const std::int64_t b = i < theirs.size() ? componentValue(theirs[i]) : 0;
        if (a != b) {
            return a < b ? -1 : 1;
        }
    }
    return 0;
}

bool isOlderThanVersion(std::string_view version, std::string_view other) {
    return compareToVersion(version, other) == -1;
}

bool isNewerThanVersion(std::string_view version, std::string_view other) {
    return compareToVersion(version, other) == 1;
}

bool isEqualToVersion(std::string_view version, std::string_view other) {
    return compareToVersion(version, other) == 0;
}

bool isEqualOrOlderThanVersion(std::string_view version, std::string_view other) {
    return compareToVersion(version, other) != 1;
}

bool isEqualOrNewerThanVersion(std::string_view version, std::string_view other) {
    return compareToVersion(version, other) != -1;
}

std::optional<std::string> getMainVersionWithIntegerCount(std::string_view version, std::int64_t count) {
    const auto parts = components(version);
    if (count < 1 || parts.size() < static_cast<std::uint64_t>(count)) {
        return std::nullopt;
    }
    std::string result;
    for (std::int64_t i = 0; i < count; ++i) {
        if (i > 0) {
            result += '.';
        }
        result += parts[static_cast<std::size_t>(i)];
    }
    return result;
}

bool needsToUpdateToVersion(std::string_view installed, std::string_view available,
                            std::int64_t mainVersionIntegerCount) {
    const auto installedMain = getMainVersionWithIntegerCount(installed, mainVersionIntegerCount);
    const auto availableMain = getMainVersionWithIntegerCount(available, mainVersionIntegerCount);
    if (!installedMain || !availableMain || !isEqualToVersion(*installedMain, *availableMain)) {
        return false;
    }
    return isNewerThanVersion(available, installed);
}

std::string stringByRemovingLastCharacter(std::string_view text) {
    if (text.empty()) {
        return std::string(text);
    }
    std::size_t end = text.size() - 1;
    // Step back over UTF-8 continuation bytes to the start of the last sequence.
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0u) == 0x80u) {
        --end;
    }
    return std::string(text.substr(0, end));
}

std::string binaryStringFromUint8(std::uint8_t value) {
    std::string bits(8, '0');
    for (int i = 0; i < 8; ++i) {
        if (value & (0x80u >> i)) {
            bits[static_cast<std::size_t>(i)] = '1';
        }
    }
    return bits;
}

}  // namespace havrel
