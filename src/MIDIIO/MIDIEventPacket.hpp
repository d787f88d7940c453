#pragma once
// Building the packets and lists that the send paths hand to the platform.

#include "MIDIIO/MIDIInternalError.hpp"
#include "MIDIIO/MIDIPacketLayout.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace MIDIIO {

// One event packet of the words; throws umpEmpty for no words, umpTooLarge above 64.
MIDIEventPacket makeMIDIEventPacket(std::span<const std::uint32_t> words, MIDITimeStamp timeStamp);
// The same through a packet builder of 64 words, appending one word at a time.
MIDIEventPacket makeMIDIEventPacketUsingBuilder(std::span<const std::uint32_t> words, MIDITimeStamp timeStamp);
// An event list of one packet.
MIDIEventList makeMIDIEventList(MIDIProtocolID protocol, std::span<const std::uint32_t> packetWords,
                                MIDITimeStamp timeStamp);
// A packet list of one packet per byte array, time stamp 0. The buffer is sized generously (ten
// bytes a data byte); above 65536 bytes it throws packetTooLarge with that size.
std::vector<std::uint8_t> makeMIDIPacketList(const std::vector<std::vector<std::uint8_t>>& data);

}  // namespace MIDIIO
