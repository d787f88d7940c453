#pragma once
// Values mirroring the system's device tree: devices, entities and endpoints. A value is a
// snapshot of a reference and its names; reading a property asks the system again.
//
// In this library an "input endpoint" is one that takes MIDI in (a destination of the system)
// and an "output endpoint" one that gives MIDI out (a source).

#include "MIDIIO/MIDIIOError.hpp"
#include "MIDIIO/MIDIIOObjectProperty.hpp"
#include "MIDIIO/MIDIPlatform.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace MIDIIO {

enum class MIDIIOObjectType { device, entity, inputEndpoint, outputEndpoint };
enum class MIDIEndpointType { input, output };

std::string_view description(MIDIIOObjectType type);

// The common interface of the four object values.
class MIDIIOObject {
public:
    MIDIIOObjectType objectType = MIDIIOObjectType::device;
    std::string name;
    std::string displayName;
    MIDIUniqueID uniqueID = 0;
    MIDIObjectRef coreMIDIObjectRef = 0;

    // The system the object was read from, which later reads ask again.
    const std::shared_ptr<MIDIPlatform>& platform() const { return platform_; }

    // Fresh reads of the system. Failed reads give nothing (false for flags).
    std::optional<std::string> getStringProperty(std::string_view key) const;
    std::optional<std::int32_t> getIntegerProperty(std::string_view key) const;
    std::optional<nlohmann::json> getDictionaryProperty(std::string_view key) const;
    // The throwing form of a text read: readError "Got nil while reading MIDIEndpointRef
    // property value <key>".
    std::string getStringPropertyThrowing(std::string_view key) const;

#define MIDIIO_TYPED_GETTER_String(Getter, key) \
    std::optional<std::string> get##Getter() const { return getStringProperty(key); }
#define MIDIIO_TYPED_GETTER_Integer(Getter, key) \
    std::optional<std::int32_t> get##Getter() const { return getIntegerProperty(key); }
#define MIDIIO_TYPED_GETTER_Boolean(Getter, key) \
    bool get##Getter() const { return getIntegerProperty(key).value_or(0) != 0; }
#define MIDIIO_TYPED_GETTER_Dictionary(Getter, key) \
    std::optional<nlohmann::json> get##Getter() const { return getDictionaryProperty(key); }
#define MIDIIO_TYPED_GETTER(caseName, Getter, key, display, kind) MIDIIO_TYPED_GETTER_##kind(Getter, key)
    MIDIIO_OBJECT_PROPERTIES(MIDIIO_TYPED_GETTER)
#undef MIDIIO_TYPED_GETTER
#undef MIDIIO_TYPED_GETTER_String
#undef MIDIIO_TYPED_GETTER_Integer
#undef MIDIIO_TYPED_GETTER_Boolean
#undef MIDIIO_TYPED_GETTER_Dictionary

    // The value of one property as read now.
    MIDIIOObjectProperty::Value<std::string> propertyValue(MIDIIOObjectProperty property) const;
    // The value as text for display: "-" when not set, the error's text on a failed read,
    // "Yes"/"No" for flags, compact JSON for dictionaries.
    std::string propertyStringValue(MIDIIOObjectProperty property) const;
    // Every property as (display name, text), in property order.
    std::vector<std::pair<std::string, std::string>> propertiesAsStrings() const;
    // All properties as the system gives them; nothing on a failed read.
    std::optional<nlohmann::json> getProperties(bool deep = false) const;

    // The same snapshot: type, names, unique ID and reference.
    friend bool operator==(const MIDIIOObject& a, const MIDIIOObject& b) {
        return a.objectType == b.objectType && a.name == b.name && a.displayName == b.displayName &&
               a.uniqueID == b.uniqueID && a.coreMIDIObjectRef == b.coreMIDIObjectRef;
    }

protected:
    MIDIIOObject() = default;
    // Reads name, display name and unique ID of the reference.
    MIDIIOObject(MIDIIOObjectType type, std::shared_ptr<MIDIPlatform> platform, MIDIObjectRef ref);

    std::shared_ptr<MIDIPlatform> platform_;
};

class MIDIEntity;
class MIDIInputEndpoint;
class MIDIOutputEndpoint;

class MIDIDevice : public MIDIIOObject {
public:
    MIDIDevice(std::shared_ptr<MIDIPlatform> platform, MIDIDeviceRef ref)
        : MIDIIOObject(MIDIIOObjectType::device, std::move(platform), ref) {}
    std::vector<MIDIEntity> entities() const;
    bool isOffline() const { return getIsOffline(); }
    std::string description() const;
};

class MIDIEntity : public MIDIIOObject {
public:
    MIDIEntity(std::shared_ptr<MIDIPlatform> platform, MIDIEntityRef ref)
        : MIDIIOObject(MIDIIOObjectType::entity, std::move(platform), ref) {}
    std::optional<MIDIDevice> device() const;
    std::vector<MIDIInputEndpoint> inputs() const;
    std::vector<MIDIOutputEndpoint> outputs() const;
    std::string description() const;
};

// The interface of the two endpoint values.
class MIDIEndpoint : public MIDIIOObject {
public:
    std::optional<MIDIEntity> entity() const;
    std::optional<MIDIDevice> device() const;

protected:
    using MIDIIOObject::MIDIIOObject;
};

class MIDIInputEndpoint : public MIDIEndpoint {
public:
    MIDIInputEndpoint(std::shared_ptr<MIDIPlatform> platform, MIDIEndpointRef ref)
        : MIDIEndpoint(MIDIIOObjectType::inputEndpoint, std::move(platform), ref) {}
    static constexpr MIDIEndpointType endpointType = MIDIEndpointType::input;
    std::string description() const;
};

class MIDIOutputEndpoint : public MIDIEndpoint {
public:
    MIDIOutputEndpoint(std::shared_ptr<MIDIPlatform> platform, MIDIEndpointRef ref)
        : MIDIEndpoint(MIDIIOObjectType::outputEndpoint, std::move(platform), ref) {}
    static constexpr MIDIEndpointType endpointType = MIDIEndpointType::output;
    std::string description() const;
};

class AnyMIDIEndpoint : public MIDIEndpoint {
public:
    explicit AnyMIDIEndpoint(const MIDIInputEndpoint& endpoint)
        : MIDIEndpoint(endpoint), endpointType(MIDIEndpointType::input) {}
    explicit AnyMIDIEndpoint(const MIDIOutputEndpoint& endpoint)
        : MIDIEndpoint(endpoint), endpointType(MIDIEndpointType::output) {}
    MIDIEndpointType endpointType;
};

class AnyMIDIIOObject {
public:
    using Storage = std::variant<MIDIDevice, MIDIEntity, MIDIInputEndpoint, MIDIOutputEndpoint>;

    AnyMIDIIOObject(MIDIDevice device) : storage_(std::move(device)) {}               // NOLINT
    AnyMIDIIOObject(MIDIEntity entity) : storage_(std::move(entity)) {}               // NOLINT
    AnyMIDIIOObject(MIDIInputEndpoint endpoint) : storage_(std::move(endpoint)) {}    // NOLINT
    AnyMIDIIOObject(MIDIOutputEndpoint endpoint) : storage_(std::move(endpoint)) {}   // NOLINT

    const Storage& storage() const { return storage_; }
    template <class T>
    const T* get() const { return std::get_if<T>(&storage_); }
    const MIDIIOObject& object() const {
        return std::visit([](const auto& o) -> const MIDIIOObject& { return o; }, storage_);
    }
    MIDIIOObjectType objectType() const { return object().objectType; }
    std::string description() const;

    friend bool operator==(const AnyMIDIIOObject&, const AnyMIDIIOObject&) = default;

private:
    Storage storage_;
};

// Reading the system, in the order it gives.
std::vector<MIDIDevice> getSystemDevices(const std::shared_ptr<MIDIPlatform>& platform);
std::vector<MIDIInputEndpoint> getSystemDestinationEndpoints(const std::shared_ptr<MIDIPlatform>& platform);
std::vector<MIDIOutputEndpoint> getSystemSourceEndpoints(const std::shared_ptr<MIDIPlatform>& platform);

}  // namespace MIDIIO
