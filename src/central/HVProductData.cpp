#include "central/HVProductData.hpp"

#include "model/HVDictionaryReading.hpp"

#include <mutex>

namespace havrel {

namespace {

std::mutex sharedProductMutex;
std::shared_ptr<HVProductData> sharedProduct;

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
    std::lock_guard lock(sharedProductMutex);
    return sharedProduct;
}

void HVProductData::setSharedInstance(std::shared_ptr<HVProductData> productData) {
    std::lock_guard lock(sharedProductMutex);
    sharedProduct = std::move(productData);
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
