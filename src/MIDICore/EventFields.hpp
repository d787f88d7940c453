#pragma once
// Small fields of channel-voice events: the bank of a program change and the option flags of
// per-note management.

#include "MIDICore/EnumSet.hpp"
#include "MIDICore/MIDIUnsignedInteger.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace MIDICore {

class Bank {
public:
    static constexpr Bank bankSelect(UInt14 bank) { return Bank(bank); }
    static constexpr Bank bankSelect(UInt7 msb, UInt7 lsb) { return Bank(UInt14(UInt7Pair{msb, lsb})); }
    static constexpr Bank noBankSelect() { return Bank(); }
    constexpr Bank() = default;

    constexpr std::optional<UInt14> bankSelectValue() const { return bank_; }
    std::string description() const {
        return bank_ ? "bankSelect(" + bank_->description() + ")" : "noBankSelect";
    }
    friend constexpr bool operator==(const Bank&, const Bank&) = default;

private:
    constexpr explicit Bank(UInt14 bank) : bank_(bank) {}
    std::optional<UInt14> bank_;
};

// detachPerNoteControllers is bit 1 of the byte, resetPerNoteControllers bit 0.
enum class OptionFlag : std::uint8_t { resetPerNoteControllers = 0, detachPerNoteControllers = 1 };

class OptionFlags : public EnumSet<OptionFlag> {
public:
    using EnumSet<OptionFlag>::EnumSet;
    constexpr OptionFlags(EnumSet<OptionFlag> set) : EnumSet<OptionFlag>(set) {}
    // Only the two flag bits of the byte are read.
    static constexpr OptionFlags fromByte(std::uint8_t byte) {
        OptionFlags flags;
        if (byte & 0x01) {
            flags.insert(OptionFlag::resetPerNoteControllers);
        }
        if (byte & 0x02) {
            flags.insert(OptionFlag::detachPerNoteControllers);
        }
        return flags;
    }
    constexpr std::uint8_t byte() const { return static_cast<std::uint8_t>(bits()); }
};

}  // namespace MIDICore
