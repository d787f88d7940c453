#include "MIDIIO/MIDIIOObject.hpp"

#include "MIDIInternals/TextHelpers.hpp"

namespace MIDIIO {

std::string_view description(MIDIIOObjectType type) {
    switch (type) {
        case MIDIIOObjectType::device: return "device";
        case MIDIIOObjectType::entity: return "entity";
        case MIDIIOObjectType::inputEndpoint: return "inputEndpoint";
        case MIDIIOObjectType::outputEndpoint: return "outputEndpoint";
    }
    return "";
}

MIDIIOObject::MIDIIOObject(MIDIIOObjectType type, MIDIObjectRef ref) : objectType(type), coreMIDIObjectRef(ref) {
    name = getName().value_or("");
    displayName = getDisplayName().value_or("");
    uniqueID = getUniqueID().value_or(0);
}

std::optional<std::string> MIDIIOObject::getStringProperty(std::string_view key) const {
    std::string value;
    if (MIDIPlatform::shared()->objectGetStringProperty(coreMIDIObjectRef, std::string(key), &value) != noErr) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::int32_t> MIDIIOObject::getIntegerProperty(std::string_view key) const {
    std::int32_t value = 0;
    if (MIDIPlatform::shared()->objectGetIntegerProperty(coreMIDIObjectRef, std::string(key), &value) != noErr) {
        return std::nullopt;
    }
    return value;
}

std::optional<nlohmann::json> MIDIIOObject::getDictionaryProperty(std::string_view key) const {
    nlohmann::json value;
    if (MIDIPlatform::shared()->objectGetDictionaryProperty(coreMIDIObjectRef, std::string(key), &value) != noErr) {
        return std::nullopt;
    }
    return value;
}

std::string MIDIIOObject::getStringPropertyThrowing(std::string_view key) const {
    auto value = getStringProperty(key);
    if (!value) {
        throw MIDIIOError::readError("Got nil while reading MIDIEndpointRef property value " + std::string(key));
    }
    return *value;
}

MIDIIOObjectProperty::Value<std::string> MIDIIOObject::propertyValue(MIDIIOObjectProperty property) const {
    using Value = MIDIIOObjectProperty::Value<std::string>;
    auto platform = MIDIPlatform::shared();
    std::string key(property.key());
    OSStatus status = noErr;
    std::string text;
    switch (property.valueKind()) {
        case MIDIIOObjectProperty::Kind::String:
            status = platform->objectGetStringProperty(coreMIDIObjectRef, key, &text);
            break;
        case MIDIIOObjectProperty::Kind::Integer:
        case MIDIIOObjectProperty::Kind::Boolean: {
            std::int32_t value = 0;
            status = platform->objectGetIntegerProperty(coreMIDIObjectRef, key, &value);
            if (property.valueKind() == MIDIIOObjectProperty::Kind::Boolean) {
                text = value != 0 ? "Yes" : "No";
            } else {
                text = std::to_string(value);
            }
            break;
        }
        case MIDIIOObjectProperty::Kind::Dictionary: {
            nlohmann::json value;
            status = platform->objectGetDictionaryProperty(coreMIDIObjectRef, key, &value);
            text = value.dump();
            break;
        }
    }
    if (status == MIDIOSStatus::of(MIDIOSStatus::Case::unknownProperty).rawValue()) {
        return Value::notSet();
    }
    if (status != noErr) {
        return Value::error(MIDIIOError::osStatus(status));
    }
    return Value::value(text);
}

std::string MIDIIOObject::propertyStringValue(MIDIIOObjectProperty property) const {
    auto value = propertyValue(property);
    if (auto* text = std::get_if<std::string>(&value.storage)) {
        return *text;
    }
    if (auto* error = std::get_if<MIDIIOError>(&value.storage)) {
        return error->description();
    }
    return "-";
}

std::vector<std::pair<std::string, std::string>> MIDIIOObject::propertiesAsStrings() const {
    std::vector<std::pair<std::string, std::string>> result;
    for (auto property : MIDIIOObjectProperty::allCases()) {
        result.emplace_back(std::string(property.displayName()), propertyStringValue(property));
    }
    return result;
}

std::optional<nlohmann::json> MIDIIOObject::getProperties(bool deep) const {
    nlohmann::json properties;
    if (MIDIPlatform::shared()->objectGetProperties(coreMIDIObjectRef, &properties, deep) != noErr) {
        return std::nullopt;
    }
    return properties;
}

namespace {
// The objects at indexes 0 ..< count, skipping references the system gives as 0.
template <class T, class Get>
std::vector<T> collect(ItemCount count, Get&& get) {
    std::vector<T> result;
    for (ItemCount i = 0; i < count; ++i) {
        if (auto ref = get(i); ref != 0) {
            result.emplace_back(ref);
        }
    }
    return result;
}

std::string objectDescription(std::string_view type, const MIDIIOObject& object) {
    return std::string(type) + "(name: " + MIDIInternals::quoted(object.name) + ", uniqueID: " +
           std::to_string(object.uniqueID) + ")";
}
}  // namespace

std::vector<MIDIEntity> MIDIDevice::entities() const {
    auto platform = MIDIPlatform::shared();
    return collect<MIDIEntity>(platform->deviceGetNumberOfEntities(coreMIDIObjectRef), [&](ItemCount i) { return platform->deviceGetEntity(coreMIDIObjectRef, i); });
}

std::string MIDIDevice::description() const { return objectDescription("MIDIDevice", *this); }

std::optional<MIDIDevice> MIDIEntity::device() const {
    MIDIDeviceRef ref = 0;
    if (MIDIPlatform::shared()->entityGetDevice(coreMIDIObjectRef, &ref) != noErr || ref == 0) {
        return std::nullopt;
    }
    return MIDIDevice(ref);
}

std::vector<MIDIInputEndpoint> MIDIEntity::inputs() const {
    auto platform = MIDIPlatform::shared();
    return collect<MIDIInputEndpoint>(platform->entityGetNumberOfDestinations(coreMIDIObjectRef), [&](ItemCount i) { return platform->entityGetDestination(coreMIDIObjectRef, i); });
}

std::vector<MIDIOutputEndpoint> MIDIEntity::outputs() const {
    auto platform = MIDIPlatform::shared();
    return collect<MIDIOutputEndpoint>(platform->entityGetNumberOfSources(coreMIDIObjectRef), [&](ItemCount i) { return platform->entityGetSource(coreMIDIObjectRef, i); });
}

std::string MIDIEntity::description() const { return objectDescription("MIDIEntity", *this); }

std::optional<MIDIEntity> MIDIEndpoint::entity() const {
    MIDIEntityRef ref = 0;
    if (MIDIPlatform::shared()->endpointGetEntity(coreMIDIObjectRef, &ref) != noErr || ref == 0) {
        return std::nullopt;
    }
    return MIDIEntity(ref);
}

std::optional<MIDIDevice> MIDIEndpoint::device() const {
    auto owner = entity();
    return owner ? owner->device() : std::nullopt;
}

std::string MIDIInputEndpoint::description() const { return objectDescription("MIDIInputEndpoint", *this); }
std::string MIDIOutputEndpoint::description() const { return objectDescription("MIDIOutputEndpoint", *this); }

std::string AnyMIDIIOObject::description() const {
    return std::visit([](const auto& object) { return object.description(); }, storage_);
}

std::vector<MIDIDevice> getSystemDevices() {
    auto platform = MIDIPlatform::shared();
    return collect<MIDIDevice>(platform->getNumberOfDevices(), [&](ItemCount i) { return platform->getDevice(i); });
}

std::vector<MIDIInputEndpoint> getSystemDestinationEndpoints() {
    auto platform = MIDIPlatform::shared();
    return collect<MIDIInputEndpoint>(platform->getNumberOfDestinations(), [&](ItemCount i) { return platform->getDestination(i); });
}

std::vector<MIDIOutputEndpoint> getSystemSourceEndpoints() {
    auto platform = MIDIPlatform::shared();
    return collect<MIDIOutputEndpoint>(platform->getNumberOfSources(), [&](ItemCount i) { return platform->getSource(i); });
}

}  // namespace MIDIIO
