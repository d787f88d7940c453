#pragma once
// The MIDI platform interface: every operation the MIDI library needs of the system MIDI
// service, as a backend implements it. Operations return a status, 0 for success, with the
// system's error numbers (MIDIOSStatus reads them). Notification and receive callbacks arrive
// on a thread of the backend, never on the caller's thread.
//
// Packet lists and event lists travel as bytes in the system's layout (MIDIPacketLayout.hpp):
// a callback gets a view of bytes it may read during the call only.

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace MIDIIO {

using OSStatus = std::int32_t;
using MIDIObjectRef = std::uint32_t;
using MIDIClientRef = MIDIObjectRef;
using MIDIPortRef = MIDIObjectRef;
using MIDIDeviceRef = MIDIObjectRef;
using MIDIEntityRef = MIDIObjectRef;
using MIDIEndpointRef = MIDIObjectRef;
using MIDIThruConnectionRef = MIDIObjectRef;
using MIDIUniqueID = std::int32_t;
using MIDITimeStamp = std::uint64_t;
using ItemCount = std::size_t;
// The reference constant given when a port connects to a source, handed back with each packet
// list from that source.
using MIDIRefCon = std::uintptr_t;

constexpr OSStatus noErr = 0;

enum class MIDIProtocolID : std::int32_t { midi1_0 = 1, midi2_0 = 2 };

enum class MIDIObjectType : std::int32_t {
    other = -1,
    device = 0,
    entity = 1,
    source = 2,
    destination = 3,
    externalDevice = 0x10,
    externalEntity = 0x11,
    externalSource = 0x12,
    externalDestination = 0x13,
};

enum class MIDINotificationMessageID : std::int32_t {
    setupChanged = 1,
    objectAdded = 2,
    objectRemoved = 3,
    propertyChanged = 4,
    thruConnectionsChanged = 5,
    serialPortOwnerChanged = 6,
    ioError = 7,
    internalStart = 0x1000,
};

// One notification of the system, with the fields its message ID uses.
struct MIDINotificationMessage {
    std::int32_t messageID = 0;
    // objectAdded, objectRemoved.
    MIDIObjectRef parent = 0;
    MIDIObjectType parentType = MIDIObjectType::other;
    MIDIObjectRef child = 0;
    MIDIObjectType childType = MIDIObjectType::other;
    // propertyChanged.
    MIDIObjectRef object = 0;
    MIDIObjectType objectType = MIDIObjectType::other;
    std::string propertyName;
    // ioError.
    MIDIDeviceRef driverDevice = 0;
    OSStatus errorCode = 0;
};

// The routing of a system thru connection: up to eight sources and destinations by reference,
// the counts (which may exceed eight), and the message filters.
struct MIDIThruConnectionParams {
    static constexpr std::size_t kMaxEndpoints = 8;
    std::uint32_t numSources = 0;
    std::array<MIDIEndpointRef, kMaxEndpoints> sources{};
    std::uint32_t numDestinations = 0;
    std::array<MIDIEndpointRef, kMaxEndpoints> destinations{};
    bool filterOutSysEx = false;
    bool filterOutMTC = false;
    bool filterOutBeatClock = false;
    bool filterOutTuneRequest = false;
    bool filterOutAllControls = false;
};

class MIDIPlatform {
public:
    using NotifyBlock = std::function<void(const MIDINotificationMessage&)>;
    // Gets a packet list (legacy) and the connection's reference constant (0 for a virtual
    // destination).
    using ReadBlock = std::function<void(std::span<const std::uint8_t> packetList, MIDIRefCon srcConnRefCon)>;
    // Gets an event list in the receiver's protocol, and the reference constant.
    using ReceiveBlock = std::function<void(std::span<const std::uint8_t> eventList, MIDIRefCon srcConnRefCon)>;

    virtual ~MIDIPlatform() = default;

    // The process's backend, for a host that keeps one: the host (or a test) installs it with
    // setShared, and reading it before then is a programming fault. The library itself never
    // reads it: each manager works on the platform it was made with.
    static std::shared_ptr<MIDIPlatform> shared();
    // nullptr empties the slot.
    static void setShared(std::shared_ptr<MIDIPlatform> platform);

    // Clients.
    virtual OSStatus clientCreateWithBlock(const std::string& name, NotifyBlock notifyBlock,
                                           MIDIClientRef* outClient) = 0;
    // What the client runs to finish the work the backend has handed it so far (its queues
    // drained), for a backend that can flush deterministically; others ignore it.
    virtual void clientSetFlushBlock(MIDIClientRef client, std::function<void()> flushBlock);

    // Virtual endpoints.
    virtual OSStatus sourceCreate(MIDIClientRef client, const std::string& name, MIDIEndpointRef* outSource) = 0;
    virtual OSStatus sourceCreateWithProtocol(MIDIClientRef client, const std::string& name,
                                              MIDIProtocolID protocol, MIDIEndpointRef* outSource) = 0;
    virtual OSStatus destinationCreateWithBlock(MIDIClientRef client, const std::string& name, ReadBlock readBlock,
                                                MIDIEndpointRef* outDestination) = 0;
    virtual OSStatus destinationCreateWithProtocol(MIDIClientRef client, const std::string& name,
                                                   MIDIProtocolID protocol, ReceiveBlock receiveBlock,
                                                   MIDIEndpointRef* outDestination) = 0;
    virtual OSStatus endpointDispose(MIDIEndpointRef endpoint) = 0;

    // Ports.
    virtual OSStatus inputPortCreateWithBlock(MIDIClientRef client, const std::string& name, ReadBlock readBlock,
                                              MIDIPortRef* outPort) = 0;
    virtual OSStatus inputPortCreateWithProtocol(MIDIClientRef client, const std::string& name,
                                                 MIDIProtocolID protocol, ReceiveBlock receiveBlock,
                                                 MIDIPortRef* outPort) = 0;
    virtual OSStatus outputPortCreate(MIDIClientRef client, const std::string& name, MIDIPortRef* outPort) = 0;
    virtual OSStatus portConnectSource(MIDIPortRef port, MIDIEndpointRef source, MIDIRefCon connRefCon) = 0;
    virtual OSStatus portDisconnectSource(MIDIPortRef port, MIDIEndpointRef source) = 0;
    virtual OSStatus portDispose(MIDIPortRef port) = 0;

    // Sending. From a virtual source to whoever listens to it; through an output port to a
    // destination.
    virtual OSStatus received(MIDIEndpointRef source, std::span<const std::uint8_t> packetList) = 0;
    virtual OSStatus receivedEventList(MIDIEndpointRef source, std::span<const std::uint8_t> eventList) = 0;
    virtual OSStatus send(MIDIPortRef port, MIDIEndpointRef destination, std::span<const std::uint8_t> packetList) = 0;
    virtual OSStatus sendEventList(MIDIPortRef port, MIDIEndpointRef destination,
                                   std::span<const std::uint8_t> eventList) = 0;

    // System thru connections. An empty owner ID makes a connection that ends with its client.
    // Whether the backend routes thru connections itself; where not, the library routes them
    // through a port pair of its own.
    // Whether the platform routes a thru connection with these parameters itself; where it does
    // not, the library routes it through a port pair of its own.
    virtual bool supportsThruConnections(const MIDIThruConnectionParams& params) const = 0;
    virtual OSStatus thruConnectionCreate(const std::string& persistentOwnerID, const MIDIThruConnectionParams& params,
                                          MIDIThruConnectionRef* outConnection) = 0;
    virtual OSStatus thruConnectionDispose(MIDIThruConnectionRef connection) = 0;
    virtual OSStatus thruConnectionFind(const std::string& persistentOwnerID,
                                        std::vector<MIDIThruConnectionRef>* outConnections) = 0;
    static void thruConnectionParamsInitialize(MIDIThruConnectionParams* params) { *params = MIDIThruConnectionParams{}; }

    // The object tree. Index operations give 0 for an index out of range.
    virtual ItemCount getNumberOfDevices() = 0;
    virtual MIDIDeviceRef getDevice(ItemCount index) = 0;
    virtual ItemCount deviceGetNumberOfEntities(MIDIDeviceRef device) = 0;
    virtual MIDIEntityRef deviceGetEntity(MIDIDeviceRef device, ItemCount index) = 0;
    virtual ItemCount entityGetNumberOfSources(MIDIEntityRef entity) = 0;
    virtual MIDIEndpointRef entityGetSource(MIDIEntityRef entity, ItemCount index) = 0;
    virtual ItemCount entityGetNumberOfDestinations(MIDIEntityRef entity) = 0;
    virtual MIDIEndpointRef entityGetDestination(MIDIEntityRef entity, ItemCount index) = 0;
    virtual OSStatus entityGetDevice(MIDIEntityRef entity, MIDIDeviceRef* outDevice) = 0;
    virtual OSStatus endpointGetEntity(MIDIEndpointRef endpoint, MIDIEntityRef* outEntity) = 0;
    // Every source and destination present (virtual ones and those of online devices).
    virtual ItemCount getNumberOfSources() = 0;
    virtual MIDIEndpointRef getSource(ItemCount index) = 0;
    virtual ItemCount getNumberOfDestinations() = 0;
    virtual MIDIEndpointRef getDestination(ItemCount index) = 0;
    virtual OSStatus objectFindByUniqueID(MIDIUniqueID uniqueID, MIDIObjectRef* outObject,
                                          MIDIObjectType* outType) = 0;

    // Properties by key. Entities and endpoints inherit what they do not set from their parent.
    virtual OSStatus objectGetIntegerProperty(MIDIObjectRef object, const std::string& key, std::int32_t* outValue) = 0;
    virtual OSStatus objectSetIntegerProperty(MIDIObjectRef object, const std::string& key, std::int32_t value) = 0;
    virtual OSStatus objectGetStringProperty(MIDIObjectRef object, const std::string& key, std::string* outValue) = 0;
    virtual OSStatus objectSetStringProperty(MIDIObjectRef object, const std::string& key, const std::string& value) = 0;
    virtual OSStatus objectGetDictionaryProperty(MIDIObjectRef object, const std::string& key,
                                                 nlohmann::json* outValue) = 0;
    // All properties as a dictionary; `deep` includes the children.
    virtual OSStatus objectGetProperties(MIDIObjectRef object, nlohmann::json* outProperties, bool deep) = 0;

    // The default network session.
    virtual bool networkSessionEnabled() = 0;
    virtual void setNetworkSessionEnabled(bool enabled) = 0;
    virtual std::uint32_t networkSessionConnectionPolicy() = 0;
    virtual void setNetworkSessionConnectionPolicy(std::uint32_t policy) = 0;

    // The host time base of time stamps, in nanoseconds of the monotonic clock.
    virtual MIDITimeStamp hostTime() const;
};

}  // namespace MIDIIO
