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

MIDIIOObject::MIDIIOObject(MIDIIOObjectType type, std::shared_ptr<MIDIPlatform> platform, MIDIObjectRef ref)
    : objectType(type), coreMIDIObjectRef(ref), platform_(std::move(platform)) {
    name = getName().value_or("");
    displayName = getDisplayName().value_or("");
    uniqueID = getUniqueID().value_or(0);
}

std::optional<std::string> MIDIIOObject::getStringProperty(std::string_view key) const {
    std::string value;
    if (platform_->objectGetStringProperty(coreMIDIObjectRef, std::string(key), &value) != noErr) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::int32_t> MIDIIOObject::getIntegerProperty(std::string_view key) const {
    std::int32_t value = 0;
    if (platform_->objectGetIntegerProperty(coreMIDIObjectRef, std::string(key), &value) != noErr) {
        return std::nullopt;
    }
    return value;
}

std::optional<nlohmann::json> MIDIIOObject::getDictionaryProperty(std::string_view key) const {
    nlohmann::json value;
    if (platform_->objectGetDictionaryProperty(coreMIDIObjectRef, std::string(key), &value) != noErr) {
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
    const auto& platform = platform_;
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
    if (platform_->objectGetProperties(coreMIDIObjectRef, &properties, deep) != noErr) {
        return std::nullopt;
    }
    return properties;
}

namespace {
// The objects at indexes 0 ..< count, skipping references the system gives as 0.
template <class T, class Get>
std::vector<T> collect(const std::shared_ptr<MIDIPlatform>& platform, ItemCount count, Get&& get) {
    std::vector<T> result;
    for (ItemCount i = 0; i < count; ++i) {
        if (auto ref = get(i); ref != 0) {
            result.emplace_back(platform, ref);
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
    const auto& platform = platform_;
    return collect<MIDIEntity>(platform, platform->deviceGetNumberOfEntities(coreMIDIObjectRef), [&](ItemCount i) { return platform->deviceGetEntity(coreMIDIObjectRef, i); });
}

std::string MIDIDevice::description() const { return objectDescription("MIDIDevice", *this); }

std::optional<MIDIDevice> MIDIEntity::device() const {
    MIDIDeviceRef ref = 0;
    if (platform_->entityGetDevice(coreMIDIObjectRef, &ref) != noErr || ref == 0) {
        return std::nullopt;
    }
    return MIDIDevice(platform_, ref);
}

std::vector<MIDIInputEndpoint> MIDIEntity::inputs() const {
    const auto& platform = platform_;
    return collect<MIDIInputEndpoint>(platform, platform->entityGetNumberOfDestinations(coreMIDIObjectRef), [&](ItemCount i) { return platform->entityGetDestination(coreMIDIObjectRef, i); });
}

std::vector<MIDIOutputEndpoint> MIDIEntity::outputs() const {
    const auto& platform = platform_;
    return collect<MIDIOutputEndpoint>(platform, platform->entityGetNumberOfSources(coreMIDIObjectRef), [&](ItemCount i) { return platform->entityGetSource(coreMIDIObjectRef, i); });
}

std::string MIDIEntity::description() const { return objectDescription("MIDIEntity", *this); }

std::optional<MIDIEntity> MIDIEndpoint::entity() const {
    MIDIEntityRef ref = 0;
    if (platform_->endpointGetEntity(coreMIDIObjectRef, &ref) != noErr || ref == 0) {
        return std::nullopt;
    }
    return MIDIEntity(platform_, ref);
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

std::vector<MIDIDevice> getSystemDevices(const std::shared_ptr<MIDIPlatform>& platform) {
    return collect<MIDIDevice>(platform, platform->getNumberOfDevices(), [&](ItemCount i) { return platform->getDevice(i); });
}

std::vector<MIDIInputEndpoint> getSystemDestinationEndpoints(const std::shared_ptr<MIDIPlatform>& platform) {
    return collect<MIDIInputEndpoint>(platform, platform->getNumberOfDestinations(), [&](ItemCount i) { return platform->getDestination(i); });
}

std::vector<MIDIOutputEndpoint> getSystemSourceEndpoints(const std::shared_ptr<MIDIPlatform>& platform) {
    return collect<MIDIOutputEndpoint>(platform, platform->getNumberOfSources(), [&](ItemCount i) { return platform->getSource(i); });
}

}  // namespace MIDIIO
