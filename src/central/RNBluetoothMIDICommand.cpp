#include "central/RNBluetoothMIDICommand.hpp"

#include "central/HVPackedCommandSupport.hpp"

#include <fmt/format.h>

namespace havrel {

namespace {

constexpr std::size_t kHeaderSize = 1;
constexpr std::size_t kMaximumValues = 4;
constexpr std::uint8_t kNoAddress = 255;

}  // namespace

std::optional<RNBluetoothMIDIValue> RNBluetoothMIDIValue::MIDIValueForScreenID(std::uint8_t screenID,
                                                                               std::uint8_t componentID,
                                                                               std::uint8_t midiValue) {
    return MIDIValueForScreenID(screenID, componentID, midiValue, false);
}

std::optional<RNBluetoothMIDIValue> RNBluetoothMIDIValue::MIDIValueForScreenID(std::uint8_t screenID,
                                                                               std::uint8_t componentID,
                                                                               std::uint8_t midiValue,
                                                                               bool isSecondValue) {
    if (screenID == kNoAddress || componentID == kNoAddress) {
        return std::nullopt;
    }
    RNBluetoothMIDIValue value;
    value.screenID = screenID;
    value.componentID = componentID;
    value.midiValue1 = midiValue;
    value.isSecondMIDIValue = isSecondValue;
    return value;
}

std::uint8_t RNBluetoothMIDIValue::rawMidiValue() const {
    return isSecondMIDIValue ? static_cast<std::uint8_t>(midiValue1 | 0x80u) : midiValue1;
}

std::string RNBluetoothMIDIValue::description() const {
    return fmt::format("screenId: {}, componentID: {}, midiValue: {}, isSecondValue: {}", screenID, componentID,
                       midiValue1, isSecondMIDIValue ? 1 : 0);
}

RNBluetoothMIDICommand RNBluetoothMIDICommand::MIDICommandWithMIDIValues(std::vector<RNBluetoothMIDIValue> midiValues) {
    RNBluetoothMIDICommand command;
    command.midiValues = std::move(midiValues);
    return command;
}

std::optional<Bytes> RNBluetoothMIDICommand::data() const {
    if (!hasWritableEntryCount(midiValues.size(), kMaximumValues)) {
        return std::nullopt;
    }
    const std::size_t n = midiValues.size();
    Bytes bytes(kHeaderSize + 2 * n, 0);
    bytes[0] = static_cast<std::uint8_t>(((midiValues.front().screenID & 7u) << 3) | ((n - 1) << 6));
    // The body loops run n AND 3 times: four values leave the body as allocated (zeroed).
    const std::size_t written = n & 3u;
    for (std::size_t i = 0; i < written; ++i) {
        bytes[kHeaderSize + i] = midiValues[i].componentID;
    }
    for (std::size_t i = 0; i < written; ++i) {
        bytes[kHeaderSize + n + i] = midiValues[i].rawMidiValue();
    }
    return bytes;
}

std::optional<RNBluetoothMIDICommand> RNBluetoothMIDICommand::initWithData(ByteView data) {
    constexpr std::string_view reader = "RNBluetoothMIDICommand";
    if (!hasPackedHeader(reader, data, kHeaderSize)) {
        return std::nullopt;
    }
    RNBluetoothMIDICommand command;
    command.commandType = data[0] & 7u;
    const auto screenID = static_cast<std::uint8_t>((data[0] >> 3) & 7u);
    const std::size_t n = (data[0] >> 6) + 1u;
    // Value i needs the bytes 1 + i and 1 + n + i.
    const std::size_t body = data.size() - kHeaderSize;
    const std::size_t count = entriesToRead(reader, n, body > n ? body - n : 0, data);
    command.midiValues.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t midi = data[kHeaderSize + n + i];
        RNBluetoothMIDIValue value;
        value.screenID = screenID;
        value.componentID = data[kHeaderSize + i];
        value.midiValue1 = midi & 0x7Fu;
        value.isSecondMIDIValue = (midi & 0x80u) != 0;
        command.midiValues.push_back(value);
    }
    return command;
}

}  // namespace havrel
