#include "MIDIIO/MIDIObjectCollections.hpp"

#include <algorithm>

namespace MIDIIO {

MIDIDevices MIDIDevices::fromSystem(const std::shared_ptr<MIDIPlatform>& platform) {
    return MIDIDevices{getSystemDevices(platform)};
}

MIDIEndpoints MIDIEndpoints::fromSystem(const std::shared_ptr<MIDIPlatform>& platform) {
    MIDIEndpoints endpoints;
    endpoints.inputs = getSystemDestinationEndpoints(platform);
    endpoints.outputs = getSystemSourceEndpoints(platform);
    endpoints.inputsUnowned = endpoints.inputs;
    endpoints.outputsUnowned = endpoints.outputs;
    return endpoints;
}

namespace {
template <class E>
void split(const std::vector<E>& all, const std::vector<MIDIUniqueID>& ownedIDs, std::vector<E>& owned,
           std::vector<E>& unowned) {
    owned.clear();
    unowned.clear();
    for (const auto& endpoint : all) {
        bool isOwned = std::find(ownedIDs.begin(), ownedIDs.end(), endpoint.uniqueID) != ownedIDs.end();
        (isOwned ? owned : unowned).push_back(endpoint);
    }
}
}  // namespace

void MIDIEndpoints::updateCachedProperties(const std::vector<MIDIUniqueID>& ownedInputIDs,
                                           const std::vector<MIDIUniqueID>& ownedOutputIDs) {
    split(inputs, ownedInputIDs, inputsOwned, inputsUnowned);
    split(outputs, ownedOutputIDs, outputsOwned, outputsUnowned);
}

std::optional<AnyMIDIIOObject> MIDIObjectCache::object(MIDIObjectRef ref, MIDIObjectType type) const {
    auto find = [ref](const auto& list) {
        return std::find_if(list.begin(), list.end(), [ref](const auto& o) { return o.coreMIDIObjectRef == ref; });
    };
    switch (type) {
        case MIDIObjectType::device:
        case MIDIObjectType::externalDevice:
            if (auto it = find(devices); it != devices.end()) {
                return AnyMIDIIOObject(*it);
            }
            break;
        case MIDIObjectType::source:
        case MIDIObjectType::externalSource:
            if (auto it = find(outputEndpoints); it != outputEndpoints.end()) {
                return AnyMIDIIOObject(*it);
            }
            break;
        case MIDIObjectType::destination:
        case MIDIObjectType::externalDestination:
            if (auto it = find(inputEndpoints); it != inputEndpoints.end()) {
                return AnyMIDIIOObject(*it);
            }
            break;
        default:
            break;
    }
    return std::nullopt;
}

}  // namespace MIDIIO
