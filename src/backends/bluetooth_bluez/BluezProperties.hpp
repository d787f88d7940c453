#pragma once
// What the backend takes from BlueZ's objects: the properties of the five interfaces it uses,
// read with their types checked and their sizes bounded. Whatever else a property map holds, and
// any property of the wrong type or beyond its bound, is left out (and counted, so the caller
// can say so in one line). Nothing here throws.

#include "platform/Types.hpp"

#include <sdbus-c++/Types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

inline constexpr const char* kBluezService = "org.bluez";
inline constexpr const char* kBluezAdapterInterface = "org.bluez.Adapter1";
inline constexpr const char* kBluezDeviceInterface = "org.bluez.Device1";
inline constexpr const char* kBluezServiceInterface = "org.bluez.GattService1";
inline constexpr const char* kBluezCharacteristicInterface = "org.bluez.GattCharacteristic1";
inline constexpr const char* kBluezDescriptorInterface = "org.bluez.GattDescriptor1";

// The longest attribute value (and so the longest notification) a GATT server may hold.
inline constexpr std::size_t kBluezMaximumValueLength = 512;
// The longest device name an advertisement or the name characteristic can carry.
inline constexpr std::size_t kBluezMaximumNameLength = 248;
// At most this many service UUIDs of one device are kept.
inline constexpr std::size_t kBluezMaximumUUIDCount = 64;

enum class BluezInterface { adapter, device, service, characteristic, descriptor, other };

BluezInterface bluezInterface(const std::string& name);

struct BluezProperties {
    BluezInterface interface = BluezInterface::other;
    // Adapter1
    std::optional<bool> powered;
    std::optional<bool> discovering;
    // Device1
    std::optional<std::string> address;
    std::optional<std::string> name;
    std::optional<std::string> alias;
    std::optional<std::int64_t> rssi;
    std::optional<std::vector<std::string>> uuids;  // upper-case texts
    std::optional<bool> connected;
    std::optional<bool> servicesResolved;
    // GATT objects: their UUID (upper case, 16-bit ones of the base UUID shortened to four
    // digits) and the path of the object they belong to (Device, Service or Characteristic).
    std::optional<std::string> uuid;
    std::optional<std::string> owner;
    // GattCharacteristic1 and GattDescriptor1
    std::optional<Bytes> value;
    std::optional<bool> notifying;
    std::optional<std::uint16_t> mtu;

    // Properties that were present but of the wrong type or too long.
    std::size_t rejected = 0;
};

using BluezPropertyMap = std::map<std::string, sdbus::Variant>;

BluezProperties readBluezProperties(BluezInterface interface, const BluezPropertyMap& properties);

// Later values win; fields absent from the update stay as they are.
void mergeBluezProperties(BluezProperties& into, const BluezProperties& update);

// The UUID text as the platform interface writes it, or nullopt when the text is not a UUID.
// "0000180f-0000-1000-8000-00805f9b34fb" becomes "180F"; others are upper-cased.
std::optional<std::string> platformUUIDText(const std::string& bluezText);
// The 128-bit lower-case text BlueZ takes ("180F" becomes "0000180f-0000-1000-8000-00805f9b34fb").
std::string bluezUUIDText(const std::string& platformText);

}  // namespace havrel
