// The per-name mesh of the MIDI manager: its own output found among the sources, and every
// named endpoint of the machine joined to the service once a second, those that went away let go.

#include "midi_service/HVMIDIManager.hpp"

#include "platform/Log.hpp"

#include <algorithm>
#include <iterator>

namespace havrel {

// --- Connections. ---

std::optional<MIDIIO::MIDIOutputEndpoint> HVMIDIManager::midiInputConnection() const {
    std::lock_guard lock(stateMutex_);
    return midiInputConnection_;
}

void HVMIDIManager::setInputConnectionToVirtual() {
    const std::string name = outputName();
    for (const auto& endpoint : requireManager().endpoints().outputs) {
        if (endpoint.name == name) {
            std::lock_guard lock(stateMutex_);
            midiInputConnection_ = endpoint;
            graphChanges_.fetch_add(1);
            return;
        }
    }
}

void HVMIDIManager::updateInputConnection() {
    auto& manager = requireManager();
    if (manager.managedInputConnection(kInputConnectionTag)) {
        return;
    }
    auto source = midiInputConnection();
    if (!source) {
        return;
    }
    logDiag("Setting up new input connection to " + (source->displayName.empty() ? source->name : source->displayName) +
        ".");
    try {
        manager.addInputConnection(
            MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::uniqueID(source->uniqueID)}),
            kInputConnectionTag, MIDIIO::MIDIEndpointFilter::default_(), eventsReceiver());
    } catch (const MIDIIO::MIDIIOError& error) {
        log(error.description());
    }
}

// The text walks the whole MIDI graph every second; here the walk waits for a change the MIDI
// service announced (the ALSA sequencer's announce port, the loopback server's notifications),
// so an idle program's timer costs a comparison.
void HVMIDIManager::refreshConnections() {
    const auto changes = graphChanges_.load();
    if (changes == std::exchange(refreshedAtChange_, changes)) {
        return;
    }
    updateInputConnection();
    refreshHardwareOutputs();
    auto& manager = requireManager();
    // Each source named N gets an output connection to the destinations named N, and each
    // destination named N an input connection from the sources named N, once.
    std::set<std::string> sourceNames;
    for (const auto& endpoint : manager.endpoints().outputs) {
        sourceNames.insert(endpoint.name);
        if (manager.managedOutputConnection(endpoint.name)) {
            continue;
        }
        try {
            manager.addOutputConnection(
                MIDIIO::MIDIOutputConnectionMode::inputs({MIDIIO::MIDIEndpointIdentity::name(endpoint.name)}),
                endpoint.name, MIDIIO::MIDIEndpointFilter::default_());
            refreshedOutputTags_.insert(endpoint.name);
        } catch (const MIDIIO::MIDIIOError& error) {
            log("error " + error.description());
        }
    }
    std::set<std::string> destinationNames;
    for (const auto& endpoint : manager.endpoints().inputs) {
        destinationNames.insert(endpoint.name);
        if (manager.managedInputConnection(endpoint.name)) {
            continue;
        }
        try {
            manager.addInputConnection(
                MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::name(endpoint.name)}),
                endpoint.name, MIDIIO::MIDIEndpointFilter::default_(), eventsReceiver());
            refreshedInputTags_.insert(endpoint.name);
        } catch (const MIDIIO::MIDIIOError& error) {
            log("error " + error.description());
        }
    }
    removeConnectionsOfVanishedEndpoints(sourceNames, destinationNames);
}

// Departure: a per-name connection goes with the last endpoint of its name (one that returns is
// joined again by the next refresh), so the tables follow the endpoints there are, not every
// name ever seen.
void HVMIDIManager::removeConnectionsOfVanishedEndpoints(const std::set<std::string>& sourceNames,
                                                         const std::set<std::string>& destinationNames) {
    auto& manager = requireManager();
    const auto removeVanished = [&](std::set<std::string>& tags, const std::set<std::string>& names,
                                    MIDIIO::ManagedType type) {
        std::erase_if(tags, [&](const std::string& tag) {
            if (names.contains(tag)) {
                return false;
            }
            manager.remove(type, MIDIIO::TagSelection::withTag(tag));
            return true;
        });
    };
    removeVanished(refreshedOutputTags_, sourceNames, MIDIIO::ManagedType::outputConnection);
    removeVanished(refreshedInputTags_, destinationNames, MIDIIO::ManagedType::inputConnection);
    // The network path sends only on connections that are still there.
    const auto current = manager.managedOutputConnections();
    std::lock_guard lock(networkOutputsMutex_);
    std::erase_if(networkOutputs_, [&](const auto& connection) {
        return std::none_of(current.begin(), current.end(),
                            [&](const auto& entry) { return entry.second == connection; });
    });
}

}  // namespace havrel
