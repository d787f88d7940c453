#pragma once
// Runs work on a queue and waits for it: at once when already on that queue, else posted and
// awaited. The result (or exception) of the work is handed back to the caller.

#include "MIDIInternals/DispatchQueue.hpp"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

namespace MIDIInternals {

template <class F>
auto syncOn(DispatchQueue& queue, F&& work) -> std::invoke_result_t<F&> {
    using Result = std::invoke_result_t<F&>;
    if (queue.isCurrent()) {
        return work();
    }
    // The outcome is handed over under the mutex, and the queue keeps no reference to it after:
    // an exception thrown by the work belongs to the waiting caller alone from then on, so the
    // queue's thread never drops the last reference to an exception the caller is reading.
    std::mutex mutex;
    std::condition_variable handedOver;
    bool done = false;
    std::exception_ptr error;
    using Stored = std::conditional_t<std::is_void_v<Result>, bool, std::optional<Result>>;
    Stored result{};
    queue.async([&] {
        Stored outcome{};
        std::exception_ptr thrown;
        try {
            if constexpr (std::is_void_v<Result>) {
                work();
            } else {
                outcome.emplace(work());
            }
        } catch (...) {
            thrown = std::current_exception();
        }
        std::lock_guard lock(mutex);
        result = std::move(outcome);
        error = std::move(thrown);
        done = true;
        handedOver.notify_one();
    });
    std::unique_lock lock(mutex);
    handedOver.wait(lock, [&] { return done; });
    if (error) {
        std::rethrow_exception(std::move(error));
    }
    if constexpr (!std::is_void_v<Result>) {
        return std::move(*result);
    }
}

}  // namespace MIDIInternals
