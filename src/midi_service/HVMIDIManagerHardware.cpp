// The hardware fan-out of the MIDI manager: one output connection to every destination that looks
// like hardware, which the host may switch off by name.

#include "midi_service/HVMIDIManager.hpp"

#include "platform/Log.hpp"

#include <algorithm>
#include <cctype>
#include <iterator>

namespace havrel {

namespace {

bool containsRTP(std::string owner) {
    std::transform(owner.begin(), owner.end(), owner.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return owner.find("RTP") != std::string::npos;
}

}  // namespace

void HVMIDIManager::setupHardwareOutput() {
    if (!configuration_->hardwareMIDIEnabled) {
        return;
    }
    try {
        requireManager().addOutputConnection(MIDIIO::MIDIOutputConnectionMode::inputs({}), kHardwareOutputTag,
                                             MIDIIO::MIDIEndpointFilter::default_());
    } catch (const MIDIIO::MIDIIOError& error) {
        log("error creating hardware output " + error.description());
    }
}


std::vector<MIDIIO::MIDIInputEndpoint> HVMIDIManager::hardwareDestinations() const {
    auto destinations = hardwareDestinationCandidates();
    std::lock_guard lock(stateMutex_);
    std::erase_if(destinations, [this](const MIDIIO::MIDIInputEndpoint& endpoint) {
        return disabledHardwareDestinations_.count(endpoint.name) > 0;
    });
    return destinations;
}

void HVMIDIManager::setHardwareDestinationEnabled(const std::string& name, bool enabled) {
    graphChanges_.fetch_add(1);
    std::lock_guard lock(stateMutex_);
    if (enabled) {
        disabledHardwareDestinations_.erase(name);
    } else {
        disabledHardwareDestinations_.insert(name);
    }
}

bool HVMIDIManager::isHardwareDestinationEnabled(const std::string& name) const {
    std::lock_guard lock(stateMutex_);
    return disabledHardwareDestinations_.count(name) == 0;
}

std::vector<MIDIIO::MIDIInputEndpoint> HVMIDIManager::hardwareDestinationCandidates() const {
    std::vector<MIDIIO::MIDIInputEndpoint> destinations;
    for (const auto& endpoint : requireManager().endpoints().inputs) {
        if (!endpoint.device() || endpoint.getIsOffline() || containsRTP(endpoint.getDriverOwner().value_or(""))) {
            continue;
        }
        destinations.push_back(endpoint);
    }
    return destinations;
}

void HVMIDIManager::refreshHardwareOutputs() {
    if (!configuration_->hardwareMIDIEnabled) {
        return;
    }
    auto connection = requireManager().managedOutputConnection(kHardwareOutputTag);
    if (!connection) {
        return;
    }
    const auto wanted = MIDIIO::identitiesOf(hardwareDestinations());
    const auto current = connection->inputsCriteria();
    auto missingFrom = [](const auto& from, const auto& list) {
        std::vector<MIDIIO::MIDIEndpointIdentity> missing;
        std::copy_if(from.begin(), from.end(), std::back_inserter(missing),
                     [&](const auto& identity) { return std::find(list.begin(), list.end(), identity) == list.end(); });
        return missing;
    };
    const auto gone = missingFrom(current, wanted);
    const auto added = missingFrom(wanted, current);
    if (gone.empty() && added.empty()) {
        return;
    }
    connection->remove(gone);
    connection->add(added);
}

}  // namespace havrel
