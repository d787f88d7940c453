#include "central/RNClient.hpp"

#include "central/HVOptionalStringFields.hpp"
#include "model/HVDictionaryReading.hpp"
#include "platform/Log.hpp"

#include <fmt/format.h>

#include <array>
#include <utility>

namespace havrel {

namespace {

// The string fields with their wire keys, in wire order.
template <typename Client>
auto stringFields(Client& client) {
    return std::array{std::pair{"productID", &client.productID},
                      std::pair{"version", &client.version},
                      std::pair{"apiVersion", &client.apiVersion},
                      std::pair{"osVersion", &client.osVersion},
                      std::pair{"connectionName", &client.connectionName},
                      std::pair{"uniqueIdentifier", &client.uniqueIdentifier}};
}

}  // namespace

std::shared_ptr<RNClient> RNClient::create() {
    return std::make_shared<RNClient>();
}

std::shared_ptr<RNClient> RNClient::initFromDictionary(const Dictionary& dictionary) {
    return readClient<RNClient>(dictionary);
}

std::string RNClient::classNameFromType(const std::optional<std::string>& type) {
    if (type == "RNUSBClient" || type == "RNBluetoothClient") {
        return *type;
    }
    return "RNClient";
}

std::shared_ptr<RNClient> RNClient::clientFromDictionary(const Dictionary& dictionary) {
    const std::string className = classNameFromType(stringValue(dictionary, "type"));
    if (className == "RNUSBClient") {
        return RNUSBClient::initFromDictionary(dictionary);
    }
    if (className == "RNBluetoothClient") {
        return RNBluetoothClient::initFromDictionary(dictionary);
    }
    return initFromDictionary(dictionary);
}

void RNClient::readValuesFromDictionary(const Dictionary& dictionary) {
    readOptionalStrings(dictionary, stringFields(*this));

    std::vector<std::shared_ptr<HVFileType>> fileTypes;
    if (const Dictionary* array = arrayValue(dictionary, "acceptedFileTypes")) {
        std::size_t skipped = 0;
        for (const Dictionary& element : *array) {
            if (element.is_object()) {
                fileTypes.push_back(HVFileType::initFromDictionary(element));
            } else {
                ++skipped;
            }
        }
        if (skipped > 0) {
            logf("RNClient: {} acceptedFileTypes entries are not dictionaries, skipped", skipped);
        }
    }
    acceptedFileTypes = std::move(fileTypes);

    if (const Dictionary* deviceNumber = dictionaryValue(dictionary, "deviceID");
        deviceNumber && deviceNumber->is_number()) {
        deviceID = integerValue(*deviceNumber);
    }
    if (const Dictionary* info = objectValue(dictionary, "moreInfo")) {
        moreInfo = *info;
    }
}

Dictionary RNClient::dictionary() const {
    Dictionary result{{"type", className()}};
    writeOptionalStrings(result, stringFields(*this));
    if (deviceID) {
        result["deviceID"] = *deviceID;
    }
    if (moreInfo) {
        result["moreInfo"] = *moreInfo;
    }
    if (acceptedFileTypes) {
        result["acceptedFileTypes"] = dictionaryArrayFromHVSeralizableArray(*acceptedFileTypes);
    }
    return result;
}

std::shared_ptr<RNClient> RNClient::copy() const {
    return clientFromDictionary(dictionary());
}

bool RNClient::isEqualToClient(const RNClient& other) const {
    return dictionary() == other.dictionary();
}

std::optional<std::string> RNClient::deviceIdentityKey() const {
    if (!connectionName || connectionName->empty()) {
        return std::nullopt;
    }
    const bool hasProduct = productID && !productID->empty();
    return fmt::format("{}|{}", *connectionName, hasProduct ? *productID : std::string("?"));
}

std::string RNClient::description() const {
    std::string text = fmt::format("<{}: {}", className(), static_cast<const void*>(this));
    if (connectionName) {
        text += fmt::format(" connectionName=\"{}\"", *connectionName);
    }
    if (deviceID) {
        text += fmt::format(" deviceID={}", *deviceID);
    }
    return text + ">";
}

std::string describe(const std::shared_ptr<RNClient>& client) {
    return client ? client->description() : std::string("(null)");
}

std::shared_ptr<RNUSBClient> RNUSBClient::create() {
    return std::make_shared<RNUSBClient>();
}

std::shared_ptr<RNUSBClient> RNUSBClient::initFromDictionary(const Dictionary& dictionary) {
    return readClient<RNUSBClient>(dictionary);
}

std::shared_ptr<RNBluetoothClient> RNBluetoothClient::create() {
    return std::make_shared<RNBluetoothClient>();
}

std::shared_ptr<RNBluetoothClient> RNBluetoothClient::initFromDictionary(const Dictionary& dictionary) {
    return readClient<RNBluetoothClient>(dictionary);
}

}  // namespace havrel
