#pragma once
// Observer records: a weak observer and a typed callback. Entries whose observer is gone are
// dropped at the next notification.

#include <memory>

namespace havrel {

class HVObservationContainer {
public:
    virtual ~HVObservationContainer() = default;
    // Any object owned by a shared_ptr; only its lifetime matters.
    std::weak_ptr<void> observer;

    bool observerIsAlive() const { return !observer.expired(); }
    // Whether the observer is this registrar (by ownership, so an object that has gone is never
    // confused with a new one at the same address).
    bool isObserver(const std::shared_ptr<void>& registrar) const {
        return !observer.owner_before(registrar) && !registrar.owner_before(observer);
    }
};

}  // namespace havrel
