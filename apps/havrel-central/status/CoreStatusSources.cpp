#include "CoreStatusSources.hpp"

#include "central/HVCentralThroughputMeter.hpp"
#include "central/HVReceivedFiles.hpp"
#include "central/HVCentralTransmissionManager.hpp"
#include "central/RNClient.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "midi_service/HVMIDIClockParser.hpp"
#include "midi_service/HVMIDIHandOff.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "musical_time/HVClock.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/NotificationCenter.hpp"

namespace havrel {

namespace {

constexpr const char* kCentralAPIVersion = "2.1";
constexpr const char* kFollowingMIDIClock = "the clock follows MIDI clock from another application; it cannot be set here";

const RNClient* clientOf(const Notification& notification) {
    const auto* client = notification.objectAs<std::shared_ptr<RNClient>>();
    return client ? client->get() : nullptr;
}

}  // namespace

std::shared_ptr<CoreStatusSources> CoreStatusSources::create() {
    auto sources = std::make_shared<CoreStatusSources>();
    std::weak_ptr<CoreStatusSources> weak = sources;
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(sources.get(), HVCentralTransmissionManagerIsTransmitting, nullptr,
                       [weak](const Notification& notification) {
                           if (auto self = weak.lock(); self && clientOf(notification)) {
                               self->transmitting_.insert(clientOf(notification));
                           }
                       });
    // A client stops transmitting when its indicator goes down and when it leaves.
    for (const char* name : {HVCentralTransmissionManagerStoppedTransmitting,
                             HVCentralConnectionManagerDidDisconnectUSBClientNotification}) {
        center.addObserver(sources.get(), name, nullptr, [weak](const Notification& notification) {
            if (auto self = weak.lock()) {
                self->transmitting_.erase(clientOf(notification));
            }
        });
    }
    center.addObserver(sources.get(), HVCentralConnectionManagerDidRefuseUSBClientNotification, nullptr,
                       [weak](const Notification& notification) {
                           if (auto self = weak.lock(); self && clientOf(notification)) {
                               self->addRefusal(*clientOf(notification));
                           }
                       });
    return sources;
}

CoreStatusSources::~CoreStatusSources() {
    NotificationCenter::defaultCenter().removeObserver(this);
}

StatusClient CoreStatusSources::describe(const RNClient& client) {
    StatusClient status;
    status.name = client.connectionName.value_or("");
    status.product = client.productID.value_or("");
    status.apiVersion = client.apiVersion.value_or("");
    if (dynamic_cast<const RNBluetoothClient*>(&client)) {
        status.transport = "Bluetooth";
    } else if (dynamic_cast<const RNUSBClient*>(&client)) {
        status.transport = client.deviceID ? "USB tunnel" : "local path";
    } else {
        status.transport = "unknown";
    }
    if (client.state == RNClientStateRefused) {
        status.state = "refused";
        status.reason = client.errorMessage.value_or("");
    } else if (client.supersededByUSB) {
        status.state = "muted";
        status.reason = "the same device is connected over USB";
    } else {
        status.state = "heard";
    }
    return status;
}

std::vector<StatusClient> CoreStatusSources::clients() {
    std::vector<StatusClient> result;
    if (auto registry = HVCentralConnectionManager::sharedInstance()) {
        for (const auto& client : registry->clients) {
            StatusClient status = describe(*client);
            status.transmitting = transmitting_.count(client.get()) > 0;
            result.push_back(std::move(status));
        }
    }
    result.insert(result.end(), refusals_.begin(), refusals_.end());
    return result;
}

std::int64_t CoreStatusSources::messagesPerSecond() {
    return HVCentralThroughputMeter::sharedInstance()->messagesPerSecond();
}

std::string CoreStatusSources::lastMessageDescription() {
    return HVCentralThroughputMeter::sharedInstance()->lastMessageDescription().value_or("");
}

std::uint64_t CoreStatusSources::receivedMIDIDropped() {
    return HVMIDIHandOff::totalDropped();
}

std::vector<StatusOutput> CoreStatusSources::outputs() {
    std::vector<StatusOutput> result;
    auto midi = HVMIDIManager::shared();
    if (!midi || !midi->midiManager()) {
        return result;
    }
    result.push_back({midi->outputName(), "virtual", true, false});
    for (const auto& entity : midi->networkConnections()) {
        result.push_back({entity.name, "network", true, false});
    }
    const bool hardware = midi->connectionConfiguration()->hardwareMIDIEnabled;
    for (const auto& endpoint : midi->hardwareDestinationCandidates()) {
        result.push_back(
            {endpoint.name, "hardware", hardware && midi->isHardwareDestinationEnabled(endpoint.name), hardware});
    }
    return result;
}

StatusClock CoreStatusSources::clock() {
    StatusClock clock;
    auto musical = HVClock::shared();
    if (musical->clockSource() == HVClockSource::internalClock) {
        // The internal clock: its tempo, and the position its ticks have reached (24 a quarter
        // note, 6 a sixteenth).
        clock.source = "internal";
        clock.tempo = musical->bpm();
        clock.running = musical->isRunning();
        clock.controllable = true;
        const auto sixteenths = static_cast<double>(musical->midiQN() / 6);
        clock.bar = HVBar(sixteenths);
        clock.beat = HVBeat(sixteenths);
        clock.beatDivision = HVBeatDivision(sixteenths);
        return clock;
    }
    clock.source = "external";
    clock.canUseInternal = clockHandBackOffered && clockHandBackOffered();
    if (auto midi = HVMIDIManager::shared()) {
        clock.tempo = midi->tempo();
        // Before the first beat the position reads 0, which is bar 1, beat 1, division 1.
        clock.bar = std::max(midi->bar(), 1);
        clock.beat = std::max(midi->beat(), 1);
        clock.beatDivision = std::max(midi->beatDivision(), 1);
        clock.running = midi->isTempoStarted();
    }
    return clock;
}

std::vector<StatusAlert> CoreStatusSources::alerts() {
    std::vector<StatusAlert> result;
    for (const auto& shown : HostPrompts::shared()->recentAlerts()) {
        result.push_back({shown.time, shown.alert.message, shown.alert.informativeText});
    }
    return result;
}

std::vector<StatusReceivedFile> CoreStatusSources::receivedFiles() {
    std::vector<StatusReceivedFile> result;
    for (const auto& file : HVReceivedFiles::shared()->recent()) {
        result.push_back({file.name, file.size, file.client, file.time});
    }
    return result;
}

std::string CoreStatusSources::setOutputEnabled(const std::string& name, bool on) {
    auto midi = HVMIDIManager::shared();
    if (!midi || !midi->midiManager() || !midi->connectionConfiguration()->hardwareMIDIEnabled) {
        return "hardware MIDI output is off in this Central (start it with --hardware-midi)";
    }
    midi->setHardwareDestinationEnabled(name, on);
    midi->refreshHardwareOutputs();
    return "";
}

std::string CoreStatusSources::setClockRunning(bool running) {
    auto musical = HVClock::shared();
    if (musical->clockSource() != HVClockSource::internalClock) {
        return kFollowingMIDIClock;
    }
    if (running) {
        musical->start();
    } else {
        musical->pause();
    }
    return "";
}

std::string CoreStatusSources::setTempo(double bpm) {
    auto musical = HVClock::shared();
    if (musical->clockSource() != HVClockSource::internalClock) {
        return kFollowingMIDIClock;
    }
    musical->setBpm(bpm);
    return "";
}

std::string CoreStatusSources::useInternalClock() {
    return clockHandBack ? clockHandBack() : StatusSources::useInternalClock();
}

void CoreStatusSources::addRefusal(const RNClient& client) {
    // A record the registry keeps (no description) is shown from the registry's list.
    if (client.state == RNClientStateRefused) {
        return;
    }
    StatusClient status = describe(client);
    status.state = "refused";
    status.reason = "its API version " + status.apiVersion + " is newer than this Central's " + kCentralAPIVersion;
    refusals_.push_back(std::move(status));
    while (refusals_.size() > kRefusalsKept) {
        refusals_.pop_front();
    }
}

}  // namespace havrel
