#pragma once
// The one log sink of the system. Every diagnostic is a single line in its exact words;
// stderr by default, a capture sink in tests. Safe to call from any thread.
//
// Each line has a level. A live user sees the info lines (connections, errors); a developer
// turns on diag for the per-message diagnostics as well. A line above the process-wide level
// is neither formatted nor written, so a diagnostic costs one relaxed load when it is off.

#include <fmt/format.h>

#include <atomic>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace havrel {

// quiet: nothing; info: connection and error lines; diag: every line.
enum class LogLevel : int { quiet = 0, info = 1, diag = 2 };

namespace detail {
inline std::atomic<int> processLogLevel{static_cast<int>(LogLevel::info)};
}  // namespace detail

// The process-wide level (default info). Returns the previous level.
LogLevel setLogLevel(LogLevel level);
inline LogLevel logLevel() {
    return static_cast<LogLevel>(detail::processLogLevel.load(std::memory_order_relaxed));
}
// Whether lines of the level are written.
inline bool logEnabled(LogLevel level) {
    return level != LogLevel::quiet &&
           static_cast<int>(level) <= detail::processLogLevel.load(std::memory_order_relaxed);
}
// "quiet", "info" or "diag"; nullopt for anything else.
std::optional<LogLevel> logLevelFromName(std::string_view name);

class LogSink {
public:
    virtual ~LogSink() = default;
    // Receives one line, without its newline.
    virtual void write(std::string_view line) = 0;
    // The same with the line's level, for sinks that keep some levels apart.
    virtual void writeAtLevel(LogLevel level, std::string_view line) {
        (void)level;
        write(line);
    }
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

// Logs one line at info. Embedded newlines are kept as they are: callers log single lines.
void log(std::string_view line);
// Logs one line when the level is enabled.
void log(LogLevel level, std::string_view line);

template <typename... Args>
void logf(fmt::format_string<Args...> format, Args&&... args) {
    if (logEnabled(LogLevel::info)) {
        log(fmt::format(format, std::forward<Args>(args)...));
    }
}

// Formats only when the level is enabled. Arguments are still evaluated: where building one
// costs (a description), test logEnabled first.
template <typename... Args>
void logf(LogLevel level, fmt::format_string<Args...> format, Args&&... args) {
    if (logEnabled(level)) {
        log(fmt::format(format, std::forward<Args>(args)...));
    }
}

// Per-message diagnostics.
inline void logDiag(std::string_view line) {
    log(LogLevel::diag, line);
}
template <typename... Args>
void logDiagf(fmt::format_string<Args...> format, Args&&... args) {
    logf(LogLevel::diag, format, std::forward<Args>(args)...);
}

// Installs a capture sink for the lifetime of the object and restores the previous sink after;
// the level is the given one (diag: every line) until then.
class ScopedLogCapture {
public:
    explicit ScopedLogCapture(LogLevel level = LogLevel::diag);
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
    LogLevel previousLevel_;
};

}  // namespace havrel
