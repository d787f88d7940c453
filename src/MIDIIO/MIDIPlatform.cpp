#include "MIDIIO/MIDIPlatform.hpp"

#include "MIDIInternals/Fatal.hpp"
#include "MIDIInternals/Slot.hpp"

#include <chrono>

namespace MIDIIO {

namespace {
MIDIInternals::Slot<MIDIPlatform>& sharedSlot() {
    static MIDIInternals::Slot<MIDIPlatform> slot;
    return slot;
}
}  // namespace

std::shared_ptr<MIDIPlatform> MIDIPlatform::shared() {
    auto platform = sharedSlot().get();
    if (!platform) {
        MIDIInternals::fatalError("MIDIPlatform::shared() read before a MIDI backend was installed");
    }
    return platform;
}

void MIDIPlatform::setShared(std::shared_ptr<MIDIPlatform> platform) { sharedSlot().set(std::move(platform)); }

void MIDIPlatform::clientSetFlushBlock(MIDIClientRef, std::function<void()>) {}

MIDITimeStamp MIDIPlatform::hostTime() const {
    return static_cast<MIDITimeStamp>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

}  // namespace MIDIIO
