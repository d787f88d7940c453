// Reads arbitrary bytes as a pure MIDI command; must never read out of bounds. What was read
// holds the true status, so writing it back flips the first byte.
#include "FuzzCheck.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "platform/Log.hpp"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    havrel::ScopedLogCapture quiet;
    auto command = havrel::RNBluetoothMIDICommandPure::initWithData(havrel::ByteView(data, size));
    FUZZ_CHECK(command.has_value() == (size >= 3));
    if (command) {
        auto written = command->data();
        FUZZ_CHECK(written && written->size() == 3);
        FUZZ_CHECK((*written)[0] == (data[0] ^ 0x80) && (*written)[1] == data[1] && (*written)[2] == data[2]);
    }
    return 0;
}
