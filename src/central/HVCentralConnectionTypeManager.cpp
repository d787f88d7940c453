#include "central/HVCentralConnectionTypeManager.hpp"

#include "central/HVCentralTransmissionManager.hpp"
#include "central/RNClient.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/Log.hpp"
#include "sequencing/HVSequence.hpp"

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

}  // namespace

HVCentralConnectionTypeManager::HVCentralConnectionTypeManager() {
    // Glides need the scheduler; make sure it runs before the first position arrives.
    HVSequenceManager::sharedInstance();
}

HVCentralConnectionTypeManager::~HVCentralConnectionTypeManager() {
    NotificationCenter::defaultCenter().removeObserver(this);
}

void HVCentralConnectionTypeManager::didReceiveRangeData(ByteView data, const std::shared_ptr<RNClient>& client) {
    const auto configuration = client ? client->configuration : nullptr;
    logf("[HVCentralDiag] didReceiveRangeData self={} client.configuration={}", static_cast<const void*>(this),
         describe(configuration));
    auto command = HVEncodedRangeCommand::initWithData(data);
    const std::size_t count = command ? command->rangeValues.size() : 0;
    logf("[HVCentralDiag] decoded rangeCommand with {} rangeValues", count);
    if (command) {
        for (const auto& entry : command->rangeValues) {
            auto wrapper = configuration ? configuration->dataWrapperWithNumericID(entry.dataWrapperID) : nullptr;
            logf("[HVCentralDiag]   rangeValue dwID={} axis={} rangeValue={:f} -> dataWrapper={}", entry.dataWrapperID,
                 entry.axisNumber, entry.rangeValue, static_cast<const void*>(wrapper.get()));
            if (!wrapper) {
                std::string known;
                std::size_t wrapperCount = 0;
                if (configuration) {
                    wrapperCount = configuration->dataWrappers.size();
                    for (const auto& candidate : configuration->dataWrappers) {
                        known += fmt::format("{{numericID={} uuid={}}} ", candidate->numericID, candidate->uuid());
                    }
                }
                logf("[HVCentralDiag] LOOKUP MISS - {} wrappers in client.config: {}", wrapperCount, known);
                continue;
            }
            wrapper->setCurrentRangePosition(entry.rangeValue, entry.axisNumber, true);
        }
    }
    HVCentralTransmissionManager::sharedInstance()->didReceiveCommandForClient(client);
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
    log("[HVCentralDiag] rangeContainerValueDidChange notification received");
    const auto* change = notification.objectAs<HVRangeContainerChange>();
    // A transition's target is not a MIDI event; the steps that follow are.
    if (change == nullptr || change->transitionTarget || !change->rangeContainer) {
        return;
    }
    auto manager = HVTransmissionManager::shared();
    if (!manager) {
        log("[HVCentralDiag] no transmission manager installed, position dropped");
        return;
    }
    handleRangeContainerValueDidChange(change->rangeContainer, change->newValue, change->dataWrapper, *manager);
}

void HVCentralConnectionTypeManager::handleRangeContainerValueDidChange(const HVMidiRangeContainerPtr& rangeContainer,
                                                                       const std::vector<double>& position,
                                                                       const HVMidiAxisDataWrapperPtr& dataWrapper,
                                                                       HVTransmissionManager& transmissionManager) {
    const std::uint64_t value = HVMidiIntegerValue(rangeContainer->midiValueFromRange(position));
    const std::uint64_t channel = rangeContainer->channel != 0 ? rangeContainer->channel - 1 : 0;
    logf("[HVCentralDiag] handleRangeContainerValueDidChange rc={} val={} lastBroadcasted={} signalType={} tm={}",
         static_cast<const void*>(rangeContainer.get()), value,
         static_cast<std::int64_t>(rangeContainer->lastValueBroadcasted), rangeContainer->signalType,
         static_cast<const void*>(&transmissionManager));
    const HVBroadcastPolicy policy = dataWrapper ? dataWrapper->broadcastPolicy : HVBroadcastPolicyOnValueChange;
    if (!rangeContainer->alwaysBroadcast && policy != HVBroadcastPolicyAlways &&
        rangeContainer->lastValueBroadcasted == value) {
        log("[HVCentralDiag] dedup early return val==lastBroadcasted");
        return;
    }
    switch (rangeContainer->signalType) {
    case HVSignalTypeCC:
        logf("[HVCentralDiag] -> broadcastController controller={} val={} ch={}", rangeContainer->controllerNumber,
             value, channel);
        transmissionManager.broadcastController(rangeContainer->controllerNumber, value, channel);
        break;
    case HVSignalTypeNote:
        logf("[HVCentralDiag] -> broadcastNote note={} vel={} ch={}", rangeContainer->controllerNumber, value,
             channel);
        transmissionManager.broadcastNote(rangeContainer->controllerNumber, value, channel);
        break;
    case HVSignalTypePC:
        logf("[HVCentralDiag] -> broadcastProgramChange program={} ch={}", value, channel);
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
