#include "midi_service/HVMIDIManager.hpp"

#include "MIDIInternals/Fatal.hpp"
#include "midi_service/HVMIDIEntityObserver.hpp"
#include "platform/Log.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "platform/MainQueue.hpp"
#include "platform/SharedSlot.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <chrono>

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

MIDIIO::MIDIReceiver HVMIDIManager::eventsReceiver(bool viaVirtualInput) {
    std::weak_ptr<HVMIDIManager> weakSelf = weak_from_this();
    return MIDIIO::MIDIReceiver::events(
        [weakSelf, viaVirtualInput](const std::vector<MIDIEvent>& events, MIDIIO::MIDITimeStamp,
                                    const std::optional<MIDIIO::MIDIOutputEndpoint>&) {
            if (auto self = weakSelf.lock()) {
                self->didReceiveEvents(events, viaVirtualInput);
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
                         eventsReceiver(true));
    } catch (const MIDIIO::MIDIIOError& error) {
        logf("[HVMIDIManager] could not create virtual MIDI input {}: {}", inputName(), error.description());
    }
    try {
        manager.addOutput(outputName(), kOutputTag, MIDIIO::MIDIIdentifierPersistence::userDefaultsManaged(kOutputTag));
    } catch (const MIDIIO::MIDIIOError& error) {
        logf("[HVMIDIManager] could not create virtual MIDI output {}: {}", outputName(), error.description());
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

void HVMIDIManager::setReceivedEventsObserver(ReceivedEventsObserver observer) {
    auto shared = observer ? std::make_shared<const ReceivedEventsObserver>(std::move(observer)) : nullptr;
    std::lock_guard lock(receivedObserverMutex_);
    receivedObserver_ = std::move(shared);
}

void HVMIDIManager::didReceiveEvents(const std::vector<MIDIEvent>& events, bool viaVirtualInput) {
    debugTotalMIDIEventsReceived_ += events.size();
    debugLastEventTimestamp_ = wallClockNow();
    std::shared_ptr<const ReceivedEventsObserver> observer;
    {
        std::lock_guard lock(receivedObserverMutex_);
        observer = receivedObserver_;
    }
    if (observer) {
        (*observer)(events, viaVirtualInput);
    }
    if (!clockParser_) {
        return;
    }
    // Only the clock is used here: notes and controllers reach the host's observer alone.
    std::lock_guard lock(clockMutex_);
    for (const auto& event : events) {
        clockParser_->handle(event);
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
