#include "transport/usb/TNUSBPacket.hpp"

#include "platform/Assert.hpp"
#include "platform/PropertyList.hpp"

#include <algorithm>
#include <string_view>

#ifndef HAVREL_PROJECT_VERSION
#error "HAVREL_PROJECT_VERSION must name the project's version"
#endif

namespace havrel {

namespace {

void writeLittleEndian32(std::uint8_t* out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        out[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

// The program's name and version as the daemon sees them, fixed for the process.
const std::string& programName() {
    static const std::string name = "havrel-central";
    return name;
}

const std::string& programVersion() {
    static const std::string version = HAVREL_PROJECT_VERSION;
    return version;
}

std::optional<std::string_view> replyErrorText(std::int64_t number) {
    switch (number) {
    case 0:
        return std::nullopt;
    case 1:
        return "illegal command";
    case 2:
        return "unknown device";
    case 3:
        return "connection refused";
    case 6:
        return "invalid version";
    default:
        return "Unspecified error";
    }
}

}  // namespace

std::uint32_t readLittleEndian32(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

std::array<std::uint8_t, kUsbmuxPacketHeaderSize> encodePacketHeader(const TNUSBPacketHeader& header) {
    std::array<std::uint8_t, kUsbmuxPacketHeaderSize> bytes{};
    writeLittleEndian32(bytes.data(), header.size);
    writeLittleEndian32(bytes.data() + 4, header.protocol);
    writeLittleEndian32(bytes.data() + 8, header.type);
    writeLittleEndian32(bytes.data() + 12, header.tag);
    return bytes;
}

TNUSBPacketHeader decodePacketHeader(const std::array<std::uint8_t, kUsbmuxPacketHeaderSize>& bytes) {
    return TNUSBPacketHeader{readLittleEndian32(bytes.data()), readLittleEndian32(bytes.data() + 4),
                             readLittleEndian32(bytes.data() + 8), readLittleEndian32(bytes.data() + 12)};
}

Bytes packetData(std::uint32_t type, std::uint32_t protocol, std::uint32_t tag, ByteView payload) {
    HV_ASSERT(payload.size() <= kUsbmuxPacketMaxPayloadSize);
    const auto size = static_cast<std::uint32_t>(payload.size() + kUsbmuxPacketHeaderSize);
    const auto header = encodePacketHeader({size, protocol, type, tag});
    Bytes data(size);
    std::copy(header.begin(), header.end(), data.begin());
    std::copy(payload.begin(), payload.end(), data.begin() + kUsbmuxPacketHeaderSize);
    return data;
}

TNUSBPacketEncoding plistPacketData(const Dictionary& packet, std::uint32_t tag) {
    auto written = propertyListData(packet, PropertyListFormat::xml);
    if (!written.data) {
        return {std::nullopt, TNError::make(TNUSBHubErrorDomain, 0, written.error)};
    }
    return {packetData(kUsbmuxPacketTypePlistPayload, kUsbmuxPacketProtocolPlist, tag, *written.data), std::nullopt};
}

Dictionary packetDictionaryWithPacketType(const std::string& packetType, const Dictionary& payload) {
    Dictionary packet = payload.is_object() ? payload : Dictionary::object();
    packet["MessageType"] = packetType;
    packet["ProgName"] = programName();
    packet["ClientVersionString"] = programVersion();
    return packet;
}

Dictionary listenRequest() {
    return packetDictionaryWithPacketType("Listen", {{"kLibUSBMuxVersion", 3}});
}

std::int64_t usbmuxPortNumber(std::int32_t port) {
    const auto value = static_cast<std::uint32_t>(port);
    return static_cast<std::int64_t>(((value & 0xFF) << 8) | (value >> 8));
}

Dictionary connectRequest(std::int64_t deviceID, std::int32_t port) {
    return packetDictionaryWithPacketType("Connect", {{"DeviceID", deviceID}, {"PortNumber", usbmuxPortNumber(port)}});
}

bool errorFromPlistResponse(const std::optional<Dictionary>& response, TNOptionalError& error) {
    if (error) {
        return true;
    }
    const Dictionary* number = nullptr;
    if (response && response->is_object()) {
        auto found = response->find("Number");
        if (found != response->end() && found->is_number_integer()) {
            number = &*found;
        }
    }
    if (number == nullptr) {
        error = TNError::make(TNUSBHubErrorDomain, 0);
        return false;
    }
    const auto code = number->is_number_unsigned()
                          ? static_cast<std::int64_t>(number->get<std::uint64_t>())
                          : number->get<std::int64_t>();
    const auto text = replyErrorText(code);
    if (!text) {
        return true;
    }
    error = TNError::make(TNUSBHubErrorDomain, code, std::string(*text));
    return false;
}

std::string describePacket(const std::optional<Dictionary>& packet) {
    if (!packet) {
        return "(null)";
    }
    return packet->dump(-1, ' ', false, Dictionary::error_handler_t::replace);
}

}  // namespace havrel
