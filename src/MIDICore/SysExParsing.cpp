// Reading complete SysEx messages: MIDI 1.0 bytes or hexadecimal text for SysEx7, UMP payloads
// for SysEx8.
#include "MIDICore/MIDI1Wire.hpp"

#include <cctype>

namespace MIDICore {

namespace {

using Kind = MIDIEvent::ParseError::Kind;

std::optional<MIDIEvent> fail(Kind kind, Kind* error) {
    if (error) {
        *error = kind;
    }
    return std::nullopt;
}

// The body from `start`: 7-bit bytes, with a 0xF7 allowed only as the very last byte, where it
// is left out.
bool sysEx7Body(std::span<const std::uint8_t> bytes, std::size_t start, std::vector<std::uint8_t>& body) {
    std::size_t end = bytes.size();
    if (end > start && bytes[end - 1] == 0xF7) {
        --end;
    }
    for (std::size_t i = start; i < end; ++i) {
        if (bytes[i] >= 0x80) {
            return false;
        }
    }
    if (end > start) {
        body.assign(bytes.begin() + static_cast<std::ptrdiff_t>(start), bytes.begin() + static_cast<std::ptrdiff_t>(end));
    }
    return true;
}

std::optional<std::uint8_t> hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<std::uint8_t>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<std::uint8_t>(c - 'a' + 10);
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<std::uint8_t>(c - 'A' + 10);
    }
    return std::nullopt;
}

// One two-character piece as an unsigned byte, read as an unsigned integer parser reads text:
// a leading "+" is accepted, and a leading "-" only for a zero value.
std::optional<std::uint8_t> hexPiece(char first, char second) {
    auto low = hexDigit(second);
    if (!low) {
        return std::nullopt;
    }
    if (first == '+') {
        return low;
    }
    if (first == '-') {
        return *low == 0 ? low : std::nullopt;
    }
    auto high = hexDigit(first);
    if (!high) {
        return std::nullopt;
    }
    return static_cast<std::uint8_t>(*high * 16 + *low);
}

}  // namespace

const char* MIDIEvent::ParseError::errorDescription() const noexcept {
    switch (kind_) {
        case rawBytesEmpty: return "Raw bytes empty.";
        case malformed: return "Malformed.";
        case invalidType: return "Invalid type.";
    }
    return "";
}

namespace detail {

std::optional<MIDIEvent> parseSysEx7(std::span<const std::uint8_t> bytes, UInt4 group, Kind* error) {
    if (bytes.empty()) {
        return fail(Kind::rawBytesEmpty, error);
    }
    if (bytes.size() < 2 || bytes[0] != 0xF0 || bytes[1] >= 0x80) {
        return fail(Kind::malformed, error);
    }
    std::vector<std::uint8_t> body;
    const std::uint8_t id = bytes[1];
    if (id == 0x7E || id == 0x7F) {
        if (bytes.size() <= 5 || bytes[2] >= 0x80 || bytes[3] >= 0x80 || bytes[4] >= 0x80 || !sysEx7Body(bytes, 5, body)) {
            return fail(Kind::malformed, error);
        }
        return MIDIEvent(MIDIEvent::UniversalSysEx7{static_cast<UniversalSysExType>(id), UInt7::fromStorage(bytes[2]),
                                                    UInt7::fromStorage(bytes[3]), UInt7::fromStorage(bytes[4]),
                                                    std::move(body), group});
    }
    if (id == 0x00) {
        if (bytes.size() < 4 || bytes[2] >= 0x80 || bytes[3] >= 0x80 || !sysEx7Body(bytes, 4, body)) {
            return fail(Kind::malformed, error);
        }
        return MIDIEvent(MIDIEvent::SysEx7{
            SysExManufacturer::threeByte(UInt7::fromStorage(bytes[2]), UInt7::fromStorage(bytes[3])), std::move(body),
            group});
    }
    if (!sysEx7Body(bytes, 2, body)) {
        return fail(Kind::malformed, error);
    }
    return MIDIEvent(MIDIEvent::SysEx7{SysExManufacturer::oneByte(UInt7::fromStorage(id)), std::move(body), group});
}

std::optional<MIDIEvent> parseSysEx8(std::span<const std::uint8_t> bytes, std::uint8_t streamID, UInt4 group,
                                     Kind* error) {
    if (bytes.empty()) {
        return fail(Kind::rawBytesEmpty, error);
    }
    if (bytes.size() < 2) {
        return fail(Kind::malformed, error);
    }
    auto id = SysExID::fromSysEx8RawBytes(bytes.first(2));
    if (!id) {
        return fail(Kind::malformed, error);
    }
    if (auto universal = id->universalValue()) {
        if (bytes.size() < 5 || bytes[2] >= 0x80 || bytes[3] >= 0x80 || bytes[4] >= 0x80) {
            return fail(Kind::malformed, error);
        }
        return MIDIEvent(MIDIEvent::UniversalSysEx8{*universal, UInt7::fromStorage(bytes[2]),
                                                    UInt7::fromStorage(bytes[3]), UInt7::fromStorage(bytes[4]),
                                                    std::vector<std::uint8_t>(bytes.begin() + 5, bytes.end()),
                                                    streamID, group});
    }
    return MIDIEvent(MIDIEvent::SysEx8{*id->manufacturerValue(), std::vector<std::uint8_t>(bytes.begin() + 2, bytes.end()),
                                       streamID, group});
}

}  // namespace detail

MIDIEvent MIDIEvent::sysEx7(std::span<const std::uint8_t> rawBytes, UInt4 group) {
    Kind error = Kind::malformed;
    auto event = detail::parseSysEx7(rawBytes, group, &error);
    if (!event) {
        throw ParseError(error);
    }
    return std::move(*event);
}

MIDIEvent MIDIEvent::sysEx7(std::string_view rawHexString, UInt4 group) {
    std::string text;
    text.reserve(rawHexString.size());
    for (char c : rawHexString) {
        if (!std::isspace(static_cast<unsigned char>(c))) {
            text.push_back(c);
        }
    }
    if (text.size() % 2 != 0) {
        throw ParseError(ParseError::malformed);
    }
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        auto byte = hexPiece(text[i], text[i + 1]);
        if (!byte) {
            throw ParseError(ParseError::malformed);
        }
        bytes.push_back(*byte);
    }
    return sysEx7(bytes, group);
}

MIDIEvent MIDIEvent::sysEx8(std::span<const std::uint8_t> rawBytes, std::uint8_t streamID, UInt4 group) {
    Kind error = Kind::malformed;
    auto event = detail::parseSysEx8(rawBytes, streamID, group, &error);
    if (!event) {
        throw ParseError(error);
    }
    return std::move(*event);
}

}  // namespace MIDICore
