#pragma once
// What the MIDI library calls "the main thread" and "the main queue".
//
// The host sets the main queue once (`setMainQueue`) and, on its main thread, calls
// `registerMainThread()`. The first thread to register is the main thread for `isMainThread()`;
// later calls from other threads change nothing. A host whose main queue can answer the question
// better installs its own test with `setIsMainThreadHook` (an empty function restores the
// default). Tests use the same functions to stand in a queue of their own.

#include "MIDIInternals/DispatchQueue.hpp"

#include <functional>
#include <memory>

namespace MIDIInternals {

void setMainQueue(std::shared_ptr<DispatchQueue> queue);
std::shared_ptr<DispatchQueue> mainQueue();

// Records the calling thread as the main thread, if none is recorded yet.
void registerMainThread();
void setIsMainThreadHook(std::function<bool()> hook);
// The hook's answer when one is installed; else whether this is the registered thread.
bool isMainThread();

}  // namespace MIDIInternals
