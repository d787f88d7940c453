#include "MIDIIO/MIDIEndpointIdentity.hpp"

#include "MIDIInternals/TextHelpers.hpp"

namespace MIDIIO {

bool MIDIEndpointIdentity::matches(const MIDIIOObject& endpoint) const {
    struct Match {
        const MIDIIOObject& endpoint;
        bool operator()(const Name& identity) const { return endpoint.name == identity.name; }
        bool operator()(const DisplayName& identity) const { return endpoint.displayName == identity.displayName; }
        bool operator()(const UniqueID& identity) const { return endpoint.uniqueID == identity.id; }
        bool operator()(const UniqueIDWithFallback& identity) const {
            return endpoint.uniqueID == identity.id || endpoint.displayName == identity.fallbackDisplayName;
        }
    };
    return std::visit(Match{endpoint}, storage_);
}

namespace {
template <class List, class Text>
std::string bracketed(const List& items, Text&& text) {
    std::string result = "[";
    for (const auto& item : items) {
        result += (result.size() > 1 ? ", " : "") + text(item);
    }
    return result + "]";
}
}  // namespace

std::string description(const std::vector<MIDIEndpointIdentity>& identities) {
    return bracketed(identities, [](const MIDIEndpointIdentity& identity) { return identity.description(); });
}

std::string description(const std::set<MIDIEndpointRef>& refs) {
    return bracketed(refs, [](MIDIEndpointRef ref) { return std::to_string(ref); });
}

std::string MIDIEndpointIdentity::description() const {
    struct Text {
        std::string operator()(const Name& identity) const { return "name(" + MIDIInternals::quoted(identity.name) + ")"; }
        std::string operator()(const DisplayName& identity) const {
            return "displayName(" + MIDIInternals::quoted(identity.displayName) + ")";
        }
        std::string operator()(const UniqueID& identity) const { return "uniqueID(" + std::to_string(identity.id) + ")"; }
        std::string operator()(const UniqueIDWithFallback& identity) const {
            return "uniqueIDWithFallback(id: " + std::to_string(identity.id) +
                   ", fallbackDisplayName: " + MIDIInternals::quoted(identity.fallbackDisplayName) + ")";
        }
    };
    return std::visit(Text{}, storage_);
}

}  // namespace MIDIIO
