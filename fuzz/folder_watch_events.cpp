// Reads arbitrary bytes as what an inotify descriptor gives the folder watcher: every name
// comes from within the bytes, none is empty or holds a zero byte, and nothing is read past
// the end.
#include "FuzzCheck.hpp"
#include "platform/FolderWatcher.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto names = havrel::FolderWatcher::eventNames(std::span(data, size));
    std::size_t used = 0;
    for (const auto& name : names) {
        FUZZ_CHECK(!name.empty() && name.find('\0') == std::string::npos);
        used += 16 + name.size();
    }
    FUZZ_CHECK(used <= size);
    return 0;
}
