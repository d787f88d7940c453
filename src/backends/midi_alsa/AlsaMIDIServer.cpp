#include "backends/midi_alsa/AlsaMIDIServer.hpp"

#include "MIDIInternals/Log.hpp"

#include <alsa/asoundlib.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "MIDIIO/MIDIPlatformStatus.hpp"

namespace MIDIIO {

namespace {

constexpr unsigned int kPortType =
    SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_SOFTWARE | SND_SEQ_PORT_TYPE_APPLICATION;

std::string errorText(int error) { return snd_strerror(error); }

MIDINotificationMessage objectMessage(MIDINotificationMessageID id, MIDIObjectRef parent, MIDIObjectType parentType,
                                      MIDIObjectRef child, MIDIObjectType childType) {
    MIDINotificationMessage message;
    message.messageID = static_cast<std::int32_t>(id);
    message.parent = parent;
    message.parentType = parentType;
    message.child = child;
    message.childType = childType;
    return message;
}

MIDINotificationMessage plainMessage(MIDINotificationMessageID id) {
    MIDINotificationMessage message;
    message.messageID = static_cast<std::int32_t>(id);
    return message;
}

MIDINotificationMessage propertyMessage(MIDIObjectRef object, MIDIObjectType type, const std::string& key) {
    MIDINotificationMessage message;
    message.messageID = static_cast<std::int32_t>(MIDINotificationMessageID::propertyChanged);
    message.object = object;
    message.objectType = type;
    message.propertyName = key;
    return message;
}
}  // namespace

// --- References: the kind in the top byte, then the client and port numbers. ---

MIDIObjectRef AlsaMIDIServer::makeRef(Kind kind, int client, int port) {
    return (static_cast<std::uint32_t>(kind) << 24) | ((static_cast<std::uint32_t>(client) & 0xFFFF) << 8) |
           (static_cast<std::uint32_t>(port) & 0xFF);
}

std::optional<AlsaMIDIServer::Kind> AlsaMIDIServer::kindOf(MIDIObjectRef ref) {
    auto kind = ref >> 24;
    if (kind < static_cast<std::uint32_t>(Kind::device) || kind > static_cast<std::uint32_t>(Kind::thru)) {
        return std::nullopt;
    }
    return static_cast<Kind>(kind);
}

std::optional<std::pair<int, int>> AlsaMIDIServer::addressOf(MIDIObjectRef ref) {
    auto kind = kindOf(ref);
    if (!kind || *kind == Kind::client || *kind == Kind::thru) {
        return std::nullopt;
    }
    return Address{static_cast<int>((ref >> 8) & 0xFFFF), static_cast<int>(ref & 0xFF)};
}

bool AlsaMIDIServer::isSource(unsigned int capability) {
    constexpr unsigned int wanted = SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ;
    return (capability & wanted) == wanted && (capability & SND_SEQ_PORT_CAP_NO_EXPORT) == 0;
}

bool AlsaMIDIServer::isDestination(unsigned int capability) {
    constexpr unsigned int wanted = SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE;
    return (capability & wanted) == wanted && (capability & SND_SEQ_PORT_CAP_NO_EXPORT) == 0;
}

// 32-bit FNV-1a over "client\nport\nkind"; see the header.
MIDIUniqueID AlsaMIDIServer::uniqueIDFromNames(const std::string& clientName, const std::string& portName,
                                               const std::string& kind) {
    std::uint32_t hash = 2166136261u;
    auto add = [&](const std::string& text) {
        for (unsigned char c : text) {
            hash = (hash ^ c) * 16777619u;
        }
        hash = (hash ^ static_cast<unsigned char>('\n')) * 16777619u;
    };
    add(clientName);
    if (!portName.empty()) {
        add(portName);
    }
    for (unsigned char c : kind) {
        hash = (hash ^ c) * 16777619u;
    }
    auto id = static_cast<MIDIUniqueID>(hash);
    return id == 0 ? 1 : id;
}

// --- Opening and closing. ---

std::shared_ptr<AlsaMIDIServer> AlsaMIDIServer::create(const std::string& sequencerName) {
    return std::make_shared<AlsaMIDIServer>(sequencerName);
}

AlsaMIDIServer::AlsaMIDIServer(const std::string& sequencerName) {
    snd_seq_t* seq = nullptr;
    int error = snd_seq_open(&seq, sequencerName.c_str(), SND_SEQ_OPEN_DUPLEX, 0);
    if (error < 0) {
        fail("ALSA sequencer \"" + sequencerName + "\" cannot be opened: " + errorText(error));
        return;
    }
    seq_ = seq;
    self_ = snd_seq_client_id(seq_);
    snd_midi_event_t* decoder = nullptr;
    snd_midi_event_t* encoder = nullptr;
    if (snd_midi_event_new(32, &decoder) < 0 || snd_midi_event_new(32, &encoder) < 0) {
        fail("ALSA sequencer: no MIDI event coder");
        return;
    }
    decoder_ = decoder;
    encoder_ = encoder;
    snd_midi_event_no_status(decoder_, 1);
    // A port of ours that hears the announcements of the system; nobody else sees it.
    announcePort_ = snd_seq_create_simple_port(seq_, "announcements", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_NO_EXPORT,
                                               SND_SEQ_PORT_TYPE_APPLICATION);
    if (announcePort_ < 0 ||
        (error = snd_seq_connect_from(seq_, announcePort_, SND_SEQ_CLIENT_SYSTEM, SND_SEQ_PORT_SYSTEM_ANNOUNCE)) < 0) {
        fail("ALSA sequencer: cannot follow the System Announce port: " +
             errorText(announcePort_ < 0 ? announcePort_ : error));
        return;
    }
    // What is there now, so that a later removal can be told by kind.
    for (const auto& client : otherClients()) {
        for (const auto& port : portsOf(client.client)) {
            known_[port.address] = KnownPort{isSource(port.capability), isDestination(port.capability)};
        }
    }
    wakeFd_ = eventfd(0, EFD_CLOEXEC);
    if (wakeFd_ < 0) {
        fail("ALSA sequencer: no wake-up descriptor for the receive thread");
        return;
    }
    receiveThread_ = std::thread([this] { receiveLoop(); });
}

AlsaMIDIServer::~AlsaMIDIServer() {
    stopping_ = true;
    alive_->store(false);
    if (receiveThread_.joinable()) {
        if (receiveThread_.get_id() == std::this_thread::get_id()) {
            // Ending inside a handler on the receive thread: the loop returns once the handler
            // has, without touching this object again.
            receiveThread_.detach();
        } else {
            std::uint64_t one = 1;
            (void)!::write(wakeFd_, &one, sizeof one);
            receiveThread_.join();
        }
    }
    if (wakeFd_ >= 0) {
        ::close(wakeFd_);
    }
    if (decoder_) {
        snd_midi_event_free(decoder_);
    }
    if (encoder_) {
        snd_midi_event_free(encoder_);
    }
    if (seq_) {
        // A thru connection made without an owner ends with its maker.
        for (const auto& [ref, thru] : thrus_) {
            if (thru.ownerID.empty()) {
                unsubscribe(thru);
            }
        }
        snd_seq_close(seq_);
    }
}

void AlsaMIDIServer::fail(const std::string& line) {
    OSStatus expected = noErr;
    if (status_.compare_exchange_strong(expected, kMIDIServerStartErr)) {
        MIDIInternals::log(line);
    }
}

void AlsaMIDIServer::lose(const std::string& reason) {
    LostHandler handler;
    {
        std::lock_guard lock(mutex_);
        handler = lostHandler_;
    }
    if (!handler) {
        fail("ALSA sequencer went away: " + reason);
        return;
    }
    OSStatus expected = noErr;
    if (status_.compare_exchange_strong(expected, kMIDIServerStartErr)) {
        handler(reason);
    }
}

void AlsaMIDIServer::setLostHandler(LostHandler handler) {
    std::lock_guard lock(mutex_);
    lostHandler_ = std::move(handler);
}

// --- Queries of the sequencer. ---

std::vector<AlsaMIDIServer::ClientView> AlsaMIDIServer::otherClients() const {
    std::vector<ClientView> clients;
    if (seq_ == nullptr) {
        return clients;
    }
    snd_seq_client_info_t* info;
    snd_seq_client_info_alloca(&info);
    snd_seq_client_info_set_client(info, -1);
    while (snd_seq_query_next_client(seq_, info) >= 0) {
        int client = snd_seq_client_info_get_client(info);
        if (client != SND_SEQ_CLIENT_SYSTEM && client != self_) {
            clients.push_back({client, snd_seq_client_info_get_name(info)});
        }
    }
    return clients;
}

std::vector<AlsaMIDIServer::PortView> AlsaMIDIServer::portsOf(int client) const {
    std::vector<PortView> ports;
    if (seq_ == nullptr) {
        return ports;
    }
    snd_seq_port_info_t* info;
    snd_seq_port_info_alloca(&info);
    snd_seq_port_info_set_client(info, client);
    snd_seq_port_info_set_port(info, -1);
    while (snd_seq_query_next_port(seq_, info) >= 0) {
        ports.push_back({{client, snd_seq_port_info_get_port(info)}, snd_seq_port_info_get_name(info),
                         snd_seq_port_info_get_capability(info)});
    }
    return ports;
}

std::optional<std::string> AlsaMIDIServer::clientName(int client) const {
    if (seq_ == nullptr || client == SND_SEQ_CLIENT_SYSTEM || client == self_) {
        return std::nullopt;
    }
    snd_seq_client_info_t* info;
    snd_seq_client_info_alloca(&info);
    if (snd_seq_get_any_client_info(seq_, client, info) < 0) {
        return std::nullopt;
    }
    return std::string(snd_seq_client_info_get_name(info));
}

std::optional<AlsaMIDIServer::PortView> AlsaMIDIServer::portView(Address address) const {
    if (seq_ == nullptr) {
        return std::nullopt;
    }
    snd_seq_port_info_t* info;
    snd_seq_port_info_alloca(&info);
    if (snd_seq_get_any_port_info(seq_, address.first, address.second, info) < 0) {
        return std::nullopt;
    }
    return PortView{address, snd_seq_port_info_get_name(info), snd_seq_port_info_get_capability(info)};
}

std::vector<MIDIEndpointRef> AlsaMIDIServer::endpointsOf(int client, Kind kind) const {
    std::vector<MIDIEndpointRef> result;
    for (const auto& port : portsOf(client)) {
        if (kind == Kind::source ? isSource(port.capability) : isDestination(port.capability)) {
            result.push_back(makeRef(kind, client, port.address.second));
        }
    }
    return result;
}

// The endpoints of devices in client order, then our own virtual ones.
std::vector<MIDIEndpointRef> AlsaMIDIServer::allEndpoints(Kind kind) {
    std::vector<MIDIEndpointRef> result;
    for (const auto& client : otherClients()) {
        auto endpoints = endpointsOf(client.client, kind);
        result.insert(result.end(), endpoints.begin(), endpoints.end());
    }
    std::lock_guard lock(mutex_);
    for (const auto& [port, own] : ownPorts_) {
        if (own.kind == kind) {
            result.push_back(makeRef(kind, self_, port));
        }
    }
    return result;
}

std::vector<MIDIObjectRef> AlsaMIDIServer::allObjects() {
    std::vector<MIDIObjectRef> result;
    for (const auto& client : otherClients()) {
        result.push_back(makeRef(Kind::device, client.client));
        result.push_back(makeRef(Kind::entity, client.client));
        for (auto kind : {Kind::source, Kind::destination}) {
            auto endpoints = endpointsOf(client.client, kind);
            result.insert(result.end(), endpoints.begin(), endpoints.end());
        }
    }
    std::lock_guard lock(mutex_);
    for (const auto& [port, own] : ownPorts_) {
        if (own.kind == Kind::source || own.kind == Kind::destination) {
            result.push_back(makeRef(own.kind, self_, port));
        }
    }
    return result;
}

std::optional<AlsaMIDIServer::Identity> AlsaMIDIServer::identityOf(MIDIObjectRef ref) {
    auto kind = kindOf(ref);
    auto address = addressOf(ref);
    if (!kind || !address) {
        return std::nullopt;
    }
    if (address->first == self_) {
        std::lock_guard lock(mutex_);
        auto it = ownPorts_.find(address->second);
        if (it == ownPorts_.end() || it->second.kind != *kind ||
            (*kind != Kind::source && *kind != Kind::destination)) {
            return std::nullopt;
        }
        const char* kindName = *kind == Kind::source ? "source" : "destination";
        return Identity{it->second.name, it->second.name,
                        it->second.uniqueID.value_or(uniqueIDFromNames(clientName_, it->second.name, kindName)),
                        *kind == Kind::source ? MIDIObjectType::source : MIDIObjectType::destination};
    }
    auto client = clientName(address->first);
    if (!client) {
        return std::nullopt;
    }
    switch (*kind) {
        case Kind::device:
            return Identity{*client, *client, uniqueIDFromNames(*client, "", "device"), MIDIObjectType::device};
        case Kind::entity:
            return Identity{*client, *client, uniqueIDFromNames(*client, "", "entity"), MIDIObjectType::entity};
        case Kind::source:
        case Kind::destination: {
            auto port = portView(*address);
            bool isSource = *kind == Kind::source;
            if (!port || !(isSource ? AlsaMIDIServer::isSource(port->capability) : isDestination(port->capability))) {
                return std::nullopt;
            }
            auto display = port->name.starts_with(*client) ? port->name : *client + " " + port->name;
            return Identity{port->name, display,
                            uniqueIDFromNames(*client, port->name, isSource ? "source" : "destination"),
                            isSource ? MIDIObjectType::source : MIDIObjectType::destination};
        }
        default:
            return std::nullopt;
    }
}

// --- Clients and ports. ---

OSStatus AlsaMIDIServer::clientCreateWithBlock(const std::string& name, NotifyBlock notifyBlock,
                                               MIDIClientRef* outClient) {
    if (status() != noErr) {
        return status();
    }
    std::lock_guard lock(mutex_);
    if (clientName_.empty()) {
        // The sequencer client takes the name of the first client made on it.
        snd_seq_set_client_name(seq_, name.c_str());
        clientName_ = name;
    }
    *outClient = makeRef(Kind::client, 0, 0) | (++lastClient_ & 0xFFFFFF);
    if (notifyBlock) {
        notifies_.push_back({*outClient, std::move(notifyBlock)});
    }
    return noErr;
}

OSStatus AlsaMIDIServer::createPort(MIDIClientRef client, const std::string& name, Kind kind, Receiver receiver,
                                    std::optional<MIDIProtocolID> protocol, MIDIObjectRef* out) {
    if (status() != noErr) {
        return status();
    }
    if (kindOf(client) != Kind::client || (client & 0xFFFFFF) == 0 || (client & 0xFFFFFF) > lastClient_) {
        return kMIDIInvalidClient;
    }
    unsigned int capability = 0;
    switch (kind) {
        case Kind::source:
            capability = SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ;
            break;
        case Kind::destination:
            capability = SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE;
            break;
        case Kind::inputPort:
            capability = SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_NO_EXPORT;
            break;
        default:
            capability = SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_NO_EXPORT;
            break;
    }
    // The port is entered before the sequencer announces it, under the lock the receive thread
    // takes to read it.
    std::lock_guard lock(mutex_);
    int port = snd_seq_create_simple_port(seq_, name.c_str(), capability, kPortType);
    if (port < 0) {
        MIDIInternals::log("ALSA sequencer: cannot create port \"" + name + "\": " + errorText(port));
        return kMIDINotPermitted;
    }
    OwnPort own;
    own.kind = kind;
    own.name = name;
    own.receiver = std::move(receiver);
    own.protocol = protocol;
    ownPorts_[port] = std::move(own);
    known_[{self_, port}] = KnownPort{kind == Kind::source, kind == Kind::destination};
    *out = makeRef(kind, self_, port);
    return noErr;
}

OSStatus AlsaMIDIServer::deletePort(MIDIObjectRef ref, Kind kind) {
    if (status() != noErr) {
        return status();
    }
    auto address = addressOf(ref);
    std::lock_guard lock(mutex_);
    if (!address || address->first != self_ || kindOf(ref) != kind || !ownPorts_.contains(address->second)) {
        return kind == Kind::inputPort || kind == Kind::outputPort ? kMIDIInvalidPort : kMIDIUnknownEndpoint;
    }
    ownPorts_.erase(address->second);
    snd_seq_delete_simple_port(seq_, address->second);
    return noErr;
}

OSStatus AlsaMIDIServer::sourceCreate(MIDIClientRef client, const std::string& name, MIDIEndpointRef* outSource) {
    return createPort(client, name, Kind::source, Receiver{}, std::nullopt, outSource);
}

OSStatus AlsaMIDIServer::sourceCreateWithProtocol(MIDIClientRef client, const std::string& name,
                                                  MIDIProtocolID protocol, MIDIEndpointRef* outSource) {
    return createPort(client, name, Kind::source, Receiver{}, protocol, outSource);
}

OSStatus AlsaMIDIServer::destinationCreateWithBlock(MIDIClientRef client, const std::string& name,
                                                    ReadBlock readBlock, MIDIEndpointRef* outDestination) {
    return createPort(client, name, Kind::destination, Receiver{std::nullopt, std::move(readBlock), {}},
                      std::nullopt, outDestination);
}

OSStatus AlsaMIDIServer::destinationCreateWithProtocol(MIDIClientRef client, const std::string& name,
                                                       MIDIProtocolID protocol, ReceiveBlock receiveBlock,
                                                       MIDIEndpointRef* outDestination) {
    return createPort(client, name, Kind::destination, Receiver{protocol, {}, std::move(receiveBlock)}, protocol,
                      outDestination);
}

OSStatus AlsaMIDIServer::endpointDispose(MIDIEndpointRef endpoint) {
    auto kind = kindOf(endpoint);
    if (kind != Kind::source && kind != Kind::destination) {
        return kMIDIUnknownEndpoint;
    }
    auto address = addressOf(endpoint);
    if (address && address->first != self_) {
        return kMIDINotPermitted;  // another client's port
    }
    return deletePort(endpoint, *kind);
}

OSStatus AlsaMIDIServer::inputPortCreateWithBlock(MIDIClientRef client, const std::string& name, ReadBlock readBlock,
                                                  MIDIPortRef* outPort) {
    return createPort(client, name, Kind::inputPort, Receiver{std::nullopt, std::move(readBlock), {}}, std::nullopt,
                      outPort);
}

OSStatus AlsaMIDIServer::inputPortCreateWithProtocol(MIDIClientRef client, const std::string& name,
                                                     MIDIProtocolID protocol, ReceiveBlock receiveBlock,
                                                     MIDIPortRef* outPort) {
    return createPort(client, name, Kind::inputPort, Receiver{protocol, {}, std::move(receiveBlock)}, protocol,
                      outPort);
}

OSStatus AlsaMIDIServer::outputPortCreate(MIDIClientRef client, const std::string& name, MIDIPortRef* outPort) {
    return createPort(client, name, Kind::outputPort, Receiver{}, std::nullopt, outPort);
}

OSStatus AlsaMIDIServer::portConnectSource(MIDIPortRef port, MIDIEndpointRef source, MIDIRefCon connRefCon) {
    if (status() != noErr) {
        return status();
    }
    auto portAddress = addressOf(port);
    auto sourceAddress = addressOf(source);
    if (kindOf(port) != Kind::inputPort || !portAddress || portAddress->first != self_) {
        return kMIDIInvalidPort;
    }
    if (kindOf(source) != Kind::source || !sourceAddress) {
        return kindOf(source) ? kMIDIWrongEndpointType : kMIDIUnknownEndpoint;
    }
    std::lock_guard lock(mutex_);
    auto it = ownPorts_.find(portAddress->second);
    if (it == ownPorts_.end() || it->second.kind != Kind::inputPort) {
        return kMIDIInvalidPort;
    }
    bool connected = it->second.connections.contains(*sourceAddress);
    it->second.connections[*sourceAddress] = connRefCon;
    if (!connected) {
        int error = snd_seq_connect_from(seq_, portAddress->second, sourceAddress->first, sourceAddress->second);
        if (error < 0) {
            it->second.connections.erase(*sourceAddress);
            return kMIDIUnknownEndpoint;
        }
    }
    return noErr;
}

OSStatus AlsaMIDIServer::portDisconnectSource(MIDIPortRef port, MIDIEndpointRef source) {
    if (status() != noErr) {
        return status();
    }
    auto portAddress = addressOf(port);
    auto sourceAddress = addressOf(source);
    if (kindOf(port) != Kind::inputPort || !portAddress || portAddress->first != self_) {
        return kMIDIInvalidPort;
    }
    std::lock_guard lock(mutex_);
    auto it = ownPorts_.find(portAddress->second);
    if (it == ownPorts_.end()) {
        return kMIDIInvalidPort;
    }
    if (!sourceAddress || it->second.connections.erase(*sourceAddress) == 0) {
        return kMIDINoConnection;
    }
    // The source may have gone already, taking the subscription with it.
    snd_seq_disconnect_from(seq_, portAddress->second, sourceAddress->first, sourceAddress->second);
    return noErr;
}

OSStatus AlsaMIDIServer::portDispose(MIDIPortRef port) {
    auto kind = kindOf(port);
    if (kind != Kind::inputPort && kind != Kind::outputPort) {
        return kMIDIInvalidPort;
    }
    return deletePort(port, *kind);
}

// --- Sending. ---

OSStatus AlsaMIDIServer::sendMessage(int sourcePort, std::optional<Address> destination,
                                     std::span<const std::uint8_t> bytes) {
    auto output = [&](snd_seq_event_t& event) {
        snd_seq_ev_set_source(&event, sourcePort);
        if (destination) {
            snd_seq_ev_set_dest(&event, destination->first, destination->second);
        } else {
            snd_seq_ev_set_subs(&event);
        }
        snd_seq_ev_set_direct(&event);
        return snd_seq_event_output_direct(seq_, &event);
    };
    snd_seq_event_t event;
    if (bytes.front() == 0xF0) {
        snd_seq_ev_clear(&event);
        snd_seq_ev_set_sysex(&event, bytes.size(), const_cast<std::uint8_t*>(bytes.data()));
        return output(event) < 0 ? kMIDIMsgSendErr : noErr;
    }
    // A channel voice message becomes its event directly.
    const std::uint8_t status = bytes.front();
    if (status >= 0x80 && status < 0xF0) {
        const std::size_t length = (status & 0xF0) == 0xC0 || (status & 0xF0) == 0xD0 ? 2 : 3;
        if (bytes.size() == length) {
            const int channel = status & 0x0F;
            const int data1 = bytes[1] & 0x7F;
            const int data2 = length == 3 ? bytes[2] & 0x7F : 0;
            snd_seq_ev_clear(&event);
            switch (status & 0xF0) {
                case 0x80: snd_seq_ev_set_noteoff(&event, channel, data1, data2); break;
                case 0x90: snd_seq_ev_set_noteon(&event, channel, data1, data2); break;
                case 0xA0: snd_seq_ev_set_keypress(&event, channel, data1, data2); break;
                case 0xB0: snd_seq_ev_set_controller(&event, channel, data1, data2); break;
                case 0xC0: snd_seq_ev_set_pgmchange(&event, channel, data1); break;
                case 0xD0: snd_seq_ev_set_chanpress(&event, channel, data1); break;
                default: snd_seq_ev_set_pitchbend(&event, channel, ((data2 << 7) | data1) - 8192); break;
            }
            return output(event) < 0 ? kMIDIMsgSendErr : noErr;
        }
    }
    // Other messages may come several in one (a parameter number is a run of control changes).
    snd_midi_event_reset_encode(encoder_);
    for (auto byte : bytes) {
        snd_seq_ev_clear(&event);
        if (snd_midi_event_encode_byte(encoder_, byte, &event) == 1 && event.type != SND_SEQ_EVENT_NONE) {
            if (output(event) < 0) {
                return kMIDIMsgSendErr;
            }
        }
    }
    return noErr;
}

OSStatus AlsaMIDIServer::sendList(int sourcePort, std::optional<Address> destination, std::uint64_t stream,
                                  std::span<const std::uint8_t> list, bool isEventList) {
    std::lock_guard lock(sendMutex_);
    auto& translator = outgoing_[stream];
    OSStatus result = noErr;
    auto emit = [&](std::span<const std::uint8_t> message) {
        if (result == noErr) {
            result = sendMessage(sourcePort, destination, message);
        }
    };
    if (isEventList) {
        translator.eventList(list, emit);
    } else {
        translator.packetList(list, emit);
    }
    return result;
}

OSStatus AlsaMIDIServer::fromSource(MIDIEndpointRef source, std::span<const std::uint8_t> list, bool isEventList) {
    if (status() != noErr) {
        return status();
    }
    auto address = addressOf(source);
    if (kindOf(source) != Kind::source || !address || address->first != self_) {
        return kindOf(source) == Kind::destination ? kMIDIWrongEndpointType : kMIDIUnknownEndpoint;
    }
    return sendList(address->second, std::nullopt, source, list, isEventList);
}

OSStatus AlsaMIDIServer::toDestination(MIDIPortRef port, MIDIEndpointRef destination,
                                       std::span<const std::uint8_t> list, bool isEventList) {
    if (status() != noErr) {
        return status();
    }
    auto portAddress = addressOf(port);
    auto destinationAddress = addressOf(destination);
    if (kindOf(port) != Kind::outputPort || !portAddress || portAddress->first != self_) {
        return kMIDIInvalidPort;
    }
    if (kindOf(destination) != Kind::destination || !destinationAddress) {
        return kindOf(destination) ? kMIDIWrongEndpointType : kMIDIUnknownEndpoint;
    }
    auto stream = (static_cast<std::uint64_t>(port) << 32) | destination;
    return sendList(portAddress->second, destinationAddress, stream, list, isEventList);
}

OSStatus AlsaMIDIServer::received(MIDIEndpointRef source, std::span<const std::uint8_t> packetList) {
    return fromSource(source, packetList, false);
}

OSStatus AlsaMIDIServer::receivedEventList(MIDIEndpointRef source, std::span<const std::uint8_t> eventList) {
    return fromSource(source, eventList, true);
}

OSStatus AlsaMIDIServer::send(MIDIPortRef port, MIDIEndpointRef destination, std::span<const std::uint8_t> packetList) {
    return toDestination(port, destination, packetList, false);
}

OSStatus AlsaMIDIServer::sendEventList(MIDIPortRef port, MIDIEndpointRef destination,
                                       std::span<const std::uint8_t> eventList) {
    return toDestination(port, destination, eventList, true);
}

// --- Thru connections: sequencer subscriptions between any two ports. ---

namespace {
// The ports a subscription runs between.
void setEnds(snd_seq_port_subscribe_t* subscription, std::pair<int, int> sender, std::pair<int, int> receiver) {
    snd_seq_addr_t from{static_cast<unsigned char>(sender.first), static_cast<unsigned char>(sender.second)};
    snd_seq_addr_t to{static_cast<unsigned char>(receiver.first), static_cast<unsigned char>(receiver.second)};
    snd_seq_port_subscribe_set_sender(subscription, &from);
    snd_seq_port_subscribe_set_dest(subscription, &to);
}
}  // namespace

bool AlsaMIDIServer::supportsThruConnections(const MIDIThruConnectionParams& params) const {
    return !(params.filterOutSysEx || params.filterOutMTC || params.filterOutBeatClock || params.filterOutTuneRequest ||
             params.filterOutAllControls);
}

OSStatus AlsaMIDIServer::thruConnectionCreate(const std::string& persistentOwnerID,
                                              const MIDIThruConnectionParams& params,
                                              MIDIThruConnectionRef* outConnection) {
    if (status() != noErr) {
        return status();
    }
    if (!supportsThruConnections(params) || params.numSources > MIDIThruConnectionParams::kMaxEndpoints ||
        params.numDestinations > MIDIThruConnectionParams::kMaxEndpoints) {
        return kMIDINotPermitted;
    }
    // The sequencer addresses of the endpoints, or nothing when one is not of the kind.
    auto addresses = [](std::span<const MIDIEndpointRef> refs, Kind kind) -> std::optional<std::vector<Address>> {
        std::vector<Address> result;
        for (auto ref : refs) {
            auto address = addressOf(ref);
            if (kindOf(ref) != kind || !address) {
                return std::nullopt;
            }
            result.push_back(*address);
        }
        return result;
    };
    const auto senders = addresses(std::span(params.sources).first(params.numSources), Kind::source);
    const auto receivers = addresses(std::span(params.destinations).first(params.numDestinations), Kind::destination);
    if (!senders || !receivers) {
        return kMIDIWrongEndpointType;
    }
    Thru thru{persistentOwnerID, {}};
    snd_seq_port_subscribe_t* subscription;
    snd_seq_port_subscribe_alloca(&subscription);
    for (const auto& sender : *senders) {
        for (const auto& receiver : *receivers) {
            setEnds(subscription, sender, receiver);
            int error = snd_seq_subscribe_port(seq_, subscription);
            if (error == -EBUSY) {
                continue;  // someone else's subscription: it stays theirs
            }
            if (error < 0) {
                unsubscribe(thru);
                return kMIDIUnknownEndpoint;
            }
            thru.subscriptions.emplace_back(sender, receiver);
        }
    }
    std::lock_guard lock(mutex_);
    MIDIThruConnectionRef ref = makeRef(Kind::thru, 0, 0) | (++lastThru_ & 0xFFFFFF);
    thrus_.emplace(ref, std::move(thru));
    *outConnection = ref;
    return noErr;
}

void AlsaMIDIServer::unsubscribe(const Thru& thru) {
    snd_seq_port_subscribe_t* subscription;
    snd_seq_port_subscribe_alloca(&subscription);
    for (const auto& [sender, receiver] : thru.subscriptions) {
        setEnds(subscription, sender, receiver);
        // A port that has gone took its subscription with it.
        (void)snd_seq_unsubscribe_port(seq_, subscription);
    }
}

OSStatus AlsaMIDIServer::thruConnectionDispose(MIDIThruConnectionRef connection) {
    if (status() != noErr) {
        return status();
    }
    Thru thru;
    {
        std::lock_guard lock(mutex_);
        auto it = thrus_.find(connection);
        if (it == thrus_.end()) {
            return kMIDIObjectNotFound;
        }
        thru = std::move(it->second);
        thrus_.erase(it);
    }
    unsubscribe(thru);
    return noErr;
}

OSStatus AlsaMIDIServer::thruConnectionFind(const std::string& persistentOwnerID,
                                            std::vector<MIDIThruConnectionRef>* outConnections) {
    outConnections->clear();
    std::lock_guard lock(mutex_);
    for (const auto& [ref, thru] : thrus_) {
        if (!thru.ownerID.empty() && thru.ownerID == persistentOwnerID) {
            outConnections->push_back(ref);
        }
    }
    return noErr;
}

// --- Receiving, on the receive thread. ---

void AlsaMIDIServer::receiveLoop() {
    int count = snd_seq_poll_descriptors_count(seq_, POLLIN);
    std::vector<pollfd> fds(static_cast<std::size_t>(count) + 1);
    snd_seq_poll_descriptors(seq_, fds.data(), static_cast<unsigned int>(count), POLLIN);
    fds.back() = pollfd{wakeFd_, POLLIN, 0};
    while (!stopping_) {
        if (::poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            lose(std::string("waiting for events failed: ") + std::strerror(errno));
            return;
        }
        if (stopping_) {
            return;
        }
        bool readable = std::any_of(fds.begin(), fds.end() - 1, [](const pollfd& fd) { return fd.revents != 0; });
        if (!readable) {
            continue;
        }
        // Everything read from the kernel in one go, then what is left in the input buffer.
        do {
            snd_seq_event_t* event = nullptr;
            int result = snd_seq_event_input(seq_, &event);
            if (result == -ENOSPC || result == -EAGAIN || result == -EINTR) {
                break;  // an overrun loses events, not the sequencer
            }
            if (result < 0) {
                lose(errorText(result));
                return;
            }
            if (event != nullptr) {
                // What a handler calls may drop the last reference to this server, which then
                // ends on this thread: the flag, not the members, says so afterwards.
                const auto alive = alive_;
                handleEvent(*event);
                if (!alive->load()) {
                    return;
                }
            }
        } while (snd_seq_event_input_pending(seq_, 0) > 0);
    }
}

void AlsaMIDIServer::handleEvent(const snd_seq_event& event) {
    if (event.dest.port == announcePort_ && event.source.client == SND_SEQ_CLIENT_SYSTEM) {
        handleAnnouncement(event);
    } else {
        handleData(event);
    }
}

void AlsaMIDIServer::notify(const std::vector<MIDINotificationMessage>& messages) {
    std::vector<NotifyBlock> blocks;
    {
        std::lock_guard lock(mutex_);
        for (const auto& entry : notifies_) {
            blocks.push_back(entry.block);
        }
    }
    for (const auto& message : messages) {
        for (const auto& block : blocks) {
            block(message);
        }
    }
}

void AlsaMIDIServer::handleAnnouncement(const snd_seq_event& event) {
    using ID = MIDINotificationMessageID;
    const Address address{event.data.addr.client, event.data.addr.port};
    const bool own = address.first == self_;
    std::vector<MIDINotificationMessage> messages;
    auto endpointMessages = [&](ID id, const KnownPort& port) {
        // Ours are virtual endpoints, with no entity above them.
        MIDIObjectRef parent = own ? 0 : makeRef(Kind::entity, address.first);
        auto parentType = own ? MIDIObjectType::other : MIDIObjectType::entity;
        if (port.source) {
            messages.push_back(objectMessage(id, parent, parentType, makeRef(Kind::source, address.first, address.second),
                                             MIDIObjectType::source));
        }
        if (port.destination) {
            messages.push_back(objectMessage(id, parent, parentType,
                                             makeRef(Kind::destination, address.first, address.second),
                                             MIDIObjectType::destination));
        }
    };
    switch (event.type) {
        case SND_SEQ_EVENT_CLIENT_START:
            if (!own && address.first != SND_SEQ_CLIENT_SYSTEM) {
                messages.push_back(objectMessage(ID::objectAdded, 0, MIDIObjectType::other,
                                                 makeRef(Kind::device, address.first), MIDIObjectType::device));
            }
            break;
        case SND_SEQ_EVENT_CLIENT_EXIT:
            if (!own && address.first != SND_SEQ_CLIENT_SYSTEM) {
                std::lock_guard lock(mutex_);
                std::erase_if(known_, [&](const auto& entry) { return entry.first.first == address.first; });
                messages.push_back(objectMessage(ID::objectRemoved, 0, MIDIObjectType::other,
                                                 makeRef(Kind::device, address.first), MIDIObjectType::device));
            }
            break;
        case SND_SEQ_EVENT_CLIENT_CHANGE:
            if (!own) {
                messages.push_back(propertyMessage(makeRef(Kind::device, address.first), MIDIObjectType::device, kMIDIPropertyName));
            }
            break;
        case SND_SEQ_EVENT_PORT_START: {
            KnownPort port;
            if (own) {
                std::lock_guard lock(mutex_);
                port = known_[address];
            } else if (auto view = portView(address)) {
                port = KnownPort{isSource(view->capability), isDestination(view->capability)};
                std::lock_guard lock(mutex_);
                known_[address] = port;
            }
            endpointMessages(ID::objectAdded, port);
            break;
        }
        case SND_SEQ_EVENT_PORT_EXIT: {
            KnownPort port;
            {
                std::lock_guard lock(mutex_);
                if (auto it = known_.find(address); it != known_.end()) {
                    port = it->second;
                    known_.erase(it);
                }
            }
            endpointMessages(ID::objectRemoved, port);
            break;
        }
        case SND_SEQ_EVENT_PORT_CHANGE: {
            if (auto view = portView(address); view && !own) {
                KnownPort port{isSource(view->capability), isDestination(view->capability)};
                KnownPort before;
                {
                    std::lock_guard lock(mutex_);
                    before = known_[address];
                    known_[address] = port;
                }
                // A port that became (or stopped being) an endpoint of a kind is added (removed).
                KnownPort added{port.source && !before.source, port.destination && !before.destination};
                KnownPort removed{before.source && !port.source, before.destination && !port.destination};
                endpointMessages(ID::objectAdded, added);
                endpointMessages(ID::objectRemoved, removed);
                if (port.source) {
                    messages.push_back(propertyMessage(makeRef(Kind::source, address.first, address.second),
                                                       MIDIObjectType::source, kMIDIPropertyName));
                }
                if (port.destination) {
                    messages.push_back(propertyMessage(makeRef(Kind::destination, address.first, address.second),
                                                       MIDIObjectType::destination, kMIDIPropertyName));
                }
            }
            break;
        }
        default:
            break;
    }
    if (!messages.empty()) {
        messages.push_back(plainMessage(ID::setupChanged));
        notify(messages);
    }
}

void AlsaMIDIServer::handleData(const snd_seq_event& event) {
    Receiver receiver;
    MIDIRefCon refCon = 0;
    {
        std::lock_guard lock(mutex_);
        auto it = ownPorts_.find(event.dest.port);
        if (it == ownPorts_.end()) {
            return;
        }
        const auto& port = it->second;
        if (port.kind == Kind::inputPort) {
            // Only what comes from a source the port is connected to.
            auto connection = port.connections.find({event.source.client, event.source.port});
            if (connection == port.connections.end()) {
                return;
            }
            refCon = connection->second;
        } else if (port.kind != Kind::destination) {
            return;
        }
        receiver = port.receiver;
    }
    // The MIDI 1.0 bytes of the event. A SysEx's bytes are the event's own, of the length
    // libasound checked against what it read.
    std::uint8_t buffer[32];
    std::span<const std::uint8_t> bytes;
    if (event.type == SND_SEQ_EVENT_SYSEX) {
        if ((event.flags & SND_SEQ_EVENT_LENGTH_MASK) != SND_SEQ_EVENT_LENGTH_VARIABLE || event.data.ext.ptr == nullptr) {
            return;
        }
        bytes = {static_cast<const std::uint8_t*>(event.data.ext.ptr), event.data.ext.len};
    } else {
        snd_midi_event_reset_decode(decoder_);
        long length = snd_midi_event_decode(decoder_, buffer, sizeof buffer, &event);
        if (length <= 0) {
            return;  // not a MIDI message
        }
        bytes = {buffer, static_cast<std::size_t>(length)};
    }
    if (bytes.empty()) {
        return;
    }
    auto timeStamp = hostTime();
    if (receiver.protocol) {
        auto list = incoming_[{event.source.client, event.source.port}].eventList(bytes, *receiver.protocol, timeStamp);
        if (!list.empty() && receiver.receiveBlock) {
            receiver.receiveBlock(list, refCon);
        }
    } else if (receiver.readBlock) {
        receiver.readBlock(AlsaIncomingTranslator::packetList(bytes, timeStamp), refCon);
    }
}

// --- The object tree. ---

ItemCount AlsaMIDIServer::getNumberOfDevices() { return otherClients().size(); }

MIDIDeviceRef AlsaMIDIServer::getDevice(ItemCount index) {
    auto clients = otherClients();
    return index < clients.size() ? makeRef(Kind::device, clients[index].client) : 0;
}

ItemCount AlsaMIDIServer::deviceGetNumberOfEntities(MIDIDeviceRef device) {
    return kindOf(device) == Kind::device && identityOf(device) ? 1 : 0;
}

MIDIEntityRef AlsaMIDIServer::deviceGetEntity(MIDIDeviceRef device, ItemCount index) {
    if (index != 0 || deviceGetNumberOfEntities(device) == 0) {
        return 0;
    }
    return makeRef(Kind::entity, addressOf(device)->first);
}

std::vector<MIDIEndpointRef> AlsaMIDIServer::entityEndpoints(MIDIEntityRef entity, Kind kind) const {
    // Our own ports are virtual endpoints, under no entity.
    if (kindOf(entity) != Kind::entity || addressOf(entity)->first == self_) {
        return {};
    }
    return endpointsOf(addressOf(entity)->first, kind);
}

ItemCount AlsaMIDIServer::entityGetNumberOfSources(MIDIEntityRef entity) {
    return entityEndpoints(entity, Kind::source).size();
}

MIDIEndpointRef AlsaMIDIServer::entityGetSource(MIDIEntityRef entity, ItemCount index) {
    const auto endpoints = entityEndpoints(entity, Kind::source);
    return index < endpoints.size() ? endpoints[index] : 0;
}

ItemCount AlsaMIDIServer::entityGetNumberOfDestinations(MIDIEntityRef entity) {
    return entityEndpoints(entity, Kind::destination).size();
}

MIDIEndpointRef AlsaMIDIServer::entityGetDestination(MIDIEntityRef entity, ItemCount index) {
    const auto endpoints = entityEndpoints(entity, Kind::destination);
    return index < endpoints.size() ? endpoints[index] : 0;
}

OSStatus AlsaMIDIServer::entityGetDevice(MIDIEntityRef entity, MIDIDeviceRef* outDevice) {
    if (kindOf(entity) != Kind::entity || !identityOf(entity)) {
        return kMIDIObjectNotFound;
    }
    *outDevice = makeRef(Kind::device, addressOf(entity)->first);
    return noErr;
}

OSStatus AlsaMIDIServer::endpointGetEntity(MIDIEndpointRef endpoint, MIDIEntityRef* outEntity) {
    auto kind = kindOf(endpoint);
    if ((kind != Kind::source && kind != Kind::destination) || !identityOf(endpoint)) {
        return kMIDIUnknownEndpoint;
    }
    auto address = addressOf(endpoint);
    if (address->first == self_) {
        return kMIDIObjectNotFound;  // a virtual endpoint has no entity
    }
    *outEntity = makeRef(Kind::entity, address->first);
    return noErr;
}

ItemCount AlsaMIDIServer::getNumberOfSources() { return allEndpoints(Kind::source).size(); }

MIDIEndpointRef AlsaMIDIServer::getSource(ItemCount index) {
    auto endpoints = allEndpoints(Kind::source);
    return index < endpoints.size() ? endpoints[index] : 0;
}

ItemCount AlsaMIDIServer::getNumberOfDestinations() { return allEndpoints(Kind::destination).size(); }

MIDIEndpointRef AlsaMIDIServer::getDestination(ItemCount index) {
    auto endpoints = allEndpoints(Kind::destination);
    return index < endpoints.size() ? endpoints[index] : 0;
}

OSStatus AlsaMIDIServer::objectFindByUniqueID(MIDIUniqueID uniqueID, MIDIObjectRef* outObject,
                                              MIDIObjectType* outType) {
    for (auto ref : allObjects()) {
        auto identity = identityOf(ref);
        if (identity && identity->uniqueID == uniqueID) {
            *outObject = ref;
            *outType = identity->type;
            return noErr;
        }
    }
    return kMIDIObjectNotFound;
}

// --- Properties. ---

OSStatus AlsaMIDIServer::objectGetIntegerProperty(MIDIObjectRef object, const std::string& key,
                                                  std::int32_t* outValue) {
    auto identity = identityOf(object);
    auto kind = kindOf(object);
    if (!identity) {
        // An endpoint whose port has gone is offline; other objects are simply not there.
        if (key == kMIDIPropertyOffline && (kind == Kind::source || kind == Kind::destination)) {
            *outValue = 1;
            return noErr;
        }
        return kMIDIObjectNotFound;
    }
    if (key == kMIDIPropertyUniqueID) {
        *outValue = identity->uniqueID;
        return noErr;
    }
    if (key == kMIDIPropertyOffline) {
        *outValue = 0;
        return noErr;
    }
    if (key == kMIDIPropertyProtocol && addressOf(object)->first == self_) {
        std::lock_guard lock(mutex_);
        const auto& own = ownPorts_.at(addressOf(object)->second);
        if (own.protocol) {
            *outValue = static_cast<std::int32_t>(*own.protocol);
            return noErr;
        }
    }
    if (key == kMIDIPropertyName || key == kMIDIPropertyDisplayName) {
        return kMIDIWrongPropertyType;
    }
    return kMIDIUnknownProperty;
}

OSStatus AlsaMIDIServer::objectSetIntegerProperty(MIDIObjectRef object, const std::string& key, std::int32_t value) {
    auto address = addressOf(object);
    if (!identityOf(object)) {
        return kMIDIObjectNotFound;
    }
    if (address->first != self_ || key != kMIDIPropertyUniqueID) {
        return kMIDINotPermitted;  // the sequencer keeps no other properties
    }
    MIDIObjectRef holder = 0;
    MIDIObjectType type = MIDIObjectType::other;
    if (objectFindByUniqueID(value, &holder, &type) == noErr && holder != object) {
        return kMIDIIDNotUnique;
    }
    std::lock_guard lock(mutex_);
    auto it = ownPorts_.find(address->second);
    if (it == ownPorts_.end()) {
        return kMIDIObjectNotFound;
    }
    it->second.uniqueID = value;
    return noErr;
}

OSStatus AlsaMIDIServer::objectGetStringProperty(MIDIObjectRef object, const std::string& key, std::string* outValue) {
    auto identity = identityOf(object);
    if (!identity) {
        return kMIDIObjectNotFound;
    }
    if (key == kMIDIPropertyName) {
        *outValue = identity->name;
        return noErr;
    }
    if (key == kMIDIPropertyDisplayName) {
        *outValue = identity->displayName;
        return noErr;
    }
    if (key == kMIDIPropertyUniqueID || key == kMIDIPropertyOffline) {
        return kMIDIWrongPropertyType;
    }
    return kMIDIUnknownProperty;
}

OSStatus AlsaMIDIServer::objectSetStringProperty(MIDIObjectRef object, const std::string& key,
                                                 const std::string& value) {
    auto address = addressOf(object);
    if (!identityOf(object)) {
        return kMIDIObjectNotFound;
    }
    if (address->first != self_ || key != kMIDIPropertyName) {
        return kMIDINotPermitted;
    }
    std::lock_guard lock(mutex_);
    snd_seq_port_info_t* info;
    snd_seq_port_info_alloca(&info);
    if (snd_seq_get_port_info(seq_, address->second, info) < 0) {
        return kMIDIObjectNotFound;
    }
    snd_seq_port_info_set_name(info, value.c_str());
    if (snd_seq_set_port_info(seq_, address->second, info) < 0) {
        return kMIDINotPermitted;
    }
    ownPorts_[address->second].name = value;
    return noErr;
}

OSStatus AlsaMIDIServer::objectGetDictionaryProperty(MIDIObjectRef object, const std::string&, nlohmann::json*) {
    return identityOf(object) ? kMIDIUnknownProperty : kMIDIObjectNotFound;
}

OSStatus AlsaMIDIServer::objectGetProperties(MIDIObjectRef object, nlohmann::json* outProperties, bool deep) {
    auto identity = identityOf(object);
    if (!identity) {
        return kMIDIObjectNotFound;
    }
    nlohmann::json result = {{kMIDIPropertyName, identity->name}, {kMIDIPropertyDisplayName, identity->displayName},
                             {kMIDIPropertyUniqueID, identity->uniqueID}};
    auto kind = kindOf(object);
    if (kind == Kind::source || kind == Kind::destination) {
        result[kMIDIPropertyOffline] = 0;
    }
    if (deep && (kind == Kind::device || kind == Kind::entity)) {
        auto children = [&](auto count, auto at, MIDIObjectRef parent) {
            nlohmann::json list = nlohmann::json::array();
            for (ItemCount i = 0, n = (this->*count)(parent); i < n; ++i) {
                nlohmann::json child;
                if (objectGetProperties((this->*at)(parent, i), &child, true) == noErr) {
                    list.push_back(std::move(child));
                }
            }
            return list;
        };
        if (kind == Kind::device) {
            result["entities"] = children(&AlsaMIDIServer::deviceGetNumberOfEntities, &AlsaMIDIServer::deviceGetEntity,
                                          object);
        } else {
            result["sources"] = children(&AlsaMIDIServer::entityGetNumberOfSources, &AlsaMIDIServer::entityGetSource,
                                         object);
            result["destinations"] = children(&AlsaMIDIServer::entityGetNumberOfDestinations,
                                              &AlsaMIDIServer::entityGetDestination, object);
        }
    }
    *outProperties = std::move(result);
    return noErr;
}

// --- The network session: not a sequencer matter, kept as set. ---

bool AlsaMIDIServer::networkSessionEnabled() { return networkSession_.enabled(); }
void AlsaMIDIServer::setNetworkSessionEnabled(bool enabled) { networkSession_.setEnabled(enabled); }
std::uint32_t AlsaMIDIServer::networkSessionConnectionPolicy() { return networkSession_.connectionPolicy(); }
void AlsaMIDIServer::setNetworkSessionConnectionPolicy(std::uint32_t policy) { networkSession_.setConnectionPolicy(policy); }

}  // namespace MIDIIO
