#pragma once
// An object that owns a serial queue may meet its end in work running on that very queue (its
// last holder being that work). A queue cannot stop its own thread, so another thread lets it
// go once the work is done.

#include "platform/SerialQueue.hpp"

#include <memory>
#include <thread>

namespace MIDIIO {

inline void releaseQueue(std::shared_ptr<havrel::SerialQueue> queue) {
    if (queue && queue->isCurrent()) {
        std::thread([queue = std::move(queue)]() mutable { queue.reset(); }).detach();
    }
}

}  // namespace MIDIIO
