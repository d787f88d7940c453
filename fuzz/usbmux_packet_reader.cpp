// Reads arbitrary bytes as what the multiplexer daemon sends on a socket, cut into reads at
// arbitrary points. Nothing may crash or allocate without bound; the reader never takes a
// byte past the packet in progress; what it reads as a dictionary survives the hub's handling
// and a round trip through the packet form.
//
// Input: one byte n, then n split bytes (offsets of 8 bytes each), then the stream.
#include "FuzzCheck.hpp"
#include "platform/Log.hpp"
#include "split_points.hpp"
#include "transport/usb/TNUSBHub.hpp"
#include "transport/usb/TNUSBPacket.hpp"
#include "transport/usb/TNUSBPacketReader.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace {

void checkPacket(const havrel::TNUSBPacketReader::Result& result) {
    if (!result.dictionary) {
        return;
    }
    FUZZ_CHECK(!result.error && result.dictionary->is_object());
    static const auto hub = havrel::TNUSBHub::create();
    if (result.tag == 0) {
        hub->handleBroadcastPacket(*result.dictionary);
    } else {
        havrel::TNOptionalError error;
        const bool success = havrel::errorFromPlistResponse(result.dictionary, error);
        FUZZ_CHECK(success == !error);
    }
    const auto encoded = havrel::plistPacketData(*result.dictionary, result.tag);
    if (!encoded.data) {
        return;
    }
    havrel::TNUSBPacketReader again;
    std::size_t offset = 0;
    std::optional<havrel::TNUSBPacketReader::Result> reread;
    while (!reread && offset < encoded.data->size()) {
        auto buffer = again.nextBuffer();
        FUZZ_CHECK(offset + buffer.size() <= encoded.data->size());
        std::copy_n(encoded.data->begin() + static_cast<std::ptrdiff_t>(offset), buffer.size(), buffer.begin());
        offset += buffer.size();
        reread = again.didRead(buffer.size());
    }
    FUZZ_CHECK(reread && offset == encoded.data->size() && reread->tag == result.tag);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    havrel::ScopedLogCapture quiet;
    if (size == 0) {
        return 0;
    }
    const std::span<const std::uint8_t> input(data, size);
    const std::size_t splitCount = std::min<std::size_t>(input[0], size - 1);
    const auto stream = input.subspan(1 + splitCount);
    const auto reads = splitPackets(stream, input.subspan(1, splitCount), 8);

    havrel::TNUSBPacketReader reader;
    std::size_t packetStart = 0;  // offset in the stream of the packet in progress
    std::size_t offset = 0;
    for (auto read : reads) {
        while (!read.empty()) {
            auto buffer = reader.nextBuffer();
            FUZZ_CHECK(!buffer.empty());
            const std::size_t count = std::min(buffer.size(), read.size());
            std::copy_n(read.begin(), count, buffer.begin());
            read = read.subspan(count);
            offset += count;
            auto result = reader.didRead(count);
            if (!result) {
                continue;
            }
            if (result->endsStream) {
                // Refused on its size field, before anything more was taken.
                FUZZ_CHECK(result->error && offset == packetStart + 4);
                return 0;
            }
            // A packet ends exactly where its size field says.
            const std::uint32_t packetSize = havrel::readLittleEndian32(stream.data() + packetStart);
            FUZZ_CHECK(offset - packetStart == packetSize);
            FUZZ_CHECK(result->dictionary || result->error || packetSize == 16);
            checkPacket(*result);
            packetStart = offset;
        }
    }
    const auto end = reader.didReachEnd();
    FUZZ_CHECK(end.endsStream && !end.dictionary);
    FUZZ_CHECK(!end.error == (offset - packetStart < 4));
    return 0;
}
