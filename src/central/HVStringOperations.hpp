#pragma once
// Operations on strings: dotted version comparison, by which clients and files are judged, and
// two small text helpers.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace havrel {

// -1 when `version` is older than `other`, 0 when equal, 1 when newer. Both are split at every
// "." (empty components kept) and compared component by component as signed 64-bit decimals;
// a missing or empty component, one with anything but an optional sign and digits, or one that
// overflows counts as 0. So 1.2 equals 1.2.0, 1.10 is newer than 1.9 and 1.2b compares as 1.0.
int compareToVersion(std::string_view version, std::string_view other);
bool isOlderThanVersion(std::string_view version, std::string_view other);
bool isNewerThanVersion(std::string_view version, std::string_view other);
bool isEqualToVersion(std::string_view version, std::string_view other);
bool isEqualOrOlderThanVersion(std::string_view version, std::string_view other);
bool isEqualOrNewerThanVersion(std::string_view version, std::string_view other);

// The first `count` components joined with "." as they stand; nothing when `count` is below 1
// or the version has fewer components.
std::optional<std::string> getMainVersionWithIntegerCount(std::string_view version, std::int64_t count);

// True when `available` is newer than `installed` within the same main version (the first
// `mainVersionIntegerCount` components, compared as versions). A missing main version on
// either side gives false.
bool needsToUpdateToVersion(std::string_view installed, std::string_view available,
                            std::int64_t mainVersionIntegerCount);

// The string without its last character (a whole UTF-8 sequence); the empty string unchanged.
std::string stringByRemovingLastCharacter(std::string_view text);

// The 8 bits of a byte, most significant first: 5 gives "00000101".
std::string binaryStringFromUint8(std::uint8_t value);

}  // namespace havrel
