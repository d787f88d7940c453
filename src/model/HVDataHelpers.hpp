#pragma once
// Helpers on byte buffers: end markers, first byte, raw doubles and gzip.

#include "platform/Types.hpp"

#include <cstddef>
#include <optional>

namespace havrel {

// The largest document gzipInflate produces; a larger one is refused with a log line.
inline constexpr std::size_t kMaximumInflatedSize = 64u * 1024u * 1024u;

// The buffer without the suffix when it ends with it; nothing otherwise (also when it is shorter
// than the suffix). A buffer equal to the suffix gives an empty buffer.
std::optional<Bytes> returnTruncatedBytesIfLastBytesAreEqualTo(ByteView data, ByteView suffix);

// A buffer of the first byte; empty for an empty buffer.
Bytes firstByte(ByteView data);

// A buffer of everything after the first byte; empty for an empty buffer.
Bytes everythingButFirstByte(ByteView data);

// The 8 bytes as a double in host order. Any other length is a programming fault.
double toDouble(ByteView data);

// True when the buffer starts with the gzip magic 0x1F 0x8B (false when shorter than 2 bytes).
bool isGzipData(ByteView data);

// The inflated bytes of a gzip or zlib stream; nothing on a stream error or when the result
// would exceed the bound. Empty input gives empty output.
std::optional<Bytes> gzipInflate(ByteView data, std::size_t maximumSize = kMaximumInflatedSize);

// The gzip-compressed bytes; nothing when the compressor cannot start. Empty input gives empty
// output.
std::optional<Bytes> gzipDeflate(ByteView data);

}  // namespace havrel
