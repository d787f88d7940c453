#include "MIDIIO/MIDIOutput.hpp"

#include "MIDIIO/MIDIManager.hpp"
#include "MIDIInternals/TextHelpers.hpp"

namespace MIDIIO {

// --- The shared endpoint steps. ---

std::string MIDIVirtualEndpoint::name() const {
    std::lock_guard lock(mutex_);
    return name_;
}

void MIDIVirtualEndpoint::setName(const std::string& name) {
    std::lock_guard lock(mutex_);
    name_ = name;
    if (ref_) {
        endpointPlatform_->objectSetStringProperty(*ref_, std::string(PropertyKey::kName), name);
    }
}

std::optional<MIDIUniqueID> MIDIVirtualEndpoint::uniqueID() const {
    std::lock_guard lock(mutex_);
    return uniqueID_;
}

std::optional<MIDIEndpointRef> MIDIVirtualEndpoint::endpointRef() const {
    std::lock_guard lock(mutex_);
    return ref_;
}

void MIDIVirtualEndpoint::hide() {
    if (auto ref = endpointRef()) {
        endpointPlatform_->objectSetIntegerProperty(*ref, std::string(PropertyKey::kIsPrivate), 1);
    }
}

void MIDIVirtualEndpoint::show() {
    if (auto ref = endpointRef()) {
        endpointPlatform_->objectSetIntegerProperty(*ref, std::string(PropertyKey::kIsPrivate), 0);
    }
}

void MIDIVirtualEndpoint::releaseTakenUniqueID() {
    std::lock_guard lock(mutex_);
    if (!uniqueID_) {
        return;
    }
    MIDIObjectRef object = 0;
    MIDIObjectType type = MIDIObjectType::other;
    if (endpointPlatform_->objectFindByUniqueID(*uniqueID_, &object, &type) == noErr && object != 0) {
        uniqueID_.reset();
    }
}

void MIDIVirtualEndpoint::configure(MIDIEndpointRef ref, const MIDIManager& manager) {
    std::lock_guard lock(mutex_);
    ref_ = ref;
    endpointPlatform_->objectSetStringProperty(ref, std::string(PropertyKey::kModel), manager.model);
    endpointPlatform_->objectSetStringProperty(ref, std::string(PropertyKey::kManufacturer), manager.manufacturer);
    if (uniqueID_) {
        MIDIIOError::check(endpointPlatform_->objectSetIntegerProperty(ref, std::string(PropertyKey::kUniqueID), *uniqueID_));
    } else {
        std::int32_t assigned = 0;
        if (endpointPlatform_->objectGetIntegerProperty(ref, std::string(PropertyKey::kUniqueID), &assigned) == noErr) {
            uniqueID_ = assigned;
        }
    }
}

void MIDIVirtualEndpoint::dispose() {
    std::lock_guard lock(mutex_);
    if (ref_) {
        endpointPlatform_->endpointDispose(*ref_);
        ref_.reset();
    }
}

namespace {
std::string endpointDescription(std::string_view type, const std::string& name, std::optional<MIDIUniqueID> id) {
    return std::string(type) + "(name: " + MIDIInternals::quoted(name) +
           ", uniqueID: " + (id ? std::to_string(*id) : std::string("nil")) + ")";
}
}  // namespace

// --- MIDIOutput. ---

MIDIOutput::MIDIOutput(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform, std::string name,
                       std::optional<MIDIUniqueID> uniqueID, CoreMIDIAPIVersion api)
    : MIDIManagedSendsMessages(std::move(manager), api, platform),
      MIDIVirtualEndpoint(platform, std::move(name), uniqueID) {}

MIDIOutput::~MIDIOutput() { dispose(); }

void MIDIOutput::create(const MIDIManager& manager) {
    releaseTakenUniqueID();
    MIDIEndpointRef ref = 0;
    auto client = manager.coreMIDIClientRef();
    OSStatus status = api_.isLegacy() ? platform_->sourceCreate(client, name(), &ref)
                                      : platform_->sourceCreateWithProtocol(client, name(), api_.protocolID(), &ref);
    MIDIIOError::check(status);
    configure(ref, manager);
}

std::optional<MIDIOutputEndpoint> MIDIOutput::endpoint() const {
    auto ref = endpointRef();
    return ref ? std::optional<MIDIOutputEndpoint>(MIDIOutputEndpoint(platform_, *ref)) : std::nullopt;
}

std::string MIDIOutput::description() const { return endpointDescription("MIDIOutput", name(), uniqueID()); }

void MIDIOutput::sendPacketList(std::span<const std::uint8_t> packetList) {
    auto ref = endpointRef();
    if (!ref) {
        throw MIDIIOError::internalInconsistency("Port reference is nil.");
    }
    MIDIIOError::check(platform_->received(*ref, packetList));
}

void MIDIOutput::sendEventList(std::span<const std::uint8_t> eventList) {
    auto ref = endpointRef();
    if (!ref) {
        throw MIDIIOError::internalInconsistency("Port reference is nil.");
    }
    MIDIIOError::check(platform_->receivedEventList(*ref, eventList));
}

// --- MIDIInput. ---

MIDIInput::MIDIInput(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform, std::string name,
                     std::optional<MIDIUniqueID> uniqueID, CoreMIDIAPIVersion api, const MIDIReceiver& receiver)
    : MIDIManagedReceivesMessages(std::move(manager), api, platform, "MIDIInput-" + name, receiver),
      MIDIVirtualEndpoint(platform, name, uniqueID) {}

MIDIInput::~MIDIInput() { dispose(); }

void MIDIInput::create(const MIDIManager& manager) {
    releaseTakenUniqueID();
    MIDIEndpointRef ref = 0;
    auto client = manager.coreMIDIClientRef();
    OSStatus status = api_.isLegacy()
                          ? platform_->destinationCreateWithBlock(client, name(), makeReadBlock(false), &ref)
                          : platform_->destinationCreateWithProtocol(client, name(), api_.protocolID(),
                                                                     makeReceiveBlock(false), &ref);
    MIDIIOError::check(status);
    configure(ref, manager);
}

std::optional<MIDIInputEndpoint> MIDIInput::endpoint() const {
    auto ref = endpointRef();
    return ref ? std::optional<MIDIInputEndpoint>(MIDIInputEndpoint(platform_, *ref)) : std::nullopt;
}

std::string MIDIInput::description() const { return endpointDescription("MIDIInput", name(), uniqueID()); }

}  // namespace MIDIIO
