#include "model/HVSequenceLock.hpp"

namespace havrel {

std::recursive_mutex& HVSequenceManagerLock() {
    static std::recursive_mutex lock;
    return lock;
}

namespace {

HVLinearTransitionFactory& factorySlot() {
    static HVLinearTransitionFactory factory;
    return factory;
}

}  // namespace

void HVSetLinearTransitionFactory(HVLinearTransitionFactory factory) {
    std::lock_guard lock(HVSequenceManagerLock());
    factorySlot() = std::move(factory);
}

HVLinearTransitionFactory HVInstalledLinearTransitionFactory() {
    std::lock_guard lock(HVSequenceManagerLock());
    return factorySlot();
}

}  // namespace havrel
