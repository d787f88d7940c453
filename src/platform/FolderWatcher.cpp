#include "platform/FolderWatcher.hpp"

#include "platform/Log.hpp"
#include "platform/WorkQueue.hpp"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace havrel {

namespace {

// The fixed part of an inotify event: descriptor, mask, cookie, name length.
constexpr std::size_t kEventHeaderSize = 16;

}  // namespace

std::shared_ptr<FolderWatcher> FolderWatcher::create(WorkQueue& queue, const std::filesystem::path& folder,
                                                     Handler handler, Events events) {
    const int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) {
        logf("FolderWatcher cannot watch {}: {}", folder.string(), std::strerror(errno));
        return nullptr;
    }
    const std::uint32_t mask =
        events == Events::appearances ? IN_CREATE | IN_MOVED_TO | IN_ATTRIB : IN_CLOSE_WRITE | IN_MOVED_TO;
    if (::inotify_add_watch(fd, folder.c_str(), mask) < 0) {
        logf("FolderWatcher cannot watch {}: {}", folder.string(), std::strerror(errno));
        ::close(fd);
        return nullptr;
    }
    auto watcher = std::shared_ptr<FolderWatcher>(new FolderWatcher(std::move(handler)));
    watcher->descriptor_ = std::make_unique<asio::posix::stream_descriptor>(queue.context(), fd);
    watcher->readMore();
    return watcher;
}

FolderWatcher::FolderWatcher(Handler handler) : handler_(std::move(handler)) {}

FolderWatcher::~FolderWatcher() = default;

void FolderWatcher::stop() {
    handler_ = nullptr;
    if (descriptor_) {
        std::error_code ignored;
        descriptor_->close(ignored);
    }
}

void FolderWatcher::readMore() {
    descriptor_->async_read_some(asio::buffer(buffer_), [self = shared_from_this()](std::error_code error, std::size_t count) {
        if (error || !self->handler_) {
            return;
        }
        for (const auto& name : eventNames(std::span(self->buffer_).first(count))) {
            if (!self->handler_) {
                return;
            }
            self->handler_(name);
        }
        if (self->handler_) {
            self->readMore();
        }
    });
}

std::vector<std::string> FolderWatcher::eventNames(std::span<const std::uint8_t> bytes) {
    std::vector<std::string> names;
    while (bytes.size() >= kEventHeaderSize) {
        std::uint32_t length = 0;
        std::memcpy(&length, bytes.data() + 12, sizeof length);
        if (length > bytes.size() - kEventHeaderSize) {
            break;
        }
        const auto name = bytes.subspan(kEventHeaderSize, length);
        // The name is padded with zero bytes to its length.
        std::size_t end = 0;
        while (end < name.size() && name[end] != 0) {
            ++end;
        }
        if (end > 0) {
            names.emplace_back(reinterpret_cast<const char*>(name.data()), end);
        }
        bytes = bytes.subspan(kEventHeaderSize + length);
    }
    return names;
}

}  // namespace havrel
