#include "platform/Log.hpp"

#include <atomic>
#include <cstdio>
#include <unistd.h>

namespace havrel {

namespace {

std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<LogSink>& sinkSlot() {
    static std::shared_ptr<LogSink> sink = std::make_shared<StderrLogSink>();
    return sink;
}

std::shared_ptr<LogSink> currentSink() {
    std::lock_guard lock(sinkMutex());
    return sinkSlot();
}

}  // namespace

void StderrLogSink::write(std::string_view line) {
    std::string buffer;
    buffer.reserve(line.size() + 1);
    buffer.append(line);
    buffer.push_back('\n');
    // One write call per line so that lines of different threads never interleave.
    std::size_t written = 0;
    while (written < buffer.size()) {
        ssize_t n = ::write(STDERR_FILENO, buffer.data() + written, buffer.size() - written);
        if (n <= 0) {
            break;
        }
        written += static_cast<std::size_t>(n);
    }
}

void CaptureLogSink::write(std::string_view line) {
    std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
}

std::vector<std::string> CaptureLogSink::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

std::size_t CaptureLogSink::count(std::string_view fragment) const {
    std::lock_guard lock(mutex_);
    std::size_t n = 0;
    for (const auto& line : lines_) {
        if (line.find(fragment) != std::string::npos) {
            ++n;
        }
    }
    return n;
}

void CaptureLogSink::clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
}

std::shared_ptr<LogSink> setLogSink(std::shared_ptr<LogSink> sink) {
    if (!sink) {
        sink = std::make_shared<StderrLogSink>();
    }
    std::lock_guard lock(sinkMutex());
    std::swap(sinkSlot(), sink);
    return sink;
}

LogLevel setLogLevel(LogLevel level) {
    return static_cast<LogLevel>(detail::processLogLevel.exchange(static_cast<int>(level), std::memory_order_relaxed));
}

std::optional<LogLevel> logLevelFromName(std::string_view name) {
    if (name == "quiet") {
        return LogLevel::quiet;
    }
    if (name == "info") {
        return LogLevel::info;
    }
    if (name == "diag") {
        return LogLevel::diag;
    }
    return std::nullopt;
}

void log(std::string_view line) {
    log(LogLevel::info, line);
}

void log(LogLevel level, std::string_view line) {
    if (logEnabled(level)) {
        currentSink()->writeAtLevel(level, line);
    }
}

ScopedLogCapture::ScopedLogCapture(LogLevel level)
    : capture_(std::make_shared<CaptureLogSink>()), previous_(setLogSink(capture_)), previousLevel_(setLogLevel(level)) {}

ScopedLogCapture::~ScopedLogCapture() {
    setLogLevel(previousLevel_);
    setLogSink(previous_);
}

}  // namespace havrel
