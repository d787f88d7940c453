#pragma once
// Tells, on a work queue, the names of entries that appear in a folder or change their
// attributes there (created, moved in, permissions changed), through the kernel's inotify
// descriptor read by the queue's Asio context: nothing polls, and an idle watcher never wakes.
//
// Made and stopped on the queue's thread. The owner calls stop() before it goes; the handler
// is not called after that.

#include <asio/posix/stream_descriptor.hpp>

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace havrel {

class WorkQueue;

class FolderWatcher : public std::enable_shared_from_this<FolderWatcher> {
public:
    using Handler = std::function<void(const std::string& name)>;
    // What is told: entries that appear or change attributes, or files whose writing is
    // complete (closed after writing, or moved in whole, as editors and atomic saves do).
    enum class Events { appearances, completedFiles };

    // nullptr, with one log line, where the folder cannot be watched.
    static std::shared_ptr<FolderWatcher> create(WorkQueue& queue, const std::filesystem::path& folder,
                                                 Handler handler, Events events = Events::appearances);
    ~FolderWatcher();
    FolderWatcher(const FolderWatcher&) = delete;
    FolderWatcher& operator=(const FolderWatcher&) = delete;

    void stop();

    // The names of the events in bytes read from an inotify descriptor; an event cut short
    // ends the list, and events without a name (the folder itself) give none.
    static std::vector<std::string> eventNames(std::span<const std::uint8_t> bytes);

private:
    FolderWatcher(Handler handler);
    void readMore();

    Handler handler_;
    std::unique_ptr<asio::posix::stream_descriptor> descriptor_;
    std::array<std::uint8_t, 4096> buffer_{};
};

}  // namespace havrel
