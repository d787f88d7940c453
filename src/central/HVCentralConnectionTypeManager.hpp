#pragma once
// The receive logic both transports share: range receipt, and the one place where a control
// position becomes a MIDI call.

#include "central/HVEncodedRangeCommand.hpp"
#include "central/HVTransmissionManager.hpp"
#include "model/HVMidiAxisDataWrapper.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/Types.hpp"

#include <memory>
#include <vector>

namespace havrel {

class RNClient;

class HVCentralConnectionTypeManager {
public:
    HVCentralConnectionTypeManager();
    virtual ~HVCentralConnectionTypeManager();
    HVCentralConnectionTypeManager(const HVCentralConnectionTypeManager&) = delete;
    HVCentralConnectionTypeManager& operator=(const HVCentralConnectionTypeManager&) = delete;

    bool didRegisterValueChangeObservers = false;
    // Set once a sync payload has been processed, parsed or not.
    bool didSyncSceneData = false;

    // One binary range command from a client, on the main queue.
    void didReceiveRangeData(ByteView data, const std::shared_ptr<RNClient>& client);

    void registerValueChangeObserversIfNeeded();
    // Subscribes the class handler once, however many managers register.
    static void registerMIDIOutputObserverIfNeeded();
    // The class handler of "NotificationRangeContainerDidChangeValue".
    static void rangeContainerValueDidChange(const Notification& notification);
    // Maps the position, drops repeats and calls one of the four broadcast operations.
    static void handleRangeContainerValueDidChange(const HVMidiRangeContainerPtr& rangeContainer,
                                                   const std::vector<double>& position,
                                                   const HVMidiAxisDataWrapperPtr& dataWrapper,
                                                   HVTransmissionManager& transmissionManager);

    // Hooks with nothing to do.
    virtual void wrapperValueDidChange(const Notification& notification);
    virtual void axisValueDidChange(const Notification& notification);
    virtual void setRangeContainerChangeForAxisData(const HVMidiAxisDataPtr& axisData,
                                                    const std::vector<double>& rangeValue);
    virtual void broadcastRangeContainer(const HVMidiRangeContainerPtr& rangeContainer,
                                         const std::vector<double>& rangeValues);
    void broadcastRangeContainer(const HVMidiRangeContainerPtr& rangeContainer, const HVEncodedRangeValue& rangeValue);
};

}  // namespace havrel
