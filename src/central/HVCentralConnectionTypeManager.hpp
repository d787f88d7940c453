#pragma once
// The receive logic both transports share: range receipt, and the one place where a control
// position becomes a MIDI call.

#include "central/HVEncodedRangeCommand.hpp"
#include "central/HVTransmissionManager.hpp"
#include "model/HVMidiAxisDataWrapper.hpp"
#include "platform/NotificationCenter.hpp"
#include "platform/Types.hpp"

#include <memory>
#include <optional>
#include <vector>

namespace havrel {

class RNClient;

class HVCentralConnectionTypeManager {
public:
    HVCentralConnectionTypeManager() = default;
    virtual ~HVCentralConnectionTypeManager();
    HVCentralConnectionTypeManager(const HVCentralConnectionTypeManager&) = delete;
    HVCentralConnectionTypeManager& operator=(const HVCentralConnectionTypeManager&) = delete;

    bool didRegisterValueChangeObservers = false;
    // Set once a sync payload has been processed, parsed or not.
    bool didSyncSceneData = false;

    // One binary range command from a client, on the main queue.
    void didReceiveRangeData(ByteView data, const std::shared_ptr<RNClient>& client);

    // The whole configuration of a client, JSON, gzip-compressed or not. It replaces the
    // client's configuration; a payload that does not read keeps the previous one.
    void didReceiveSyncData(ByteView data, const std::shared_ptr<RNClient>& client);
    // One change command as JSON text, applied to the client's configuration. nullopt: the
    // transport had no data.
    void didReceiveChangeData(std::optional<ByteView> data, const std::shared_ptr<RNClient>& client);
    // One three-byte MIDI message, sent as it is when the client is heard.
    void didReceivePureMIDIData(ByteView data, const std::shared_ptr<RNClient>& client);
    // A file representation as JSON from a heard client: the user picks where its inflated
    // data is written (never over another file); the write runs off the main queue.
    void didReceiveFileRepData(ByteView data, const std::shared_ptr<RNClient>& client);

    // A client record the registry accepted that is neither refused nor muted; nullptr is not.
    static bool isHeard(const std::shared_ptr<RNClient>& client);

    void registerValueChangeObserversIfNeeded();
    // Subscribes the class handler once, however many managers register.
    static void registerMIDIOutputObserverIfNeeded();
    // The class handler of "NotificationRangeContainerDidChangeValue".
    static void rangeContainerValueDidChange(const Notification& notification);
    // Maps the position, drops repeats and calls one of the four broadcast operations.
    static void handleRangeContainerValueDidChange(const HVMidiRangeContainerPtr& rangeContainer,
                                                   const HVRangePoint& position,
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
