#include "model/HVDataHelpers.hpp"

#include "platform/Assert.hpp"
#include "platform/Log.hpp"

#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace havrel {

std::optional<Bytes> returnTruncatedBytesIfLastBytesAreEqualTo(ByteView data, ByteView suffix) {
    if (data.size() < suffix.size()) {
        return std::nullopt;
    }
    std::size_t keep = data.size() - suffix.size();
    if (!std::equal(suffix.begin(), suffix.end(), data.begin() + static_cast<std::ptrdiff_t>(keep))) {
        return std::nullopt;
    }
    return Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(keep));
}

Bytes firstByte(ByteView data) {
    return data.empty() ? Bytes{} : Bytes{data.front()};
}

Bytes everythingButFirstByte(ByteView data) {
    return data.empty() ? Bytes{} : Bytes(data.begin() + 1, data.end());
}

double toDouble(ByteView data) {
    double d = 0;
    HV_ASSERT(data.size() == sizeof(d));
    std::memcpy(&d, data.data(), sizeof(d));
    return d;
}

bool isGzipData(ByteView data) {
    return data.size() >= 2 && data[0] == 0x1F && data[1] == 0x8B;
}

std::optional<Bytes> gzipInflate(ByteView data, std::size_t maximumSize) {
    if (data.empty()) {
        return Bytes{};
    }
    const std::size_t fullLength = data.size();
    const std::size_t halfLength = std::max<std::size_t>(fullLength / 2, 1);
    Bytes decompressed(std::min(fullLength + halfLength, maximumSize + 1));

    z_stream stream{};
    stream.next_in = const_cast<Bytef*>(data.data());
    stream.avail_in = static_cast<uInt>(std::min<std::size_t>(data.size(), UINT32_MAX));
    // 15 window bits plus 32: a gzip or a zlib header is detected automatically.
    if (inflateInit2(&stream, 15 + 32) != Z_OK) {
        return std::nullopt;
    }

    bool done = false;
    while (!done) {
        if (stream.total_out >= decompressed.size()) {
            if (decompressed.size() > maximumSize) {
                inflateEnd(&stream);
                logf("gzipInflate: inflated data exceeds {} bytes, dropped", maximumSize);
                return std::nullopt;
            }
            decompressed.resize(std::min(decompressed.size() + halfLength, maximumSize + 1));
        }
        stream.next_out = decompressed.data() + stream.total_out;
        stream.avail_out = static_cast<uInt>(decompressed.size() - stream.total_out);

        int status = inflate(&stream, Z_SYNC_FLUSH);
        if (status == Z_STREAM_END) {
            done = true;
        } else if (status != Z_OK) {
            break;
        }
    }
    if (inflateEnd(&stream) != Z_OK || !done) {
        return std::nullopt;
    }
    if (stream.total_out > maximumSize) {
        logf("gzipInflate: inflated data exceeds {} bytes, dropped", maximumSize);
        return std::nullopt;
    }
    decompressed.resize(stream.total_out);
    return decompressed;
}

std::optional<Bytes> gzipDeflate(ByteView data) {
    if (data.empty()) {
        return Bytes{};
    }
    constexpr std::size_t step = 16384;

    z_stream stream{};
    stream.next_in = const_cast<Bytef*>(data.data());
    stream.avail_in = static_cast<uInt>(data.size());
    // 15 window bits plus 16: a gzip wrapper.
    if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
        return std::nullopt;
    }
    Bytes compressed(step);
    do {
        if (stream.total_out >= compressed.size()) {
            compressed.resize(compressed.size() + step);
        }
        stream.next_out = compressed.data() + stream.total_out;
        stream.avail_out = static_cast<uInt>(compressed.size() - stream.total_out);
        deflate(&stream, Z_FINISH);
    } while (stream.avail_out == 0);
    deflateEnd(&stream);
    compressed.resize(stream.total_out);
    return compressed;
}

}  // namespace havrel
