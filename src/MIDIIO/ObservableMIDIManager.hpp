#pragma once
// Managers for views that observe the system's devices and endpoints. Each keeps the devices
// and endpoints last published, `observableDevices` and `observableEndpoints`, and republishes
// them after every cache update; in all else each is a MIDIManager. The two differ only in when
// their observers hear of a change, after the manner of two kinds of view observation:
// ObservableMIDIManager calls them once the new values are in place, ObservableObjectMIDIManager
// just before they are replaced ("will change"), for observers that schedule a later read.
//
// Publishing and the observers' calls happen on the main queue, as views expect, one posted job
// per cache update. An observer runs until its subscription is destroyed.

#include "MIDIIO/MIDIManager.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace MIDIIO {

// The part the two share: `Derived` is the manager made by `create`, `ObserversFirst` whether
// observers are called before the values are replaced.
template <class Derived, bool ObserversFirst>
class PublishingMIDIManager : public MIDIManager {
public:
    static std::shared_ptr<Derived> create(std::shared_ptr<MIDIPlatform> platform, std::string clientName,
                                           std::string model, std::string manufacturer,
                                           NotificationHandler notificationHandler = nullptr) {
        return std::make_shared<Derived>(Key{}, std::move(clientName), std::move(model), std::move(manufacturer),
                                         std::move(notificationHandler), std::move(platform));
    }
    using MIDIManager::MIDIManager;

    MIDIDevices observableDevices() const {
        std::lock_guard lock(publishedMutex_);
        return observableDevices_;
    }
    MIDIEndpoints observableEndpoints() const {
        std::lock_guard lock(publishedMutex_);
        return observableEndpoints_;
    }

protected:
    void cacheDidUpdate(const MIDIDevices& devices, const MIDIEndpoints& endpoints) override {
        postChange(
            [this, devices, endpoints] {
                std::lock_guard lock(publishedMutex_);
                observableDevices_ = devices;
                observableEndpoints_ = endpoints;
            },
            ObserversFirst);
    }

private:
    mutable std::mutex publishedMutex_;
    MIDIDevices observableDevices_;
    MIDIEndpoints observableEndpoints_;
};

class ObservableMIDIManager : public PublishingMIDIManager<ObservableMIDIManager, false> {
public:
    using PublishingMIDIManager::PublishingMIDIManager;
    // Called on the main queue after each republish.
    [[nodiscard]] Subscription observe(std::function<void()> didChange) {
        return addChangeObserver(std::move(didChange));
    }
};

class ObservableObjectMIDIManager : public PublishingMIDIManager<ObservableObjectMIDIManager, true> {
public:
    using PublishingMIDIManager::PublishingMIDIManager;
    // Called on the main queue just before each republish.
    [[nodiscard]] Subscription objectWillChange(std::function<void()> willChange) {
        return addChangeObserver(std::move(willChange));
    }
};

}  // namespace MIDIIO
