#include "MIDIInternals/MainThread.hpp"

#include "MIDIInternals/Slot.hpp"
#include "MIDIInternals/StandardSerialQueue.hpp"

namespace MIDIInternals {
namespace {
Slot<DispatchQueue>& mainSlot() {
    static Slot<DispatchQueue> slot([] { return StandardSerialQueue::create("MIDIInternals-main"); });
    return slot;
}
}  // namespace

void setMainQueue(std::shared_ptr<DispatchQueue> queue) { mainSlot().set(std::move(queue)); }

std::shared_ptr<DispatchQueue> mainQueue() { return mainSlot().get(); }

bool isMainThread() { return mainQueue()->isCurrent(); }

}  // namespace MIDIInternals
