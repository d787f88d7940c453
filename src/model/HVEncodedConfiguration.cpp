#include "model/HVEncodedConfiguration.hpp"

#include "model/HVArchive.hpp"
#include "model/HVDataHelpers.hpp"
#include "model/HVDictionaryReading.hpp"
#include "platform/Log.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace havrel {

namespace {

std::vector<HVMidiAxisDataWrapperPtr> wrappersFromArray(const Dictionary* array) {
    std::vector<HVMidiAxisDataWrapperPtr> wrappers;
    if (array == nullptr) {
        return wrappers;
    }
    for (const auto& element : *array) {
        if (element.is_object()) {
            wrappers.push_back(HVMidiAxisDataWrapper::initFromDictionary(element));
        }
    }
    return wrappers;
}

}  // namespace

std::shared_ptr<RNDataPackagerChangeCommandDataWrapper> RNDataPackagerChangeCommandDataWrapper::create() {
    return std::make_shared<RNDataPackagerChangeCommandDataWrapper>();
}

std::shared_ptr<RNDataPackagerChangeCommandDataWrapper> RNDataPackagerChangeCommandDataWrapper::initFromDictionary(
    const Dictionary& dictionary) {
    auto command = create();
    command->changedDataWrappers = wrappersFromArray(arrayValue(dictionary, "changedDataWrapper"));
    command->changeType = static_cast<HVChangeType>(integerValue(dictionary, "changeType").value_or(0));
    return command;
}

std::string RNDataPackagerChangeCommandDataWrapper::commandTypeIdentifier() {
    return "ComponentChangeCommand";
}

Dictionary RNDataPackagerChangeCommandDataWrapper::dictionary() const {
    Dictionary wrappers = Dictionary::array();
    for (const auto& wrapper : changedDataWrappers) {
        if (wrapper->numericID == 0) {
            log("this shouldnt be!");
        }
        wrappers.push_back(wrapper->dictionary());
    }
    return Dictionary{{"CommandType", commandTypeIdentifier()},
                      {"changedDataWrapper", std::move(wrappers)},
                      {"changeType", static_cast<unsigned>(changeType)}};
}

std::string RNDataPackagerChangeCommandDataWrapper::description() const {
    Dictionary ids = Dictionary::array();
    for (const auto& wrapper : changedDataWrappers) {
        ids.push_back(wrapper->numericID);
    }
    return fmt::format("command type: {} dataWrapper ID: {}", changeType, ids.dump());
}

std::shared_ptr<RNDataPackagerChangeCommandGeneral> RNDataPackagerChangeCommandGeneral::create() {
    return std::make_shared<RNDataPackagerChangeCommandGeneral>();
}

std::shared_ptr<RNDataPackagerChangeCommandGeneral> RNDataPackagerChangeCommandGeneral::initFromDictionary(
    const Dictionary& dictionary) {
    auto command = create();
    command->changeType = static_cast<HVChangeType>(integerValue(dictionary, "ChangeType").value_or(0));
    command->dataString = stringValue(dictionary, "ChangeData");
    return command;
}

std::string RNDataPackagerChangeCommandGeneral::commandTypeIdentifier() {
    return "GeneralChangeCommand";
}

Dictionary RNDataPackagerChangeCommandGeneral::dictionary() const {
    Dictionary result{{"CommandType", commandTypeIdentifier()}, {"ChangeType", static_cast<unsigned>(changeType)}};
    if (dataString) {
        result["ChangeData"] = *dataString;
    }
    return result;
}

Dictionary RNDataPackagerChangeCommandGeneral::archiveDictionary() const {
    Dictionary result{{"ChangeType", Dictionary::binary({changeType})}};
    if (dataString) {
        result["ChangeData"] = *dataString;
    }
    return result;
}

std::shared_ptr<RNDataPackagerChangeCommandGeneral> RNDataPackagerChangeCommandGeneral::fromArchiveDictionary(
    const Dictionary& dictionary) {
    auto command = create();
    if (const Dictionary* type = dictionaryValue(dictionary, "ChangeType"); type && type->is_binary() &&
                                                                             !type->get_binary().empty()) {
        command->changeType = type->get_binary().front();
    }
    command->dataString = stringValue(dictionary, "ChangeData");
    return command;
}

void RNDataPackagerChangeCommandGeneral::registerForArchiving() {
    HVRegisterArchivableClass("RNDataPackagerChangeCommandGeneral", [](const Dictionary& root) {
        return std::static_pointer_cast<HVSerializeable>(fromArchiveDictionary(root));
    });
}

std::shared_ptr<HVEncodedConfiguration> HVEncodedConfiguration::create() {
    return std::make_shared<HVEncodedConfiguration>();
}

std::shared_ptr<HVEncodedConfiguration> HVEncodedConfiguration::initFromDictionary(const Dictionary& dictionary) {
    auto configuration = create();
    configuration->dataWrappers = wrappersFromArray(arrayValue(dictionary, "dataWrappers"));
    return configuration;
}

std::shared_ptr<HVEncodedConfiguration> HVEncodedConfiguration::initWithData(ByteView data) {
    auto parsed = parseJSONFromOutside(data, "HVEncodedConfiguration");
    if (parsed.is_discarded()) {
        return create();
    }
    return initFromDictionary(parsed);
}

std::optional<Bytes> HVEncodedConfiguration::zippedData() const {
    const std::string text = dictionary().dump();
    return gzipDeflate(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

HVMidiAxisDataWrapperPtr HVEncodedConfiguration::dataWrapperWithNumericID(std::uint64_t numericID) const {
    HVMidiAxisDataWrapperPtr found;
    for (const auto& wrapper : dataWrappers) {
        if (wrapper->numericID == numericID) {
            found = wrapper;
        }
    }
    return found;
}

std::uint64_t HVEncodedConfiguration::indexOfDataWrapperWithNumericID(std::uint64_t numericID) const {
    for (std::size_t i = 0; i < dataWrappers.size(); ++i) {
        if (dataWrappers[i]->numericID == numericID) {
            return i;
        }
    }
    return kNoIndex;
}

void HVEncodedConfiguration::processChangeCommand(const RNDataPackagerChangeCommandDataWrapper& command) {
    switch (command.changeType) {
    case HVChangeTypeUpdate:
        for (const auto& wrapper : command.changedDataWrappers) {
            if (auto existing = dataWrapperWithNumericID(wrapper->numericID)) {
                existing->copyValuesFromDictionary(wrapper->dictionary(), {}, false);
            } else {
                logf("change for unknown data wrapper #{} \u2014 dropped (configuration out of sync)",
                     wrapper->numericID);
            }
        }
        break;
    case HVChangeTypeDelete: {
        auto remaining = dataWrappers;
        for (const auto& wrapper : command.changedDataWrappers) {
            if (auto existing = dataWrapperWithNumericID(wrapper->numericID)) {
                remaining.erase(std::remove(remaining.begin(), remaining.end(), existing), remaining.end());
            } else {
                logf("delete for unknown data wrapper #{} \u2014 already absent, skipping", wrapper->numericID);
            }
        }
        dataWrappers = std::move(remaining);
        break;
    }
    case HVChangeTypeAdd: {
        auto next = dataWrappers;
        next.insert(next.end(), command.changedDataWrappers.begin(), command.changedDataWrappers.end());
        sortDataWrappersByNumericID(next);
        dataWrappers = std::move(next);
        break;
    }
    default:
        break;
    }
}

Dictionary HVEncodedConfiguration::dictionary() const {
    return Dictionary{{"dataWrappers", dictionaryArrayFromHVSeralizableArray(dataWrappers)}};
}

std::string HVEncodedConfiguration::description() const {
    std::string text = "HVEncodedConfiguration\n";
    text += "data wrappers: \n";
    for (const auto& wrapper : dataWrappers) {
        text += wrapper->description() + "\n";
    }
    text += fmt::format("<HVEncodedConfiguration: {}>", static_cast<const void*>(this));
    return text;
}

}  // namespace havrel
