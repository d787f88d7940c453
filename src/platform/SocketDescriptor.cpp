#include "platform/SocketDescriptor.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace havrel {

std::optional<int> streamSocketDomain(int fileDescriptor, int& errorNumber) {
    if (fileDescriptor < 0) {
        errorNumber = EBADF;
        return std::nullopt;
    }
    int domain = 0;
    int type = 0;
    socklen_t length = sizeof domain;
    if (::getsockopt(fileDescriptor, SOL_SOCKET, SO_DOMAIN, &domain, &length) != 0) {
        errorNumber = errno;
        return std::nullopt;
    }
    length = sizeof type;
    if (::getsockopt(fileDescriptor, SOL_SOCKET, SO_TYPE, &type, &length) != 0) {
        errorNumber = errno;
        return std::nullopt;
    }
    if (type != SOCK_STREAM) {
        errorNumber = EPROTOTYPE;
        return std::nullopt;
    }
    return domain;
}

void closeDescriptor(int fileDescriptor) {
    if (fileDescriptor >= 0) {
        ::close(fileDescriptor);
    }
}

}  // namespace havrel
