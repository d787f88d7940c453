#pragma once
// An object that owns a queue may meet its end in work running on that very queue (its last
// holder being that work). A queue with a thread cannot stop its own thread, so another thread
// lets it go once the work is done.

#include "MIDIInternals/DispatchQueue.hpp"

#include <memory>
#include <thread>

namespace MIDIInternals {

template <class Queue>
void releaseQueue(std::shared_ptr<Queue> queue) {
    if (queue && queue->isCurrent()) {
        std::thread([queue = std::move(queue)]() mutable { queue.reset(); }).detach();
    }
}

}  // namespace MIDIInternals
