#pragma once
// Runs work on a queue and waits for it: at once when already on that queue, else posted and
// awaited. The result (or exception) of the work is handed back to the caller.

#include "MIDIInternals/DispatchQueue.hpp"

#include <future>
#include <type_traits>
#include <utility>

namespace MIDIInternals {

template <class F>
auto syncOn(DispatchQueue& queue, F&& work) -> std::invoke_result_t<F&> {
    using Result = std::invoke_result_t<F&>;
    if (queue.isCurrent()) {
        return work();
    }
    std::promise<Result> promise;
    auto future = promise.get_future();
    queue.async([&promise, &work] {
        try {
            if constexpr (std::is_void_v<Result>) {
                work();
                promise.set_value();
            } else {
                promise.set_value(work());
            }
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
    });
    return future.get();
}

}  // namespace MIDIInternals
