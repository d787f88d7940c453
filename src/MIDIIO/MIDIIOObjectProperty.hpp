#pragma once
// The 45 object properties of the system, each with its key, its readable name and the kind of
// its value.

#include "MIDIIO/MIDIIOError.hpp"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace MIDIIO {

// X(case, Getter, key, display name, kind)
#define MIDIIO_OBJECT_PROPERTIES(X)                                                                      \
    X(name, Name, "name", "Name", String)                                                                \
    X(model, Model, "model", "Model", String)                                                            \
    X(manufacturer, Manufacturer, "manufacturer", "Manufacturer", String)                                \
    X(uniqueID, UniqueID, "uniqueID", "Unique ID", Integer)                                              \
    X(deviceID, DeviceID, "deviceID", "Device ID", Integer)                                              \
    X(supportsMMC, SupportsMMC, "supportsMMC", "Supports MMC", Boolean)                                  \
    X(supportsGeneralMIDI, SupportsGeneralMIDI, "supportsGeneralMIDI", "Supports General MIDI", Boolean) \
    X(supportsShowControl, SupportsShowControl, "supportsShowControl", "Supports Show Control", Boolean) \
    X(nameConfigurationDictionary, NameConfigurationDictionary, "nameConfigurationDictionary",           \
      "Name Configuration Dictionary", Dictionary)                                                       \
    X(maxSysExSpeed, MaxSysExSpeed, "maxSysExSpeed", "Max SysEx Speed", Integer)                         \
    X(driverDeviceEditorApp, DriverDeviceEditorApp, "driverDeviceEditorApp", "Driver Device Editor App", \
      String)                                                                                            \
    X(image, Image, "image", "Image", String)                                                            \
    X(displayName, DisplayName, "displayName", "Display Name", String)                                   \
    X(panDisruptsStereo, PanDisruptsStereo, "panDisruptsStereo", "Pan Disrupts Stereo", Boolean)         \
    X(protocolID, ProtocolID, "protocol", "Protocol ID", Integer)                                         \
    X(transmitsMTC, TransmitsMTC, "transmitsMTC", "Transmits MTC", Boolean)                              \
    X(receivesMTC, ReceivesMTC, "receivesMTC", "Receives MTC", Boolean)                                  \
    X(transmitsClock, TransmitsClock, "transmitsClock", "Transmits Clock", Boolean)                      \
    X(receivesClock, ReceivesClock, "receivesClock", "Receives Clock", Boolean)                          \
    X(advanceScheduleTimeMuSec, AdvanceScheduleTimeMuSec, "scheduleAheadMuSec",                          \
      "Advance Schedule Time (μs)", Integer)                                                             \
    X(isMixer, IsMixer, "isMixer", "Is Mixer", Boolean)                                                  \
    X(isSampler, IsSampler, "isSampler", "Is Sampler", Boolean)                                          \
    X(isEffectUnit, IsEffectUnit, "isEffectUnit", "Is Effect Unit", Boolean)                             \
    X(isDrumMachine, IsDrumMachine, "isDrumMachine", "Is Drum Machine", Boolean)                         \
    X(isOffline, IsOffline, "offline", "Is Offline", Boolean)                                            \
    X(isPrivate, IsPrivate, "private", "Is Private", Boolean)                                            \
    X(driverOwner, DriverOwner, "driver", "Driver Owner", String)                                        \
    X(driverVersion, DriverVersion, "driverVersion", "Driver Version", Integer)                          \
    X(canRoute, CanRoute, "canRoute", "Can Route", Boolean)                                              \
    X(isBroadcast, IsBroadcast, "broadcast", "Is Broadcast", Boolean)                                    \
    X(connectionUniqueID, ConnectionUniqueID, "connUniqueID", "Connection Unique ID", Integer)           \
    X(isEmbeddedEntity, IsEmbeddedEntity, "embedded", "Is Embedded Entity", Boolean)                    \
    X(singleRealtimeEntity, SingleRealtimeEntity, "singleRealtimeEntity", "Single Realtime Entity",      \
      Integer)                                                                                           \
    X(receiveChannels, ReceiveChannels, "receiveChannels", "Receive Channels", Integer)                  \
    X(transmitChannels, TransmitChannels, "transmitChannels", "Transmit Channels", Integer)              \
    X(maxReceiveChannels, MaxReceiveChannels, "maxReceiveChannels", "Max Receive Channels", Integer)     \
    X(maxTransmitChannels, MaxTransmitChannels, "maxTransmitChannels", "Max Transmit Channels", Integer) \
    X(receivesBankSelectLSB, ReceivesBankSelectLSB, "receivesBankSelectLSB", "Receives Bank Select LSB", \
      Boolean)                                                                                           \
    X(receivesBankSelectMSB, ReceivesBankSelectMSB, "receivesBankSelectMSB", "Receives Bank Select MSB", \
      Boolean)                                                                                           \
    X(transmitsBankSelectLSB, TransmitsBankSelectLSB, "transmitsBankSelectLSB",                          \
      "Transmits Bank Select LSB", Boolean)                                                              \
    X(transmitsBankSelectMSB, TransmitsBankSelectMSB, "transmitsBankSelectMSB",                          \
      "Transmits Bank Select MSB", Boolean)                                                              \
    X(receivesNotes, ReceivesNotes, "receivesNotes", "Receives Notes", Boolean)                          \
    X(transmitsNotes, TransmitsNotes, "transmitsNotes", "Transmits Notes", Boolean)                      \
    X(receivesProgramChanges, ReceivesProgramChanges, "receivesProgramChanges", "Receives Program Changes", \
      Boolean)                                                                                           \
    X(transmitsProgramChanges, TransmitsProgramChanges, "transmitsProgramChanges",                       \
      "Transmits Program Changes", Boolean)

// The system's key of each property, by the constant's name.
namespace PropertyKey {
#define MIDIIO_PROPERTY_KEY(caseName, Getter, key, display, kind) inline constexpr std::string_view k##Getter = key;
MIDIIO_OBJECT_PROPERTIES(MIDIIO_PROPERTY_KEY)
#undef MIDIIO_PROPERTY_KEY
}  // namespace PropertyKey

class MIDIIOObjectProperty {
public:
    enum class Case {
#define MIDIIO_PROPERTY_CASE(caseName, Getter, key, display, kind) caseName,
        MIDIIO_OBJECT_PROPERTIES(MIDIIO_PROPERTY_CASE)
#undef MIDIIO_PROPERTY_CASE
    };
    enum class Kind { String, Integer, Boolean, Dictionary };
    static constexpr std::size_t caseCount = 45;

    // A property's value as read: the value, the error of the read, or nothing set.
    template <class T>
    struct Value {
        struct NotSet {};
        std::variant<T, MIDIIOError, NotSet> storage;
        static Value value(T x) { return Value{std::move(x)}; }
        static Value error(MIDIIOError e) { return Value{std::move(e)}; }
        static Value notSet() { return Value{NotSet{}}; }
    };

    constexpr MIDIIOObjectProperty(Case kind) : case_(kind) {}  // NOLINT: a case is a property
    static const std::array<MIDIIOObjectProperty, caseCount>& allCases();
    // The property whose key is the text, if any.
    static std::optional<MIDIIOObjectProperty> fromKey(std::string_view key);

    Case kind() const { return case_; }
    std::string_view key() const;
    // "Advance Schedule Time (μs)", "Is Embedded Entity", ...
    std::string_view displayName() const;
    Kind valueKind() const;
    // The case name, "advanceScheduleTimeMuSec".
    std::string_view description() const;

    friend bool operator==(const MIDIIOObjectProperty&, const MIDIIOObjectProperty&) = default;

private:
    Case case_;
};

}  // namespace MIDIIO
