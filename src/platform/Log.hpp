#pragma once
// The one log sink of the system. Every diagnostic is a single line in its exact words;
// stderr by default, a capture sink in tests. Safe to call from any thread.

#include <fmt/format.h>

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace havrel {

class LogSink {
public:
    virtual ~LogSink() = default;
    // Receives one line, without its newline.
    virtual void write(std::string_view line) = 0;
};

// Writes each line to stderr, followed by a newline, in one write.
class StderrLogSink final : public LogSink {
public:
    void write(std::string_view line) override;
};

// Keeps every line in memory; for tests.
class CaptureLogSink final : public LogSink {
public:
    void write(std::string_view line) override;
    std::vector<std::string> lines() const;
    // Number of captured lines that contain the fragment.
    std::size_t count(std::string_view fragment) const;
    bool contains(std::string_view fragment) const { return count(fragment) > 0; }
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

// Replaces the process-wide sink; nullptr restores stderr. Returns the previous sink.
std::shared_ptr<LogSink> setLogSink(std::shared_ptr<LogSink> sink);

// Logs one line. Embedded newlines are kept as they are: callers log single lines.
void log(std::string_view line);

template <typename... Args>
void logf(fmt::format_string<Args...> format, Args&&... args) {
    log(fmt::format(format, std::forward<Args>(args)...));
}

// Installs a capture sink for the lifetime of the object and restores the previous sink after.
class ScopedLogCapture {
public:
    ScopedLogCapture();
    ~ScopedLogCapture();
    ScopedLogCapture(const ScopedLogCapture&) = delete;
    ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

    CaptureLogSink& sink() { return *capture_; }
    std::vector<std::string> lines() const { return capture_->lines(); }
    std::size_t count(std::string_view fragment) const { return capture_->count(fragment); }
    bool contains(std::string_view fragment) const { return capture_->contains(fragment); }
    void clear() { capture_->clear(); }

private:
    std::shared_ptr<CaptureLogSink> capture_;
    std::shared_ptr<LogSink> previous_;
};

}  // namespace havrel
