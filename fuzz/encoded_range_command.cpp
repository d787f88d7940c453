// Reads arbitrary bytes as a binary range command; must never read out of bounds. Whatever a
// writer can carry (1 to 16 entries) writes back to the same entry bytes.
#include "FuzzCheck.hpp"
#include "central/HVEncodedRangeCommand.hpp"
#include "platform/Log.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    havrel::ScopedLogCapture quiet;
    havrel::ByteView input(data, size);
    auto command = havrel::HVEncodedRangeCommand::initWithData(input);
    FUZZ_CHECK(command.has_value() == (size >= 2));
    if (!command) {
        return 0;
    }
    const std::size_t count = command->rangeValues.size();
    FUZZ_CHECK(count == std::min<std::size_t>(data[1], (size - 2) / 3));
    if (count >= 1 && count <= 16) {
        auto written = command->data();
        FUZZ_CHECK(written && written->size() == 2 + 3 * count);
        FUZZ_CHECK((*written)[0] == 1 && (*written)[1] == count);
        FUZZ_CHECK(std::equal(written->begin() + 2, written->end(), data + 2));
    }
    return 0;
}
