#pragma once
// Where the MIDI library gets its serial queues: a factory the host may install (an
// application with an event loop of its own gives queues that follow its clock); by default
// each is a StandardSerialQueue.

#include "MIDIInternals/DispatchQueue.hpp"

#include <functional>
#include <memory>
#include <string>

namespace MIDIInternals {

using SerialQueueFactory = std::function<std::shared_ptr<DispatchQueue>(std::string label)>;

// Replaces the factory; an empty one restores the default.
void setSerialQueueFactory(SerialQueueFactory factory);
// A new serial queue from the installed factory.
std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label);

}  // namespace MIDIInternals
