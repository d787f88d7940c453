// The network side of the MIDI manager: the sessions the scan finds, and an output to each.

#include "midi_service/HVMIDIManager.hpp"

#include "midi_service/HVPeerData.hpp"
#include "platform/Log.hpp"

#include <algorithm>

namespace havrel {

std::vector<MIDIIO::MIDIEntity> HVMIDIManager::networkConnections() const {
    std::lock_guard lock(stateMutex_);
    return networkConnections_;
}

std::vector<std::shared_ptr<MIDIIO::MIDIOutputConnection>> HVMIDIManager::networkOutputs() const {
    std::lock_guard lock(networkOutputsMutex_);
    return networkOutputs_;
}


void HVMIDIManager::scanNetworkSessions() {
    const auto changes = graphChanges_.load();
    if (changes == std::exchange(scannedAtChange_, changes)) {
        return;
    }
    auto& manager = requireManager();
    std::vector<MIDIIO::MIDIEntity> sessions;
    for (const auto& device : manager.devices().devices) {
        for (const auto& entity : device.entities()) {
            if (HVPeerDataForEntity(entity)) {
                sessions.push_back(entity);
            }
        }
    }
    {
        std::lock_guard lock(stateMutex_);
        networkConnections_ = sessions;
    }
    // An output connection leads to a session when the session's name appears in the
    // description of its targets.
    for (const auto& [tag, connection] : manager.managedOutputConnections()) {
        const std::string targets = MIDIIO::description(connection->inputsCriteria());
        for (const auto& entity : sessions) {
            if (targets.find(entity.name) == std::string::npos) {
                continue;
            }
            const auto refs = connection->coreMIDIInputEndpointRefs();
            std::lock_guard lock(networkOutputsMutex_);
            const bool known = std::any_of(networkOutputs_.begin(), networkOutputs_.end(), [&](const auto& output) {
                return output->coreMIDIInputEndpointRefs() == refs;
            });
            if (!known) {
                networkOutputs_.push_back(connection);
            }
        }
    }
}

}  // namespace havrel
