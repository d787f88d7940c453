#pragma once
// Virtual endpoints that other software sees: MIDIOutput is a source this application sends
// from, MIDIInput a destination it receives on.

#include "MIDIIO/MIDIManaged.hpp"

#include <mutex>
#include <optional>
#include <string>

namespace MIDIIO {

// The endpoint's creation steps shared by both: a unique ID the system already knows is given
// up so that the system assigns a fresh one, model and manufacturer come from the manager, and
// the unique ID is written to the system (or the assigned one read back).
class MIDIVirtualEndpoint {
public:
    std::string name() const;
    // Renames the endpoint in the system.
    void setName(const std::string& name);
    std::optional<MIDIUniqueID> uniqueID() const;
    // Sets the endpoint private (hidden from other software) or public.
    void hide();
    void show();
    // Disposes of the system endpoint now; the object stays, without an endpoint.
    void dispose();

protected:
    MIDIVirtualEndpoint(std::shared_ptr<MIDIPlatform> platform, std::string name, std::optional<MIDIUniqueID> uniqueID)
        : endpointPlatform_(std::move(platform)), name_(std::move(name)), uniqueID_(uniqueID) {}
    // Clears a taken unique ID; returns whether one remains to be set.
    void releaseTakenUniqueID();
    void configure(MIDIEndpointRef ref, const MIDIManager& manager);
    std::optional<MIDIEndpointRef> endpointRef() const;

    const std::shared_ptr<MIDIPlatform> endpointPlatform_;
    mutable std::mutex mutex_;
    std::string name_;
    std::optional<MIDIUniqueID> uniqueID_;
    std::optional<MIDIEndpointRef> ref_;
};

class MIDIOutput final : public MIDIManagedSendsMessages, public MIDIVirtualEndpoint {
public:
    MIDIOutput(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform, std::string name,
               std::optional<MIDIUniqueID> uniqueID, CoreMIDIAPIVersion api);
    ~MIDIOutput() override;

    // Creates the virtual source in the system.
    void create(const MIDIManager& manager);
    std::optional<MIDIEndpointRef> coreMIDIOutputPortRef() const { return endpointRef(); }
    // The endpoint as the system describes it now.
    std::optional<MIDIOutputEndpoint> endpoint() const;
    // "MIDIOutput(name: "...", uniqueID: n)".
    std::string description() const;

private:
    void sendPacketList(std::span<const std::uint8_t> packetList) override;
    void sendEventList(std::span<const std::uint8_t> eventList) override;
};

class MIDIInput final : public MIDIManagedReceivesMessages, public MIDIVirtualEndpoint {
public:
    MIDIInput(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform, std::string name,
              std::optional<MIDIUniqueID> uniqueID, CoreMIDIAPIVersion api, const MIDIReceiver& receiver);
    ~MIDIInput() override;

    // Creates the virtual destination in the system.
    void create(const MIDIManager& manager);
    std::optional<MIDIEndpointRef> coreMIDIInputPortRef() const { return endpointRef(); }
    std::optional<MIDIInputEndpoint> endpoint() const;
    // "MIDIInput(name: "...", uniqueID: n)".
    std::string description() const;
};

}  // namespace MIDIIO
