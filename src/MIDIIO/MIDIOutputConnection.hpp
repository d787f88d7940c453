#pragma once
// An output port that sends to existing destinations chosen by criteria; it follows
// destinations that come and go.

#include "MIDIIO/MIDIEndpointIdentity.hpp"
#include "MIDIIO/MIDIManaged.hpp"

#include <set>
#include <shared_mutex>
#include <vector>

namespace MIDIIO {

struct MIDIOutputConnectionMode {
    bool all = false;
    std::vector<MIDIEndpointIdentity> matching;

    static MIDIOutputConnectionMode inputs(std::vector<MIDIEndpointIdentity> matching) { return {false, std::move(matching)}; }
    static MIDIOutputConnectionMode allInputs() { return {true, {}}; }
};

class MIDIOutputConnection final : public MIDIManagedSendsMessages {
public:
    MIDIOutputConnection(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform,
                         MIDIOutputConnectionMode mode, MIDIEndpointFilter filter, CoreMIDIAPIVersion api);
    ~MIDIOutputConnection() override;

    // Creates the port and finds the destinations.
    void setupOutput(const MIDIManager& manager);
    void refreshConnections();
    // Disposes of the port now.
    void dispose();

    void add(const std::vector<MIDIEndpointIdentity>& inputs);
    void add(const std::vector<MIDIInputEndpoint>& inputs);
    void remove(const std::vector<MIDIEndpointIdentity>& inputs);
    void remove(const std::vector<MIDIInputEndpoint>& inputs);
    void removeAllInputs();

    MIDIOutputConnectionMode mode() const;
    MIDIEndpointFilter filter() const;
    std::vector<MIDIEndpointIdentity> inputsCriteria() const;
    std::vector<MIDIInputEndpoint> endpoints() const;
    std::optional<MIDIPortRef> coreMIDIOutputPortRef() const;
    std::set<MIDIEndpointRef> coreMIDIInputEndpointRefs() const;
    std::string description() const;

private:
    void sendPacketList(std::span<const std::uint8_t> packetList) override;
    void sendEventList(std::span<const std::uint8_t> eventList) override;
    template <class Send>
    void sendToEach(Send&& send);
    void refreshLocked(const std::vector<MIDIUniqueID>& ownedIDs);
    std::vector<MIDIUniqueID> ownedIDs() const;

    // Sends read the port and destinations under the shared lock; changes take it exclusively.
    mutable std::shared_mutex mutex_;
    MIDIOutputConnectionMode mode_;
    MIDIEndpointFilter filter_;
    std::vector<MIDIEndpointIdentity> inputsCriteria_;
    std::optional<MIDIPortRef> coreMIDIOutputPortRef_;
    std::set<MIDIEndpointRef> coreMIDIInputEndpointRefs_;
};

}  // namespace MIDIIO
