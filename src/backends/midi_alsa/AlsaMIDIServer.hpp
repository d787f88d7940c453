#pragma once
// The system MIDI service of Linux desktops, the ALSA sequencer, as the MIDI platform. One
// sequencer client per server, named after the first platform client made on it.
//
// The object model over the sequencer:
// - every other sequencer client (but the kernel's "System") is a device with one entity of the
//   same name; its ports are the entity's endpoints: a port others may read by subscription is
//   a source, one they may write to by subscription a destination (a port may be both);
// - our virtual sources and destinations are ports of our own client (readable resp. writable
//   by subscription) and have no entity; input and output ports are ports of ours that other
//   clients do not see;
// - names come from the client and port names; an endpoint's display name puts the client's
//   name before the port's unless the port's name already starts with it;
// - unique IDs are formed from names, so the same client and port names give the same ID in
//   every run: the 32-bit FNV-1a hash of the client's name, a newline, the port's name, a newline
//   and "source" or "destination" (for a device "device", for its entity "entity", with no port
//   name), 0 read as 1. Our own endpoints take a unique ID set on them instead;
// - properties the sequencer has: name, display name, unique ID, offline (1 for an endpoint
//   whose port has gone); every other property reads as not set;
// - the "System Announce" port tells of clients and ports coming, going and changing: these
//   become added, removed and property-changed notifications.
//
// Received events and notifications are handled on the server's own receive thread, which
// calls the blocks without the server's lock held. Events become packet lists, or event lists
// at the receiver's protocol; lists sent become sequencer events, delivered at once. A sequencer
// that cannot be opened, or that fails while running, gives one log line (or, when it fails
// while running and a lost handler is set, a call of that handler instead); from then on the
// operations answer with an error status.

#include "MIDIIO/MIDINetworkSessionSettings.hpp"
#include "MIDIIO/MIDIPlatform.hpp"
#include "backends/midi_alsa/AlsaTranslator.hpp"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

struct _snd_seq;
struct snd_seq_event;
struct snd_midi_event;

namespace MIDIIO {

class AlsaMIDIServer : public MIDIPlatform {
public:
    // Opens the sequencer (the "default" one of the ALSA configuration unless another is named).
    // A server whose sequencer could not be opened exists and answers every operation with an
    // error status.
    static std::shared_ptr<AlsaMIDIServer> create(const std::string& sequencerName = "default");
    explicit AlsaMIDIServer(const std::string& sequencerName);
    ~AlsaMIDIServer() override;
    AlsaMIDIServer(const AlsaMIDIServer&) = delete;
    AlsaMIDIServer& operator=(const AlsaMIDIServer&) = delete;

    // noErr while the sequencer is usable, else the status every operation answers with.
    OSStatus status() const { return status_.load(); }
    // Our client's number on the sequencer, -1 when it is not open.
    int sequencerClient() const { return self_; }
    // The sequencer address (client, port) of an endpoint or port reference, if it names one.
    static std::optional<std::pair<int, int>> addressOf(MIDIObjectRef ref);

    // Called once, on the receive thread, with the reason, when the sequencer fails while
    // running (our client removed, the device gone); never on an orderly end. The handler then
    // says so in place of this server's log line.
    using LostHandler = std::function<void(const std::string& reason)>;
    void setLostHandler(LostHandler handler);

    // The unique ID formed from names, as described above.
    static MIDIUniqueID uniqueIDFromNames(const std::string& clientName, const std::string& portName,
                                          const std::string& kind);

    // --- The platform interface. ---
    OSStatus clientCreateWithBlock(const std::string& name, NotifyBlock notifyBlock, MIDIClientRef* outClient) override;
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
    // A thru connection without filters is a set of sequencer subscriptions from each source to
    // each destination, made by our client between ports of any clients; the sequencer keeps
    // them until a port goes (a persistent one also after we end). Filtered ones the library
    // routes through a port pair of its own.
    bool supportsThruConnections(const MIDIThruConnectionParams& params) const override;
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

private:
    // What a reference names; the sequencer address is in the reference itself.
    enum class Kind : std::uint32_t { device = 1, entity, source, destination, inputPort, outputPort, client, thru };
    using Address = std::pair<int, int>;

    struct Receiver {
        std::optional<MIDIProtocolID> protocol;  // absent: packet lists
        ReadBlock readBlock;
        ReceiveBlock receiveBlock;
    };
    // A port of our own client.
    struct OwnPort {
        Kind kind = Kind::source;
        std::string name;
        Receiver receiver;                          // destinations and input ports
        std::map<Address, MIDIRefCon> connections;  // input ports: the sources connected
        std::optional<MIDIUniqueID> uniqueID;       // set on it
        std::optional<MIDIProtocolID> protocol;
    };
    // A port as last seen, so that its removal can still be told by kind.
    struct KnownPort {
        bool source = false;
        bool destination = false;
    };
    // One port of another client as the sequencer lists it.
    struct PortView {
        Address address;
        std::string name;
        unsigned int capability = 0;
    };
    struct ClientView {
        int client = -1;
        std::string name;
    };
    struct Notify {
        MIDIClientRef client;
        NotifyBlock block;
    };
    // The subscriptions a thru connection made (those that existed before are not its own).
    struct Thru {
        std::string ownerID;
        std::vector<std::pair<Address, Address>> subscriptions;
    };

    static MIDIObjectRef makeRef(Kind kind, int client, int port = 0);
    static std::optional<Kind> kindOf(MIDIObjectRef ref);
    static bool isSource(unsigned int capability);
    static bool isDestination(unsigned int capability);

    // Queries of the sequencer (no lock needed).
    std::vector<ClientView> otherClients() const;
    std::vector<PortView> portsOf(int client) const;
    std::optional<std::string> clientName(int client) const;
    std::optional<PortView> portView(Address address) const;
    std::vector<MIDIEndpointRef> endpointsOf(int client, Kind kind) const;
    // The endpoints of a kind under an entity of another client; none for anything else.
    std::vector<MIDIEndpointRef> entityEndpoints(MIDIEntityRef entity, Kind kind) const;
    std::vector<MIDIEndpointRef> allEndpoints(Kind kind);
    std::vector<MIDIObjectRef> allObjects();

    // The name, display name and unique ID of an object, or nothing when it is not there.
    struct Identity {
        std::string name;
        std::string displayName;
        MIDIUniqueID uniqueID = 0;
        MIDIObjectType type = MIDIObjectType::other;
    };
    std::optional<Identity> identityOf(MIDIObjectRef ref);

    OSStatus createPort(MIDIClientRef client, const std::string& name, Kind kind, Receiver receiver,
                        std::optional<MIDIProtocolID> protocol, MIDIObjectRef* out);
    OSStatus deletePort(MIDIObjectRef ref, Kind kind);
    OSStatus sendList(int sourcePort, std::optional<Address> destination, std::uint64_t stream,
                      std::span<const std::uint8_t> list, bool isEventList);
    OSStatus fromSource(MIDIEndpointRef source, std::span<const std::uint8_t> list, bool isEventList);
    OSStatus toDestination(MIDIPortRef port, MIDIEndpointRef destination, std::span<const std::uint8_t> list,
                           bool isEventList);
    OSStatus sendMessage(int sourcePort, std::optional<Address> destination, std::span<const std::uint8_t> bytes);
    void unsubscribe(const Thru& thru);

    // The receive thread.
    void receiveLoop();
    void handleEvent(const snd_seq_event& event);
    void handleAnnouncement(const snd_seq_event& event);
    void handleData(const snd_seq_event& event);
    void notify(const std::vector<MIDINotificationMessage>& messages);
    // Logs the failure (once) and makes every operation answer with an error.
    void fail(const std::string& line);
    // The same for a failure while running, told to the lost handler where there is one.
    void lose(const std::string& reason);

    _snd_seq* seq_ = nullptr;
    int self_ = -1;
    int announcePort_ = -1;
    int wakeFd_ = -1;
    std::atomic<OSStatus> status_{noErr};
    std::atomic<bool> stopping_{false};
    // Shared with the receive loop, which reads it after each handler: false once this server
    // has ended (possibly inside that handler, on the receive thread).
    std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
    std::thread receiveThread_;

    mutable std::mutex mutex_;
    std::string clientName_;
    LostHandler lostHandler_;
    std::uint32_t lastClient_ = 0;
    std::vector<Notify> notifies_;
    std::map<int, OwnPort> ownPorts_;
    std::map<Address, KnownPort> known_;
    std::map<MIDIThruConnectionRef, Thru> thrus_;
    std::uint32_t lastThru_ = 0;
    MIDINetworkSessionSettings networkSession_;

    // Sending: the sequencer's output and the translators of the sending streams.
    std::mutex sendMutex_;
    std::map<std::uint64_t, AlsaOutgoingTranslator> outgoing_;
    // Receiving, on the receive thread only: the translators by sending address.
    std::map<Address, AlsaIncomingTranslator> incoming_;
    snd_midi_event* decoder_ = nullptr;
    snd_midi_event* encoder_ = nullptr;  // under sendMutex_
};

}  // namespace MIDIIO
