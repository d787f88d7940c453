#include "model/HVArchive.hpp"

#include "model/RNMIDIControllerSignal.hpp"
#include "platform/Log.hpp"
#include "platform/PropertyList.hpp"

#include <map>
#include <mutex>

namespace havrel {

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, HVArchiveFactory> factories;

    Registry() {
        // The model's own small classes are always restorable.
        factories["RNMIDIControllerSignal"] = [](const Dictionary& d) {
            return std::static_pointer_cast<HVSerializeable>(RNMIDIControllerSignal::initFromDictionary(d));
        };
        factories["HVMIDIAttribute"] = [](const Dictionary& d) {
            return std::static_pointer_cast<HVSerializeable>(HVMIDIAttribute::initFromDictionary(d));
        };
    }
};

Registry& registry() {
    static Registry instance;
    return instance;
}

}  // namespace

void HVRegisterArchivableClass(const std::string& className, HVArchiveFactory factory) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    r.factories[className] = std::move(factory);
}

std::optional<Bytes> HVArchiveObject(const std::shared_ptr<const HVSerializeable>& object) {
    if (!object) {
        return std::nullopt;
    }
    Dictionary archive{{"class", object->className()}, {"root", object->archiveDictionary()}};
    auto written = propertyListData(archive, PropertyListFormat::binary);
    if (!written.data) {
        logf("[HVKeyedArchiving] could not archive {}: {}", object->className(), written.error);
        return std::nullopt;
    }
    return written.data;
}

std::shared_ptr<HVSerializeable> HVUnarchiveObject(const std::optional<Bytes>& data) {
    if (!data) {
        return nullptr;
    }
    auto archive = propertyListFromData(*data);
    if (!archive || !archive->is_object() || !archive->contains("class") || !(*archive)["class"].is_string() ||
        !archive->contains("root")) {
        log("[HVKeyedArchiving] could not read archive: the data is not an archive");
        return nullptr;
    }
    const std::string className = (*archive)["class"].get<std::string>();
    HVArchiveFactory factory;
    {
        auto& r = registry();
        std::lock_guard lock(r.mutex);
        auto it = r.factories.find(className);
        if (it != r.factories.end()) {
            factory = it->second;
        }
    }
    if (!factory) {
        logf("[HVKeyedArchiving] could not read archive: no class named {}", className);
        return nullptr;
    }
    return factory((*archive)["root"]);
}

}  // namespace havrel
