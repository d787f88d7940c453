#include "MIDIInternals/MainThread.hpp"

#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace MIDIInternals {
namespace {

struct MainThreadState {
    std::mutex mutex;
    std::shared_ptr<DispatchQueue> queue;
    std::optional<std::thread::id> thread;
    std::function<bool()> hook;
};

MainThreadState& state() {
    static MainThreadState instance;
    return instance;
}

}  // namespace

void setMainQueue(std::shared_ptr<DispatchQueue> queue) {
    std::lock_guard lock(state().mutex);
    state().queue = std::move(queue);
}

std::shared_ptr<DispatchQueue> mainQueue() {
    std::lock_guard lock(state().mutex);
    return state().queue;
}

void registerMainThread() {
    std::lock_guard lock(state().mutex);
    if (!state().thread) {
        state().thread = std::this_thread::get_id();
    }
}

void setIsMainThreadHook(std::function<bool()> hook) {
    std::lock_guard lock(state().mutex);
    state().hook = std::move(hook);
}

bool isMainThread() {
    std::function<bool()> hook;
    {
        std::lock_guard lock(state().mutex);
        if (!state().hook) {
            return state().thread == std::this_thread::get_id();
        }
        hook = state().hook;
    }
    return hook();
}

}  // namespace MIDIInternals
