#pragma once
// The queue interface the MIDI library runs work on. The platform layer's serial queues and
// main queue implement it; the library itself depends on nothing but the standard library.

#include <chrono>
#include <functional>
#include <string>

namespace MIDIInternals {

class DispatchQueue {
public:
    using Work = std::function<void()>;
    using Duration = std::chrono::steady_clock::duration;

    virtual ~DispatchQueue() = default;

    // Runs the work later on this queue, in the order of posting.
    virtual void async(Work work) = 0;
    // Runs the work on this queue once the delay has passed (by the queue's own clock).
    virtual void asyncAfter(Duration delay, Work work) = 0;
    // True when called from work running on this queue.
    virtual bool isCurrent() const = 0;
    virtual const std::string& label() const = 0;
};

}  // namespace MIDIInternals
