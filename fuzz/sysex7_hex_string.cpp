// Parses arbitrary text as hexadecimal SysEx7. Text that parses must give the same event as
// its bytes written back as hexadecimal.
#include "MIDICore/MIDIEvent.hpp"

#include <cstddef>
#include <cstdint>
#include <string_view>

using namespace MIDICore;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        auto event = MIDIEvent::sysEx7(text);
        std::string hex;
        if (auto sysEx = event.get<MIDIEvent::SysEx7>()) {
            hex = sysEx->midi1RawHexString();
        } else if (auto universal = event.get<MIDIEvent::UniversalSysEx7>()) {
            hex = universal->midi1RawHexString(true, true, std::nullopt);
        } else {
            __builtin_trap();
        }
        if (MIDIEvent::sysEx7(std::string_view(hex)) != event) {
            __builtin_trap();
        }
    } catch (const MIDIEvent::ParseError&) {
    }
    return 0;
}
