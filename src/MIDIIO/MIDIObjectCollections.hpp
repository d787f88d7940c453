#pragma once
// The manager's cached views of the system: devices, endpoints (with this manager's own ones
// apart) and the object cache against which removals are described.

#include "MIDIIO/MIDIIOObject.hpp"

#include <optional>
#include <vector>

namespace MIDIIO {

struct MIDIDevices {
    std::vector<MIDIDevice> devices;

    // Reads the system now.
    static MIDIDevices fromSystem(const std::shared_ptr<MIDIPlatform>& platform);
    friend bool operator==(const MIDIDevices&, const MIDIDevices&) = default;
};

struct MIDIEndpoints {
    std::vector<MIDIInputEndpoint> inputs;
    std::vector<MIDIInputEndpoint> inputsOwned;
    std::vector<MIDIInputEndpoint> inputsUnowned;
    std::vector<MIDIOutputEndpoint> outputs;
    std::vector<MIDIOutputEndpoint> outputsOwned;
    std::vector<MIDIOutputEndpoint> outputsUnowned;

    // Reads the system now; owned lists empty until updateCachedProperties.
    static MIDIEndpoints fromSystem(const std::shared_ptr<MIDIPlatform>& platform);
    // Refills the owned and unowned lists: an endpoint is owned when its unique ID is one of
    // `ownedInputIDs` (the manager's virtual inputs) or `ownedOutputIDs`.
    void updateCachedProperties(const std::vector<MIDIUniqueID>& ownedInputIDs,
                                const std::vector<MIDIUniqueID>& ownedOutputIDs);

    friend bool operator==(const MIDIEndpoints&, const MIDIEndpoints&) = default;
};

struct MIDIObjectCache {
    std::vector<MIDIDevice> devices;
    std::vector<MIDIInputEndpoint> inputEndpoints;
    std::vector<MIDIOutputEndpoint> outputEndpoints;

    MIDIObjectCache() = default;
    MIDIObjectCache(const MIDIDevices& devices, const MIDIEndpoints& endpoints)
        : devices(devices.devices), inputEndpoints(endpoints.inputs), outputEndpoints(endpoints.outputs) {}

    // The cached object of a reference, looked up by kind; entities are found within the
    // cached devices.
    std::optional<AnyMIDIIOObject> object(MIDIObjectRef ref, MIDIObjectType type) const;

    // As a record of objects gone from the system: takes in those of `before` that `now` no
    // longer has, lets go of those `now` has again (a reference given to a new object), and keeps
    // at most `limit` of each kind, the newest.
    void keepDeparted(const MIDIObjectCache& before, const MIDIObjectCache& now, std::size_t limit);
    // Lets go of the objects of this reference.
    void forget(MIDIObjectRef ref);
};

}  // namespace MIDIIO
