#include "central/RNBluetoothMIDICommandPure.hpp"

#include "central/HVPackedCommandSupport.hpp"

namespace havrel {

namespace {

constexpr std::size_t kSize = 3;
constexpr std::uint8_t kStatusFlip = 0x80;

}  // namespace

RNBluetoothMIDICommandPure RNBluetoothMIDICommandPure::MIDICommandWithStatus(std::int64_t status, std::uint8_t data1,
                                                                             std::uint8_t data2) {
    RNBluetoothMIDICommandPure command;
    command.status = static_cast<std::uint8_t>(static_cast<std::uint64_t>(status) ^ kStatusFlip);
    command.data1 = data1;
    command.data2 = data2;
    return command;
}

std::optional<Bytes> RNBluetoothMIDICommandPure::data() const {
    return Bytes{status, data1, data2};
}

std::optional<RNBluetoothMIDICommandPure> RNBluetoothMIDICommandPure::initWithData(ByteView data) {
    if (!hasPackedHeader("RNBluetoothMIDICommandPure", data, kSize)) {
        return std::nullopt;
    }
    RNBluetoothMIDICommandPure command;
    command.status = static_cast<std::uint8_t>(data[0] ^ kStatusFlip);
    command.data1 = data[1];
    command.data2 = data[2];
    return command;
}

}  // namespace havrel
