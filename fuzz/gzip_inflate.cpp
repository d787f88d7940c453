// Inflates arbitrary bytes under a small bound; must never crash or overrun.
#include "model/HVDataHelpers.hpp"
#include "platform/Log.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto quiet = (havrel::setLogSink(std::make_shared<havrel::CaptureLogSink>()), 0);
    (void)quiet;
    havrel::ByteView input(data, size);
    auto out = havrel::gzipInflate(input, 1 << 20);
    if (out && out->size() > (1u << 20)) {
        __builtin_trap();
    }
    if (out && !out->empty()) {
        // What inflated must deflate and inflate back to itself.
        auto again = havrel::gzipDeflate(*out);
        if (!again || havrel::gzipInflate(*again, 1 << 20) != out) {
            __builtin_trap();
        }
    }
    return 0;
}
