#pragma once
// What the desktop side says of itself in a handshake.

#include "model/HVSerializeable.hpp"

#include <memory>
#include <optional>
#include <string>

namespace havrel {

class RNCentral final : public HVSerializeable {
public:
    static std::shared_ptr<RNCentral> create();
    // Each of the four keys only when present as a string.
    static std::shared_ptr<RNCentral> initFromDictionary(const Dictionary& dictionary);
    static std::shared_ptr<RNCentral> centralFromDictionary(const Dictionary& dictionary);

    std::optional<std::string> name;                   // "name"
    std::optional<std::string> version;                // "version"
    std::optional<std::string> apiVersion;             // "apiVersion"
    std::optional<std::string> minApiVersionRequired;  // "minApi"

    // Each key whose field is present.
    Dictionary dictionary() const override;
    std::string className() const override { return "RNCentral"; }
};

}  // namespace havrel
