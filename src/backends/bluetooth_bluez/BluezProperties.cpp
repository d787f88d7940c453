#include "backends/bluetooth_bluez/BluezProperties.hpp"

#include <cctype>

namespace havrel {

namespace {

constexpr std::string_view kBaseUUIDTail = "-0000-1000-8000-00805f9b34fb";

bool isHex(char character) {
    return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}

std::string upper(std::string text) {
    for (auto& character : text) {
        character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    }
    return text;
}

std::string lower(std::string text) {
    for (auto& character : text) {
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
    return text;
}

// Reads one property into the field when it has the type; counts it as rejected otherwise.
class Reader {
public:
    Reader(const BluezPropertyMap& properties, std::size_t& rejected) : properties_(properties), rejected_(rejected) {}

    template <typename Value>
    std::optional<Value> find(const char* key) {
        const auto found = properties_.find(key);
        if (found == properties_.end()) {
            return std::nullopt;
        }
        if (!found->second.containsValueOfType<Value>()) {
            ++rejected_;
            return std::nullopt;
        }
        try {
            return found->second.get<Value>();
        } catch (const sdbus::Error&) {
            ++rejected_;
            return std::nullopt;
        }
    }

    void flag(const char* key, std::optional<bool>& into) {
        if (const auto value = find<bool>(key)) {
            into = *value;
        }
    }

    void text(const char* key, std::optional<std::string>& into, std::size_t limit) {
        if (const auto value = find<std::string>(key)) {
            if (value->size() <= limit) {
                into = *value;
            } else {
                ++rejected_;
            }
        }
    }

    void path(const char* key, std::optional<std::string>& into) {
        if (const auto value = find<sdbus::ObjectPath>(key)) {
            into = std::string(*value);
        }
    }

    void uuid(const char* key, std::optional<std::string>& into) {
        if (const auto value = find<std::string>(key)) {
            if (auto text = platformUUIDText(*value)) {
                into = std::move(text);
            } else {
                ++rejected_;
            }
        }
    }

    void bytes(const char* key, std::optional<Bytes>& into) {
        if (const auto value = find<std::vector<std::uint8_t>>(key)) {
            if (value->size() <= kBluezMaximumValueLength) {
                into = *value;
            } else {
                ++rejected_;
            }
        }
    }

private:
    const BluezPropertyMap& properties_;
    std::size_t& rejected_;
};

}  // namespace

BluezInterface bluezInterface(const std::string& name) {
    if (name == kBluezAdapterInterface) {
        return BluezInterface::adapter;
    }
    if (name == kBluezDeviceInterface) {
        return BluezInterface::device;
    }
    if (name == kBluezServiceInterface) {
        return BluezInterface::service;
    }
    if (name == kBluezCharacteristicInterface) {
        return BluezInterface::characteristic;
    }
    if (name == kBluezDescriptorInterface) {
        return BluezInterface::descriptor;
    }
    return BluezInterface::other;
}

std::optional<std::string> platformUUIDText(const std::string& bluezText) {
    if (bluezText.size() != 36) {
        return std::nullopt;
    }
    for (std::size_t index = 0; index < bluezText.size(); ++index) {
        const bool dash = index == 8 || index == 13 || index == 18 || index == 23;
        if (dash ? bluezText[index] != '-' : !isHex(bluezText[index])) {
            return std::nullopt;
        }
    }
    const std::string text = lower(bluezText);
    if (text.compare(0, 4, "0000") == 0 && std::string_view(text).substr(8) == kBaseUUIDTail) {
        return upper(text.substr(4, 4));
    }
    return upper(text);
}

std::string bluezUUIDText(const std::string& platformText) {
    if (platformText.size() == 4) {
        return "0000" + lower(platformText) + std::string(kBaseUUIDTail);
    }
    return lower(platformText);
}

BluezProperties readBluezProperties(BluezInterface interface, const BluezPropertyMap& properties) {
    BluezProperties result;
    result.interface = interface;
    Reader reader(properties, result.rejected);
    switch (interface) {
    case BluezInterface::adapter:
        reader.flag("Powered", result.powered);
        reader.flag("Discovering", result.discovering);
        reader.text("Address", result.address, 64);
        break;
    case BluezInterface::device: {
        reader.text("Address", result.address, 64);
        reader.text("Name", result.name, kBluezMaximumNameLength);
        reader.text("Alias", result.alias, kBluezMaximumNameLength);
        if (const auto rssi = reader.find<std::int16_t>("RSSI")) {
            result.rssi = *rssi;
        }
        if (const auto uuids = reader.find<std::vector<std::string>>("UUIDs")) {
            if (uuids->size() <= kBluezMaximumUUIDCount) {
                std::vector<std::string> texts;
                for (const auto& text : *uuids) {
                    if (auto uuid = platformUUIDText(text)) {
                        texts.push_back(std::move(*uuid));
                    } else {
                        ++result.rejected;
                    }
                }
                result.uuids = std::move(texts);
            } else {
                ++result.rejected;
            }
        }
        reader.flag("Connected", result.connected);
        reader.flag("ServicesResolved", result.servicesResolved);
        reader.path("Adapter", result.owner);
        break;
    }
    case BluezInterface::service:
        reader.uuid("UUID", result.uuid);
        reader.path("Device", result.owner);
        break;
    case BluezInterface::characteristic:
        reader.uuid("UUID", result.uuid);
        reader.path("Service", result.owner);
        reader.bytes("Value", result.value);
        reader.flag("Notifying", result.notifying);
        if (const auto mtu = reader.find<std::uint16_t>("MTU")) {
            result.mtu = *mtu;
        }
        break;
    case BluezInterface::descriptor:
        reader.uuid("UUID", result.uuid);
        reader.path("Characteristic", result.owner);
        reader.bytes("Value", result.value);
        break;
    case BluezInterface::other:
        break;
    }
    return result;
}

void mergeBluezProperties(BluezProperties& into, const BluezProperties& update) {
    const auto take = [](auto& field, const auto& value) {
        if (value) {
            field = value;
        }
    };
    take(into.powered, update.powered);
    take(into.discovering, update.discovering);
    take(into.address, update.address);
    take(into.name, update.name);
    take(into.alias, update.alias);
    take(into.rssi, update.rssi);
    take(into.uuids, update.uuids);
    take(into.connected, update.connected);
    take(into.servicesResolved, update.servicesResolved);
    take(into.uuid, update.uuid);
    take(into.owner, update.owner);
    take(into.value, update.value);
    take(into.notifying, update.notifying);
    take(into.mtu, update.mtu);
}

}  // namespace havrel
