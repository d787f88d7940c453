#include "MIDIIO/MIDIIONotification.hpp"

namespace MIDIIO {

MIDIIOInternalNotification::MIDIIOInternalNotification(const MIDINotificationMessage& m) : storage_(SetupChanged{}) {
    switch (static_cast<MIDINotificationMessageID>(m.messageID)) {
        case MIDINotificationMessageID::setupChanged: storage_ = SetupChanged{}; break;
        case MIDINotificationMessageID::objectAdded: storage_ = Added{m.parent, m.parentType, m.child, m.childType}; break;
        case MIDINotificationMessageID::objectRemoved:
            storage_ = Removed{m.parent, m.parentType, m.child, m.childType};
            break;
        case MIDINotificationMessageID::propertyChanged:
            storage_ = PropertyChanged{m.object, m.objectType, m.propertyName};
            break;
        case MIDINotificationMessageID::thruConnectionsChanged: storage_ = ThruConnectionChanged{}; break;
        case MIDINotificationMessageID::serialPortOwnerChanged: storage_ = SerialPortOwnerChanged{}; break;
        case MIDINotificationMessageID::ioError: storage_ = IOError{m.driverDevice, m.errorCode}; break;
        case MIDINotificationMessageID::internalStart: storage_ = InternalStart{}; break;
        default: storage_ = Other{m.messageID}; break;
    }
}

bool MIDIIOInternalNotification::updatesCache() const {
    return get<Added>() || get<Removed>() || get<PropertyChanged>() || get<SetupChanged>();
}

std::optional<AnyMIDIIOObject> systemObject(const std::shared_ptr<MIDIPlatform>& platform, MIDIObjectRef ref,
                                            MIDIObjectType type) {
    if (ref == 0) {
        return std::nullopt;
    }
    std::int32_t id = 0;
    if (platform->objectGetIntegerProperty(ref, std::string(PropertyKey::kUniqueID), &id) != noErr) {
        return std::nullopt;
    }
    switch (type) {
        case MIDIObjectType::device:
        case MIDIObjectType::externalDevice: return AnyMIDIIOObject(MIDIDevice(platform, ref));
        case MIDIObjectType::entity:
        case MIDIObjectType::externalEntity: return AnyMIDIIOObject(MIDIEntity(platform, ref));
        case MIDIObjectType::source:
        case MIDIObjectType::externalSource: return AnyMIDIIOObject(MIDIOutputEndpoint(platform, ref));
        case MIDIObjectType::destination:
        case MIDIObjectType::externalDestination: return AnyMIDIIOObject(MIDIInputEndpoint(platform, ref));
        case MIDIObjectType::other: break;
    }
    return std::nullopt;
}

std::optional<MIDIIONotification> MIDIIONotification::from(const MIDIIOInternalNotification& internal,
                                                            const MIDIObjectCache& cache,
                                                            const std::shared_ptr<MIDIPlatform>& platform) {
    using I = MIDIIOInternalNotification;
    if (const auto* added = internal.get<I::Added>()) {
        auto object = systemObject(platform, added->childRef, added->childType);
        if (!object) {
            return std::nullopt;
        }
        return MIDIIONotification(Added{*object, systemObject(platform, added->parentRef, added->parentType)});
    }
    if (const auto* removed = internal.get<I::Removed>()) {
        auto object = cache.object(removed->childRef, removed->childType);
        if (!object) {
            return std::nullopt;
        }
        auto parent = cache.object(removed->parentRef, removed->parentType);
        if (!parent) {
            parent = systemObject(platform, removed->parentRef, removed->parentType);
        }
        return MIDIIONotification(Removed{*object, parent});
    }
    if (const auto* changed = internal.get<I::PropertyChanged>()) {
        auto property = MIDIIOObjectProperty::fromKey(changed->propertyName);
        auto object = systemObject(platform, changed->forRef, changed->objectType);
        if (!property || !object) {
            return std::nullopt;
        }
        return MIDIIONotification(PropertyChanged{*property, *object});
    }
    if (const auto* error = internal.get<I::IOError>()) {
        auto device = systemObject(platform, error->deviceRef, MIDIObjectType::device);
        if (!device) {
            return std::nullopt;
        }
        return MIDIIONotification(IOError{*device->get<MIDIDevice>(), MIDIIOError::osStatus(error->error)});
    }
    if (const auto* other = internal.get<I::Other>()) {
        return MIDIIONotification(Other{other->messageIDRawValue});
    }
    if (internal.get<I::SetupChanged>()) {
        return MIDIIONotification(SetupChanged{});
    }
    if (internal.get<I::ThruConnectionChanged>()) {
        return MIDIIONotification(ThruConnectionChanged{});
    }
    if (internal.get<I::SerialPortOwnerChanged>()) {
        return MIDIIONotification(SerialPortOwnerChanged{});
    }
    return MIDIIONotification(InternalStart{});
}

std::string MIDIIONotification::description() const {
    auto optionalObject = [](const std::optional<AnyMIDIIOObject>& object) {
        return object ? object->description() : std::string("nil");
    };
    struct Text {
        decltype(optionalObject) parent;
        std::string operator()(const Added& n) const {
            return "added(object: " + n.object.description() + ", parent: " + parent(n.parent) + ")";
        }
        std::string operator()(const Removed& n) const {
            return "removed(object: " + n.object.description() + ", parent: " + parent(n.parent) + ")";
        }
        std::string operator()(const PropertyChanged& n) const {
            return "propertyChanged(property: " + std::string(n.property.description()) +
                   ", forObject: " + n.forObject.description() + ")";
        }
        std::string operator()(const IOError& n) const {
            return "ioError(device: " + n.device.description() + ", error: " + n.error.description() + ")";
        }
        std::string operator()(const Other& n) const {
            return "other(messageIDRawValue: " + std::to_string(n.messageIDRawValue) + ")";
        }
        std::string operator()(const SetupChanged&) const { return "setupChanged"; }
        std::string operator()(const ThruConnectionChanged&) const { return "thruConnectionChanged"; }
        std::string operator()(const SerialPortOwnerChanged&) const { return "serialPortOwnerChanged"; }
        std::string operator()(const InternalStart&) const { return "internalStart"; }
    };
    return std::visit(Text{optionalObject}, storage_);
}

}  // namespace MIDIIO
