#include "central/HVBluetoothRangeCommand.hpp"

#include "central/HVPackedCommandSupport.hpp"

namespace havrel {

HVBluetoothRangeValue HVBluetoothRangeValue::rangeValueWithComponentID(std::uint8_t componentID, std::uint8_t screenID,
                                                                       std::uint8_t axisNumber, double rangeValue) {
    HVBluetoothRangeValue value;
    value.componentID = componentID;
    value.screenID = screenID;
    value.axisNumber = axisNumber;
    value.rangeValue = rangeValue;
    return value;
}

HVBluetoothRangeCommand HVBluetoothRangeCommand::rangeCommandWithRangeValues(
    std::vector<HVBluetoothRangeValue> rangeValues) {
    HVBluetoothRangeCommand command;
    command.rangeValues = std::move(rangeValues);
    return command;
}

std::optional<Bytes> HVBluetoothRangeCommand::data() const {
    const auto firstByte = static_cast<std::uint8_t>(rangeValues.empty() ? 0 : rangeValues.front().screenID * 8u);
    return writeRangeEntries(firstByte, rangeValues, [](const HVBluetoothRangeValue& value, HVQuantisedPosition position) {
        const std::uint64_t axis = value.axisNumber >= 16 ? 15 : value.axisNumber;
        return HVRangeEntry{value.componentID, static_cast<std::uint8_t>(axis | (position.high << 6)),
                            static_cast<std::uint8_t>(position.low)};
    });
}

std::optional<HVBluetoothRangeCommand> HVBluetoothRangeCommand::initWithData(ByteView data) {
    constexpr std::string_view reader = "HVBluetoothRangeCommand";
    if (!hasPackedHeader(reader, data, kRangeHeaderSize)) {
        return std::nullopt;
    }
    HVBluetoothRangeCommand command;
    command.commandType = data[0] & 7u;
    const auto screenID = static_cast<std::uint8_t>(data[0] >> 3);
    command.rangeValues = readRangeEntries<HVBluetoothRangeValue>(reader, data, [screenID](const HVRangeEntry& entry) {
        const auto [componentID, b, low] = entry;
        return HVBluetoothRangeValue::rangeValueWithComponentID(componentID, screenID, b & 15u,
                                                                positionFromQuantised((b & 192u) / 64u, low));
    });
    return command;
}

}  // namespace havrel
