#include "model/HVSequenceLock.hpp"

namespace havrel {

std::recursive_mutex& HVSequenceManagerLock() {
    static std::recursive_mutex lock;
    return lock;
}

namespace {

// A lock of its own: the factory is installed while the scheduler is being created.
std::mutex& factoryMutex() {
    static std::mutex mutex;
    return mutex;
}

HVLinearTransitionFactory& factorySlot() {
    static HVLinearTransitionFactory factory;
    return factory;
}

}  // namespace

void HVSetLinearTransitionFactory(HVLinearTransitionFactory factory) {
    std::lock_guard lock(factoryMutex());
    factorySlot() = std::move(factory);
}

HVLinearTransitionFactory HVInstalledLinearTransitionFactory() {
    std::lock_guard lock(factoryMutex());
    return factorySlot();
}

}  // namespace havrel
