#include "midi_service/HVMIDIManager.hpp"

#include "MIDIInternals/Fatal.hpp"
#include "midi_service/HVMIDIEntityObserver.hpp"
#include "midi_service/HVPeerData.hpp"
#include "platform/Log.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "platform/MainQueue.hpp"
#include "platform/SharedSlot.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <cctype>
#include <chrono>
#include <iterator>

namespace havrel {

using MIDICore::MIDIEvent;
using MIDICore::UInt14;
using MIDICore::UInt4;
using MIDICore::UInt7;

namespace {

// Empty until one of the initialisers or the host sets a manager.
SharedSlot<HVMIDIManager>& sharedSlot() {
    static SharedSlot<HVMIDIManager> slot;
    return slot;
}

HVMIDIClockParser::Now& testClock() {
    static HVMIDIClockParser::Now now;
    return now;
}

double wallClockNow() {
    if (testClock()) {
        return testClock()();
    }
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// A 7-bit argument with its top bit set becomes 127, with one line.
std::uint8_t clamp7Bit(std::uint8_t value, const char* label) {
    if ((value & 0x80) != 0) {
        logf("{} {} out of 7-bit range \u2014 clamped", label, value);
        return 127;
    }
    return value;
}

std::uint8_t clampChannel(std::uint8_t channel) {
    if (channel >= 16) {
        logf("channel {} out of range \u2014 clamped", channel);
        return 15;
    }
    return channel;
}

UInt7 u7(std::uint8_t value) { return UInt7::fromStorage(value); }
UInt4 u4(std::uint8_t value) { return UInt4::fromStorage(value); }

MIDIEvent controllerEvent(std::uint8_t controller, std::uint8_t value, std::uint8_t channel) {
    return MIDIEvent::cc(u7(controller), MIDICore::ChanVoice7Bit32BitValue::midi1(u7(value)), u4(channel));
}

MIDIEvent noteOnEvent(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel) {
    // A velocity of 0 is sent as it is, never as a note off.
    return MIDIEvent::noteOn(u7(note), MIDICore::ChanVoice7Bit16BitValue::midi1(u7(velocity)), u4(channel), u4(0),
                             false);
}

MIDIEvent noteOffEvent(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel) {
    return MIDIEvent::noteOff(u7(note), MIDICore::ChanVoice7Bit16BitValue::midi1(u7(velocity)), u4(channel));
}

MIDIEvent programChangeEvent(std::uint8_t program, std::uint8_t channel) {
    return MIDIEvent::programChange(u7(program), u4(channel));
}

MIDIEvent pitchBendEvent(std::uint16_t value, std::uint8_t channel) {
    return MIDIEvent::pitchBend(MIDICore::ChanVoice14Bit32BitValue::midi1(UInt14::fromStorage(value)), u4(channel));
}

bool containsRTP(std::string owner) {
    std::transform(owner.begin(), owner.end(), owner.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return owner.find("RTP") != std::string::npos;
}

}  // namespace

// --- Creation. ---

HVMIDIManager::HVMIDIManager(Key, std::shared_ptr<HVConnectionTypeConfiguration> configuration)
    : configuration_(configuration ? std::move(configuration) : HVConnectionTypeConfiguration::create()) {}

HVMIDIManager::~HVMIDIManager() {
    stopTimers();
}

std::shared_ptr<HVMIDIManager> HVMIDIManager::initShared(std::shared_ptr<HVConnectionTypeConfiguration> configuration,
                                                         Setup setup) {
    auto manager = std::make_shared<HVMIDIManager>(Key{}, std::move(configuration));
    setShared(manager);
    switch (setup) {
        case Setup::full: manager->setupMIDI(); break;
        case Setup::minimal: manager->setupMIDIMinimal(); break;
        case Setup::clockTest: manager->setupMIDIClockTest(); break;
    }
    return manager;
}

std::shared_ptr<HVMIDIManager> HVMIDIManager::initSharedWithConnectionConfiguration(
    std::shared_ptr<HVConnectionTypeConfiguration> configuration) {
    return initShared(std::move(configuration), Setup::full);
}

std::shared_ptr<HVMIDIManager> HVMIDIManager::initSharedMinimalWithConnectionConfiguration(
    std::shared_ptr<HVConnectionTypeConfiguration> configuration) {
    return initShared(std::move(configuration), Setup::minimal);
}

std::shared_ptr<HVMIDIManager> HVMIDIManager::initSharedClockTestWithConnectionConfiguration(
    std::shared_ptr<HVConnectionTypeConfiguration> configuration) {
    return initShared(std::move(configuration), Setup::clockTest);
}

std::shared_ptr<HVMIDIManager> HVMIDIManager::shared() {
    return sharedSlot().get();
}

void HVMIDIManager::setShared(std::shared_ptr<HVMIDIManager> manager) {
    sharedSlot().set(manager);
    HVMIDISender::setShared(std::move(manager));
}

void HVMIDIManager::setClockForTesting(HVMIDIClockParser::Now now) {
    testClock() = std::move(now);
}

std::string HVMIDIManager::outputName() const {
    return configuration_->productToSendOut + " Output";
}

std::string HVMIDIManager::inputName() const {
    return configuration_->productToSendOut + " Input";
}

std::string HVMIDIManager::description() const {
    return fmt::format("<HVMIDIManager: {}>", static_cast<const void*>(this));
}

MIDIIO::MIDIManager& HVMIDIManager::requireManager() const {
    if (!midiManager_) {
        MIDIInternals::fatalError("HVMIDIManager used before its set-up created the MIDI manager");
    }
    return *midiManager_;
}

// --- Set-up. ---

void HVMIDIManager::createLibraryManager() {
    installMIDILibraryServices();
    std::weak_ptr<HVMIDIManager> weakSelf = weak_from_this();
    midiManager_ = MIDIIO::MIDIManager::create(MIDIIO::MIDIPlatform::shared(), configuration_->productToSendOut,
                                               "Havrel", "HavrelApps", [weakSelf](const MIDIIO::MIDIIONotification&) {
                                                   if (auto self = weakSelf.lock()) {
                                                       self->graphChanges_.fetch_add(1);
                                                   }
                                               });
}

void HVMIDIManager::createClockParser() {
    std::weak_ptr<HVMIDIManager> weakSelf = weak_from_this();
    clockParser_ = std::make_unique<HVMIDIClockParser>(
        [weakSelf](const HVMIDIClockParser::Event& event) {
            if (auto self = weakSelf.lock()) {
                self->handleClockEvent(event);
            }
        },
        testClock());
}

MIDIIO::MIDIReceiver HVMIDIManager::eventsReceiver() {
    std::weak_ptr<HVMIDIManager> weakSelf = weak_from_this();
    return MIDIIO::MIDIReceiver::events(
        [weakSelf](const std::vector<MIDIEvent>& events, MIDIIO::MIDITimeStamp,
                   const std::optional<MIDIIO::MIDIOutputEndpoint>&) {
            if (auto self = weakSelf.lock()) {
                self->didReceiveEvents(events);
            }
        });
}

void HVMIDIManager::setupMIDI() {
    log("setupMIDI");
    MIDIIO::setMIDINetworkSession(*MIDIIO::MIDIPlatform::shared(), MIDIIO::MIDIIONetworkConnectionPolicy::anyone);
    // Departure: no local-network permission probe. Sending to the machine's own addresses is
    // what makes some platforms ask for local network access; Linux has no such prompt, so the
    // datagrams would only reach closed ports.
    createLibraryManager();
    try {
        midiManager_->start();
    } catch (const MIDIIO::MIDIIOError& error) {
        logf("[HVMIDIManager] could not start the MIDI client: {}", error.description());
    }
    createClockParser();
    setupVirtualMIDI();
    setupHardwareOutput();
    MIDIIO::setMIDINetworkSession(*requireManager().platform(), MIDIIO::MIDIIONetworkConnectionPolicy::anyone);

    std::weak_ptr<HVMIDIManager> weakSelf = weak_from_this();
    MainQueue::shared().postAfter(std::chrono::milliseconds(500), [weakSelf] {
        if (auto self = weakSelf.lock()) {
            self->setInputConnectionToVirtual();
        }
    });
    refreshTimer_ = Timer::scheduled(MainQueue::shared(), std::chrono::seconds(1), true, [weakSelf] {
        if (auto self = weakSelf.lock()) {
            self->refreshConnections();
        }
    });
    // The network scan holds the manager strongly: a replaced manager lives on through it
    // until stopTimers().
    auto strongSelf = shared_from_this();
    networkTimer_ = Timer::scheduled(MainQueue::shared(), std::chrono::seconds(1), true,
                                     [strongSelf] { strongSelf->scanNetworkSessions(); });
}

void HVMIDIManager::setupVirtualMIDI() {
    auto& manager = requireManager();
    try {
        manager.addInput(inputName(), kInputTag, MIDIIO::MIDIIdentifierPersistence::userDefaultsManaged(kInputTag),
                         eventsReceiver());
    } catch (const MIDIIO::MIDIIOError& error) {
        logf("[HVMIDIManager] could not create virtual MIDI input {}: {}", inputName(), error.description());
    }
    try {
        manager.addOutput(outputName(), kOutputTag, MIDIIO::MIDIIdentifierPersistence::userDefaultsManaged(kOutputTag));
    } catch (const MIDIIO::MIDIIOError& error) {
        logf("[HVMIDIManager] could not create virtual MIDI output {}: {}", outputName(), error.description());
    }
}

void HVMIDIManager::setupHardwareOutput() {
    if (!configuration_->hardwareMIDIEnabled) {
        return;
    }
    try {
        requireManager().addOutputConnection(MIDIIO::MIDIOutputConnectionMode::inputs({}), kHardwareOutputTag,
                                             MIDIIO::MIDIEndpointFilter::default_());
    } catch (const MIDIIO::MIDIIOError& error) {
        log("error creating hardware output " + error.description());
    }
}

void HVMIDIManager::setupMIDIMinimal() {
    createLibraryManager();
    try {
        midiManager_->start();
    } catch (const MIDIIO::MIDIIOError&) {
        // The output below fails and says so.
    }
    try {
        midiManager_->addOutput(outputName(), kOutputTag,
                                MIDIIO::MIDIIdentifierPersistence::userDefaultsManaged(kOutputTag));
    } catch (const MIDIIO::MIDIIOError& error) {
        log("error " + error.description());
    }
}

void HVMIDIManager::setupMIDIClockTest() {
    createLibraryManager();
    try {
        midiManager_->start();
    } catch (const MIDIIO::MIDIIOError& error) {
        logDiag("[ClockTest] manager start error: " + error.description());
    }
    createClockParser();
    try {
        midiManager_->addInput(inputName(), kInputTag, MIDIIO::MIDIIdentifierPersistence::userDefaultsManaged(kInputTag),
                               eventsReceiver());
    } catch (const MIDIIO::MIDIIOError& error) {
        logDiag("[ClockTest] addInput error: " + error.description());
    }
    std::weak_ptr<HVMIDIManager> weakSelf = weak_from_this();
    refreshTimer_ = Timer::scheduled(MainQueue::shared(), std::chrono::seconds(1), true, [weakSelf] {
        if (auto self = weakSelf.lock()) {
            self->refreshClockSources();
        }
    });
}

void HVMIDIManager::refreshClockSources() {
    auto& manager = requireManager();
    for (const auto& endpoint : manager.endpoints().outputs) {
        const std::string tag = "clockSrc_" + std::to_string(endpoint.uniqueID);
        if (manager.managedInputConnection(tag)) {
            continue;
        }
        try {
            manager.addInputConnection(
                MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::uniqueID(endpoint.uniqueID)}),
                tag, MIDIIO::MIDIEndpointFilter::default_(), eventsReceiver());
        } catch (const MIDIIO::MIDIIOError& error) {
            logDiag("[ClockTest] addInputConnection error: " + error.description());
        }
    }
}

void HVMIDIManager::stopTimers() {
    // Let go of as well as stopped: the network scan's timer holds the manager, so a manager
    // keeping it would keep both alive for good.
    if (auto timer = std::exchange(refreshTimer_, nullptr)) {
        timer->invalidate();
    }
    if (auto timer = std::exchange(networkTimer_, nullptr)) {
        timer->invalidate();
    }
}

// --- Receiving. ---

void HVMIDIManager::didReceiveEvents(const std::vector<MIDIEvent>& events) {
    debugTotalMIDIEventsReceived_ += events.size();
    debugLastEventTimestamp_ = wallClockNow();
    if (!clockParser_) {
        return;
    }
    // Everything but the clock is dropped: incoming notes and controllers go nowhere.
    std::lock_guard lock(clockMutex_);
    for (const auto& event : events) {
        clockParser_->handle(event);
    }
}

// --- Connections. ---

std::optional<MIDIIO::MIDIOutputEndpoint> HVMIDIManager::midiInputConnection() const {
    std::lock_guard lock(stateMutex_);
    return midiInputConnection_;
}

std::vector<MIDIIO::MIDIEntity> HVMIDIManager::networkConnections() const {
    std::lock_guard lock(stateMutex_);
    return networkConnections_;
}

std::vector<std::shared_ptr<MIDIIO::MIDIOutputConnection>> HVMIDIManager::networkOutputs() const {
    std::lock_guard lock(networkOutputsMutex_);
    return networkOutputs_;
}

void HVMIDIManager::setInputConnectionToVirtual() {
    const std::string name = outputName();
    for (const auto& endpoint : requireManager().endpoints().outputs) {
        if (endpoint.name == name) {
            std::lock_guard lock(stateMutex_);
            midiInputConnection_ = endpoint;
            graphChanges_.fetch_add(1);
            return;
        }
    }
}

void HVMIDIManager::updateInputConnection() {
    auto& manager = requireManager();
    if (manager.managedInputConnection(kInputConnectionTag)) {
        return;
    }
    auto source = midiInputConnection();
    if (!source) {
        return;
    }
    logDiag("Setting up new input connection to " + (source->displayName.empty() ? source->name : source->displayName) +
        ".");
    try {
        manager.addInputConnection(
            MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::uniqueID(source->uniqueID)}),
            kInputConnectionTag, MIDIIO::MIDIEndpointFilter::default_(), eventsReceiver());
    } catch (const MIDIIO::MIDIIOError& error) {
        log(error.description());
    }
}

// The text walks the whole MIDI graph every second; here the walk waits for a change the MIDI
// service announced (the ALSA sequencer's announce port, the loopback server's notifications),
// so an idle program's timer costs a comparison.
void HVMIDIManager::refreshConnections() {
    const auto changes = graphChanges_.load();
    if (changes == std::exchange(refreshedAtChange_, changes)) {
        return;
    }
    updateInputConnection();
    refreshHardwareOutputs();
    auto& manager = requireManager();
    // Each source named N gets an output connection to the destinations named N, and each
    // destination named N an input connection from the sources named N, once.
    std::set<std::string> sourceNames;
    for (const auto& endpoint : manager.endpoints().outputs) {
        sourceNames.insert(endpoint.name);
        if (manager.managedOutputConnection(endpoint.name)) {
            continue;
        }
        try {
            manager.addOutputConnection(
                MIDIIO::MIDIOutputConnectionMode::inputs({MIDIIO::MIDIEndpointIdentity::name(endpoint.name)}),
                endpoint.name, MIDIIO::MIDIEndpointFilter::default_());
            refreshedOutputTags_.insert(endpoint.name);
        } catch (const MIDIIO::MIDIIOError& error) {
            log("error " + error.description());
        }
    }
    std::set<std::string> destinationNames;
    for (const auto& endpoint : manager.endpoints().inputs) {
        destinationNames.insert(endpoint.name);
        if (manager.managedInputConnection(endpoint.name)) {
            continue;
        }
        try {
            manager.addInputConnection(
                MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::name(endpoint.name)}),
                endpoint.name, MIDIIO::MIDIEndpointFilter::default_(), eventsReceiver());
            refreshedInputTags_.insert(endpoint.name);
        } catch (const MIDIIO::MIDIIOError& error) {
            log("error " + error.description());
        }
    }
    removeConnectionsOfVanishedEndpoints(sourceNames, destinationNames);
}

// Departure: a per-name connection goes with the last endpoint of its name (one that returns is
// joined again by the next refresh), so the tables follow the endpoints there are, not every
// name ever seen.
void HVMIDIManager::removeConnectionsOfVanishedEndpoints(const std::set<std::string>& sourceNames,
                                                         const std::set<std::string>& destinationNames) {
    auto& manager = requireManager();
    const auto removeVanished = [&](std::set<std::string>& tags, const std::set<std::string>& names,
                                    MIDIIO::ManagedType type) {
        std::erase_if(tags, [&](const std::string& tag) {
            if (names.contains(tag)) {
                return false;
            }
            manager.remove(type, MIDIIO::TagSelection::withTag(tag));
            return true;
        });
    };
    removeVanished(refreshedOutputTags_, sourceNames, MIDIIO::ManagedType::outputConnection);
    removeVanished(refreshedInputTags_, destinationNames, MIDIIO::ManagedType::inputConnection);
    // The network path sends only on connections that are still there.
    const auto current = manager.managedOutputConnections();
    std::lock_guard lock(networkOutputsMutex_);
    std::erase_if(networkOutputs_, [&](const auto& connection) {
        return std::none_of(current.begin(), current.end(),
                            [&](const auto& entry) { return entry.second == connection; });
    });
}

std::vector<MIDIIO::MIDIInputEndpoint> HVMIDIManager::hardwareDestinations() const {
    auto destinations = hardwareDestinationCandidates();
    std::lock_guard lock(stateMutex_);
    std::erase_if(destinations, [this](const MIDIIO::MIDIInputEndpoint& endpoint) {
        return disabledHardwareDestinations_.count(endpoint.name) > 0;
    });
    return destinations;
}

void HVMIDIManager::setHardwareDestinationEnabled(const std::string& name, bool enabled) {
    graphChanges_.fetch_add(1);
    std::lock_guard lock(stateMutex_);
    if (enabled) {
        disabledHardwareDestinations_.erase(name);
    } else {
        disabledHardwareDestinations_.insert(name);
    }
}

bool HVMIDIManager::isHardwareDestinationEnabled(const std::string& name) const {
    std::lock_guard lock(stateMutex_);
    return disabledHardwareDestinations_.count(name) == 0;
}

std::vector<MIDIIO::MIDIInputEndpoint> HVMIDIManager::hardwareDestinationCandidates() const {
    std::vector<MIDIIO::MIDIInputEndpoint> destinations;
    for (const auto& endpoint : requireManager().endpoints().inputs) {
        if (!endpoint.device() || endpoint.getIsOffline() || containsRTP(endpoint.getDriverOwner().value_or(""))) {
            continue;
        }
        destinations.push_back(endpoint);
    }
    return destinations;
}

void HVMIDIManager::refreshHardwareOutputs() {
    if (!configuration_->hardwareMIDIEnabled) {
        return;
    }
    auto connection = requireManager().managedOutputConnection(kHardwareOutputTag);
    if (!connection) {
        return;
    }
    const auto wanted = MIDIIO::identitiesOf(hardwareDestinations());
    const auto current = connection->inputsCriteria();
    auto missingFrom = [](const auto& from, const auto& list) {
        std::vector<MIDIIO::MIDIEndpointIdentity> missing;
        std::copy_if(from.begin(), from.end(), std::back_inserter(missing),
                     [&](const auto& identity) { return std::find(list.begin(), list.end(), identity) == list.end(); });
        return missing;
    };
    const auto gone = missingFrom(current, wanted);
    const auto added = missingFrom(wanted, current);
    if (gone.empty() && added.empty()) {
        return;
    }
    connection->remove(gone);
    connection->add(added);
}

void HVMIDIManager::scanNetworkSessions() {
    const auto changes = graphChanges_.load();
    if (changes == std::exchange(scannedAtChange_, changes)) {
        return;
    }
    auto& manager = requireManager();
    std::vector<MIDIIO::MIDIEntity> sessions;
    for (const auto& device : manager.devices().devices) {
        for (const auto& entity : device.entities()) {
            if (HVPeerDataForEntity(entity)) {
                sessions.push_back(entity);
            }
        }
    }
    {
        std::lock_guard lock(stateMutex_);
        networkConnections_ = sessions;
    }
    // An output connection leads to a session when the session's name appears in the
    // description of its targets.
    for (const auto& [tag, connection] : manager.managedOutputConnections()) {
        const std::string targets = MIDIIO::description(connection->inputsCriteria());
        for (const auto& entity : sessions) {
            if (targets.find(entity.name) == std::string::npos) {
                continue;
            }
            const auto refs = connection->coreMIDIInputEndpointRefs();
            std::lock_guard lock(networkOutputsMutex_);
            const bool known = std::any_of(networkOutputs_.begin(), networkOutputs_.end(), [&](const auto& output) {
                return output->coreMIDIInputEndpointRefs() == refs;
            });
            if (!known) {
                networkOutputs_.push_back(connection);
            }
        }
    }
}

// --- Sending. ---

template <class Build>
void HVMIDIManager::sendOnPath(bool sendVirtual, const char* networkErrorLabel, bool logVirtualTag, Build&& build) {
    auto& manager = requireManager();
    if (sendVirtual) {
        manager.forEachManagedOutput([&](const std::string& tag, MIDIIO::MIDIOutput& output) {
            if (logVirtualTag && logEnabled(LogLevel::diag)) {
                logDiag("[HVMIDIDiag]   sending CC to managedOutput tag=" + tag);
            }
            try {
                output.send(build());
            } catch (const MIDIIO::MIDIIOError& error) {
                // The same text for every kind on this path.
                log("error controller " + error.description());
            }
        });
        return;
    }
    std::lock_guard lock(networkOutputsMutex_);
    for (const auto& connection : networkOutputs_) {
        try {
            connection->send(build());
        } catch (const MIDIIO::MIDIIOError& error) {
            log(networkErrorLabel + error.description());
        }
    }
}

template <class Build>
void HVMIDIManager::sendToHardware(Build&& build) {
    auto connection = requireManager().managedOutputConnection(kHardwareOutputTag);
    if (!connection) {
        return;
    }
    try {
        connection->send(build());
    } catch (const MIDIIO::MIDIIOError& error) {
        log("error sending to hardware " + error.description());
    }
}

void HVMIDIManager::sendWithController(std::uint8_t controller, std::uint8_t value, std::uint8_t channel,
                                       bool sendVirtual) {
    controller = clamp7Bit(controller, "cc controller");
    value = clamp7Bit(value, "cc value");
    channel = clampChannel(channel);
    sendOnPath(sendVirtual, "error controller ", true, [&] { return controllerEvent(controller, value, channel); });
}

void HVMIDIManager::sendWithNoteOn(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool sendVirtual) {
    note = clamp7Bit(note, "note");
    velocity = clamp7Bit(velocity, "velocity");
    channel = clampChannel(channel);
    sendOnPath(sendVirtual, "error sendNoteOn ", false, [&] { return noteOnEvent(note, velocity, channel); });
}

void HVMIDIManager::sendWithNoteOff(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool sendVirtual) {
    note = clamp7Bit(note, "note");
    velocity = clamp7Bit(velocity, "velocity");
    channel = clampChannel(channel);
    sendOnPath(sendVirtual, "error noteOff ", false, [&] { return noteOffEvent(note, velocity, channel); });
}

void HVMIDIManager::sendOnOffNote(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool sendVirtual) {
    note = clamp7Bit(note, "note");
    velocity = clamp7Bit(velocity, "velocity");
    channel = clampChannel(channel);
    sendWithNoteOn(note, velocity, channel, sendVirtual);
    sendWithNoteOff(note, velocity, channel, sendVirtual);
}

void HVMIDIManager::sendWithProgramChange(std::uint8_t program, std::uint8_t channel, bool sendVirtual) {
    program = clamp7Bit(program, "program change");
    channel = clampChannel(channel);
    sendOnPath(sendVirtual, "error programChange ", false, [&] { return programChangeEvent(program, channel); });
}

void HVMIDIManager::sendWithPitchBend(std::uint16_t value, std::uint8_t channel, bool sendVirtual) {
    if ((value & 0xC000) != 0 || channel >= 16) {
        logf("pitch bend out of range (value {}, channel {}) \u2014 clamped", value, channel);
    }
    const auto bend = static_cast<std::uint16_t>(std::min<unsigned>(value, 16383));
    const auto wireChannel = static_cast<std::uint8_t>(std::min<unsigned>(channel, 15));
    sendOnPath(sendVirtual, "error pitchBend ", false, [&] { return pitchBendEvent(bend, wireChannel); });
}

void HVMIDIManager::sendToHardwareWithController(std::uint8_t controller, std::uint8_t value, std::uint8_t channel) {
    controller = clamp7Bit(controller, "cc controller");
    value = clamp7Bit(value, "cc value");
    channel = clampChannel(channel);
    sendToHardware([&] { return controllerEvent(controller, value, channel); });
}

void HVMIDIManager::sendToHardwareWithNoteOn(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel) {
    note = clamp7Bit(note, "note");
    velocity = clamp7Bit(velocity, "velocity");
    channel = clampChannel(channel);
    sendToHardware([&] { return noteOnEvent(note, velocity, channel); });
}

void HVMIDIManager::sendToHardwareWithNoteOff(std::uint8_t note, std::uint8_t channel) {
    note = clamp7Bit(note, "note");
    channel = clampChannel(channel);
    sendToHardware([&] { return noteOffEvent(note, 0, channel); });
}

void HVMIDIManager::sendToHardwareWithProgramChange(std::uint8_t program, std::uint8_t channel) {
    program = clamp7Bit(program, "program change");
    channel = clampChannel(channel);
    sendToHardware([&] { return programChangeEvent(program, channel); });
}

void HVMIDIManager::sendToHardwareWithPitchBend(std::uint16_t value, std::uint8_t channel) {
    const auto bend = static_cast<std::uint16_t>(std::min<unsigned>(value, 16383));
    const auto wireChannel = static_cast<std::uint8_t>(std::min<unsigned>(channel, 15));
    sendToHardware([&] { return pitchBendEvent(bend, wireChannel); });
}

}  // namespace havrel
