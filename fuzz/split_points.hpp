#pragma once
// Cuts a fuzz input into the packets of several parser calls: each split byte, times `scale`,
// is an offset into the stream (clamped to its end); offsets are sorted, so packets may be
// empty.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

inline std::vector<std::span<const std::uint8_t>> splitPackets(std::span<const std::uint8_t> stream,
                                                               std::span<const std::uint8_t> splitBytes,
                                                               std::size_t scale) {
    std::vector<std::size_t> splits;
    for (auto byte : splitBytes) {
        splits.push_back(std::min(std::size_t{byte} * scale, stream.size()));
    }
    std::sort(splits.begin(), splits.end());
    splits.push_back(stream.size());
    std::vector<std::span<const std::uint8_t>> packets;
    std::size_t start = 0;
    for (std::size_t end : splits) {
        packets.push_back(stream.subspan(start, end - start));
        start = end;
    }
    return packets;
}
