#include "backends/midi_loopback/LoopbackMIDIServer.hpp"

#include "MIDIIO/MIDIPacketLayout.hpp"
#include "MIDIInternals/DispatchSync.hpp"
#include "MIDIInternals/QueueRelease.hpp"
#include "MIDIInternals/SerialQueueFactory.hpp"

#include <algorithm>

#include "MIDIIO/MIDIPlatformStatus.hpp"

namespace MIDIIO {

namespace {

bool isEndpointType(MIDIObjectType type) {
    return type == MIDIObjectType::source || type == MIDIObjectType::destination;
}
}  // namespace

std::shared_ptr<LoopbackMIDIServer> LoopbackMIDIServer::create(bool supportsThru) {
    return std::make_shared<LoopbackMIDIServer>(supportsThru, MIDIInternals::makeSerialQueue("loopback-midi-server"));
}

LoopbackMIDIServer::LoopbackMIDIServer(bool supportsThru, std::shared_ptr<MIDIInternals::DispatchQueue> queue)
    : supportsThru_(supportsThru), queue_(std::move(queue)), random_(std::random_device{}()) {}

LoopbackMIDIServer::~LoopbackMIDIServer() { MIDIInternals::releaseQueue(std::move(queue_)); }

MIDIObjectRef LoopbackMIDIServer::nextRef() { return ++lastRef_; }

bool LoopbackMIDIServer::isUniqueIDTaken(MIDIUniqueID id) const {
    for (const auto& [ref, object] : objects_) {
        auto it = object.properties.find(kMIDIPropertyUniqueID);
        if (it != object.properties.end() && std::get_if<std::int32_t>(&it->second) &&
            std::get<std::int32_t>(it->second) == id) {
            return true;
        }
    }
    return false;
}

MIDIUniqueID LoopbackMIDIServer::freshUniqueID() {
    std::uniform_int_distribution<std::int32_t> distribution;
    for (;;) {
        auto id = static_cast<MIDIUniqueID>(distribution(random_));
        if (id != 0 && !isUniqueIDTaken(id)) {
            return id;
        }
    }
}

LoopbackMIDIServer::Object* LoopbackMIDIServer::find(MIDIObjectRef ref) {
    auto it = objects_.find(ref);
    return it == objects_.end() ? nullptr : &it->second;
}

const LoopbackMIDIServer::Object* LoopbackMIDIServer::find(MIDIObjectRef ref) const {
    auto it = objects_.find(ref);
    return it == objects_.end() ? nullptr : &it->second;
}

// Entities and endpoints take what they do not set from their parent, except their own names
// and identity.
const LoopbackMIDIServer::Property* LoopbackMIDIServer::findProperty(MIDIObjectRef ref, const std::string& key) const {
    bool inherits = key != kMIDIPropertyName && key != kMIDIPropertyUniqueID && key != kMIDIPropertyDisplayName && key != kMIDIPropertyPrivate;
    for (const Object* object = find(ref); object != nullptr; object = inherits ? find(object->parent) : nullptr) {
        if (auto it = object->properties.find(key); it != object->properties.end()) {
            return &it->second;
        }
    }
    return nullptr;
}

bool LoopbackMIDIServer::isOnline(MIDIObjectRef endpoint) const {
    const auto* offline = findProperty(endpoint, kMIDIPropertyOffline);
    return offline == nullptr || std::get_if<std::int32_t>(offline) == nullptr || std::get<std::int32_t>(*offline) == 0;
}

std::vector<MIDIEndpointRef> LoopbackMIDIServer::presentEndpoints(MIDIObjectType type) const {
    std::vector<MIDIEndpointRef> result;
    for (auto device : deviceOrder_) {
        for (auto entity : find(device)->entities) {
            const auto* object = find(entity);
            for (auto endpoint : type == MIDIObjectType::source ? object->sources : object->destinations) {
                if (isOnline(endpoint)) {
                    result.push_back(endpoint);
                }
            }
        }
    }
    for (auto endpoint : virtualOrder_) {
        if (find(endpoint)->type == type) {
            result.push_back(endpoint);
        }
    }
    return result;
}

std::string LoopbackMIDIServer::displayNameOf(MIDIObjectRef ref) const {
    const auto* object = find(ref);
    if (auto it = object->properties.find(kMIDIPropertyDisplayName); it != object->properties.end()) {
        if (const auto* text = std::get_if<std::string>(&it->second)) {
            return *text;
        }
    }
    std::string name;
    if (auto it = object->properties.find(kMIDIPropertyName); it != object->properties.end() && std::get_if<std::string>(&it->second)) {
        name = std::get<std::string>(it->second);
    }
    // A device's endpoint shows the device's name before its own, unless they are the same.
    if (isEndpointType(object->type) && object->parent != 0) {
        const auto* entity = find(object->parent);
        const auto* deviceName = entity ? findProperty(entity->parent, kMIDIPropertyName) : nullptr;
        if (deviceName && std::get_if<std::string>(deviceName)) {
            const auto& prefix = std::get<std::string>(*deviceName);
            if (prefix != name) {
                return prefix + " " + name;
            }
        }
    }
    return name;
}

// --- Objects. ---

MIDIObjectRef LoopbackMIDIServer::addObject(MIDIObjectType type, MIDIObjectRef parent, const std::string& name,
                                            MIDIClientRef owner, Receiver receiver) {
    auto ref = nextRef();
    Object object;
    object.type = type;
    object.parent = parent;
    object.owner = owner;
    object.receiver = std::move(receiver);
    object.properties[kMIDIPropertyName] = name;
    object.properties[kMIDIPropertyUniqueID] = freshUniqueID();
    if (isEndpointType(type) && owner != 0 && object.receiver.protocol) {
        object.properties[kMIDIPropertyProtocol] = static_cast<std::int32_t>(*object.receiver.protocol);
    }
    objects_.emplace(ref, std::move(object));
    return ref;
}

MIDINotificationMessage LoopbackMIDIServer::objectMessage(MIDINotificationMessageID id, MIDIObjectRef parent,
                                                          MIDIObjectType parentType, MIDIObjectRef child,
                                                          MIDIObjectType childType) {
    MIDINotificationMessage message;
    message.messageID = static_cast<std::int32_t>(id);
    message.parent = parent;
    message.parentType = parentType;
    message.child = child;
    message.childType = childType;
    return message;
}

MIDINotificationMessage LoopbackMIDIServer::propertyMessage(MIDIObjectRef object, MIDIObjectType type,
                                                            const std::string& key) {
    MIDINotificationMessage message;
    message.messageID = static_cast<std::int32_t>(MIDINotificationMessageID::propertyChanged);
    message.object = object;
    message.objectType = type;
    message.propertyName = key;
    return message;
}

MIDINotificationMessage LoopbackMIDIServer::plainMessage(MIDINotificationMessageID id) {
    MIDINotificationMessage message;
    message.messageID = static_cast<std::int32_t>(id);
    return message;
}

void LoopbackMIDIServer::announce(std::vector<MIDINotificationMessage> messages) {
    std::vector<NotifyBlock> blocks;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [ref, client] : clients_) {
            if (client.notify) {
                blocks.push_back(client.notify);
            }
        }
    }
    if (blocks.empty() || messages.empty()) {
        return;
    }
    post([blocks = std::move(blocks), messages = std::move(messages)] {
        for (const auto& message : messages) {
            for (const auto& block : blocks) {
                block(message);
            }
        }
    });
}

OSStatus LoopbackMIDIServer::clientCreateWithBlock(const std::string& name, NotifyBlock notifyBlock,
                                                   MIDIClientRef* outClient) {
    {
        std::lock_guard lock(mutex_);
        *outClient = nextRef();
        clients_[*outClient] = Client{name, std::move(notifyBlock), nullptr};
    }
    announce({plainMessage(MIDINotificationMessageID::internalStart)});
    return noErr;
}

OSStatus LoopbackMIDIServer::createVirtual(MIDIClientRef client, const std::string& name, MIDIObjectType type,
                                           Receiver receiver, MIDIEndpointRef* out) {
    {
        std::lock_guard lock(mutex_);
        if (!clients_.contains(client)) {
            return kMIDIInvalidClient;
        }
        *out = addObject(type, 0, name, client, std::move(receiver));
        virtualOrder_.push_back(*out);
    }
    announce({objectMessage(MIDINotificationMessageID::objectAdded, 0, MIDIObjectType::other, *out, type),
              plainMessage(MIDINotificationMessageID::setupChanged)});
    return noErr;
}

OSStatus LoopbackMIDIServer::sourceCreate(MIDIClientRef client, const std::string& name, MIDIEndpointRef* outSource) {
    return createVirtual(client, name, MIDIObjectType::source, Receiver{}, outSource);
}

OSStatus LoopbackMIDIServer::sourceCreateWithProtocol(MIDIClientRef client, const std::string& name,
                                                      MIDIProtocolID protocol, MIDIEndpointRef* outSource) {
    return createVirtual(client, name, MIDIObjectType::source, Receiver{protocol, {}, {}}, outSource);
}

OSStatus LoopbackMIDIServer::destinationCreateWithBlock(MIDIClientRef client, const std::string& name,
                                                        ReadBlock readBlock, MIDIEndpointRef* outDestination) {
    return createVirtual(client, name, MIDIObjectType::destination, Receiver{std::nullopt, std::move(readBlock), {}},
                         outDestination);
}

OSStatus LoopbackMIDIServer::destinationCreateWithProtocol(MIDIClientRef client, const std::string& name,
                                                           MIDIProtocolID protocol, ReceiveBlock receiveBlock,
                                                           MIDIEndpointRef* outDestination) {
    return createVirtual(client, name, MIDIObjectType::destination, Receiver{protocol, {}, std::move(receiveBlock)},
                         outDestination);
}

// Removes the object and everything below it; only the object itself is announced, as the
// system does.
void LoopbackMIDIServer::removeLocked(MIDIObjectRef ref, std::vector<MIDINotificationMessage>& messages) {
    auto* object = find(ref);
    if (object == nullptr) {
        return;
    }
    Object removed = *object;
    std::vector<MIDINotificationMessage> unannounced;
    for (auto* children : {&removed.entities, &removed.sources, &removed.destinations}) {
        for (auto child : *children) {
            removeLocked(child, unannounced);
        }
    }
    MIDIObjectType parentType = MIDIObjectType::other;
    if (auto* parent = find(removed.parent)) {
        parentType = parent->type;
        for (auto* list : {&parent->entities, &parent->sources, &parent->destinations}) {
            std::erase(*list, ref);
        }
    }
    std::erase(deviceOrder_, ref);
    std::erase(virtualOrder_, ref);
    for (auto& [portRef, port] : ports_) {
        port.connections.erase(ref);
    }
    // The translator of the stream is only touched on the queue.
    post([self = weak_from_this(), ref] {
        if (auto server = self.lock()) {
            std::lock_guard lock(server->mutex_);
            server->translators_.erase(ref);
        }
    });
    objects_.erase(ref);
    messages.push_back(objectMessage(MIDINotificationMessageID::objectRemoved, removed.parent, parentType, ref, removed.type));
}

OSStatus LoopbackMIDIServer::endpointDispose(MIDIEndpointRef endpoint) {
    std::vector<MIDINotificationMessage> messages;
    {
        std::lock_guard lock(mutex_);
        const auto* object = find(endpoint);
        if (object == nullptr || !isEndpointType(object->type)) {
            return kMIDIUnknownEndpoint;
        }
        if (object->owner == 0) {
            return kMIDINotPermitted;
        }
        removeLocked(endpoint, messages);
    }
    messages.push_back(plainMessage(MIDINotificationMessageID::setupChanged));
    announce(std::move(messages));
    return noErr;
}

OSStatus LoopbackMIDIServer::removeObject(MIDIObjectRef ref) {
    std::vector<MIDINotificationMessage> messages;
    {
        std::lock_guard lock(mutex_);
        if (find(ref) == nullptr) {
            return kMIDIObjectNotFound;
        }
        removeLocked(ref, messages);
    }
    messages.push_back(plainMessage(MIDINotificationMessageID::setupChanged));
    announce(std::move(messages));
    return noErr;
}

MIDIDeviceRef LoopbackMIDIServer::addDevice(const std::string& name, const std::string& manufacturer,
                                            const std::string& model) {
    MIDIDeviceRef ref = 0;
    {
        std::lock_guard lock(mutex_);
        ref = addObject(MIDIObjectType::device, 0, name, 0, Receiver{});
        auto& object = objects_[ref];
        object.properties["manufacturer"] = manufacturer;
        object.properties["model"] = model;
        deviceOrder_.push_back(ref);
    }
    announce({objectMessage(MIDINotificationMessageID::objectAdded, 0, MIDIObjectType::other, ref, MIDIObjectType::device),
              plainMessage(MIDINotificationMessageID::setupChanged)});
    return ref;
}

MIDIObjectRef LoopbackMIDIServer::addChild(MIDIObjectRef parent, MIDIObjectType parentType, MIDIObjectType type,
                                            const std::string& name) {
    MIDIObjectRef ref = 0;
    {
        std::lock_guard lock(mutex_);
        auto* owner = find(parent);
        if (owner == nullptr || owner->type != parentType) {
            return 0;
        }
        ref = addObject(type, parent, name, 0, Receiver{});
        owner = find(parent);
        auto& list = type == MIDIObjectType::entity ? owner->entities
                     : type == MIDIObjectType::source ? owner->sources
                                                      : owner->destinations;
        list.push_back(ref);
    }
    announce({objectMessage(MIDINotificationMessageID::objectAdded, parent, parentType, ref, type),
              plainMessage(MIDINotificationMessageID::setupChanged)});
    return ref;
}

MIDIEntityRef LoopbackMIDIServer::addEntity(MIDIDeviceRef device, const std::string& name) {
    return addChild(device, MIDIObjectType::device, MIDIObjectType::entity, name);
}

MIDIEndpointRef LoopbackMIDIServer::addSource(MIDIEntityRef entity, const std::string& name) {
    return addChild(entity, MIDIObjectType::entity, MIDIObjectType::source, name);
}

MIDIEndpointRef LoopbackMIDIServer::addDestination(MIDIEntityRef entity, const std::string& name) {
    return addChild(entity, MIDIObjectType::entity, MIDIObjectType::destination, name);
}

void LoopbackMIDIServer::reportIOError(MIDIDeviceRef device, OSStatus error) {
    auto message = plainMessage(MIDINotificationMessageID::ioError);
    message.driverDevice = device;
    message.errorCode = error;
    announce({message});
}

void LoopbackMIDIServer::post(MIDIInternals::DispatchQueue::Work work) {
    ++posted_;
    queue_->async(std::move(work));
}

void LoopbackMIDIServer::clientSetFlushBlock(MIDIClientRef client, std::function<void()> flushBlock) {
    std::lock_guard lock(mutex_);
    if (auto it = clients_.find(client); it != clients_.end()) {
        it->second.flush = std::move(flushBlock);
    }
}

void LoopbackMIDIServer::flush() {
    for (int round = 0; round < kFlushRounds; ++round) {
        const auto before = posted_.load();
        MIDIInternals::syncOn(*queue_, [] {});
        std::vector<std::function<void()>> blocks;
        {
            std::lock_guard lock(mutex_);
            for (const auto& [ref, client] : clients_) {
                if (client.flush) {
                    blocks.push_back(client.flush);
                }
            }
        }
        for (const auto& block : blocks) {
            block();
        }
        if (posted_.load() == before) {
            return;
        }
    }
}

// --- Ports. ---

OSStatus LoopbackMIDIServer::inputPortCreateWithBlock(MIDIClientRef client, const std::string&, ReadBlock readBlock,
                                                      MIDIPortRef* outPort) {
    std::lock_guard lock(mutex_);
    if (!clients_.contains(client)) {
        return kMIDIInvalidClient;
    }
    *outPort = nextRef();
    ports_[*outPort] = Port{client, true, Receiver{std::nullopt, std::move(readBlock), {}}, {}};
    return noErr;
}

OSStatus LoopbackMIDIServer::inputPortCreateWithProtocol(MIDIClientRef client, const std::string&,
                                                         MIDIProtocolID protocol, ReceiveBlock receiveBlock,
                                                         MIDIPortRef* outPort) {
    std::lock_guard lock(mutex_);
    if (!clients_.contains(client)) {
        return kMIDIInvalidClient;
    }
    *outPort = nextRef();
    ports_[*outPort] = Port{client, true, Receiver{protocol, {}, std::move(receiveBlock)}, {}};
    return noErr;
}

OSStatus LoopbackMIDIServer::outputPortCreate(MIDIClientRef client, const std::string&, MIDIPortRef* outPort) {
    std::lock_guard lock(mutex_);
    if (!clients_.contains(client)) {
        return kMIDIInvalidClient;
    }
    *outPort = nextRef();
    ports_[*outPort] = Port{client, false, Receiver{}, {}};
    return noErr;
}

OSStatus LoopbackMIDIServer::portConnectSource(MIDIPortRef port, MIDIEndpointRef source, MIDIRefCon connRefCon) {
    std::lock_guard lock(mutex_);
    auto it = ports_.find(port);
    if (it == ports_.end() || !it->second.input) {
        return kMIDIInvalidPort;
    }
    const auto* object = find(source);
    if (object == nullptr) {
        return kMIDIUnknownEndpoint;
    }
    if (object->type != MIDIObjectType::source) {
        return kMIDIWrongEndpointType;
    }
    it->second.connections[source] = connRefCon;
    return noErr;
}

OSStatus LoopbackMIDIServer::portDisconnectSource(MIDIPortRef port, MIDIEndpointRef source) {
    std::lock_guard lock(mutex_);
    auto it = ports_.find(port);
    if (it == ports_.end()) {
        return kMIDIInvalidPort;
    }
    return it->second.connections.erase(source) == 1 ? noErr : kMIDINoConnection;
}

OSStatus LoopbackMIDIServer::portDispose(MIDIPortRef port) {
    std::lock_guard lock(mutex_);
    return ports_.erase(port) == 1 ? noErr : kMIDIInvalidPort;
}

// --- Data. ---

OSStatus LoopbackMIDIServer::received(MIDIEndpointRef source, std::span<const std::uint8_t> packetList) {
    return fromSource(source, LoopbackMessage{false, {packetList.begin(), packetList.end()}});
}

OSStatus LoopbackMIDIServer::receivedEventList(MIDIEndpointRef source, std::span<const std::uint8_t> eventList) {
    return fromSource(source, LoopbackMessage{true, {eventList.begin(), eventList.end()}});
}

OSStatus LoopbackMIDIServer::deviceSourceSend(MIDIEndpointRef source, const std::vector<std::uint8_t>& bytes,
                                              MIDITimeStamp timeStamp) {
    std::vector<std::uint8_t> buffer(kSizeOfMIDIPacketListHeader + kSizeOfMIDIPacketHeader + bytes.size());
    MIDIPacketListBuilder builder(buffer);
    if (!builder.add(buffer.size(), timeStamp, bytes)) {
        return kMIDIWrongPropertyType;
    }
    return fromSource(source, LoopbackMessage{false, std::move(buffer)});
}

OSStatus LoopbackMIDIServer::send(MIDIPortRef port, MIDIEndpointRef destination, std::span<const std::uint8_t> packetList) {
    return toDestination(port, destination, LoopbackMessage{false, {packetList.begin(), packetList.end()}});
}

OSStatus LoopbackMIDIServer::sendEventList(MIDIPortRef port, MIDIEndpointRef destination,
                                           std::span<const std::uint8_t> eventList) {
    return toDestination(port, destination, LoopbackMessage{true, {eventList.begin(), eventList.end()}});
}

void LoopbackMIDIServer::targetsOfDestination(MIDIEndpointRef destination, std::vector<Target>& targets,
                                              const LoopbackThruFilter& filter) const {
    const auto* object = find(destination);
    if (object == nullptr || object->type != MIDIObjectType::destination) {
        return;
    }
    if (object->owner != 0) {
        targets.push_back(Target{object->receiver, 0, 0, filter});
    } else {
        targets.push_back(Target{Receiver{}, 0, destination, filter});
    }
}

OSStatus LoopbackMIDIServer::fromSource(MIDIEndpointRef source, LoopbackMessage message) {
    std::vector<Target> targets;
    {
        std::lock_guard lock(mutex_);
        const auto* object = find(source);
        if (object == nullptr) {
            return kMIDIUnknownEndpoint;
        }
        if (object->type != MIDIObjectType::source) {
            return kMIDIWrongEndpointType;
        }
        for (const auto& [ref, port] : ports_) {
            if (auto it = port.connections.find(source); it != port.connections.end()) {
                targets.push_back(Target{port.receiver, it->second, 0, {}});
            }
        }
        for (const auto& [ref, thru] : thrus_) {
            auto count = std::min<std::size_t>(thru.params.numSources, MIDIThruConnectionParams::kMaxEndpoints);
            if (std::find(thru.params.sources.begin(), thru.params.sources.begin() + count, source) ==
                thru.params.sources.begin() + count) {
                continue;
            }
            auto destinations = std::min<std::size_t>(thru.params.numDestinations, MIDIThruConnectionParams::kMaxEndpoints);
            auto filter = LoopbackThruFilter::of(thru.params);
            for (std::size_t i = 0; i < destinations; ++i) {
                targetsOfDestination(thru.params.destinations[i], targets, filter);
            }
        }
    }
    post([self = shared_from_this(), message = std::move(message), targets = std::move(targets), source] {
        self->deliver(message, targets, source);
    });
    return noErr;
}

OSStatus LoopbackMIDIServer::toDestination(MIDIPortRef port, MIDIEndpointRef destination, LoopbackMessage message) {
    std::vector<Target> targets;
    {
        std::lock_guard lock(mutex_);
        auto it = ports_.find(port);
        if (it == ports_.end() || it->second.input) {
            return kMIDIInvalidPort;
        }
        const auto* object = find(destination);
        if (object == nullptr) {
            return kMIDIUnknownEndpoint;
        }
        if (object->type != MIDIObjectType::destination) {
            return kMIDIWrongEndpointType;
        }
        targetsOfDestination(destination, targets);
    }
    post([self = shared_from_this(), message = std::move(message), targets = std::move(targets), port] {
        self->deliver(message, targets, port);
    });
    return noErr;
}

void LoopbackMIDIServer::deliver(const LoopbackMessage& message, const std::vector<Target>& targets,
                                 MIDIObjectRef stream) {
    // The translator of the stream is only touched here, on the server's queue.
    LoopbackTranslator* translator = nullptr;
    {
        std::lock_guard lock(mutex_);
        translator = &translators_[stream];
    }
    bool needsTranslation = std::any_of(targets.begin(), targets.end(), [&](const Target& target) {
        return target.filter.any() || !LoopbackTranslator::isInForm(message, target.receiver.protocol);
    });
    if (needsTranslation) {
        translator->prepare(message);
    }
    for (const auto& target : targets) {
        auto bytes = translator->render(message, target.receiver.protocol, target.filter);
        if (!bytes) {
            continue;
        }
        if (target.logDestination != 0) {
            std::vector<std::vector<std::uint8_t>> packets;
            forEachMIDIPacket(*bytes, [&](std::span<const std::uint8_t> data, MIDITimeStamp) {
                packets.emplace_back(data.begin(), data.end());
            });
            std::lock_guard lock(mutex_);
            if (auto* object = find(target.logDestination)) {
                object->log.insert(object->log.end(), packets.begin(), packets.end());
            }
        } else if (target.receiver.protocol) {
            if (target.receiver.receiveBlock) {
                target.receiver.receiveBlock(*bytes, target.refCon);
            }
        } else if (target.receiver.readBlock) {
            target.receiver.readBlock(*bytes, target.refCon);
        }
    }
}

std::vector<std::vector<std::uint8_t>> LoopbackMIDIServer::deviceDestinationLog(MIDIEndpointRef destination) {
    std::lock_guard lock(mutex_);
    const auto* object = find(destination);
    return object ? object->log : std::vector<std::vector<std::uint8_t>>{};
}

// --- Thru connections. ---

OSStatus LoopbackMIDIServer::thruConnectionCreate(const std::string& persistentOwnerID,
                                                  const MIDIThruConnectionParams& params,
                                                  MIDIThruConnectionRef* outConnection) {
    if (!supportsThru_) {
        return kMIDINotPermitted;
    }
    {
        std::lock_guard lock(mutex_);
        *outConnection = nextRef();
        thrus_[*outConnection] = Thru{persistentOwnerID, params};
    }
    announce({plainMessage(MIDINotificationMessageID::thruConnectionsChanged)});
    return noErr;
}

OSStatus LoopbackMIDIServer::thruConnectionDispose(MIDIThruConnectionRef connection) {
    {
        std::lock_guard lock(mutex_);
        if (thrus_.erase(connection) == 0) {
            return kMIDIObjectNotFound;
        }
    }
    announce({plainMessage(MIDINotificationMessageID::thruConnectionsChanged)});
    return noErr;
}

OSStatus LoopbackMIDIServer::thruConnectionFind(const std::string& persistentOwnerID,
                                                std::vector<MIDIThruConnectionRef>* outConnections) {
    std::lock_guard lock(mutex_);
    outConnections->clear();
    for (const auto& [ref, thru] : thrus_) {
        if (!persistentOwnerID.empty() && thru.owner == persistentOwnerID) {
            outConnections->push_back(ref);
        }
    }
    return noErr;
}

// --- The object tree. ---

ItemCount LoopbackMIDIServer::getNumberOfDevices() {
    std::lock_guard lock(mutex_);
    return deviceOrder_.size();
}

MIDIDeviceRef LoopbackMIDIServer::getDevice(ItemCount index) {
    std::lock_guard lock(mutex_);
    return index < deviceOrder_.size() ? deviceOrder_[index] : 0;
}

const std::vector<MIDIObjectRef>* LoopbackMIDIServer::children(MIDIObjectRef parent, MIDIObjectType type,
                                                                std::vector<MIDIObjectRef> Object::*list) const {
    const auto* object = find(parent);
    return object && object->type == type ? &(object->*list) : nullptr;
}

ItemCount LoopbackMIDIServer::childCount(MIDIObjectRef parent, MIDIObjectType type,
                                         std::vector<MIDIObjectRef> Object::*list) {
    std::lock_guard lock(mutex_);
    const auto* refs = children(parent, type, list);
    return refs ? refs->size() : 0;
}

MIDIObjectRef LoopbackMIDIServer::childAt(MIDIObjectRef parent, MIDIObjectType type,
                                          std::vector<MIDIObjectRef> Object::*list, ItemCount index) {
    std::lock_guard lock(mutex_);
    const auto* refs = children(parent, type, list);
    return refs && index < refs->size() ? (*refs)[index] : 0;
}

ItemCount LoopbackMIDIServer::deviceGetNumberOfEntities(MIDIDeviceRef device) {
    return childCount(device, MIDIObjectType::device, &Object::entities);
}

MIDIEntityRef LoopbackMIDIServer::deviceGetEntity(MIDIDeviceRef device, ItemCount index) {
    return childAt(device, MIDIObjectType::device, &Object::entities, index);
}

ItemCount LoopbackMIDIServer::entityGetNumberOfSources(MIDIEntityRef entity) {
    return childCount(entity, MIDIObjectType::entity, &Object::sources);
}

MIDIEndpointRef LoopbackMIDIServer::entityGetSource(MIDIEntityRef entity, ItemCount index) {
    return childAt(entity, MIDIObjectType::entity, &Object::sources, index);
}

ItemCount LoopbackMIDIServer::entityGetNumberOfDestinations(MIDIEntityRef entity) {
    return childCount(entity, MIDIObjectType::entity, &Object::destinations);
}

MIDIEndpointRef LoopbackMIDIServer::entityGetDestination(MIDIEntityRef entity, ItemCount index) {
    return childAt(entity, MIDIObjectType::entity, &Object::destinations, index);
}

OSStatus LoopbackMIDIServer::entityGetDevice(MIDIEntityRef entity, MIDIDeviceRef* outDevice) {
    std::lock_guard lock(mutex_);
    const auto* object = find(entity);
    if (object == nullptr || object->type != MIDIObjectType::entity) {
        return kMIDIObjectNotFound;
    }
    *outDevice = object->parent;
    return noErr;
}

OSStatus LoopbackMIDIServer::endpointGetEntity(MIDIEndpointRef endpoint, MIDIEntityRef* outEntity) {
    std::lock_guard lock(mutex_);
    const auto* object = find(endpoint);
    if (object == nullptr || !isEndpointType(object->type)) {
        return kMIDIUnknownEndpoint;
    }
    if (object->parent == 0) {
        return kMIDIObjectNotFound;  // a virtual endpoint has no entity
    }
    *outEntity = object->parent;
    return noErr;
}

ItemCount LoopbackMIDIServer::getNumberOfSources() {
    std::lock_guard lock(mutex_);
    return presentEndpoints(MIDIObjectType::source).size();
}

MIDIEndpointRef LoopbackMIDIServer::getSource(ItemCount index) {
    std::lock_guard lock(mutex_);
    auto list = presentEndpoints(MIDIObjectType::source);
    return index < list.size() ? list[index] : 0;
}

ItemCount LoopbackMIDIServer::getNumberOfDestinations() {
    std::lock_guard lock(mutex_);
    return presentEndpoints(MIDIObjectType::destination).size();
}

MIDIEndpointRef LoopbackMIDIServer::getDestination(ItemCount index) {
    std::lock_guard lock(mutex_);
    auto list = presentEndpoints(MIDIObjectType::destination);
    return index < list.size() ? list[index] : 0;
}

OSStatus LoopbackMIDIServer::objectFindByUniqueID(MIDIUniqueID uniqueID, MIDIObjectRef* outObject,
                                                  MIDIObjectType* outType) {
    std::lock_guard lock(mutex_);
    for (const auto& [ref, object] : objects_) {
        auto it = object.properties.find(kMIDIPropertyUniqueID);
        if (it != object.properties.end() && std::get_if<std::int32_t>(&it->second) &&
            std::get<std::int32_t>(it->second) == uniqueID) {
            *outObject = ref;
            *outType = object.type;
            return noErr;
        }
    }
    return kMIDIObjectNotFound;
}

// --- Properties. ---

template <typename T>
OSStatus LoopbackMIDIServer::readProperty(MIDIObjectRef object, const std::string& key, T* outValue) const {
    const auto* property = findProperty(object, key);
    if (property == nullptr) {
        return kMIDIUnknownProperty;
    }
    const auto* value = std::get_if<T>(property);
    if (value == nullptr) {
        return kMIDIWrongPropertyType;
    }
    *outValue = *value;
    return noErr;
}

OSStatus LoopbackMIDIServer::objectGetIntegerProperty(MIDIObjectRef object, const std::string& key,
                                                      std::int32_t* outValue) {
    std::lock_guard lock(mutex_);
    if (find(object) == nullptr) {
        return kMIDIObjectNotFound;
    }
    return readProperty(object, key, outValue);
}

OSStatus LoopbackMIDIServer::objectGetStringProperty(MIDIObjectRef object, const std::string& key,
                                                     std::string* outValue) {
    std::lock_guard lock(mutex_);
    if (find(object) == nullptr) {
        return kMIDIObjectNotFound;
    }
    if (key == kMIDIPropertyDisplayName) {
        *outValue = displayNameOf(object);
        return noErr;
    }
    return readProperty(object, key, outValue);
}

OSStatus LoopbackMIDIServer::objectGetDictionaryProperty(MIDIObjectRef object, const std::string& key,
                                                         nlohmann::json* outValue) {
    std::lock_guard lock(mutex_);
    if (find(object) == nullptr) {
        return kMIDIObjectNotFound;
    }
    return readProperty(object, key, outValue);
}

OSStatus LoopbackMIDIServer::setProperty(MIDIObjectRef ref, const std::string& key, Property value) {
    MIDIObjectType type = MIDIObjectType::other;
    {
        std::lock_guard lock(mutex_);
        auto* object = find(ref);
        if (object == nullptr) {
            return kMIDIObjectNotFound;
        }
        if (key == kMIDIPropertyUniqueID) {
            const auto* id = std::get_if<std::int32_t>(&value);
            if (id == nullptr) {
                return kMIDIWrongPropertyType;
            }
            auto current = object->properties.find(kMIDIPropertyUniqueID);
            bool same = current != object->properties.end() && std::get<std::int32_t>(current->second) == *id;
            if (!same && isUniqueIDTaken(*id)) {
                return kMIDIIDNotUnique;
            }
        }
        object->properties[key] = std::move(value);
        type = object->type;
    }
    announce({propertyMessage(ref, type, key)});
    return noErr;
}

OSStatus LoopbackMIDIServer::objectSetIntegerProperty(MIDIObjectRef object, const std::string& key, std::int32_t value) {
    return setProperty(object, key, value);
}

OSStatus LoopbackMIDIServer::objectSetStringProperty(MIDIObjectRef object, const std::string& key,
                                                     const std::string& value) {
    return setProperty(object, key, value);
}

OSStatus LoopbackMIDIServer::objectSetDictionaryProperty(MIDIObjectRef object, const std::string& key,
                                                         nlohmann::json value) {
    return setProperty(object, key, std::move(value));
}

OSStatus LoopbackMIDIServer::objectRemoveProperty(MIDIObjectRef ref, const std::string& key) {
    MIDIObjectType type = MIDIObjectType::other;
    {
        std::lock_guard lock(mutex_);
        auto* object = find(ref);
        if (object == nullptr) {
            return kMIDIObjectNotFound;
        }
        if (object->properties.erase(key) == 0) {
            return kMIDIUnknownProperty;
        }
        type = object->type;
    }
    announce({propertyMessage(ref, type, key)});
    return noErr;
}

nlohmann::json LoopbackMIDIServer::propertiesOf(MIDIObjectRef ref, bool deep) const {
    const auto* object = find(ref);
    nlohmann::json result = nlohmann::json::object();
    for (const auto& entry : object->properties) {
        const std::string& key = entry.first;
        std::visit([&](const auto& v) { result[key] = v; }, entry.second);
    }
    if (deep) {
        auto children = [&](const std::vector<MIDIObjectRef>& refs) {
            nlohmann::json list = nlohmann::json::array();
            for (auto child : refs) {
                list.push_back(propertiesOf(child, true));
            }
            return list;
        };
        if (object->type == MIDIObjectType::device) {
            result["entities"] = children(object->entities);
        } else if (object->type == MIDIObjectType::entity) {
            result["sources"] = children(object->sources);
            result["destinations"] = children(object->destinations);
        }
    }
    return result;
}

OSStatus LoopbackMIDIServer::objectGetProperties(MIDIObjectRef object, nlohmann::json* outProperties, bool deep) {
    std::lock_guard lock(mutex_);
    if (find(object) == nullptr) {
        return kMIDIObjectNotFound;
    }
    *outProperties = propertiesOf(object, deep);
    return noErr;
}

// --- Network session. ---

bool LoopbackMIDIServer::networkSessionEnabled() { return networkSession_.enabled(); }
void LoopbackMIDIServer::setNetworkSessionEnabled(bool enabled) { networkSession_.setEnabled(enabled); }
std::uint32_t LoopbackMIDIServer::networkSessionConnectionPolicy() { return networkSession_.connectionPolicy(); }
void LoopbackMIDIServer::setNetworkSessionConnectionPolicy(std::uint32_t policy) { networkSession_.setConnectionPolicy(policy); }

}  // namespace MIDIIO
