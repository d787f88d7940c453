#include "central/RNCentral.hpp"

#include "central/HVOptionalStringFields.hpp"
#include "platform/NetworkInterfaces.hpp"

#include <array>
#include <utility>

namespace havrel {

namespace {

// Each field with its wire key.
template <typename Central>
auto fields(Central& central) {
    return std::array{std::pair{"name", &central.name}, std::pair{"version", &central.version},
                      std::pair{"apiVersion", &central.apiVersion},
                      std::pair{"minApi", &central.minApiVersionRequired}};
}

}  // namespace

std::shared_ptr<RNCentral> RNCentral::create() {
    return std::make_shared<RNCentral>();
}

std::shared_ptr<RNCentral> RNCentral::localCentralWithVersion(const std::string& version) {
    auto central = create();
    central->name = localName();
    central->version = version;
    central->apiVersion = kCentralAPIVersion;
    central->minApiVersionRequired = kCentralAPIVersion;
    return central;
}

std::string RNCentral::localName() { return hostName().value_or("localhost"); }

std::shared_ptr<RNCentral> RNCentral::initFromDictionary(const Dictionary& dictionary) {
    auto central = create();
    readOptionalStrings(dictionary, fields(*central));
    return central;
}

std::shared_ptr<RNCentral> RNCentral::centralFromDictionary(const Dictionary& dictionary) {
    return initFromDictionary(dictionary);
}

Dictionary RNCentral::dictionary() const {
    Dictionary result = Dictionary::object();
    writeOptionalStrings(result, fields(*this));
    return result;
}

}  // namespace havrel
