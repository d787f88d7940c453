#pragma once
// A reader of havrel-central's status page, as a browser holds it open: one WebSocket to
// ws://127.0.0.1:<port>/ws, every state message read and parsed as it arrives, on a thread of
// its own. Built as C++17 (the WebSocket library's headers do not compile as C++20): the
// interface holds standard types only.

#include <cstdint>
#include <memory>
#include <string>

namespace havrel::bench {

class StatusPageReader {
public:
    struct Counts {
        bool opened = false;
        std::uint64_t states = 0;
        std::uint64_t bytes = 0;
        std::uint64_t monitorEntries = 0;
        // From the last state: the page's own drop counts.
        std::uint64_t monitorDropped = 0;
        std::uint64_t logDropped = 0;
        std::string error;  // why the connection failed or closed, if it did
    };

    explicit StatusPageReader(std::uint16_t port);
    ~StatusPageReader();  // closes the page and joins the thread
    StatusPageReader(const StatusPageReader&) = delete;
    StatusPageReader& operator=(const StatusPageReader&) = delete;

    Counts counts() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace havrel::bench
