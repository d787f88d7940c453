#include "MIDIInternals/SerialQueueFactory.hpp"

#include "MIDIInternals/Slot.hpp"
#include "MIDIInternals/StandardSerialQueue.hpp"

#include <utility>

namespace MIDIInternals {
namespace {
Slot<const SerialQueueFactory>& factorySlot() {
    static Slot<const SerialQueueFactory> slot;
    return slot;
}
}  // namespace

void setSerialQueueFactory(SerialQueueFactory factory) {
    factorySlot().set(factory ? std::make_shared<const SerialQueueFactory>(std::move(factory)) : nullptr);
}

std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) {
    if (auto factory = factorySlot().get()) {
        return (*factory)(std::move(label));
    }
    return StandardSerialQueue::create(std::move(label));
}

}  // namespace MIDIInternals
