#pragma once
// One MIDI message with optional parameters and time, as tools and client builds exchange it.
//
// Wire form, 5, 7, 13 or 15 bytes: command, channel, controller, value, additionalContent
// (flags: bit 1 means two parameter bytes follow, bit 0 means a time follows), then
// additionalParam1 and additionalParam2 when bit 1 is set, then midiTime as the 8 bytes of the
// double in little-endian order when bit 0 is set. `timestamp` never travels.

#include "platform/Types.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

struct HVMidiCommand {
    // 1 Control Change, 2 Note On, 3 Note Off, 6 Pitch Bend, 7 Program Change.
    std::uint8_t command = 0;
    std::uint8_t channel = 0;
    std::uint8_t controller = 0;
    std::uint8_t value = 0;
    std::uint8_t additionalParam1 = 0;
    std::uint8_t additionalParam2 = 0;
    std::uint8_t additionalContent = 0;
    double timestamp = 0.0;
    double midiTime = 0.0;

    static constexpr std::uint8_t kHasParameters = 0x02;
    static constexpr std::uint8_t kHasTime = 0x01;

    static HVMidiCommand midiCommandWithCommandType(std::uint8_t command, std::uint8_t channel,
                                                    std::uint8_t controller, std::uint8_t value);
    // Command 6 with the two parameters. additionalContent stays 0, so data() leaves the
    // parameters behind until the sender sets kHasParameters itself.
    static HVMidiCommand midiCommandWithPitchbendLSB(std::uint8_t lsb, std::uint8_t msb);

    // additionalParam1 OR (additionalParam2 * 128).
    std::int64_t pitchbendValue() const;
    // pitchbendValue() - 8192.
    std::int64_t pitchbendOffset() const;

    // A readable form by command; the empty string for commands without one.
    std::string stringValue() const;

    // Always succeeds; the flags decide the length.
    std::optional<Bytes> data() const;

    // Nothing, with one log line, for fewer than 5 bytes or fewer than the flags ask for. Extra
    // bytes are ignored; midiTime reads 0.0 when its flag is clear.
    static std::optional<HVMidiCommand> initWithData(ByteView data);

    bool operator==(const HVMidiCommand&) const = default;
};

}  // namespace havrel
