#pragma once
// The simulated client's side of the handshake: who it says it is (frame 100), and what it makes
// of the Central's identity (frame 110).

#include "platform/Types.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace havrel {

struct HVSimIdentity {
    std::string connectionName = "Simulated Pad";
    std::string productID = "havrel-client-sim";
    std::string uniqueIdentifier;  // empty: derived from the connection name
    std::string apiVersion = "2.1";
    std::string version = "0.1.0";
    std::string osVersion;  // empty: this system's name and release
};

// The Central's identity as the client reads it.
struct HVSimCentralInfo {
    Dictionary dictionary;
    // Why the Central refuses this client; absent when it accepts it.
    std::optional<std::string> refusal;

    // "central-info <json>", the line the program prints.
    std::string line() const;
};

class HVSimHandshake {
public:
    // "havrel-client-sim:" and the name in lower case, every run of other characters than
    // letters and digits as one '-': "Simulated Pad" gives "havrel-client-sim:simulated-pad".
    static std::string uniqueIdentifierForName(std::string_view name);
    // "Linux 6.1.0-18-amd64": the system's name and release.
    static std::string systemVersion();

    // The client dictionary of an "RNUSBClient", the empty fields of the identity filled in.
    static Dictionary clientDictionary(const HVSimIdentity& identity);
    // The payload of frame 100: a binary property list {"usbClient": client dictionary}.
    static Bytes deviceInfoPayload(const HVSimIdentity& identity);

    // Reads the payload of frame 110. The Central refuses a client whose API version is newer
    // than its own. Throws HVSimError when the payload is not a JSON object with an
    // "apiVersion" text.
    static HVSimCentralInfo readCentralInfo(ByteView payload, std::string_view clientAPIVersion);
};

}  // namespace havrel
