#pragma once
// What the desktop side says of itself in a handshake.

#include "model/HVSerializeable.hpp"

#include <memory>
#include <optional>
#include <string>

namespace havrel {

// The API version the Central speaks, sent as "apiVersion" and "minApi"; a client speaking a
// newer one is refused.
inline constexpr const char* kCentralAPIVersion = "2.1";
// What a client too new for this Central is told, on both transports.
inline constexpr const char* kCentralUpdateRequiredText =
    "Central needs to be updated in order to connect to this client.\nCenral can be updated by selecting "
    "\"Check for updates\" in the menu bar or by downloading a new version at https://www.havrelapps.com";

class RNCentral final : public HVSerializeable {
public:
    static std::shared_ptr<RNCentral> create();
    // Each of the four keys only when present as a string.
    static std::shared_ptr<RNCentral> initFromDictionary(const Dictionary& dictionary);
    static std::shared_ptr<RNCentral> centralFromDictionary(const Dictionary& dictionary);
    // This Central as both transports introduce it: the computer's name, the version given,
    // and this Central's API version as "apiVersion" and "minApi".
    static std::shared_ptr<RNCentral> localCentralWithVersion(const std::string& version);
    // The name of this computer, as clients show it.
    static std::string localName();

    std::optional<std::string> name;                   // "name"
    std::optional<std::string> version;                // "version"
    std::optional<std::string> apiVersion;             // "apiVersion"
    std::optional<std::string> minApiVersionRequired;  // "minApi"

    // Each key whose field is present.
    Dictionary dictionary() const override;
    std::string className() const override { return "RNCentral"; }
};

}  // namespace havrel
