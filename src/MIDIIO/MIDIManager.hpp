#pragma once
// The one object an application holds for MIDI input and output: it owns the system client, a
// serial management queue on which every object is created and removed, and five dictionaries
// of managed objects by tag. It keeps cached views of the system's devices and endpoints, turns
// the system's notifications into MIDIIONotification, and keeps connections in step with
// endpoints that come and go. Sending and receiving do not touch the management queue.

#include "MIDIIO/CoreMIDIAPIVersion.hpp"
#include "MIDIIO/MIDIIONotification.hpp"
#include "MIDIIO/MIDIIdentifierPersistence.hpp"
#include "MIDIIO/MIDIInputConnection.hpp"
#include "MIDIIO/MIDIObjectCollections.hpp"
#include "MIDIIO/MIDIOutput.hpp"
#include "MIDIIO/MIDIOutputConnection.hpp"
#include "MIDIIO/MIDIThruConnection.hpp"
#include "MIDIInternals/PThreadMutex.hpp"
#include "MIDIInternals/DispatchQueue.hpp"

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace MIDIIO {

enum class ManagedType { inputConnection, outputConnection, input, output, nonPersistentThruConnection };
inline constexpr std::array<ManagedType, 5> allManagedTypes{
    ManagedType::inputConnection, ManagedType::outputConnection, ManagedType::input, ManagedType::output,
    ManagedType::nonPersistentThruConnection};

struct TagSelection {
    std::optional<std::string> tag;  // absent: all
    static TagSelection withTag(std::string tag) { return TagSelection{std::move(tag)}; }
    static TagSelection all() { return TagSelection{}; }
};

enum class MIDIIONetworkConnectionPolicy : std::uint32_t { noOne = 0, hostsInContactList = 1, anyone = 2 };

// On the platform's default network session: with a policy, enabled and that policy; with none,
// disabled and policy 0.
void setMIDINetworkSession(MIDIPlatform& platform, std::optional<MIDIIONetworkConnectionPolicy> policy);

class MIDIManager : public std::enable_shared_from_this<MIDIManager> {
public:
    using NotificationHandler = std::function<void(const MIDIIONotification& notification)>;

    // A stopped manager on the given platform, which every object of the manager uses.
    static std::shared_ptr<MIDIManager> create(std::shared_ptr<MIDIPlatform> platform, std::string clientName,
                                               std::string model, std::string manufacturer,
                                               NotificationHandler notificationHandler = nullptr);
    virtual ~MIDIManager();

    // Creates the system client, on the main queue (synchronously from any other thread), and
    // reads the caches. A second start does nothing.
    void start();
    bool isStarted() const { return coreMIDIClientRef() != 0; }
    MIDIClientRef coreMIDIClientRef() const;

    void addInput(const std::string& name, const std::string& tag, const MIDIIdentifierPersistence& uniqueID,
                  const MIDIReceiver& receiver);
    void addOutput(const std::string& name, const std::string& tag, const MIDIIdentifierPersistence& uniqueID);
    void addInputConnection(const MIDIInputConnectionMode& to, const std::string& tag, const MIDIEndpointFilter& filter,
                            const MIDIReceiver& receiver);
    void addOutputConnection(const MIDIOutputConnectionMode& to, const std::string& tag, const MIDIEndpointFilter& filter);
    void addThruConnection(const std::vector<MIDIOutputEndpoint>& outputs, const std::vector<MIDIInputEndpoint>& inputs,
                           const std::string& tag, const MIDIThruConnection::Lifecycle& lifecycle,
                           const MIDIThruConnection::Parameters& params = {});
    void remove(ManagedType type, const TagSelection& selection);
    void removeAll();

    std::vector<MIDIThruConnectionRef> unmanagedPersistentThruConnections(const std::string& ownerID);
    // Returns how many were disposed of.
    std::size_t removeAllUnmanagedPersistentThruConnections(const std::string& ownerID);

    // The managed objects by tag.
    std::shared_ptr<MIDIInput> managedInput(const std::string& tag) const;
    std::shared_ptr<MIDIOutput> managedOutput(const std::string& tag) const;
    std::shared_ptr<MIDIInputConnection> managedInputConnection(const std::string& tag) const;
    std::shared_ptr<MIDIOutputConnection> managedOutputConnection(const std::string& tag) const;
    std::shared_ptr<MIDIThruConnection> managedThruConnection(const std::string& tag) const;
    std::map<std::string, std::shared_ptr<MIDIInput>> managedInputs() const;
    std::map<std::string, std::shared_ptr<MIDIOutput>> managedOutputs() const;
    std::map<std::string, std::shared_ptr<MIDIInputConnection>> managedInputConnections() const;
    std::map<std::string, std::shared_ptr<MIDIOutputConnection>> managedOutputConnections() const;
    std::map<std::string, std::shared_ptr<MIDIThruConnection>> managedThruConnections() const;
    // Calls `body(tag, output)` for each virtual output in tag order, without copying the
    // dictionary: the send path of an application uses it for every message. `body` must not
    // add or remove outputs.
    template <class F>
    void forEachManagedOutput(F&& body) const {
        managedOutputs_.read([&](const auto& outputs) {
            for (const auto& [tag, output] : outputs) {
                body(tag, *output);
            }
        });
    }

    // The unique IDs of this manager's virtual inputs and outputs.
    std::vector<MIDIUniqueID> ownedInputIDs() const;
    std::vector<MIDIUniqueID> ownedOutputIDs() const;

    // The cached views.
    MIDIDevices devices() const;
    MIDIEndpoints endpoints() const;
    MIDIObjectCache midiObjectCache() const;

    // A running view of the devices or endpoints: the handler gets the present state at once,
    // then each new state after a cache update, until the subscription is destroyed.
    class Subscription {
    public:
        Subscription() = default;
        Subscription(std::weak_ptr<MIDIManager> manager, std::uint64_t id) : manager_(std::move(manager)), id_(id) {}
        Subscription(Subscription&& other) noexcept { *this = std::move(other); }
        Subscription& operator=(Subscription&& other) noexcept;
        ~Subscription();
        void cancel();

    private:
        std::weak_ptr<MIDIManager> manager_;
        std::uint64_t id_ = 0;
    };
    [[nodiscard]] Subscription devicesStream(std::function<void(const MIDIDevices&)> handler);
    [[nodiscard]] Subscription endpointsStream(std::function<void(const MIDIEndpoints&)> handler);

    CoreMIDIAPIVersion preferredAPI() const { return preferredAPI_.wrappedValue(); }
    // New objects use it. Set once at construction to the new API at MIDI 2.0; hosts and tests
    // that need the legacy paths set it before adding objects.
    void setPreferredAPI(CoreMIDIAPIVersion api) { preferredAPI_.setWrappedValue(api); }
    void setNotificationHandler(NotificationHandler handler) { notificationHandler_.setWrappedValue(std::move(handler)); }

    MIDIInternals::DispatchQueue& managementQueue() const { return *managementQueue_; }
    // The one serial queue on which the queues of this manager's inputs and input connections
    // run: received data of all of them is handled there, one owner's at a time.
    const std::shared_ptr<MIDIInternals::DispatchQueue>& receiveQueue() const { return receiveQueue_; }
    const std::shared_ptr<MIDIPlatform>& platform() const { return platform_; }
    // The label of the management queue for a client name.
    static std::string managementQueueLabel(const std::string& clientName);

    const std::string clientName;
    const std::string model;
    const std::string manufacturer;

    struct Key {};
    MIDIManager(Key, std::string clientName, std::string model, std::string manufacturer,
                NotificationHandler notificationHandler, std::shared_ptr<MIDIPlatform> platform);

protected:
    // Called after each cache update with the new values, on the thread of the update (the
    // management queue, or the thread that started the manager).
    virtual void cacheDidUpdate(const MIDIDevices& devices, const MIDIEndpoints& endpoints);
    // Observers of changes that a subclass announces: the handler is called by
    // notifyChangeObservers until the subscription is destroyed.
    [[nodiscard]] Subscription addChangeObserver(std::function<void()> handler);
    // Posts one change to the main queue: `apply`, and a call of the change observers before
    // it (`observersFirst`) or after it. Dropped when the manager has gone by then.
    void postChange(std::function<void()> apply, bool observersFirst);

private:
    struct Monitor {
        std::function<void(const MIDIDevices&)> devices;
        std::function<void(const MIDIEndpoints&)> endpoints;
        std::function<void()> changed;
    };
    std::vector<Monitor> monitorsNow();
    template <class F>
    auto onManagementQueue(F&& work);
    void requireStarted() const;
    // Waits for what the management queue and the receive queue hold now.
    void drainQueues();
    void updateObjectCache();
    void handle(const MIDINotificationMessage& message);
    std::uint64_t addMonitor(Monitor monitor);
    void removeMonitor(std::uint64_t id);

    const std::shared_ptr<MIDIPlatform> platform_;
    std::shared_ptr<MIDIInternals::DispatchQueue> managementQueue_;
    std::shared_ptr<MIDIInternals::DispatchQueue> receiveQueue_;
    MIDIInternals::PThreadMutex<MIDIClientRef> coreMIDIClientRef_{0};
    std::mutex startMutex_;
    MIDIInternals::PThreadMutex<CoreMIDIAPIVersion> preferredAPI_{
        CoreMIDIAPIVersion::newCoreMIDI(MIDIProtocolVersion::midi2_0)};
    MIDIInternals::PThreadMutex<std::map<std::string, std::shared_ptr<MIDIInputConnection>>> managedInputConnections_;
    MIDIInternals::PThreadMutex<std::map<std::string, std::shared_ptr<MIDIOutputConnection>>> managedOutputConnections_;
    MIDIInternals::PThreadMutex<std::map<std::string, std::shared_ptr<MIDIInput>>> managedInputs_;
    MIDIInternals::PThreadMutex<std::map<std::string, std::shared_ptr<MIDIOutput>>> managedOutputs_;
    MIDIInternals::PThreadMutex<std::map<std::string, std::shared_ptr<MIDIThruConnection>>> managedThruConnections_;
    MIDIInternals::PThreadMutex<MIDIDevices> devices_;
    MIDIInternals::PThreadMutex<MIDIEndpoints> endpoints_;
    MIDIInternals::PThreadMutex<NotificationHandler> notificationHandler_;
    std::mutex monitorsMutex_;
    std::map<std::uint64_t, Monitor> monitors_;
    std::uint64_t nextMonitorID_ = 1;
    MIDIInternals::PThreadMutex<MIDIObjectCache> midiObjectCache_;
    // Objects a cache update found gone whose removal has not been reported yet: the system may
    // drop an object before the notifications queued ahead of its removal are handled, and each
    // of those updates the cache.
    MIDIInternals::PThreadMutex<MIDIObjectCache> departedObjects_;
};

}  // namespace MIDIIO
