#include "MIDIInternals/KeyValueStore.hpp"

#include "MIDIInternals/InMemoryKeyValueStore.hpp"
#include "MIDIInternals/Slot.hpp"

namespace MIDIInternals {
namespace {
Slot<KeyValueStore>& standardSlot() {
    static Slot<KeyValueStore> slot([] { return std::make_shared<InMemoryKeyValueStore>(); });
    return slot;
}
}  // namespace

std::shared_ptr<KeyValueStore> KeyValueStore::standard() { return standardSlot().get(); }

void KeyValueStore::setStandard(std::shared_ptr<KeyValueStore> store) { standardSlot().set(std::move(store)); }

}  // namespace MIDIInternals
