#include "central/HVEncodedRangeCommand.hpp"

#include "central/HVPackedCommandSupport.hpp"

namespace havrel {

HVEncodedRangeValue HVEncodedRangeValue::rangeValueWithDataWraperID(std::uint64_t dataWrapperID,
                                                                    std::uint8_t axisNumber, double rangeValue) {
    return rangeValueWithDataWraperID(dataWrapperID, axisNumber, rangeValue, 0);
}

HVEncodedRangeValue HVEncodedRangeValue::rangeValueWithDataWraperID(std::uint64_t dataWrapperID,
                                                                    std::uint8_t axisNumber, double rangeValue,
                                                                    std::uint8_t state) {
    HVEncodedRangeValue value;
    value.dataWrapperID = dataWrapperID;
    value.axisNumber = axisNumber;
    value.rangeValue = rangeValue;
    value.state = state;
    return value;
}

HVEncodedRangeCommand HVEncodedRangeCommand::rangeCommandWithRangeValues(std::vector<HVEncodedRangeValue> rangeValues) {
    HVEncodedRangeCommand command;
    command.rangeValues = std::move(rangeValues);
    return command;
}

std::optional<Bytes> HVEncodedRangeCommand::data() const {
    return writeRangeEntries(1, rangeValues, [](const HVEncodedRangeValue& value, HVQuantisedPosition position) {
        const std::uint64_t axis = value.axisNumber >= 8 ? 7 : value.axisNumber;
        return HVRangeEntry{static_cast<std::uint8_t>(value.dataWrapperID >> 2),
                            static_cast<std::uint8_t>((value.dataWrapperID & 3u) | ((value.state & 3u) << 2) |
                                                      (axis << 4) | (position.high << 7)),
                            static_cast<std::uint8_t>(position.low)};
    });
}

std::optional<HVEncodedRangeCommand> HVEncodedRangeCommand::initWithData(ByteView data) {
    constexpr std::string_view reader = "HVEncodedRangeCommand";
    if (!hasPackedHeader(reader, data, kRangeHeaderSize)) {
        return std::nullopt;
    }
    HVEncodedRangeCommand command;
    command.commandType = data[0] & 7u;
    command.rangeValues = readRangeEntries<HVEncodedRangeValue>(reader, data, [](const HVRangeEntry& entry) {
        const auto [a, b, c] = entry;
        HVEncodedRangeValue value;
        value.dataWrapperID = (b & 3u) | (static_cast<std::uint64_t>(a) * 4u);
        value.axisNumber = (b >> 4) & 7u;
        value.state = (b >> 2) & 3u;
        value.rangeValue = positionFromQuantised(b >> 7, c);
        return value;
    });
    return command;
}

}  // namespace havrel
