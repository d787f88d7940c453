#pragma once
// What the system knows of one connected client device, and what the device says of itself in
// its handshake. The wire form is a dictionary whose "type" chooses the class: "RNClient",
// "RNUSBClient" or "RNBluetoothClient".

#include "central/HVProductData.hpp"
#include "model/HVSerializeable.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HVEncodedConfiguration;
class TNChannel;

// The platform's peripheral object of a Bluetooth client, held opaque: the Bluetooth transport
// stores whatever object stands for the device, and one device is one object (compared by
// address).
using PeripheralReference = std::shared_ptr<const void>;

inline constexpr std::int64_t RNClientStateDefault = 0;
inline constexpr std::int64_t RNClientStateAcceptedOverUSB = 1;
inline constexpr std::int64_t RNClientStateRefused = 2;

class RNClient : public HVSerializeable {
public:
    static std::shared_ptr<RNClient> create();
    // Each wire key sets its field only when present with a value of its kind. Without
    // "acceptedFileTypes" the field is the empty array, never absent.
    static std::shared_ptr<RNClient> initFromDictionary(const Dictionary& dictionary);

    // "RNUSBClient" and "RNBluetoothClient" as they stand, "RNClient" for anything else.
    static std::string classNameFromType(const std::optional<std::string>& type);
    // A new client of the class that "type" names; no "type" makes a plain RNClient.
    static std::shared_ptr<RNClient> clientFromDictionary(const Dictionary& dictionary);

    // Wire fields.
    std::optional<std::string> productID;
    std::optional<std::string> version;
    std::optional<std::string> apiVersion;
    std::optional<std::string> osVersion;
    std::optional<std::string> connectionName;
    std::optional<std::string> uniqueIdentifier;
    std::optional<std::vector<std::shared_ptr<HVFileType>>> acceptedFileTypes;
    // The USB multiplexer device number; absent on Bluetooth and on the local IPv4 path.
    std::optional<std::int64_t> deviceID;
    // Free extra data, handed through as it is.
    std::optional<Dictionary> moreInfo;

    // Local fields; none of them travels or survives a copy.
    std::int64_t state = RNClientStateDefault;
    // The text shown for a refused client.
    std::optional<std::string> errorMessage;
    // The client's configuration once it has synced; absent until then.
    std::shared_ptr<HVEncodedConfiguration> configuration;
    // This Bluetooth client is muted because the same device is connected over USB.
    bool supersededByUSB = false;

    // "type" (the class name), then each wire field that is present.
    Dictionary dictionary() const override;
    std::string className() const override { return "RNClient"; }

    // "<class: address>" with the connection name and device number when present; for log lines.
    std::string description() const;

    // A new client of the same class through dictionary(): only the wire fields survive.
    std::shared_ptr<RNClient> copy() const;
    // True when both dictionaries are equal.
    bool isEqualToClient(const RNClient& other) const;

    // "<connectionName>|<productID>" ("?" for an empty or absent productID) that ties the USB
    // and Bluetooth records of one device together; absent without a connection name.
    std::optional<std::string> deviceIdentityKey() const;

protected:
    void readValuesFromDictionary(const Dictionary& dictionary);

    template <typename Client>
    static std::shared_ptr<Client> readClient(const Dictionary& dictionary) {
        auto client = std::make_shared<Client>();
        client->readValuesFromDictionary(dictionary);
        return client;
    }
};

class RNUSBClient final : public RNClient {
public:
    static std::shared_ptr<RNUSBClient> create();
    static std::shared_ptr<RNUSBClient> initFromDictionary(const Dictionary& dictionary);

    std::string className() const override { return "RNUSBClient"; }

    // The framed connection to this client; set by the USB transport, unset on the Central path.
    std::shared_ptr<TNChannel> channel;
};

class RNBluetoothClient final : public RNClient {
public:
    static std::shared_ptr<RNBluetoothClient> create();
    static std::shared_ptr<RNBluetoothClient> initFromDictionary(const Dictionary& dictionary);

    std::string className() const override { return "RNBluetoothClient"; }

    // The device this client was received from; set by the Bluetooth transport.
    PeripheralReference peripheral;
};

// The client's description, or "(null)".
std::string describe(const std::shared_ptr<RNClient>& client);

}  // namespace havrel
