#pragma once
// Files received from clients: the name a client gives is made a plain file name, the gzip data
// is inflated and written on a serial queue of its own (never on the main queue), and a file
// never replaces another: it is written to a temporary file in the target folder and then
// renamed, without replacing, to the first free name of "name.ext", "name (2).ext", ... The
// files received are kept in a short list for the status page.
//
// Calls and completions on the main queue.

#include "platform/DurableWrite.hpp"
#include "platform/Types.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace havrel {

class SerialQueue;

struct HVReceivedFile {
    std::string name;        // as written, "name (2).ext" when the name was taken
    std::uint64_t size = 0;  // bytes written
    std::string client;      // the client's connection name
    std::string time;        // local wall-clock time, HH:MM:SS
    std::filesystem::path path;
};

class HVReceivedFiles : public std::enable_shared_from_this<HVReceivedFiles> {
public:
    static constexpr std::size_t kFilesKept = 50;
    // Longest file name kept from a client, in bytes, before " (n)" is added.
    static constexpr std::size_t kMaximumNameLength = 200;
    // Free names tried before giving up.
    static constexpr int kMaximumNameAttempts = 1000;
    // Compressed bytes waiting to be written; a file beyond this is refused.
    static constexpr std::size_t kMaximumBytesWaiting = 128u * 1024 * 1024;

    // The written path, or the reason nothing was written.
    using Result = NewFile;
    using Completion = std::function<void(const Result&)>;

    static std::shared_ptr<HVReceivedFiles> shared();
    static void setShared(std::shared_ptr<HVReceivedFiles> files);

    HVReceivedFiles();
    ~HVReceivedFiles();

    // Inflates the gzip data and writes it at the location, or beside it under the first free
    // name; the completion runs on the main queue.
    void write(std::shared_ptr<const Bytes> gzipData, const std::filesystem::path& location, std::string client,
               Completion completion);

    // The last kFilesKept files written, oldest first.
    std::vector<HVReceivedFile> recent() const { return {recent_.begin(), recent_.end()}; }

    // A name from a client as a plain file name: its last path component, without control
    // characters (and with invalid UTF-8 replaced), bounded in length with the extension kept;
    // "Untitled" when nothing usable is left, "." and ".." included.
    static std::string plainFileName(std::string_view name);
    // The bytes as a new file at the location or at its first free variant; never replaces a
    // file. Blocks: for the writing queue and tests.
    static Result writeWithoutReplacing(const std::filesystem::path& location, ByteView bytes);

private:
    std::shared_ptr<SerialQueue> queue_;
    std::deque<HVReceivedFile> recent_;
    std::size_t bytesWaiting_ = 0;
};

}  // namespace havrel
