#pragma once
// Direct MIDI values of the Bluetooth path, addressed by screen and component.
//
// Wire form of RNBluetoothMIDICommand, 1 + 2 * n bytes: byte 0 holds the command type in bits
// 0-2 (0 when written), the first value's screen in bits 3-5 and n - 1 in bits 6-7; then the
// componentIDs of all values; then per value midiValue1 in bits 0-6 and isSecondMIDIValue in
// bit 7.
//
// The writer fills the body for n AND 3 values, so a command of four values goes out with the
// right header and a zeroed body: one to three values is the usable range.

#include "platform/Types.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

struct RNBluetoothMIDIValue {
    std::uint8_t screenID = 0;
    std::uint8_t componentID = 0;
    std::uint8_t midiValue1 = 0;
    bool isSecondMIDIValue = false;

    // Nothing when the screen or the component is 255.
    static std::optional<RNBluetoothMIDIValue> MIDIValueForScreenID(std::uint8_t screenID, std::uint8_t componentID,
                                                                    std::uint8_t midiValue);
    static std::optional<RNBluetoothMIDIValue> MIDIValueForScreenID(std::uint8_t screenID, std::uint8_t componentID,
                                                                    std::uint8_t midiValue, bool isSecondValue);

    // midiValue1 with bit 7 set for a second value.
    std::uint8_t rawMidiValue() const;

    // "screenId: %i, componentID: %i, midiValue: %i, isSecondValue: %i".
    std::string description() const;

    bool operator==(const RNBluetoothMIDIValue&) const = default;
};

struct RNBluetoothMIDICommand {
    std::uint8_t commandType = 0;
    std::vector<RNBluetoothMIDIValue> midiValues;

    static RNBluetoothMIDICommand MIDICommandWithMIDIValues(std::vector<RNBluetoothMIDIValue> midiValues);

    // The wire form; nothing, with a log line, for no values or more than 4.
    std::optional<Bytes> data() const;

    // Reads n values from the header; each takes the screen of the header. A buffer that holds
    // fewer gives the whole values that fit (a value needs its component and its MIDI byte) and
    // one log line; an empty buffer gives nothing.
    static std::optional<RNBluetoothMIDICommand> initWithData(ByteView data);

    bool operator==(const RNBluetoothMIDICommand&) const = default;
};

}  // namespace havrel
