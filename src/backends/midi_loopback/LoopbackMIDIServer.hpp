#pragma once
// An in-process MIDI server with the system's object model, for tests and for machines without a
// system MIDI service. Several clients share one server: devices with entities and endpoints
// whose properties can be set, virtual sources and destinations of clients, input and output
// ports, thru connections. Data sent to a destination or from a source reaches each receiver in
// its own form: packet lists of MIDI 1.0 bytes for legacy receivers, event lists of the
// receiver's protocol otherwise, translated through the MIDI library's codecs where the sender
// used another form. Every change is announced to every client.
//
// Callbacks (notifications and data) run in order on the server's own serial queue, never on the
// caller's thread, and without the server's lock held, so they may call the server.

#include "MIDIIO/MIDINetworkSessionSettings.hpp"
#include "MIDIIO/MIDIPlatform.hpp"
#include "backends/midi_loopback/LoopbackTranslator.hpp"
#include "MIDIInternals/DispatchQueue.hpp"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace MIDIIO {

class LoopbackMIDIServer : public MIDIPlatform, public std::enable_shared_from_this<LoopbackMIDIServer> {
public:
    // `supportsThru` false makes a server without system thru connections, as older systems
    // are; the library then routes thru connections itself.
    static std::shared_ptr<LoopbackMIDIServer> create(bool supportsThru = true);
    ~LoopbackMIDIServer() override;

    // --- The platform interface. ---
    OSStatus clientCreateWithBlock(const std::string& name, NotifyBlock notifyBlock, MIDIClientRef* outClient) override;
    void clientSetFlushBlock(MIDIClientRef client, std::function<void()> flushBlock) override;
    OSStatus sourceCreate(MIDIClientRef client, const std::string& name, MIDIEndpointRef* outSource) override;
    OSStatus sourceCreateWithProtocol(MIDIClientRef client, const std::string& name, MIDIProtocolID protocol,
                                      MIDIEndpointRef* outSource) override;
    OSStatus destinationCreateWithBlock(MIDIClientRef client, const std::string& name, ReadBlock readBlock,
                                        MIDIEndpointRef* outDestination) override;
    OSStatus destinationCreateWithProtocol(MIDIClientRef client, const std::string& name, MIDIProtocolID protocol,
                                           ReceiveBlock receiveBlock, MIDIEndpointRef* outDestination) override;
    OSStatus endpointDispose(MIDIEndpointRef endpoint) override;
    OSStatus inputPortCreateWithBlock(MIDIClientRef client, const std::string& name, ReadBlock readBlock,
                                      MIDIPortRef* outPort) override;
    OSStatus inputPortCreateWithProtocol(MIDIClientRef client, const std::string& name, MIDIProtocolID protocol,
                                         ReceiveBlock receiveBlock, MIDIPortRef* outPort) override;
    OSStatus outputPortCreate(MIDIClientRef client, const std::string& name, MIDIPortRef* outPort) override;
    OSStatus portConnectSource(MIDIPortRef port, MIDIEndpointRef source, MIDIRefCon connRefCon) override;
    OSStatus portDisconnectSource(MIDIPortRef port, MIDIEndpointRef source) override;
    OSStatus portDispose(MIDIPortRef port) override;
    OSStatus received(MIDIEndpointRef source, std::span<const std::uint8_t> packetList) override;
    OSStatus receivedEventList(MIDIEndpointRef source, std::span<const std::uint8_t> eventList) override;
    OSStatus send(MIDIPortRef port, MIDIEndpointRef destination, std::span<const std::uint8_t> packetList) override;
    OSStatus sendEventList(MIDIPortRef port, MIDIEndpointRef destination,
                           std::span<const std::uint8_t> eventList) override;
    bool supportsThruConnections(const MIDIThruConnectionParams&) const override { return supportsThru_; }
    OSStatus thruConnectionCreate(const std::string& persistentOwnerID, const MIDIThruConnectionParams& params,
                                  MIDIThruConnectionRef* outConnection) override;
    OSStatus thruConnectionDispose(MIDIThruConnectionRef connection) override;
    OSStatus thruConnectionFind(const std::string& persistentOwnerID,
                                std::vector<MIDIThruConnectionRef>* outConnections) override;
    ItemCount getNumberOfDevices() override;
    MIDIDeviceRef getDevice(ItemCount index) override;
    ItemCount deviceGetNumberOfEntities(MIDIDeviceRef device) override;
    MIDIEntityRef deviceGetEntity(MIDIDeviceRef device, ItemCount index) override;
    ItemCount entityGetNumberOfSources(MIDIEntityRef entity) override;
    MIDIEndpointRef entityGetSource(MIDIEntityRef entity, ItemCount index) override;
    ItemCount entityGetNumberOfDestinations(MIDIEntityRef entity) override;
    MIDIEndpointRef entityGetDestination(MIDIEntityRef entity, ItemCount index) override;
    OSStatus entityGetDevice(MIDIEntityRef entity, MIDIDeviceRef* outDevice) override;
    OSStatus endpointGetEntity(MIDIEndpointRef endpoint, MIDIEntityRef* outEntity) override;
    ItemCount getNumberOfSources() override;
    MIDIEndpointRef getSource(ItemCount index) override;
    ItemCount getNumberOfDestinations() override;
    MIDIEndpointRef getDestination(ItemCount index) override;
    OSStatus objectFindByUniqueID(MIDIUniqueID uniqueID, MIDIObjectRef* outObject, MIDIObjectType* outType) override;
    OSStatus objectGetIntegerProperty(MIDIObjectRef object, const std::string& key, std::int32_t* outValue) override;
    OSStatus objectSetIntegerProperty(MIDIObjectRef object, const std::string& key, std::int32_t value) override;
    OSStatus objectGetStringProperty(MIDIObjectRef object, const std::string& key, std::string* outValue) override;
    OSStatus objectSetStringProperty(MIDIObjectRef object, const std::string& key, const std::string& value) override;
    OSStatus objectGetDictionaryProperty(MIDIObjectRef object, const std::string& key, nlohmann::json* outValue) override;
    OSStatus objectGetProperties(MIDIObjectRef object, nlohmann::json* outProperties, bool deep) override;
    bool networkSessionEnabled() override;
    void setNetworkSessionEnabled(bool enabled) override;
    std::uint32_t networkSessionConnectionPolicy() override;
    void setNetworkSessionConnectionPolicy(std::uint32_t policy) override;

    // --- The hardware side, for tests and demonstrations. ---
    // Adds a device (and announces it). Entities and endpoints are added to it afterwards.
    MIDIDeviceRef addDevice(const std::string& name, const std::string& manufacturer = "",
                            const std::string& model = "");
    MIDIEntityRef addEntity(MIDIDeviceRef device, const std::string& name);
    MIDIEndpointRef addSource(MIDIEntityRef entity, const std::string& name);
    MIDIEndpointRef addDestination(MIDIEntityRef entity, const std::string& name);
    // Removes a device, entity or endpoint with everything below it, announcing each removal.
    OSStatus removeObject(MIDIObjectRef object);
    OSStatus objectSetDictionaryProperty(MIDIObjectRef object, const std::string& key, nlohmann::json value);
    OSStatus objectRemoveProperty(MIDIObjectRef object, const std::string& key);
    // MIDI 1.0 bytes arriving from a device's source.
    OSStatus deviceSourceSend(MIDIEndpointRef source, const std::vector<std::uint8_t>& bytes,
                              MIDITimeStamp timeStamp = 0);
    // What a device's destination has been sent, as MIDI 1.0 bytes a packet.
    std::vector<std::vector<std::uint8_t>> deviceDestinationLog(MIDIEndpointRef destination);
    // Posts a report of an input/output error of the device.
    void reportIOError(MIDIDeviceRef device, OSStatus error);
    // Delivers everything in flight, without sleeping: runs the server's queue and then each
    // client's flush block (which drains the client's queues), again until a round hands the
    // server nothing new, or at most kFlushRounds rounds: while other threads go on sending,
    // every round sees new work, and what they sent during the flush may still be in flight
    // when it returns. Not from the server's queue or a client's.
    void flush();
    static constexpr int kFlushRounds = 16;

    LoopbackMIDIServer(bool supportsThru, std::shared_ptr<MIDIInternals::DispatchQueue> queue);

private:
    using Property = std::variant<std::int32_t, std::string, nlohmann::json>;

    struct Object {
        MIDIObjectType type = MIDIObjectType::other;
        MIDIObjectRef parent = 0;
        std::vector<MIDIObjectRef> entities;
        std::vector<MIDIObjectRef> sources;
        std::vector<MIDIObjectRef> destinations;
        std::map<std::string, Property> properties;
        MIDIClientRef owner = 0;  // virtual endpoints
        Receiver receiver;        // virtual destinations
        std::vector<std::vector<std::uint8_t>> log;  // device destinations
    };
    struct Client {
        std::string name;
        NotifyBlock notify;
        std::function<void()> flush;
    };
    struct Port {
        MIDIClientRef client = 0;
        bool input = false;
        Receiver receiver;
        std::map<MIDIEndpointRef, MIDIRefCon> connections;
    };
    struct Thru {
        std::string owner;
        MIDIThruConnectionParams params;
    };
    // Where a message goes once delivered.
    struct Target {
        Receiver receiver;
        MIDIRefCon refCon = 0;
        MIDIEndpointRef logDestination = 0;  // a device destination: the message is logged
        LoopbackThruFilter filter;           // reached through a thru connection: what it keeps back
    };

    MIDIObjectRef nextRef();
    MIDIUniqueID freshUniqueID();
    bool isUniqueIDTaken(MIDIUniqueID id) const;
    Object* find(MIDIObjectRef ref);
    const Object* find(MIDIObjectRef ref) const;
    // The children of one kind of a device or entity; nothing (count 0, ref 0) for another kind.
    const std::vector<MIDIObjectRef>* children(MIDIObjectRef parent, MIDIObjectType type,
                                               std::vector<MIDIObjectRef> Object::*list) const;
    ItemCount childCount(MIDIObjectRef parent, MIDIObjectType type, std::vector<MIDIObjectRef> Object::*list);
    MIDIObjectRef childAt(MIDIObjectRef parent, MIDIObjectType type, std::vector<MIDIObjectRef> Object::*list,
                          ItemCount index);
    const Property* findProperty(MIDIObjectRef ref, const std::string& key) const;
    // Reads a property of one kind; the caller holds the lock.
    template <typename T>
    OSStatus readProperty(MIDIObjectRef object, const std::string& key, T* outValue) const;
    bool isOnline(MIDIObjectRef endpoint) const;
    std::vector<MIDIEndpointRef> presentEndpoints(MIDIObjectType type) const;
    std::string displayNameOf(MIDIObjectRef ref) const;
    nlohmann::json propertiesOf(MIDIObjectRef ref, bool deep) const;

    MIDIObjectRef addObject(MIDIObjectType type, MIDIObjectRef parent, const std::string& name, MIDIClientRef owner,
                            Receiver receiver);
    MIDIObjectRef addChild(MIDIObjectRef parent, MIDIObjectType parentType, MIDIObjectType type,
                           const std::string& name);
    OSStatus createVirtual(MIDIClientRef client, const std::string& name, MIDIObjectType type, Receiver receiver,
                           MIDIEndpointRef* out);
    void removeLocked(MIDIObjectRef ref, std::vector<MIDINotificationMessage>& messages);

    // Queues the messages for every client, in order.
    void announce(std::vector<MIDINotificationMessage> messages);
    static MIDINotificationMessage objectMessage(MIDINotificationMessageID id, MIDIObjectRef parent,
                                                 MIDIObjectType parentType, MIDIObjectRef child, MIDIObjectType childType);
    static MIDINotificationMessage propertyMessage(MIDIObjectRef object, MIDIObjectType type, const std::string& key);
    static MIDINotificationMessage plainMessage(MIDINotificationMessageID id);
    OSStatus setProperty(MIDIObjectRef ref, const std::string& key, Property value);

    // Data from a source goes to the ports connected to it and through the thru connections.
    OSStatus fromSource(MIDIEndpointRef source, LoopbackMessage message);
    OSStatus toDestination(MIDIPortRef port, MIDIEndpointRef destination, LoopbackMessage message);
    void targetsOfDestination(MIDIEndpointRef destination, std::vector<Target>& targets,
                              const LoopbackThruFilter& filter = {}) const;
    void deliver(const LoopbackMessage& message, const std::vector<Target>& targets, MIDIObjectRef stream);

    const bool supportsThru_;
    std::shared_ptr<MIDIInternals::DispatchQueue> queue_;
    // Puts work on the server's queue, counted for flush().
    void post(MIDIInternals::DispatchQueue::Work work);

    std::atomic<std::uint64_t> posted_{0};
    mutable std::mutex mutex_;
    MIDIObjectRef lastRef_ = 0x10000;
    std::mt19937 random_;
    std::map<MIDIObjectRef, Object> objects_;
    std::vector<MIDIObjectRef> deviceOrder_;
    std::vector<MIDIObjectRef> virtualOrder_;
    std::map<MIDIClientRef, Client> clients_;
    std::map<MIDIPortRef, Port> ports_;
    std::map<MIDIThruConnectionRef, Thru> thrus_;
    MIDINetworkSessionSettings networkSession_;
    // Translation state (running status, SysEx in progress) by stream, used on the queue only.
    std::map<MIDIObjectRef, LoopbackTranslator> translators_;
};

}  // namespace MIDIIO
