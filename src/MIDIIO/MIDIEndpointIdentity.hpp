#pragma once
// Choosing endpoints: identities (by name, display name, unique ID, or unique ID with a display
// name to fall back on) and filters that drop this manager's own endpoints or given ones.

#include "MIDIIO/MIDIIOObject.hpp"

#include <algorithm>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace MIDIIO {

class MIDIEndpointIdentity {
public:
    struct Name { std::string name; friend bool operator==(const Name&, const Name&) = default; };
    struct DisplayName { std::string displayName; friend bool operator==(const DisplayName&, const DisplayName&) = default; };
    struct UniqueID { MIDIUniqueID id; friend bool operator==(const UniqueID&, const UniqueID&) = default; };
    struct UniqueIDWithFallback {
        MIDIUniqueID id;
        std::string fallbackDisplayName;
        friend bool operator==(const UniqueIDWithFallback&, const UniqueIDWithFallback&) = default;
    };
    using Storage = std::variant<Name, DisplayName, UniqueID, UniqueIDWithFallback>;

    static MIDIEndpointIdentity name(std::string name) { return MIDIEndpointIdentity(Name{std::move(name)}); }
    static MIDIEndpointIdentity displayName(std::string name) { return MIDIEndpointIdentity(DisplayName{std::move(name)}); }
    static MIDIEndpointIdentity uniqueID(MIDIUniqueID id) { return MIDIEndpointIdentity(UniqueID{id}); }
    static MIDIEndpointIdentity uniqueIDWithFallback(MIDIUniqueID id, std::string fallbackDisplayName) {
        return MIDIEndpointIdentity(UniqueIDWithFallback{id, std::move(fallbackDisplayName)});
    }
    template <class E>
    static MIDIEndpointIdentity of(const E& endpoint) {
        return uniqueIDWithFallback(endpoint.uniqueID, endpoint.displayName);
    }

    const Storage& storage() const { return storage_; }
    // Whether the one endpoint matches, the fallback display name included.
    bool matches(const MIDIIOObject& endpoint) const;
    std::string description() const;

    friend bool operator==(const MIDIEndpointIdentity&, const MIDIEndpointIdentity&) = default;

private:
    explicit MIDIEndpointIdentity(Storage storage) : storage_(std::move(storage)) {}
    Storage storage_;
};

// Printable lists for descriptions: "[a, b]".
std::string description(const std::vector<MIDIEndpointIdentity>& identities);
std::string description(const std::set<MIDIEndpointRef>& refs);

// The identities (unique ID with the display name to fall back on) of endpoints.
template <class E>
std::vector<MIDIEndpointIdentity> identitiesOf(const std::vector<E>& endpoints) {
    std::vector<MIDIEndpointIdentity> identities;
    for (const auto& endpoint : endpoints) {
        identities.push_back(MIDIEndpointIdentity::of(endpoint));
    }
    return identities;
}

// The endpoints of a list the identity selects: a unique ID with a fallback takes the endpoints
// with the ID and, only when no endpoint has it, those with the fallback display name.
template <class E>
std::vector<E> matching(const std::vector<E>& endpoints, const MIDIEndpointIdentity& identity) {
    std::vector<E> result;
    if (auto* fallback = std::get_if<MIDIEndpointIdentity::UniqueIDWithFallback>(&identity.storage())) {
        for (const auto& endpoint : endpoints) {
            if (endpoint.uniqueID == fallback->id) {
                result.push_back(endpoint);
            }
        }
        if (result.empty()) {
            for (const auto& endpoint : endpoints) {
                if (endpoint.displayName == fallback->fallbackDisplayName) {
                    result.push_back(endpoint);
                }
            }
        }
        return result;
    }
    for (const auto& endpoint : endpoints) {
        if (identity.matches(endpoint)) {
            result.push_back(endpoint);
        }
    }
    return result;
}

// Whether any of the identities selects the endpoint within the list.
template <class E>
bool isSelected(const std::vector<E>& endpoints, const E& endpoint, const std::vector<MIDIEndpointIdentity>& identities) {
    for (const auto& identity : identities) {
        auto found = matching(endpoints, identity);
        if (std::find(found.begin(), found.end(), endpoint) != found.end()) {
            return true;
        }
    }
    return false;
}

struct MIDIEndpointFilter {
    bool owned = false;
    std::vector<MIDIEndpointIdentity> criteria;

    static MIDIEndpointFilter default_() { return {}; }
    static MIDIEndpointFilter ownedOnly() { return {true, {}}; }

    friend bool operator==(const MIDIEndpointFilter&, const MIDIEndpointFilter&) = default;
};

enum class MIDIEndpointFilterMask { only, drop };

struct MIDIEndpointMaskedFilter {
    MIDIEndpointFilterMask mask = MIDIEndpointFilterMask::drop;
    MIDIEndpointFilter filter;
    static MIDIEndpointMaskedFilter only(MIDIEndpointFilter filter) { return {MIDIEndpointFilterMask::only, std::move(filter)}; }
    static MIDIEndpointMaskedFilter drop(MIDIEndpointFilter filter) { return {MIDIEndpointFilterMask::drop, std::move(filter)}; }
};

// Applies a masked filter. `ownedIDs` are the unique IDs of the manager's own virtual endpoints:
// an endpoint is owned when its unique ID is one of them. `only` keeps what the filter selects
// (owned ones when `owned` is set, and those in the criteria); `drop` removes it.
template <class E>
std::vector<E> applyFilter(const std::vector<E>& endpoints, const MIDIEndpointMaskedFilter& masked,
                           const std::vector<MIDIUniqueID>& ownedIDs) {
    std::vector<E> result;
    for (const auto& endpoint : endpoints) {
        bool selected = (masked.filter.owned &&
                         std::find(ownedIDs.begin(), ownedIDs.end(), endpoint.uniqueID) != ownedIDs.end()) ||
                        isSelected(endpoints, endpoint, masked.filter.criteria);
        if (selected == (masked.mask == MIDIEndpointFilterMask::only)) {
            result.push_back(endpoint);
        }
    }
    return result;
}

}  // namespace MIDIIO

namespace MIDIIO {

// The endpoints a connection reaches: all of them, or those the criteria select; then the
// filter drops what it names. A criterion of a unique ID with a fallback that matched by its
// display name takes the unique ID found, so that a renamed endpoint still matches next time.
template <class E>
std::vector<E> connectionEndpoints(const std::vector<E>& all, bool allEndpoints,
                                   std::vector<MIDIEndpointIdentity>& criteria, const MIDIEndpointFilter& filter,
                                   const std::vector<MIDIUniqueID>& ownedIDs) {
    std::vector<E> selected;
    if (allEndpoints) {
        selected = all;
    } else {
        for (auto& criterion : criteria) {
            auto found = matching(all, criterion);
            for (const auto& endpoint : found) {
                if (std::find(selected.begin(), selected.end(), endpoint) == selected.end()) {
                    selected.push_back(endpoint);
                }
            }
            auto* fallback = std::get_if<MIDIEndpointIdentity::UniqueIDWithFallback>(&criterion.storage());
            if (fallback && !found.empty() && found.front().uniqueID != fallback->id) {
                criterion = MIDIEndpointIdentity::uniqueIDWithFallback(found.front().uniqueID, fallback->fallbackDisplayName);
            }
        }
    }
    return applyFilter(selected, MIDIEndpointMaskedFilter::drop(filter), ownedIDs);
}

}  // namespace MIDIIO
