#include "LogLevelSink.hpp"

#include <array>

namespace havrel {

LogLevelSink::LogLevelSink(LogLevel level, std::shared_ptr<LogSink> next) : level_(level), next_(std::move(next)) {}

bool LogLevelSink::isDiagnostic(std::string_view line) {
    static constexpr std::array<std::string_view, 8> prefixes = {
        "[HVCentralDiag]", "[HVCentralTxDiag]", "[HVMIDIDiag]", "usb scanForClients",
        "Setting up new input connection", "connect to ", "attachedDevicesIDsThatAreNotConnected", "[ClockTest]"};
    for (auto prefix : prefixes) {
        if (line.starts_with(prefix)) {
            return true;
        }
    }
    return false;
}

void LogLevelSink::write(std::string_view line) {
    if (level_ == LogLevel::quiet || (level_ == LogLevel::info && isDiagnostic(line))) {
        return;
    }
    next_->write(line);
}

}  // namespace havrel
