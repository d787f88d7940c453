// Reads arbitrary bytes as a Bluetooth MIDI command; must never read out of bounds. A complete
// command of one to three values writes back to the same bytes, less the command type.
#include "FuzzCheck.hpp"
#include "central/RNBluetoothMIDICommand.hpp"
#include "platform/Log.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    havrel::ScopedLogCapture quiet;
    auto command = havrel::RNBluetoothMIDICommand::initWithData(havrel::ByteView(data, size));
    FUZZ_CHECK(command.has_value() == (size >= 1));
    if (!command) {
        return 0;
    }
    const std::size_t announced = (data[0] >> 6) + 1u;
    const std::size_t count = command->midiValues.size();
    FUZZ_CHECK(count <= announced);
    if (count == announced && count <= 3) {
        auto written = command->data();
        FUZZ_CHECK(written && written->size() == 1 + 2 * count);
        FUZZ_CHECK((*written)[0] == (data[0] & 0xF8));
        FUZZ_CHECK(std::equal(written->begin() + 1, written->end(), data + 1));
    }
    return 0;
}
