// The readers of packet lists and event lists as a backend hands them in. The first byte picks
// the reader; the rest is the list.

#include "MIDIIO/MIDIManaged.hpp"
#include "MIDIIO/MIDIPacketLayout.hpp"

#include <cstddef>
#include <cstdint>
#include <span>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::span<const std::uint8_t> list(data + 1, size - 1);
    if (data[0] & 1) {
        auto [protocol, packets] = MIDIIO::readEventList(list, nullptr, std::nullopt);
        for (const auto& packet : packets) {
            if (packet.bytes.size() > MIDIIO::kMIDIEventPacketMaxWords * 4) {
                __builtin_trap();
            }
        }
        (void)protocol;
    } else {
        auto packets = MIDIIO::readPacketList(list, nullptr, std::nullopt);
        std::size_t total = 0;
        for (const auto& packet : packets) {
            total += packet.bytes.size() + MIDIIO::kSizeOfMIDIPacketHeader;
        }
        if (total > list.size()) {
            __builtin_trap();
        }
    }
    return 0;
}
