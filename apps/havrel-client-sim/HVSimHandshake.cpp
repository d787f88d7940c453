#include "havrel-client-sim/HVSimHandshake.hpp"

#include "central/HVStringOperations.hpp"
#include "central/RNClient.hpp"
#include "havrel-client-sim/HVSimError.hpp"
#include "model/HVDictionaryReading.hpp"
#include "platform/PropertyList.hpp"

#include <fmt/format.h>

#include <sys/utsname.h>

#include <cctype>

namespace havrel {

std::string HVSimCentralInfo::line() const {
    return "central-info " + dictionary.dump();
}

std::string HVSimHandshake::uniqueIdentifierForName(std::string_view name) {
    std::string slug;
    bool separator = false;
    for (unsigned char c : name) {
        if (std::isalnum(c)) {
            if (separator && !slug.empty()) {
                slug += '-';
            }
            separator = false;
            slug += static_cast<char>(std::tolower(c));
        } else {
            separator = true;
        }
    }
    return "havrel-client-sim:" + slug;
}

std::string HVSimHandshake::systemVersion() {
    utsname names{};
    if (uname(&names) != 0) {
        return "Linux";
    }
    return fmt::format("{} {}", names.sysname, names.release);
}

Dictionary HVSimHandshake::clientDictionary(const HVSimIdentity& identity) {
    auto client = RNUSBClient::create();
    client->connectionName = identity.connectionName;
    client->productID = identity.productID;
    client->uniqueIdentifier = identity.uniqueIdentifier.empty() ? uniqueIdentifierForName(identity.connectionName)
                                                                 : identity.uniqueIdentifier;
    client->apiVersion = identity.apiVersion;
    client->version = identity.version;
    client->osVersion = identity.osVersion.empty() ? systemVersion() : identity.osVersion;
    return client->dictionary();
}

Bytes HVSimHandshake::deviceInfoPayload(const HVSimIdentity& identity) {
    auto written = propertyListData(Dictionary{{"usbClient", clientDictionary(identity)}}, PropertyListFormat::binary);
    if (!written.data) {
        throw HVSimError("the client dictionary has no property-list form: " + written.error);
    }
    return *written.data;
}

HVSimCentralInfo HVSimHandshake::readCentralInfo(ByteView payload, std::string_view clientAPIVersion) {
    Dictionary central = parseJSONFromOutside(payload, "central-info");
    if (central.is_discarded() || !central.is_object()) {
        throw HVSimError("the Central's identity (frame 110) is not a JSON object");
    }
    auto apiVersion = stringValue(central, "apiVersion");
    if (!apiVersion) {
        throw HVSimError("the Central's identity (frame 110) has no \"apiVersion\" text");
    }
    HVSimCentralInfo info{central, std::nullopt};
    if (isOlderThanVersion(*apiVersion, clientAPIVersion)) {
        info.refusal = fmt::format("the Central refuses this client: its API version {} is older than the client's {}",
                                   *apiVersion, clientAPIVersion);
    }
    return info;
}

}  // namespace havrel
