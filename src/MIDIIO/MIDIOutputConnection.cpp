#include "MIDIIO/MIDIOutputConnection.hpp"

#include "MIDIIO/MIDIManager.hpp"

#include <mutex>

namespace MIDIIO {

MIDIOutputConnection::MIDIOutputConnection(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform,
                                           MIDIOutputConnectionMode mode, MIDIEndpointFilter filter,
                                           CoreMIDIAPIVersion api)
    : MIDIManagedSendsMessages(std::move(manager), api, std::move(platform)),
      mode_(std::move(mode)),
      filter_(std::move(filter)),
      inputsCriteria_(mode_.matching) {}

MIDIOutputConnection::~MIDIOutputConnection() { dispose(); }

void MIDIOutputConnection::dispose() {
    std::unique_lock lock(mutex_);
    if (coreMIDIOutputPortRef_) {
        platform_->portDispose(*coreMIDIOutputPortRef_);
        coreMIDIOutputPortRef_.reset();
        coreMIDIInputEndpointRefs_.clear();
    }
}

std::vector<MIDIUniqueID> MIDIOutputConnection::ownedIDs() const {
    auto manager = midiManager.lock();
    return manager ? manager->ownedInputIDs() : std::vector<MIDIUniqueID>{};
}

void MIDIOutputConnection::setupOutput(const MIDIManager& manager) {
    std::unique_lock lock(mutex_);
    if (!coreMIDIOutputPortRef_) {
        MIDIPortRef port = 0;
        MIDIIOError::check(platform_->outputPortCreate(manager.coreMIDIClientRef(), "", &port));
        coreMIDIOutputPortRef_ = port;
    }
    refreshLocked(manager.ownedInputIDs());
}

void MIDIOutputConnection::refreshConnections() {
    auto owned = ownedIDs();
    std::unique_lock lock(mutex_);
    refreshLocked(owned);
}

void MIDIOutputConnection::refreshLocked(const std::vector<MIDIUniqueID>& ownedIDs) {
    auto found = connectionEndpoints(getSystemDestinationEndpoints(platform_), mode_.all, inputsCriteria_, filter_, ownedIDs);
    coreMIDIInputEndpointRefs_.clear();
    for (const auto& endpoint : found) {
        coreMIDIInputEndpointRefs_.insert(endpoint.coreMIDIObjectRef);
    }
}

void MIDIOutputConnection::add(const std::vector<MIDIEndpointIdentity>& inputs) {
    auto owned = ownedIDs();
    std::unique_lock lock(mutex_);
    for (const auto& identity : inputs) {
        if (std::find(inputsCriteria_.begin(), inputsCriteria_.end(), identity) == inputsCriteria_.end()) {
            inputsCriteria_.push_back(identity);
        }
    }
    refreshLocked(owned);
}

void MIDIOutputConnection::add(const std::vector<MIDIInputEndpoint>& inputs) { add(identitiesOf(inputs)); }

void MIDIOutputConnection::remove(const std::vector<MIDIEndpointIdentity>& inputs) {
    auto owned = ownedIDs();
    std::unique_lock lock(mutex_);
    std::erase_if(inputsCriteria_, [&](const MIDIEndpointIdentity& identity) {
        return std::find(inputs.begin(), inputs.end(), identity) != inputs.end();
    });
    refreshLocked(owned);
}

void MIDIOutputConnection::remove(const std::vector<MIDIInputEndpoint>& inputs) { remove(identitiesOf(inputs)); }

void MIDIOutputConnection::removeAllInputs() { remove(inputsCriteria()); }

MIDIOutputConnectionMode MIDIOutputConnection::mode() const {
    std::shared_lock lock(mutex_);
    return mode_;
}

MIDIEndpointFilter MIDIOutputConnection::filter() const {
    std::shared_lock lock(mutex_);
    return filter_;
}

std::vector<MIDIEndpointIdentity> MIDIOutputConnection::inputsCriteria() const {
    std::shared_lock lock(mutex_);
    return inputsCriteria_;
}

std::vector<MIDIInputEndpoint> MIDIOutputConnection::endpoints() const {
    std::vector<MIDIInputEndpoint> result;
    for (auto ref : coreMIDIInputEndpointRefs()) {
        result.emplace_back(platform_, ref);
    }
    return result;
}

std::optional<MIDIPortRef> MIDIOutputConnection::coreMIDIOutputPortRef() const {
    std::shared_lock lock(mutex_);
    return coreMIDIOutputPortRef_;
}

std::set<MIDIEndpointRef> MIDIOutputConnection::coreMIDIInputEndpointRefs() const {
    std::shared_lock lock(mutex_);
    return coreMIDIInputEndpointRefs_;
}

std::string MIDIOutputConnection::description() const {
    std::shared_lock lock(mutex_);
    return "MIDIOutputConnection(criteria: " + MIDIIO::description(inputsCriteria_) +
           ", inputEndpointRefs: " + MIDIIO::description(coreMIDIInputEndpointRefs_) + ", outputPortRef: " +
           (coreMIDIOutputPortRef_ ? std::to_string(*coreMIDIOutputPortRef_) : std::string("nil")) + ")";
}

template <class Send>
void MIDIOutputConnection::sendToEach(Send&& send) {
    std::shared_lock lock(mutex_);
    if (!coreMIDIOutputPortRef_) {
        throw MIDIIOError::internalInconsistency("Output port reference is nil.");
    }
    for (auto destination : coreMIDIInputEndpointRefs_) {
        MIDIIOError::check(send(*coreMIDIOutputPortRef_, destination));
    }
}

void MIDIOutputConnection::sendPacketList(std::span<const std::uint8_t> packetList) {
    sendToEach([&](MIDIPortRef port, MIDIEndpointRef destination) { return platform_->send(port, destination, packetList); });
}

void MIDIOutputConnection::sendEventList(std::span<const std::uint8_t> eventList) {
    sendToEach([&](MIDIPortRef port, MIDIEndpointRef destination) {
        return platform_->sendEventList(port, destination, eventList);
    });
}

}  // namespace MIDIIO
