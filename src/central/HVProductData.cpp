#include "central/HVProductData.hpp"

#include "model/HVDictionaryReading.hpp"
#include "platform/SharedSlot.hpp"

namespace havrel {

namespace {

// Empty until the host sets its product.
SharedSlot<HVProductData>& sharedSlot() {
    static SharedSlot<HVProductData> slot;
    return slot;
}

void readString(const Dictionary& dictionary, std::string_view key, std::string& field) {
    if (auto value = stringValue(dictionary, key)) {
        field = std::move(*value);
    }
}

}  // namespace

std::shared_ptr<HVProductData> HVProductData::create() {
    return std::make_shared<HVProductData>();
}

std::shared_ptr<HVProductData> HVProductData::sharedInstance() {
    return sharedSlot().get();
}

void HVProductData::setSharedInstance(std::shared_ptr<HVProductData> productData) {
    sharedSlot().set(std::move(productData));
}

std::shared_ptr<HVFileType> HVFileType::create() {
    return std::make_shared<HVFileType>();
}

std::shared_ptr<HVFileType> HVFileType::initFromDictionary(const Dictionary& dictionary) {
    auto fileType = create();
    fileType->copyValuesFromDictionary(dictionary, {}, false);
    return fileType;
}

void HVFileType::copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues,
                                          bool forceNewID) {
    (void)excludeValues;
    (void)forceNewID;
    readString(dictionary, "fileExtension", fileExtension);
    readString(dictionary, "apiVersion", apiVersion);
    readString(dictionary, "version", version);
}

Dictionary HVFileType::dictionary() const {
    return Dictionary{{"fileExtension", fileExtension}, {"apiVersion", apiVersion}, {"version", version}};
}

}  // namespace havrel
