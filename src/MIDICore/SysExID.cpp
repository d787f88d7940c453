#include "MIDICore/SysExID.hpp"

#include "MIDIInternals/TextHelpers.hpp"

#include <array>

namespace MIDICore {

namespace {

struct ManufacturerRow {
    std::uint8_t bytes[3];  // one-byte IDs: {id, 0, 0}; three-byte IDs: {0x00, byte2, byte3}
    const char* name;
};

// Only IDs whose registration we are sure of; others have no name.
constexpr ManufacturerRow manufacturerRows[] = {
    {{0x01, 0, 0}, "Sequential Circuits"},
    {{0x04, 0, 0}, "Moog"},
    {{0x06, 0, 0}, "Lexicon"},
    {{0x07, 0, 0}, "Kurzweil"},
    {{0x0F, 0, 0}, "Ensoniq"},
    {{0x10, 0, 0}, "Oberheim"},
    {{0x11, 0, 0}, "Apple"},
    {{0x18, 0, 0}, "E-mu"},
    {{0x3E, 0, 0}, "Waldorf"},
    {{0x40, 0, 0}, "Kawai"},
    {{0x41, 0, 0}, "Roland"},
    {{0x42, 0, 0}, "Korg"},
    {{0x43, 0, 0}, "Yamaha"},
    {{0x44, 0, 0}, "Casio"},
    {{0x47, 0, 0}, "Akai"},
    {{0x4C, 0, 0}, "Sony"},
    {{0x52, 0, 0}, "Zoom"},
    {{0x7D, 0, 0}, "Educational Use"},
    {{0x00, 0x00, 0x0E}, "Alesis"},
    {{0x00, 0x20, 0x29}, "Focusrite/Novation"},
    {{0x00, 0x20, 0x32}, "Behringer"},
    {{0x00, 0x20, 0x33}, "Access Music"},
    {{0x00, 0x20, 0x3C}, "Elektron"},
    {{0x00, 0x20, 0x6B}, "Arturia"},
    {{0x00, 0x21, 0x09}, "Native Instruments"},
};

}  // namespace

std::optional<SysExManufacturer> SysExManufacturer::fromSysEx7RawBytes(std::span<const std::uint8_t> bytes) {
    if (bytes.size() == 1 && bytes[0] != 0x00 && bytes[0] < 0x80) {
        return oneByte(UInt7::fromStorage(bytes[0]));
    }
    if (bytes.size() == 3 && bytes[0] == 0x00 && bytes[1] < 0x80 && bytes[2] < 0x80) {
        return threeByte(UInt7::fromStorage(bytes[1]), UInt7::fromStorage(bytes[2]));
    }
    return std::nullopt;
}

std::optional<SysExManufacturer> SysExManufacturer::fromSysEx8RawBytes(std::span<const std::uint8_t> bytes) {
    if (bytes.size() != 2 || bytes[1] >= 0x80) {
        return std::nullopt;
    }
    if (bytes[0] & 0x80) {
        return threeByte(UInt7::fromStorage(bytes[0] & 0x7F), UInt7::fromStorage(bytes[1]));
    }
    if (bytes[0] == 0x00) {
        return oneByte(UInt7::fromStorage(bytes[1]));
    }
    return std::nullopt;
}

std::vector<std::uint8_t> SysExManufacturer::sysEx7RawBytes() const {
    if (threeByte_) {
        return {0x00, byte2_.storage(), byte3_.storage()};
    }
    return {byte3_.storage()};
}

std::vector<std::uint8_t> SysExManufacturer::sysEx8RawBytes() const {
    if (threeByte_) {
        return {static_cast<std::uint8_t>(0x80 + byte2_.storage()), byte3_.storage()};
    }
    return {0x00, byte3_.storage()};
}

bool SysExManufacturer::isValid() const {
    if (threeByte_) {
        return byte2_ != 0 || byte3_ != 0;
    }
    return byte3_ >= 0x01 && byte3_ <= 0x7D;
}

std::optional<std::string> SysExManufacturer::name() const {
    for (const auto& row : manufacturerRows) {
        bool rowThreeByte = row.bytes[0] == 0x00;
        if (rowThreeByte != threeByte_) {
            continue;
        }
        if (threeByte_ ? (row.bytes[1] == byte2_.storage() && row.bytes[2] == byte3_.storage())
                       : row.bytes[0] == byte3_.storage()) {
            return std::string(row.name);
        }
    }
    return std::nullopt;
}

std::string SysExManufacturer::description() const {
    auto text = MIDIInternals::hexString(sysEx7RawBytes(), 2, true, " ");
    auto known = name();
    return known ? text + " (" + *known + ")" : text;
}

std::optional<SysExID> SysExID::fromSysEx7RawBytes(std::span<const std::uint8_t> bytes) {
    if (bytes.size() == 1 && (bytes[0] == 0x7E || bytes[0] == 0x7F)) {
        return universal(static_cast<UniversalSysExType>(bytes[0]));
    }
    auto id = SysExManufacturer::fromSysEx7RawBytes(bytes);
    return id ? std::optional<SysExID>(manufacturer(*id)) : std::nullopt;
}

std::optional<SysExID> SysExID::fromSysEx8RawBytes(std::span<const std::uint8_t> bytes) {
    if (bytes.size() == 2 && bytes[0] == 0x00 && (bytes[1] == 0x7E || bytes[1] == 0x7F)) {
        return universal(static_cast<UniversalSysExType>(bytes[1]));
    }
    auto id = SysExManufacturer::fromSysEx8RawBytes(bytes);
    return id ? std::optional<SysExID>(manufacturer(*id)) : std::nullopt;
}

std::vector<std::uint8_t> SysExID::sysEx7RawBytes() const {
    if (universal_) {
        return {static_cast<std::uint8_t>(type_)};
    }
    return manufacturer_.sysEx7RawBytes();
}

std::vector<std::uint8_t> SysExID::sysEx8RawBytes() const {
    if (universal_) {
        return {0x00, static_cast<std::uint8_t>(type_)};
    }
    return manufacturer_.sysEx8RawBytes();
}

}  // namespace MIDICore
