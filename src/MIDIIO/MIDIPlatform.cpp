#include "MIDIIO/MIDIPlatform.hpp"

#include "platform/Assert.hpp"

#include <chrono>
#include <mutex>

namespace MIDIIO {

namespace {
std::mutex sharedMutex;
std::shared_ptr<MIDIPlatform> sharedPlatform;
}  // namespace

std::shared_ptr<MIDIPlatform> MIDIPlatform::shared() {
    std::lock_guard lock(sharedMutex);
    HV_ASSERT(sharedPlatform != nullptr);
    return sharedPlatform;
}

void MIDIPlatform::setShared(std::shared_ptr<MIDIPlatform> platform) {
    std::shared_ptr<MIDIPlatform> previous;
    std::lock_guard lock(sharedMutex);
    previous = std::exchange(sharedPlatform, std::move(platform));
}

MIDITimeStamp MIDIPlatform::hostTime() const {
    return static_cast<MIDITimeStamp>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

}  // namespace MIDIIO
