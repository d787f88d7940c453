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

namespace {
template <class O>
bool holds(const std::vector<O>& list, MIDIObjectRef ref) {
    return std::any_of(list.begin(), list.end(), [ref](const O& o) { return o.coreMIDIObjectRef == ref; });
}

template <class O>
void keepDepartedOf(std::vector<O>& departed, const std::vector<O>& before, const std::vector<O>& now,
                    std::size_t limit) {
    std::erase_if(departed, [&](const O& o) { return holds(now, o.coreMIDIObjectRef); });
    for (const auto& o : before) {
        if (!holds(now, o.coreMIDIObjectRef) && !holds(departed, o.coreMIDIObjectRef)) {
            departed.push_back(o);
        }
    }
    if (departed.size() > limit) {
        departed.erase(departed.begin(), departed.end() - static_cast<std::ptrdiff_t>(limit));
    }
}
}  // namespace

void MIDIObjectCache::keepDeparted(const MIDIObjectCache& before, const MIDIObjectCache& now, std::size_t limit) {
    keepDepartedOf(devices, before.devices, now.devices, limit);
    keepDepartedOf(inputEndpoints, before.inputEndpoints, now.inputEndpoints, limit);
    keepDepartedOf(outputEndpoints, before.outputEndpoints, now.outputEndpoints, limit);
}

void MIDIObjectCache::forget(MIDIObjectRef ref) {
    auto same = [ref](const auto& o) { return o.coreMIDIObjectRef == ref; };
    std::erase_if(devices, same);
    std::erase_if(inputEndpoints, same);
    std::erase_if(outputEndpoints, same);
}

}  // namespace MIDIIO
