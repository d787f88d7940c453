#include "MIDIInternals/Log.hpp"

#include "MIDIInternals/Slot.hpp"

#include <cstdio>
#include <string>
#include <utility>

namespace MIDIInternals {
namespace {
Slot<const LogFunction>& logSlot() {
    static Slot<const LogFunction> slot;
    return slot;
}
}  // namespace

void setLogFunction(LogFunction function) {
    logSlot().set(function ? std::make_shared<const LogFunction>(std::move(function)) : nullptr);
}

void log(std::string_view line) {
    if (auto function = logSlot().get()) {
        (*function)(line);
        return;
    }
    std::string text(line);
    text.push_back('\n');
    std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace MIDIInternals
