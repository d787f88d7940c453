#pragma once
// What the MIDI library calls "the main queue" and "the main thread". The host installs its main
// queue once (`setMainQueue`); until then the library uses a StandardSerialQueue of its own. The
// main thread is wherever the main queue says it is current: there is no other notion of it.

#include "MIDIInternals/DispatchQueue.hpp"

#include <memory>

namespace MIDIInternals {

// Replaces the main queue; nullptr goes back to the library's own.
void setMainQueue(std::shared_ptr<DispatchQueue> queue);
std::shared_ptr<DispatchQueue> mainQueue();
// mainQueue()->isCurrent().
bool isMainThread();

}  // namespace MIDIInternals
