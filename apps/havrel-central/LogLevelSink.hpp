#pragma once
// The host's log filter: "quiet" drops every line, "info" keeps the connection and error lines
// (everything but the per-message diagnostics and the periodic chatter), "diag" keeps all.

#include "platform/Log.hpp"

#include <memory>
#include <string_view>

namespace havrel {

enum class LogLevel { quiet, info, diag };

class LogLevelSink final : public LogSink {
public:
    LogLevelSink(LogLevel level, std::shared_ptr<LogSink> next);
    void write(std::string_view line) override;

    // Whether a line is one of the per-message diagnostics or the periodic chatter.
    static bool isDiagnostic(std::string_view line);

private:
    const LogLevel level_;
    const std::shared_ptr<LogSink> next_;
};

}  // namespace havrel
