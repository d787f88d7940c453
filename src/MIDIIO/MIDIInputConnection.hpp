#pragma once
// An input port connected to existing sources chosen by criteria; it follows sources that come
// and go.

#include "MIDIIO/MIDIEndpointIdentity.hpp"
#include "MIDIIO/MIDIManaged.hpp"

#include <mutex>
#include <set>
#include <vector>

namespace MIDIIO {

struct MIDIInputConnectionMode {
    bool all = false;
    std::vector<MIDIEndpointIdentity> matching;

    static MIDIInputConnectionMode outputs(std::vector<MIDIEndpointIdentity> matching) { return {false, std::move(matching)}; }
    static MIDIInputConnectionMode allOutputs() { return {true, {}}; }
};

class MIDIInputConnection final : public MIDIManagedReceivesMessages {
public:
    MIDIInputConnection(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform,
                        MIDIInputConnectionMode mode, MIDIEndpointFilter filter, CoreMIDIAPIVersion api,
                        const MIDIReceiver& receiver);
    ~MIDIInputConnection() override;

    // Creates the port and connects to the sources found.
    void listen(const MIDIManager& manager);
    // Connects to the sources found now and disconnects from those no longer found.
    void refreshConnections();
    // Disposes of the port now.
    void dispose();

    void add(const std::vector<MIDIEndpointIdentity>& outputs);
    void add(const std::vector<MIDIOutputEndpoint>& outputs);
    void remove(const std::vector<MIDIEndpointIdentity>& outputs);
    void remove(const std::vector<MIDIOutputEndpoint>& outputs);
    void removeAllOutputs();

    MIDIInputConnectionMode mode() const;
    MIDIEndpointFilter filter() const;
    std::vector<MIDIEndpointIdentity> outputsCriteria() const;
    // The sources connected now.
    std::vector<MIDIOutputEndpoint> endpoints() const;
    std::optional<MIDIPortRef> coreMIDIInputPortRef() const;
    std::set<MIDIEndpointRef> coreMIDIOutputEndpointRefs() const;
    std::string description() const;

private:
    void connectLocked(const std::vector<MIDIUniqueID>& ownedIDs);
    std::vector<MIDIUniqueID> ownedIDs() const;

    mutable std::mutex mutex_;
    MIDIInputConnectionMode mode_;
    MIDIEndpointFilter filter_;
    std::vector<MIDIEndpointIdentity> outputsCriteria_;
    std::optional<MIDIPortRef> coreMIDIInputPortRef_;
    std::set<MIDIEndpointRef> coreMIDIOutputEndpointRefs_;
    std::set<MIDIRefCon> coreMIDIOutputEndpointRefCons_;
};

}  // namespace MIDIIO
