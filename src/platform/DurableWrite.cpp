#include "platform/DurableWrite.hpp"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace havrel {

std::optional<std::string> writeDurablyAndClose(int fd, std::span<const std::uint8_t> bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            const std::string error = n < 0 ? std::strerror(errno) : "short write";
            ::close(fd);
            return error;
        }
        written += static_cast<std::size_t>(n);
    }
    if (::fsync(fd) != 0) {
        const std::string error = std::strerror(errno);
        ::close(fd);
        return error;
    }
    if (::close(fd) != 0) {
        return std::strerror(errno);
    }
    return std::nullopt;
}

}  // namespace havrel
