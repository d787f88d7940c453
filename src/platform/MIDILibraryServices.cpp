#include "platform/MIDILibraryServices.hpp"

#include "MIDIInternals/KeyValueStore.hpp"
#include "MIDIInternals/Log.hpp"
#include "MIDIInternals/MainThread.hpp"
#include "MIDIInternals/SerialQueueFactory.hpp"
#include "platform/DefaultsKeyValueStore.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/SerialQueue.hpp"

namespace havrel {

void installMIDILibraryServices() {
    MIDIInternals::setMainQueue(MainQueue::shared().shared_from_this());
    MIDIInternals::setSerialQueueFactory([](std::string label) { return SerialQueue::create(std::move(label)); });
    MIDIInternals::setLogFunction([](std::string_view line) { log(line); });
    MIDIInternals::KeyValueStore::setStandard(std::make_shared<DefaultsKeyValueStore>());
}

}  // namespace havrel
