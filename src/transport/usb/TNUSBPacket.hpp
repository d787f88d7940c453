#pragma once
// The packet form of the USB multiplexer daemon's socket, as pure functions. Every message in
// each direction is a 16-byte header of four little-endian unsigned 32-bit fields (the whole
// packet's size, the protocol, the type, the tag) followed by the payload, an XML property list.
// A tag of 0 marks a broadcast; a reply echoes the tag of its request.

#include "platform/Types.hpp"
#include "transport/usb/TNError.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

inline constexpr std::uint32_t kUsbmuxPacketHeaderSize = 16;
// The largest payload the size field can describe.
inline constexpr std::uint32_t kUsbmuxPacketMaxPayloadSize = 0xFFFFFFEF;
inline constexpr std::uint32_t kUsbmuxPacketProtocolPlist = 1;
inline constexpr std::uint32_t kUsbmuxPacketTypePlistPayload = 8;

struct TNUSBPacketHeader {
    std::uint32_t size = 0;
    std::uint32_t protocol = 0;
    std::uint32_t type = 0;
    std::uint32_t tag = 0;

    bool operator==(const TNUSBPacketHeader&) const = default;
};

std::array<std::uint8_t, kUsbmuxPacketHeaderSize> encodePacketHeader(const TNUSBPacketHeader& header);
TNUSBPacketHeader decodePacketHeader(const std::array<std::uint8_t, kUsbmuxPacketHeaderSize>& bytes);
// A little-endian 32-bit field at the start of the bytes (which hold at least four).
std::uint32_t readLittleEndian32(const std::uint8_t* bytes);

// Header and payload as one buffer. The payload must fit the size field (a programming fault
// otherwise: requests are ours).
Bytes packetData(std::uint32_t type, std::uint32_t protocol, std::uint32_t tag, ByteView payload);

// A property-list packet (protocol 1, type 8) of the dictionary as XML; an error when the
// dictionary has no property-list form.
struct TNUSBPacketEncoding {
    std::optional<Bytes> data;
    TNOptionalError error;
};
TNUSBPacketEncoding plistPacketData(const Dictionary& packet, std::uint32_t tag);

// A request: a copy of the payload dictionary (when it is one) with "MessageType",
// "ProgName" and "ClientVersionString" set over it.
Dictionary packetDictionaryWithPacketType(const std::string& packetType,
                                          const Dictionary& payload = Dictionary::object());
Dictionary listenRequest();
Dictionary connectRequest(std::int64_t deviceID, std::int32_t port);
// The port with its two low bytes swapped: the daemon reads "PortNumber" in network order.
std::int64_t usbmuxPortNumber(std::int32_t port);

// Maps a reply's "Number" onto the error. An error already present is kept and the result is
// true; otherwise true for Number 0, false with a "TNUSBHubError" for anything else (code 0
// without a description when there is no Number).
bool errorFromPlistResponse(const std::optional<Dictionary>& response, TNOptionalError& error);

// A dictionary's text for log lines; strings that are not UTF-8 are shown with replacements.
std::string describePacket(const std::optional<Dictionary>& packet);

}  // namespace havrel
