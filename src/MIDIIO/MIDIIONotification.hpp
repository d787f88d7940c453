#pragma once
// Changes of the system's MIDI setup: the raw form with the system's references, and the form
// the application's handler receives, in the library's own object values.

#include "MIDIIO/MIDIIOObject.hpp"
#include "MIDIIO/MIDIObjectCollections.hpp"

#include <optional>
#include <string>
#include <variant>

namespace MIDIIO {

class MIDIIOInternalNotification {
public:
    struct Added { MIDIObjectRef parentRef; MIDIObjectType parentType; MIDIObjectRef childRef; MIDIObjectType childType; };
    struct Removed { MIDIObjectRef parentRef; MIDIObjectType parentType; MIDIObjectRef childRef; MIDIObjectType childType; };
    struct PropertyChanged { MIDIObjectRef forRef; MIDIObjectType objectType; std::string propertyName; };
    struct IOError { MIDIDeviceRef deviceRef; OSStatus error; };
    struct Other { std::int32_t messageIDRawValue; };
    struct SetupChanged {};
    struct ThruConnectionChanged {};
    struct SerialPortOwnerChanged {};
    struct InternalStart {};
    using Storage = std::variant<Added, Removed, PropertyChanged, IOError, Other, SetupChanged, ThruConnectionChanged,
                                 SerialPortOwnerChanged, InternalStart>;

    explicit MIDIIOInternalNotification(const MIDINotificationMessage& message);
    const Storage& storage() const { return storage_; }
    template <class T>
    const T* get() const { return std::get_if<T>(&storage_); }
    // added, removed, propertyChanged and setupChanged change the cached views.
    bool updatesCache() const;

private:
    Storage storage_;
};

class MIDIIONotification {
public:
    struct Added { AnyMIDIIOObject object; std::optional<AnyMIDIIOObject> parent; };
    struct Removed { AnyMIDIIOObject object; std::optional<AnyMIDIIOObject> parent; };
    struct PropertyChanged { MIDIIOObjectProperty property; AnyMIDIIOObject forObject; };
    struct IOError { MIDIDevice device; MIDIIOError error; };
    struct Other { std::int32_t messageIDRawValue; };
    struct SetupChanged {};
    struct ThruConnectionChanged {};
    struct SerialPortOwnerChanged {};
    struct InternalStart {};
    using Storage = std::variant<Added, Removed, PropertyChanged, IOError, Other, SetupChanged, ThruConnectionChanged,
                                 SerialPortOwnerChanged, InternalStart>;

    // The public form: added objects are read from the system now, removed ones taken from the
    // cache as it stood before the change. Nothing when an object cannot be found or the
    // property is unknown.
    static std::optional<MIDIIONotification> from(const MIDIIOInternalNotification& internal,
                                                  const MIDIObjectCache& cache,
                                                  const std::shared_ptr<MIDIPlatform>& platform);

    const Storage& storage() const { return storage_; }
    template <class T>
    const T* get() const { return std::get_if<T>(&storage_); }
    std::string description() const;

    explicit MIDIIONotification(Storage storage) : storage_(std::move(storage)) {}

private:
    Storage storage_;
};

// The object of a reference as the system knows it now; nothing when it does not.
std::optional<AnyMIDIIOObject> systemObject(const std::shared_ptr<MIDIPlatform>& platform, MIDIObjectRef ref,
                                            MIDIObjectType type);

}  // namespace MIDIIO
