#pragma once
// Network (RTP) session data of a MIDI entity: the session's advertised name and its peers,
// read from the entity's "apple.midirtp.session" property. An entity without that property is
// not a network entity.

#include "MIDIIO/MIDIIOObject.hpp"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace havrel {

struct HVMIDIPeer {
    std::optional<std::string> name;
    std::optional<std::string> address;

    bool operator==(const HVMIDIPeer&) const = default;
};

struct HVPeerData {
    std::optional<std::string> name;
    std::vector<HVMIDIPeer> peers;

    bool operator==(const HVPeerData&) const = default;
};

// The session data in a property dictionary as the system gives it. Any JSON is accepted:
// no session dictionary gives none; values of the wrong kind read as absent (or, for the peer
// list, as empty). Never throws.
std::optional<HVPeerData> HVPeerDataFromProperties(const nlohmann::json& properties);

// Reads the entity's properties (deep) from the MIDI platform and takes the session data from
// them. A failed read logs "error getting properties <status>" and gives none.
std::optional<HVPeerData> HVPeerDataForEntity(const MIDIIO::MIDIEntity& entity);

}  // namespace havrel
