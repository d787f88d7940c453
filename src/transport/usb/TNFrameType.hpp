#pragma once
// The frame types of a client channel, and the port a client device listens on.

#include <cstdint>

namespace havrel {

inline constexpr std::uint32_t TNFrameTypeEndOfStream = 0;
inline constexpr std::uint32_t TNFrameTypeDeviceInfo = 100;
inline constexpr std::uint32_t TNFrameTypePing = 102;
inline constexpr std::uint32_t TNFrameTypeSyncData = 104;
inline constexpr std::uint32_t TNFrameTypePureMIDIData = 106;
inline constexpr std::uint32_t TNFrameTypeChangeData = 107;
inline constexpr std::uint32_t TNFrameTypeRangeData = 108;
inline constexpr std::uint32_t TNFrameTypeCentralInfo = 110;
inline constexpr std::uint32_t TNFrameTypeConfigurationDataFromCentral = 111;
inline constexpr std::uint32_t TNFrameTypeTempo = 112;
inline constexpr std::uint32_t TNFrameTypePosition = 113;

// The port of the client app on its USB tunnel, and of the local IPv4 path.
inline constexpr std::uint16_t RNUSBClientPort = 4699;
inline constexpr std::uint32_t RNLocalIPv4Address = 0x7F000001;

// Types 0 and 100 to 113 belong to the protocol; any other closes the channel.
constexpr bool TNFrameTypeIsKnown(std::uint32_t type) {
    return type == TNFrameTypeEndOfStream || (type >= 100 && type <= 113);
}

}  // namespace havrel
