#include "MIDIIO/MIDIManager.hpp"

#include "MIDIInternals/UUID.hpp"
#include "MIDIInternals/DispatchSync.hpp"
#include "MIDIInternals/MainThread.hpp"
#include "MIDIInternals/QueueRelease.hpp"
#include "MIDIInternals/SerialQueueFactory.hpp"
#include "MIDIInternals/TextHelpers.hpp"

namespace MIDIIO {

void setMIDINetworkSession(MIDIPlatform& platform, std::optional<MIDIIONetworkConnectionPolicy> policy) {
    if (policy) {
        platform.setNetworkSessionEnabled(true);
        platform.setNetworkSessionConnectionPolicy(static_cast<std::uint32_t>(*policy));
    } else {
        platform.setNetworkSessionEnabled(false);
        platform.setNetworkSessionConnectionPolicy(0);
    }
}

std::string MIDIManager::managementQueueLabel(const std::string& clientName) {
    auto base = MIDIInternals::onlyAlphanumerics(clientName);
    if (base.empty()) {
        base = MIDIInternals::randomUUIDString();
    }
    return base + "-management";
}

std::shared_ptr<MIDIManager> MIDIManager::create(std::shared_ptr<MIDIPlatform> platform, std::string clientName,
                                                 std::string model, std::string manufacturer,
                                                 NotificationHandler notificationHandler) {
    return std::make_shared<MIDIManager>(Key{}, std::move(clientName), std::move(model), std::move(manufacturer),
                                         std::move(notificationHandler), std::move(platform));
}

MIDIManager::MIDIManager(Key, std::string clientName, std::string model, std::string manufacturer,
                         NotificationHandler notificationHandler, std::shared_ptr<MIDIPlatform> platform)
    : clientName(std::move(clientName)),
      model(std::move(model)),
      manufacturer(std::move(manufacturer)),
      platform_(std::move(platform)),
      managementQueue_(MIDIInternals::makeSerialQueue(managementQueueLabel(this->clientName))),
      receiveQueue_(MIDIInternals::makeSerialQueue(managementQueue_->label() + "-receive")),
      notificationHandler_(std::move(notificationHandler)) {}

MIDIManager::~MIDIManager() {
    MIDIInternals::releaseQueue(std::move(managementQueue_));
    MIDIInternals::releaseQueue(std::move(receiveQueue_));
}

template <class F>
auto MIDIManager::onManagementQueue(F&& work) {
    return MIDIInternals::syncOn(*managementQueue_, std::forward<F>(work));
}

MIDIClientRef MIDIManager::coreMIDIClientRef() const { return coreMIDIClientRef_.wrappedValue(); }

void MIDIManager::requireStarted() const {
    if (coreMIDIClientRef() == 0) {
        throw MIDIIOError::managerNotStarted();
    }
}

void MIDIManager::start() {
    auto steps = [this] {
        std::lock_guard lock(startMutex_);
        if (coreMIDIClientRef() != 0) {
            return;
        }
        std::weak_ptr<MIDIManager> weakSelf = weak_from_this();
        auto createClient = [this, weakSelf] {
            MIDIClientRef ref = 0;
            OSStatus status = platform_->clientCreateWithBlock(
                clientName,
                [weakSelf](const MIDINotificationMessage& message) {
                    if (auto self = weakSelf.lock()) {
                        self->handle(message);
                    }
                },
                &ref);
            MIDIIOError::check(status);
            platform_->clientSetFlushBlock(ref, [weakSelf] {
                if (auto self = weakSelf.lock()) {
                    self->drainQueues();
                }
            });
            coreMIDIClientRef_.setWrappedValue(ref);
        };
        // The client is made on the main thread.
        MIDIInternals::syncOn(*MIDIInternals::mainQueue(), createClient);
        updateObjectCache();
    };
    // Called on the main thread, the steps run in place (the main thread waiting on the
    // management queue while that waits on the main queue would never end).
    if (MIDIInternals::isMainThread()) {
        steps();
    } else {
        onManagementQueue(steps);
    }
}

void MIDIManager::drainQueues() {
    MIDIInternals::syncOn(*managementQueue_, [] {});
    MIDIInternals::syncOn(*receiveQueue_, [] {});
}

// --- Caches and notifications. ---

void MIDIManager::updateObjectCache() {
    auto devices = MIDIDevices::fromSystem(platform_);
    auto endpoints = MIDIEndpoints::fromSystem(platform_);
    endpoints.updateCachedProperties(ownedInputIDs(), ownedOutputIDs());
    devices_.setWrappedValue(devices);
    endpoints_.setWrappedValue(endpoints);
    MIDIObjectCache cache(devices, endpoints);
    auto before = midiObjectCache_.wrappedValue();
    midiObjectCache_.setWrappedValue(cache);
    // Bounded, for systems that drop objects without reporting it.
    constexpr std::size_t kDepartedLimit = 256;
    departedObjects_.modify([&](MIDIObjectCache& departed) { departed.keepDeparted(before, cache, kDepartedLimit); });
    for (const auto& monitor : monitorsNow()) {
        if (monitor.devices) {
            monitor.devices(devices);
        }
        if (monitor.endpoints) {
            monitor.endpoints(endpoints);
        }
    }
    cacheDidUpdate(devices, endpoints);
}

void MIDIManager::cacheDidUpdate(const MIDIDevices&, const MIDIEndpoints&) {}

void MIDIManager::handle(const MIDINotificationMessage& message) {
    MIDIIOInternalNotification internal(message);
    std::weak_ptr<MIDIManager> weakSelf = weak_from_this();
    managementQueue_->async([weakSelf, internal] {
        auto self = weakSelf.lock();
        if (!self) {
            return;
        }
        using I = MIDIIOInternalNotification;
        // Removed objects are described as they were before the update, or, when an earlier
        // update already found them gone, as they were then.
        auto oldCache = self->midiObjectCache();
        if (internal.updatesCache()) {
            self->updateObjectCache();
        }
        const auto* removed = internal.get<I::Removed>();
        if (removed) {
            auto departed = self->departedObjects_.wrappedValue();
            oldCache.devices.insert(oldCache.devices.end(), departed.devices.begin(), departed.devices.end());
            oldCache.inputEndpoints.insert(oldCache.inputEndpoints.end(), departed.inputEndpoints.begin(),
                                           departed.inputEndpoints.end());
            oldCache.outputEndpoints.insert(oldCache.outputEndpoints.end(), departed.outputEndpoints.begin(),
                                            departed.outputEndpoints.end());
            self->departedObjects_.modify([&](MIDIObjectCache& objects) { objects.forget(removed->childRef); });
        }
        auto notification = MIDIIONotification::from(internal, oldCache, self->platform_);

        bool setupMoved = internal.get<I::Added>() || internal.get<I::Removed>() || internal.get<I::SetupChanged>();
        if (setupMoved) {
            for (const auto& [tag, connection] : self->managedOutputConnections()) {
                connection->refreshConnections();
            }
            for (const auto& [tag, connection] : self->managedInputConnections()) {
                try {
                    connection->refreshConnections();
                } catch (const MIDIIOError&) {
                    // A source gone between the update and the connect: the next change retries.
                }
            }
            for (const auto& [tag, thru] : self->managedThruConnections()) {
                thru->notifySetupChanged();
            }
        }
        auto handler = self->notificationHandler_.wrappedValue();
        if (handler && notification) {
            MIDIInternals::mainQueue()->async([handler, notification = *notification] { handler(notification); });
        }
    });
}

MIDIDevices MIDIManager::devices() const { return devices_.wrappedValue(); }
MIDIEndpoints MIDIManager::endpoints() const { return endpoints_.wrappedValue(); }
MIDIObjectCache MIDIManager::midiObjectCache() const { return midiObjectCache_.wrappedValue(); }

std::vector<MIDIUniqueID> MIDIManager::ownedInputIDs() const {
    std::vector<MIDIUniqueID> ids;
    for (const auto& [tag, input] : managedInputs()) {
        if (auto id = input->uniqueID()) {
            ids.push_back(*id);
        }
    }
    return ids;
}

std::vector<MIDIUniqueID> MIDIManager::ownedOutputIDs() const {
    std::vector<MIDIUniqueID> ids;
    for (const auto& [tag, output] : managedOutputs()) {
        if (auto id = output->uniqueID()) {
            ids.push_back(*id);
        }
    }
    return ids;
}

// --- Adding. ---

namespace {
// Stores the value under the tag; the former value is released after the lock.
template <class Holder, class T>
void store(Holder& holder, const std::string& tag, std::shared_ptr<T> value) {
    std::shared_ptr<T> former;
    holder.modify([&](auto& map) {
        former = std::exchange(map[tag], std::move(value));
    });
}

template <class Holder>
auto lookUp(const Holder& holder, const std::string& tag) {
    auto map = holder.wrappedValue();
    auto it = map.find(tag);
    return it == map.end() ? nullptr : it->second;
}
}  // namespace

void MIDIManager::addInput(const std::string& name, const std::string& tag, const MIDIIdentifierPersistence& uniqueID,
                           const MIDIReceiver& receiver) {
    onManagementQueue([&] {
        requireStarted();
        auto input = std::make_shared<MIDIInput>(weak_from_this(), platform_, name, uniqueID.readID(), preferredAPI(),
                                                 receiver);
        store(managedInputs_, tag, input);
        input->create(*this);
        auto assigned = input->uniqueID();
        if (!assigned) {
            throw MIDIIOError::connectionError("Could not read virtual MIDI endpoint unique ID.");
        }
        uniqueID.writeID(assigned);
    });
}

void MIDIManager::addOutput(const std::string& name, const std::string& tag, const MIDIIdentifierPersistence& uniqueID) {
    onManagementQueue([&] {
        requireStarted();
        auto output = std::make_shared<MIDIOutput>(weak_from_this(), platform_, name, uniqueID.readID(), preferredAPI());
        store(managedOutputs_, tag, output);
        output->create(*this);
        auto assigned = output->uniqueID();
        if (!assigned) {
            throw MIDIIOError::connectionError("Could not read virtual MIDI endpoint unique ID.");
        }
        uniqueID.writeID(assigned);
    });
}

void MIDIManager::addInputConnection(const MIDIInputConnectionMode& to, const std::string& tag,
                                     const MIDIEndpointFilter& filter, const MIDIReceiver& receiver) {
    onManagementQueue([&] {
        requireStarted();
        auto connection =
            std::make_shared<MIDIInputConnection>(weak_from_this(), platform_, to, filter, preferredAPI(), receiver);
        store(managedInputConnections_, tag, connection);
        connection->listen(*this);
    });
}

void MIDIManager::addOutputConnection(const MIDIOutputConnectionMode& to, const std::string& tag,
                                      const MIDIEndpointFilter& filter) {
    onManagementQueue([&] {
        requireStarted();
        auto connection = std::make_shared<MIDIOutputConnection>(weak_from_this(), platform_, to, filter, preferredAPI());
        store(managedOutputConnections_, tag, connection);
        connection->setupOutput(*this);
    });
}

void MIDIManager::addThruConnection(const std::vector<MIDIOutputEndpoint>& outputs,
                                    const std::vector<MIDIInputEndpoint>& inputs, const std::string& tag,
                                    const MIDIThruConnection::Lifecycle& lifecycle,
                                    const MIDIThruConnection::Parameters& params) {
    onManagementQueue([&] {
        requireStarted();
        auto thru = std::make_shared<MIDIThruConnection>(weak_from_this(), platform_, outputs, inputs, lifecycle, params,
                                                         preferredAPI());
        if (lifecycle.isPersistent()) {
            // Owned by the system once made: the object is not kept.
            thru->create(*this);
            return;
        }
        store(managedThruConnections_, tag, thru);
        thru->create(*this);
    });
}

// --- Removing. ---

namespace {
template <class Holder>
void removeFrom(Holder& holder, const TagSelection& selection) {
    auto map = holder.wrappedValue();
    for (const auto& [tag, object] : map) {
        if (!selection.tag || *selection.tag == tag) {
            object->dispose();
        }
    }
    holder.modify([&](auto& entries) {
        if (selection.tag) {
            entries.erase(*selection.tag);
        } else {
            entries.clear();
        }
    });
}
}  // namespace

void MIDIManager::remove(ManagedType type, const TagSelection& selection) {
    onManagementQueue([&] {
        switch (type) {
            case ManagedType::inputConnection: removeFrom(managedInputConnections_, selection); break;
            case ManagedType::outputConnection: removeFrom(managedOutputConnections_, selection); break;
            case ManagedType::input: removeFrom(managedInputs_, selection); break;
            case ManagedType::output: removeFrom(managedOutputs_, selection); break;
            case ManagedType::nonPersistentThruConnection: removeFrom(managedThruConnections_, selection); break;
        }
    });
}

void MIDIManager::removeAll() {
    for (auto type : allManagedTypes) {
        remove(type, TagSelection::all());
    }
}

std::vector<MIDIThruConnectionRef> MIDIManager::unmanagedPersistentThruConnections(const std::string& ownerID) {
    std::vector<MIDIThruConnectionRef> refs;
    MIDIIOError::check(platform_->thruConnectionFind(ownerID, &refs));
    return refs;
}

std::size_t MIDIManager::removeAllUnmanagedPersistentThruConnections(const std::string& ownerID) {
    std::vector<MIDIThruConnectionRef> refs;
    if (platform_->thruConnectionFind(ownerID, &refs) != noErr) {
        return 0;
    }
    std::size_t removed = 0;
    for (auto ref : refs) {
        if (platform_->thruConnectionDispose(ref) == noErr) {
            ++removed;
        }
    }
    return removed;
}

// --- Accessors. ---

std::shared_ptr<MIDIInput> MIDIManager::managedInput(const std::string& tag) const { return lookUp(managedInputs_, tag); }
std::shared_ptr<MIDIOutput> MIDIManager::managedOutput(const std::string& tag) const { return lookUp(managedOutputs_, tag); }
std::shared_ptr<MIDIInputConnection> MIDIManager::managedInputConnection(const std::string& tag) const {
    return lookUp(managedInputConnections_, tag);
}
std::shared_ptr<MIDIOutputConnection> MIDIManager::managedOutputConnection(const std::string& tag) const {
    return lookUp(managedOutputConnections_, tag);
}
std::shared_ptr<MIDIThruConnection> MIDIManager::managedThruConnection(const std::string& tag) const {
    return lookUp(managedThruConnections_, tag);
}
std::map<std::string, std::shared_ptr<MIDIInput>> MIDIManager::managedInputs() const {
    return managedInputs_.wrappedValue();
}
std::map<std::string, std::shared_ptr<MIDIOutput>> MIDIManager::managedOutputs() const {
    return managedOutputs_.wrappedValue();
}
std::map<std::string, std::shared_ptr<MIDIInputConnection>> MIDIManager::managedInputConnections() const {
    return managedInputConnections_.wrappedValue();
}
std::map<std::string, std::shared_ptr<MIDIOutputConnection>> MIDIManager::managedOutputConnections() const {
    return managedOutputConnections_.wrappedValue();
}
std::map<std::string, std::shared_ptr<MIDIThruConnection>> MIDIManager::managedThruConnections() const {
    return managedThruConnections_.wrappedValue();
}

// --- Streams. ---

std::uint64_t MIDIManager::addMonitor(Monitor monitor) {
    std::lock_guard lock(monitorsMutex_);
    auto id = nextMonitorID_++;
    monitors_[id] = std::move(monitor);
    return id;
}

void MIDIManager::removeMonitor(std::uint64_t id) {
    std::lock_guard lock(monitorsMutex_);
    monitors_.erase(id);
}

// A copy, so that handlers run without the lock and may subscribe or cancel.
std::vector<MIDIManager::Monitor> MIDIManager::monitorsNow() {
    std::vector<Monitor> monitors;
    std::lock_guard lock(monitorsMutex_);
    for (const auto& [id, monitor] : monitors_) {
        monitors.push_back(monitor);
    }
    return monitors;
}

MIDIManager::Subscription MIDIManager::addChangeObserver(std::function<void()> handler) {
    return Subscription(weak_from_this(), addMonitor(Monitor{nullptr, nullptr, std::move(handler)}));
}

void MIDIManager::postChange(std::function<void()> apply, bool observersFirst) {
    std::weak_ptr<MIDIManager> weakSelf = weak_from_this();
    MIDIInternals::mainQueue()->async([weakSelf, apply = std::move(apply), observersFirst] {
        auto self = weakSelf.lock();
        if (!self) {
            return;
        }
        if (!observersFirst) {
            apply();
        }
        for (const auto& monitor : self->monitorsNow()) {
            if (monitor.changed) {
                monitor.changed();
            }
        }
        if (observersFirst) {
            apply();
        }
    });
}

MIDIManager::Subscription MIDIManager::devicesStream(std::function<void(const MIDIDevices&)> handler) {
    handler(devices());
    return Subscription(weak_from_this(), addMonitor(Monitor{std::move(handler), nullptr, nullptr}));
}

MIDIManager::Subscription MIDIManager::endpointsStream(std::function<void(const MIDIEndpoints&)> handler) {
    handler(endpoints());
    return Subscription(weak_from_this(), addMonitor(Monitor{nullptr, std::move(handler), nullptr}));
}

MIDIManager::Subscription& MIDIManager::Subscription::operator=(Subscription&& other) noexcept {
    if (this != &other) {
        cancel();
        manager_ = std::move(other.manager_);
        id_ = std::exchange(other.id_, 0);
    }
    return *this;
}

MIDIManager::Subscription::~Subscription() { cancel(); }

void MIDIManager::Subscription::cancel() {
    if (auto manager = manager_.lock(); manager && id_ != 0) {
        manager->removeMonitor(id_);
    }
    id_ = 0;
}

}  // namespace MIDIIO
