#include "model/HVSequenceLock.hpp"

#include "platform/SharedSlot.hpp"

namespace havrel {

std::recursive_mutex& HVSequenceManagerLock() {
    static std::recursive_mutex lock;
    return lock;
}

namespace {

struct RegisteredDefault {
    std::mutex mutex;
    HVLinearTransitionFactory factory;
};

RegisteredDefault& registeredDefault() {
    static RegisteredDefault registered;
    return registered;
}

SharedSlot<HVLinearTransitionFactory>& factorySlot() {
    static SharedSlot<HVLinearTransitionFactory> slot([]() -> std::shared_ptr<HVLinearTransitionFactory> {
        auto& registered = registeredDefault();
        std::lock_guard lock(registered.mutex);
        if (!registered.factory) {
            return nullptr;
        }
        return std::make_shared<HVLinearTransitionFactory>(registered.factory);
    });
    return slot;
}

}  // namespace

void HVRegisterDefaultLinearTransitionFactory(HVLinearTransitionFactory factory) {
    auto& registered = registeredDefault();
    std::lock_guard lock(registered.mutex);
    registered.factory = std::move(factory);
}

void HVSetLinearTransitionFactory(HVLinearTransitionFactory factory) {
    factorySlot().set(factory ? std::make_shared<HVLinearTransitionFactory>(std::move(factory)) : nullptr);
}

HVLinearTransitionFactory HVInstalledLinearTransitionFactory() {
    auto factory = factorySlot().get();
    return factory ? *factory : HVLinearTransitionFactory();
}

}  // namespace havrel
