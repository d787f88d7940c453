// Reads arbitrary bytes as a Bluetooth range command; must never read out of bounds. Whatever a
// writer can carry writes back to the same bytes, less the command type and the unused bits.
#include "FuzzCheck.hpp"
#include "central/HVBluetoothRangeCommand.hpp"
#include "platform/Log.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    havrel::ScopedLogCapture quiet;
    auto command = havrel::HVBluetoothRangeCommand::initWithData(havrel::ByteView(data, size));
    FUZZ_CHECK(command.has_value() == (size >= 2));
    if (!command) {
        return 0;
    }
    const std::size_t count = command->rangeValues.size();
    FUZZ_CHECK(count == std::min<std::size_t>(data[1], (size - 2) / 3));
    if (count >= 1 && count <= 16) {
        auto written = command->data();
        FUZZ_CHECK(written && written->size() == 2 + 3 * count);
        FUZZ_CHECK((*written)[0] == (data[0] & 0xF8) && (*written)[1] == count);
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = 2 + 3 * i;
            FUZZ_CHECK((*written)[at] == data[at]);
            FUZZ_CHECK((*written)[at + 1] == (data[at + 1] & 0xCF));
            FUZZ_CHECK((*written)[at + 2] == data[at + 2]);
        }
    }
    return 0;
}
