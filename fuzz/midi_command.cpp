// Reads arbitrary bytes as a MIDI command; must never read out of bounds. What was read writes
// back to the bytes its flags cover.
#include "FuzzCheck.hpp"
#include "central/HVMidiCommand.hpp"
#include "platform/Log.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    havrel::ScopedLogCapture quiet;
    auto command = havrel::HVMidiCommand::initWithData(havrel::ByteView(data, size));
    if (!command) {
        return 0;
    }
    auto written = command->data();
    FUZZ_CHECK(written && written->size() <= size);
    FUZZ_CHECK(std::equal(written->begin(), written->end(), data));
    (void)command->stringValue();
    return 0;
}
