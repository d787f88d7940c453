#include "central/HVMidiCommand.hpp"

#include "central/HVPackedCommandSupport.hpp"
#include "model/HVNoteNames.hpp"

#include <fmt/format.h>

#include <bit>

namespace havrel {

namespace {

constexpr std::size_t kFixedSize = 5;
constexpr std::size_t kParameterSize = 2;
constexpr std::size_t kTimeSize = 8;

std::size_t wireSize(std::uint8_t flags) {
    return kFixedSize + ((flags & HVMidiCommand::kHasParameters) ? kParameterSize : 0) +
           ((flags & HVMidiCommand::kHasTime) ? kTimeSize : 0);
}

}  // namespace

HVMidiCommand HVMidiCommand::midiCommandWithCommandType(std::uint8_t command, std::uint8_t channel,
                                                        std::uint8_t controller, std::uint8_t value) {
    HVMidiCommand midiCommand;
    midiCommand.command = command;
    midiCommand.channel = channel;
    midiCommand.controller = controller;
    midiCommand.value = value;
    return midiCommand;
}

HVMidiCommand HVMidiCommand::midiCommandWithPitchbendLSB(std::uint8_t lsb, std::uint8_t msb) {
    HVMidiCommand midiCommand;
    midiCommand.command = 6;
    midiCommand.additionalParam1 = lsb;
    midiCommand.additionalParam2 = msb;
    return midiCommand;
}

std::int64_t HVMidiCommand::pitchbendValue() const {
    return additionalParam1 | (static_cast<std::int64_t>(additionalParam2) * 128);
}

std::int64_t HVMidiCommand::pitchbendOffset() const {
    return pitchbendValue() - 8192;
}

std::string HVMidiCommand::stringValue() const {
    switch (command) {
    case 1:
        return fmt::format("CH:{}, CC:{}, Value:{}", channel, controller, value);
    case 2:
        return fmt::format("CH:{}, Note On:{}, Vel:{}", channel, noteStringFromNoteValue(controller), value);
    case 3:
        return fmt::format("CH:{}, Note Off:{}, Vel:{}", channel, noteStringFromNoteValue(controller), value);
    case 6:
        return fmt::format("CH:{}, Pitch:{}", channel, pitchbendOffset());
    case 7:
        return fmt::format("CH:{}, Program:{}", channel, value);
    default:
        return {};
    }
}

std::optional<Bytes> HVMidiCommand::data() const {
    Bytes bytes;
    bytes.reserve(wireSize(additionalContent));
    bytes.insert(bytes.end(), {command, channel, controller, value, additionalContent});
    if (additionalContent & kHasParameters) {
        bytes.insert(bytes.end(), {additionalParam1, additionalParam2});
    }
    if (additionalContent & kHasTime) {
        const auto raw = std::bit_cast<std::uint64_t>(midiTime);
        for (std::size_t i = 0; i < kTimeSize; ++i) {
            bytes.push_back(static_cast<std::uint8_t>(raw >> (8 * i)));
        }
    }
    return bytes;
}

std::optional<HVMidiCommand> HVMidiCommand::initWithData(ByteView data) {
    constexpr std::string_view reader = "HVMidiCommand";
    if (!hasPackedHeader(reader, data, kFixedSize) || !hasPackedHeader(reader, data, wireSize(data[4]))) {
        return std::nullopt;
    }
    HVMidiCommand midiCommand =
        midiCommandWithCommandType(data[0], data[1], data[2], data[3]);
    midiCommand.additionalContent = data[4];
    std::size_t offset = kFixedSize;
    if (midiCommand.additionalContent & kHasParameters) {
        midiCommand.additionalParam1 = data[offset];
        midiCommand.additionalParam2 = data[offset + 1];
        offset += kParameterSize;
    }
    if (midiCommand.additionalContent & kHasTime) {
        std::uint64_t raw = 0;
        for (std::size_t i = 0; i < kTimeSize; ++i) {
            raw |= static_cast<std::uint64_t>(data[offset + i]) << (8 * i);
        }
        midiCommand.midiTime = std::bit_cast<double>(raw);
    }
    return midiCommand;
}

}  // namespace havrel
