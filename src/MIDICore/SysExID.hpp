#pragma once
// Identifiers of SysEx senders: the manufacturer ID (one byte, or three bytes whose first byte,
// 0x00, is not stored), the universal types, and the two combined.

#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace MIDICore {

enum class UniversalSysExType : std::uint8_t { nonRealTime = 0x7E, realTime = 0x7F };

class SysExManufacturer {
public:
    static constexpr SysExManufacturer oneByte(UInt7 id) { return {false, UInt7(0), id}; }
    static constexpr SysExManufacturer threeByte(UInt7 byte2, UInt7 byte3) { return {true, byte2, byte3}; }
    // Non-commercial and educational use: one byte 0x7D.
    static constexpr SysExManufacturer educational() { return oneByte(UInt7(0x7D)); }

    // [id], or [0x00, byte2, byte3]. Gives nothing for other lengths, a lone 0x00, or a byte
    // with the high bit set.
    static std::optional<SysExManufacturer> fromSysEx7RawBytes(std::span<const std::uint8_t> bytes);
    // Always two bytes: [0x00, id], or [0x80 + byte2, byte3] (the high bit marks three bytes).
    static std::optional<SysExManufacturer> fromSysEx8RawBytes(std::span<const std::uint8_t> bytes);

    std::vector<std::uint8_t> sysEx7RawBytes() const;
    std::vector<std::uint8_t> sysEx8RawBytes() const;

    constexpr bool isThreeByte() const { return threeByte_; }
    // The one-byte ID; of a three-byte ID, byte2 and byte3.
    constexpr UInt7 byte1() const { return byte3_; }
    constexpr UInt7 byte2() const { return byte2_; }
    constexpr UInt7 byte3() const { return byte3_; }

    // One byte within 0x01...0x7D; three bytes not both zero.
    bool isValid() const;
    // The registered name of the ID, where known.
    std::optional<std::string> name() const;
    std::string description() const;

    friend constexpr bool operator==(const SysExManufacturer&, const SysExManufacturer&) = default;

private:
    constexpr SysExManufacturer(bool threeByte, UInt7 byte2, UInt7 byte3)
        : threeByte_(threeByte), byte2_(byte2), byte3_(byte3) {}
    bool threeByte_;
    UInt7 byte2_;
    UInt7 byte3_;
};

class SysExID {
public:
    static constexpr SysExID manufacturer(SysExManufacturer id) { return SysExID(id); }
    static constexpr SysExID universal(UniversalSysExType type) { return SysExID(type); }

    // [0x7E] / [0x7F] are universal; otherwise as SysExManufacturer.
    static std::optional<SysExID> fromSysEx7RawBytes(std::span<const std::uint8_t> bytes);
    // [0x00, 0x7E] / [0x00, 0x7F] are universal; otherwise as SysExManufacturer.
    static std::optional<SysExID> fromSysEx8RawBytes(std::span<const std::uint8_t> bytes);

    std::vector<std::uint8_t> sysEx7RawBytes() const;
    std::vector<std::uint8_t> sysEx8RawBytes() const;

    constexpr std::optional<SysExManufacturer> manufacturerValue() const {
        return universal_ ? std::nullopt : std::optional<SysExManufacturer>(manufacturer_);
    }
    constexpr std::optional<UniversalSysExType> universalValue() const {
        return universal_ ? std::optional<UniversalSysExType>(type_) : std::nullopt;
    }
    friend constexpr bool operator==(const SysExID&, const SysExID&) = default;

private:
    constexpr explicit SysExID(SysExManufacturer id) : manufacturer_(id) {}
    constexpr explicit SysExID(UniversalSysExType type)
        : manufacturer_(SysExManufacturer::oneByte(UInt7(0))), universal_(true), type_(type) {}
    SysExManufacturer manufacturer_;
    bool universal_ = false;
    UniversalSysExType type_ = UniversalSysExType::nonRealTime;
};

}  // namespace MIDICore
