#include "central/HVCentralConnectionTypeManager.hpp"

#include "central/HVCentralTransmissionManager.hpp"
#include "central/HVFileReceipt.hpp"
#include "central/RNClient.hpp"
#include "model/HVDataHelpers.hpp"
#include "model/HVDictionaryReading.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/Log.hpp"

#include <algorithm>

namespace havrel {

namespace {

// The identity under which the class handler subscribes.
const int classObserverToken = 0;

std::string describe(const std::shared_ptr<HVEncodedConfiguration>& configuration) {
    if (!configuration) {
        return "(null)";
    }
    return fmt::format("<HVEncodedConfiguration: {} wrappers>", configuration->dataWrappers.size());
}

// Parses a payload that must hold an object or an array at the top. Gives a discarded value
// and the reason otherwise.
Dictionary parseDocument(ByteView data, std::string_view reader, std::string& error) {
    Dictionary parsed = parseJSONFromOutside(data, reader, &error);
    if (!parsed.is_discarded() && !parsed.is_object() && !parsed.is_array()) {
        error = "JSON text did not start with array or object";
        return Dictionary(Dictionary::value_t::discarded);
    }
    return parsed;
}

}  // namespace

HVCentralConnectionTypeManager::~HVCentralConnectionTypeManager() {
    NotificationCenter::defaultCenter().removeObserver(this);
}

void HVCentralConnectionTypeManager::didReceiveRangeData(ByteView data, const std::shared_ptr<RNClient>& client) {
    const auto configuration = client ? client->configuration : nullptr;
    if (logEnabled(LogLevel::diag)) {
        logDiagf("[HVCentralDiag] didReceiveRangeData self={} client.configuration={}", static_cast<const void*>(this),
                 describe(configuration));
    }
    auto command = HVEncodedRangeCommand::initWithData(data);
    const std::size_t count = command ? command->rangeValues.size() : 0;
    logDiagf("[HVCentralDiag] decoded rangeCommand with {} rangeValues", count);
    if (command) {
        for (const auto& entry : command->rangeValues) {
            auto wrapper = configuration ? configuration->dataWrapperWithNumericID(entry.dataWrapperID) : nullptr;
            logDiagf("[HVCentralDiag]   rangeValue dwID={} axis={} rangeValue={:f} -> dataWrapper={}", entry.dataWrapperID,
                 entry.axisNumber, entry.rangeValue, static_cast<const void*>(wrapper.get()));
            if (!wrapper) {
                if (!logEnabled(LogLevel::diag)) {
                    continue;
                }
                std::string known;
                std::size_t wrapperCount = 0;
                if (configuration) {
                    wrapperCount = configuration->dataWrappers.size();
                    for (const auto& candidate : configuration->dataWrappers) {
                        known += fmt::format("{{numericID={} uuid={}}} ", candidate->numericID, candidate->uuid());
                    }
                }
                logDiagf("[HVCentralDiag] LOOKUP MISS - {} wrappers in client.config: {}", wrapperCount, known);
                continue;
            }
            wrapper->setCurrentRangePosition(entry.rangeValue, entry.axisNumber, true);
        }
    }
    HVCentralTransmissionManager::sharedInstance()->didReceiveCommandForClient(client);
}

void HVCentralConnectionTypeManager::didReceiveSyncData(ByteView data, const std::shared_ptr<RNClient>& client) {
    if (logEnabled(LogLevel::diag)) {
        logDiagf("[HVCentralDiag] didReceiveSyncData self={} client={}", static_cast<const void*>(this),
                 describe(client));
    }
    std::optional<Bytes> inflated;
    if (isGzipData(data)) {
        inflated = gzipInflate(data);
        if (!inflated) {
            logDiag("[HVCentralDiag] sync payload is gzip but does not inflate \u2014 keeping the previous configuration");
            didSyncSceneData = true;
            return;
        }
        data = *inflated;
    }
    std::string error;
    const Dictionary parsed = parseDocument(data, "didReceiveSyncData", error);
    if (parsed.is_discarded()) {
        logDiagf("[HVCentralDiag] sync parse error: {}", error);
    } else {
        logDiagf("[HVCentralDiag] sync parsed, registering range/axis observers on self={}",
             static_cast<const void*>(this));
        auto configuration = HVEncodedConfiguration::initFromDictionary(parsed);
        if (client) {
            client->configuration = std::move(configuration);
        }
        registerValueChangeObserversIfNeeded();
    }
    didSyncSceneData = true;
}

void HVCentralConnectionTypeManager::didReceiveChangeData(std::optional<ByteView> data,
                                                          const std::shared_ptr<RNClient>& client) {
    if (!data) {
        log("error should not receive nil data");
        return;
    }
    HVCentralTransmissionManager::sharedInstance()->didReceiveCommandForClient(client);
    std::string error;
    const Dictionary parsed = parseDocument(*data, "didReceiveChangeData", error);
    if (parsed.is_discarded() || !client || !client->configuration) {
        return;
    }
    client->configuration->processChangeCommand(*RNDataPackagerChangeCommandDataWrapper::initFromDictionary(parsed));
}

bool HVCentralConnectionTypeManager::isHeard(const std::shared_ptr<RNClient>& client) {
    return client && client->state != RNClientStateRefused && !client->supersededByUSB;
}

void HVCentralConnectionTypeManager::didReceivePureMIDIData(ByteView data, const std::shared_ptr<RNClient>& client) {
    // Direct MIDI needs no configuration, so without this a client that was never accepted, or
    // is muted, would still play.
    if (!isHeard(client)) {
        logDiagf("didReceivePureMIDIData: dropped, {} is not heard", describe(client));
        return;
    }
    auto transmissionManager = HVCentralTransmissionManager::sharedInstance();
    transmissionManager->didReceiveCommandForClient(client);
    transmissionManager->sendPureCommandWithData(data);
}

void HVCentralConnectionTypeManager::didReceiveFileRepData(ByteView data, const std::shared_ptr<RNClient>& client) {
    // A file touches the user's disk: only a client the registry accepted may send one.
    if (!isHeard(client)) {
        logf("didReceiveFileRepData: file dropped, {} is not an accepted client", describe(client));
        return;
    }
    HVFileReceipt::receive(data, client);
}

void HVCentralConnectionTypeManager::registerValueChangeObserversIfNeeded() {
    if (didRegisterValueChangeObservers) {
        return;
    }
    didRegisterValueChangeObservers = true;
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(this, "NotificationAxisChangeValue", nullptr,
                       [this](const Notification& n) { axisValueDidChange(n); });
    center.addObserver(this, "NotificationDataWrapperChangeValue", nullptr,
                       [this](const Notification& n) { wrapperValueDidChange(n); });
    registerMIDIOutputObserverIfNeeded();
}

void HVCentralConnectionTypeManager::registerMIDIOutputObserverIfNeeded() {
    auto& center = NotificationCenter::defaultCenter();
    center.removeObserver(&classObserverToken, NotificationRangeContainerDidChangeValue);
    center.addObserver(&classObserverToken, NotificationRangeContainerDidChangeValue, nullptr,
                       &HVCentralConnectionTypeManager::rangeContainerValueDidChange);
}

void HVCentralConnectionTypeManager::rangeContainerValueDidChange(const Notification& notification) {
    logDiag("[HVCentralDiag] rangeContainerValueDidChange notification received");
    const auto* change = notification.objectAs<HVRangeContainerChange>();
    // A transition's target is not a MIDI event; the steps that follow are.
    if (change == nullptr || change->transitionTarget || !change->rangeContainer) {
        return;
    }
    auto manager = HVTransmissionManager::shared();
    if (!manager) {
        logDiag("[HVCentralDiag] no transmission manager installed, position dropped");
        return;
    }
    handleRangeContainerValueDidChange(change->rangeContainer, change->newValue, change->dataWrapper, *manager);
}

void HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(const HVMidiRangeContainerPtr& rangeContainer,
                                                                       const HVRangePoint& position,
                                                                       const HVMidiAxisDataWrapperPtr& dataWrapper,
                                                                       HVTransmissionManager& transmissionManager) {
    const std::uint64_t value = HVMidiIntegerValue(rangeContainer->midiValueFromRange(position));
    const std::uint64_t channel = rangeContainer->channel != 0 ? rangeContainer->channel - 1 : 0;
    logDiagf("[HVCentralDiag] handleRangeContainerValueDidChange rc={} val={} lastBroadcasted={} signalType={} tm={}",
         static_cast<const void*>(rangeContainer.get()), value,
         static_cast<std::int64_t>(rangeContainer->lastValueBroadcasted), rangeContainer->signalType,
         static_cast<const void*>(&transmissionManager));
    const HVBroadcastPolicy policy = dataWrapper ? dataWrapper->broadcastPolicy : HVBroadcastPolicyOnValueChange;
    if (!rangeContainer->alwaysBroadcast && policy != HVBroadcastPolicyAlways &&
        rangeContainer->lastValueBroadcasted == value) {
        logDiag("[HVCentralDiag] dedup early return val==lastBroadcasted");
        return;
    }
    switch (rangeContainer->signalType) {
    case HVSignalTypeCC:
        logDiagf("[HVCentralDiag] -> broadcastController controller={} val={} ch={}", rangeContainer->controllerNumber,
             value, channel);
        transmissionManager.broadcastController(rangeContainer->controllerNumber, value, channel);
        break;
    case HVSignalTypeNote:
        logDiagf("[HVCentralDiag] -> broadcastNote note={} vel={} ch={}", rangeContainer->controllerNumber, value,
             channel);
        transmissionManager.broadcastNote(rangeContainer->controllerNumber, value, channel);
        break;
    case HVSignalTypePC:
        logDiagf("[HVCentralDiag] -> broadcastProgramChange program={} ch={}", value, channel);
        transmissionManager.broadcastProgramChange(value, channel);
        break;
    case HVSignalTypePitch: {
        const std::uint64_t clamped = std::min<std::uint64_t>(value, 16383);
        if (value >= 16384) {
            logf("pitch bend value {} out of range, clamped to {}", value, clamped);
        }
        transmissionManager.broadcastPitchBendWithChannel(channel, clamped & 127, clamped >> 7);
        break;
    }
    default:
        break;
    }
    rangeContainer->lastValueBroadcasted = value;
}

void HVCentralConnectionTypeManager::wrapperValueDidChange(const Notification& notification) {
    (void)notification;
}

void HVCentralConnectionTypeManager::axisValueDidChange(const Notification& notification) {
    (void)notification;
}

void HVCentralConnectionTypeManager::setRangeContainerChangeForAxisData(const HVMidiAxisDataPtr& axisData,
                                                                        const std::vector<double>& rangeValue) {
    (void)axisData;
    (void)rangeValue;
}

void HVCentralConnectionTypeManager::broadcastRangeContainer(const HVMidiRangeContainerPtr& rangeContainer,
                                                             const std::vector<double>& rangeValues) {
    (void)rangeContainer;
    (void)rangeValues;
}

void HVCentralConnectionTypeManager::broadcastRangeContainer(const HVMidiRangeContainerPtr& rangeContainer,
                                                             const HVEncodedRangeValue& rangeValue) {
    broadcastRangeContainer(rangeContainer, std::vector<double>{rangeValue.rangeValue});
}

}  // namespace havrel
