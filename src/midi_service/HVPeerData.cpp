#include "midi_service/HVPeerData.hpp"

#include "MIDIIO/MIDIPlatform.hpp"
#include "platform/Log.hpp"

#include <string_view>

namespace havrel {

namespace {

// The string under the key, when the dictionary holds one there.
std::optional<std::string> stringUnder(const nlohmann::json& dictionary, std::string_view key) {
    auto found = dictionary.find(key);
    if (found == dictionary.end() || !found->is_string()) {
        return std::nullopt;
    }
    return found->get<std::string>();
}

}  // namespace

std::optional<HVPeerData> HVPeerDataFromProperties(const nlohmann::json& properties) {
    if (!properties.is_object()) {
        return std::nullopt;
    }
    auto session = properties.find("apple.midirtp.session");
    if (session == properties.end() || !session->is_object()) {
        return std::nullopt;
    }
    HVPeerData data;
    data.name = stringUnder(*session, "dns-sd-name");
    auto peers = session->find("peers");
    if (peers == session->end() || !peers->is_array()) {
        return data;
    }
    // Every element must be a dictionary, or the list as a whole is not taken.
    for (const auto& peer : *peers) {
        if (!peer.is_object()) {
            return data;
        }
    }
    data.peers.reserve(peers->size());
    for (const auto& peer : *peers) {
        data.peers.push_back(HVMIDIPeer{stringUnder(peer, "name"), stringUnder(peer, "address")});
    }
    return data;
}

std::optional<HVPeerData> HVPeerDataForEntity(const MIDIIO::MIDIEntity& entity) {
    nlohmann::json properties;
    const MIDIIO::OSStatus status =
        entity.platform()->objectGetProperties(entity.coreMIDIObjectRef, &properties, true);
    if (status != MIDIIO::noErr) {
        logf("error getting properties {}", status);
        return std::nullopt;
    }
    return HVPeerDataFromProperties(properties);
}

}  // namespace havrel
