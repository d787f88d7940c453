#include "MIDIIO/MIDIInputConnection.hpp"

#include "MIDIIO/MIDIManager.hpp"
#include "MIDIInternals/UUID.hpp"

namespace MIDIIO {


MIDIInputConnection::MIDIInputConnection(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform,
                                         MIDIInputConnectionMode mode, MIDIEndpointFilter filter,
                                         CoreMIDIAPIVersion api, const MIDIReceiver& receiver)
    : MIDIManagedReceivesMessages(std::move(manager), api, std::move(platform),
                                  "MIDIInputConnection-" + MIDIInternals::randomUUIDString(), receiver),
      mode_(std::move(mode)),
      filter_(std::move(filter)),
      outputsCriteria_(mode_.matching) {}

MIDIInputConnection::~MIDIInputConnection() { dispose(); }

void MIDIInputConnection::dispose() {
    std::lock_guard lock(mutex_);
    if (coreMIDIInputPortRef_) {
        platform_->portDispose(*coreMIDIInputPortRef_);
        coreMIDIInputPortRef_.reset();
        coreMIDIOutputEndpointRefs_.clear();
        coreMIDIOutputEndpointRefCons_.clear();
    }
}

std::vector<MIDIUniqueID> MIDIInputConnection::ownedIDs() const {
    auto manager = midiManager.lock();
    return manager ? manager->ownedOutputIDs() : std::vector<MIDIUniqueID>{};
}

void MIDIInputConnection::listen(const MIDIManager& manager) {
    std::lock_guard lock(mutex_);
    if (!coreMIDIInputPortRef_) {
        MIDIPortRef port = 0;
        auto client = manager.coreMIDIClientRef();
        OSStatus status = api_.isLegacy()
                              ? platform_->inputPortCreateWithBlock(client, "", makeReadBlock(true), &port)
                              : platform_->inputPortCreateWithProtocol(client, "", api_.protocolID(),
                                                                       makeReceiveBlock(true), &port);
        MIDIIOError::check(status);
        coreMIDIInputPortRef_ = port;
    }
    connectLocked(manager.ownedOutputIDs());
}

void MIDIInputConnection::refreshConnections() {
    auto owned = ownedIDs();
    std::lock_guard lock(mutex_);
    if (coreMIDIInputPortRef_) {
        connectLocked(owned);
    }
}

void MIDIInputConnection::connectLocked(const std::vector<MIDIUniqueID>& ownedIDs) {
    if (!coreMIDIInputPortRef_) {
        throw MIDIIOError::connectionError("Not in a listening state; can't connect to endpoints.");
    }
    auto found = connectionEndpoints(getSystemSourceEndpoints(platform_), mode_.all, outputsCriteria_, filter_, ownedIDs);
    std::set<MIDIEndpointRef> wanted;
    for (const auto& endpoint : found) {
        wanted.insert(endpoint.coreMIDIObjectRef);
    }
    for (auto it = coreMIDIOutputEndpointRefs_.begin(); it != coreMIDIOutputEndpointRefs_.end();) {
        if (wanted.contains(*it)) {
            ++it;
            continue;
        }
        platform_->portDisconnectSource(*coreMIDIInputPortRef_, *it);  // gone already when removed
        coreMIDIOutputEndpointRefCons_.erase(static_cast<MIDIRefCon>(*it));
        it = coreMIDIOutputEndpointRefs_.erase(it);
    }
    for (auto ref : wanted) {
        if (coreMIDIOutputEndpointRefs_.contains(ref)) {
            continue;
        }
        // The reference constant carries the source's reference back with each list.
        auto refCon = static_cast<MIDIRefCon>(ref);
        MIDIIOError::check(platform_->portConnectSource(*coreMIDIInputPortRef_, ref, refCon));
        coreMIDIOutputEndpointRefCons_.insert(refCon);
        coreMIDIOutputEndpointRefs_.insert(ref);
    }
}

void MIDIInputConnection::add(const std::vector<MIDIEndpointIdentity>& outputs) {
    auto owned = ownedIDs();
    std::lock_guard lock(mutex_);
    for (const auto& identity : outputs) {
        if (std::find(outputsCriteria_.begin(), outputsCriteria_.end(), identity) == outputsCriteria_.end()) {
            outputsCriteria_.push_back(identity);
        }
    }
    connectLocked(owned);
}

void MIDIInputConnection::add(const std::vector<MIDIOutputEndpoint>& outputs) { add(identitiesOf(outputs)); }

void MIDIInputConnection::remove(const std::vector<MIDIEndpointIdentity>& outputs) {
    auto owned = ownedIDs();
    std::lock_guard lock(mutex_);
    std::erase_if(outputsCriteria_, [&](const MIDIEndpointIdentity& identity) {
        return std::find(outputs.begin(), outputs.end(), identity) != outputs.end();
    });
    if (!coreMIDIInputPortRef_) {
        throw MIDIIOError::connectionError(
            "Attempted to disconnect outputs but was not in a listening state; nothing to disconnect.");
    }
    connectLocked(owned);
}

void MIDIInputConnection::remove(const std::vector<MIDIOutputEndpoint>& outputs) { remove(identitiesOf(outputs)); }

void MIDIInputConnection::removeAllOutputs() {
    std::vector<MIDIEndpointIdentity> all;
    {
        std::lock_guard lock(mutex_);
        all = outputsCriteria_;
    }
    remove(all);
}

MIDIInputConnectionMode MIDIInputConnection::mode() const {
    std::lock_guard lock(mutex_);
    return mode_;
}

MIDIEndpointFilter MIDIInputConnection::filter() const {
    std::lock_guard lock(mutex_);
    return filter_;
}

std::vector<MIDIEndpointIdentity> MIDIInputConnection::outputsCriteria() const {
    std::lock_guard lock(mutex_);
    return outputsCriteria_;
}

std::vector<MIDIOutputEndpoint> MIDIInputConnection::endpoints() const {
    std::vector<MIDIOutputEndpoint> result;
    for (auto ref : coreMIDIOutputEndpointRefs()) {
        result.emplace_back(platform_, ref);
    }
    return result;
}

std::optional<MIDIPortRef> MIDIInputConnection::coreMIDIInputPortRef() const {
    std::lock_guard lock(mutex_);
    return coreMIDIInputPortRef_;
}

std::set<MIDIEndpointRef> MIDIInputConnection::coreMIDIOutputEndpointRefs() const {
    std::lock_guard lock(mutex_);
    return coreMIDIOutputEndpointRefs_;
}

std::string MIDIInputConnection::description() const {
    std::lock_guard lock(mutex_);
    return "MIDIInputConnection(criteria: " + MIDIIO::description(outputsCriteria_) +
           ", outputEndpointRefs: " + MIDIIO::description(coreMIDIOutputEndpointRefs_) + ", inputPortRef: " +
           (coreMIDIInputPortRef_ ? std::to_string(*coreMIDIInputPortRef_) : std::string("nil")) + ")";
}

}  // namespace MIDIIO
