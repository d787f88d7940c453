#pragma once
// The sending gate of the client's end of a link: decides what may be sent at each moment
// (nothing while a configuration transfer runs, no change before a full configuration has been
// started on this link) over a transport that the host provides.

#include "central/HVEncodedRangeCommand.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "central/HVFileRepresentation.hpp"
#include "platform/Types.hpp"

#include <functional>
#include <memory>

namespace havrel {

// What the gate expects of its transport. Progress reaches 1.0 at the end.
class RNEncodedBroadcasterService {
public:
    using Progress = std::function<void(float progress)>;
    virtual ~RNEncodedBroadcasterService();
    virtual void startSceneSyncData(ByteView data, Progress progress) = 0;
    virtual void sendSceneAborted() = 0;
    virtual void sendRangeData(ByteView data) = 0;
    virtual void sendPureMIDIData(ByteView data) = 0;
    virtual void sendChangeData(ByteView data, Progress completion) = 0;
    virtual void sendFile(const HVFileRepresentation& file, Progress completion) = 0;
};

class RNEncodedBroadcaster final : public std::enable_shared_from_this<RNEncodedBroadcaster> {
public:
    using Progress = RNEncodedBroadcasterService::Progress;

    static std::shared_ptr<RNEncodedBroadcaster> create(std::shared_ptr<RNEncodedBroadcasterService> service);

    std::shared_ptr<RNEncodedBroadcasterService> service;

    bool isConnectedToHavrelCentral() const { return isConnectedToHavrelCentral_; }
    bool isSyncing() const { return isSyncing_; }
    bool didSendInitialConfiguration() const { return didSendInitialConfiguration_; }

    // Does nothing.
    void disconnect() {}
    // A change to false also forgets the initial configuration: every link starts with a full one.
    void setIsConnectedToHavrelCentral(bool connected);
    void startSyncingEncodedConfigurationData(ByteView data, Progress progress = {});
    // Connected, and a full configuration has been started on this link.
    bool canSendDeltaCommands() const;
    void sendSceneAborted();
    // Only when connected and not syncing; nullptr is dropped.
    void sendRangeDataCommand(const HVEncodedRangeCommand* command);
    void sendPureMIDIDataCommand(const RNBluetoothMIDICommandPure* command);
    // Each needs canSendDeltaCommands; otherwise one log line and nothing sent.
    void deleteDataWrappersWithData(ByteView data);
    void addDataWrappersWithData(ByteView data);
    void syncChangesToDataWrappersWithData(ByteView data);
    void sendFile(const HVFileRepresentation& file, Progress completion);

private:
    void sendDelta(ByteView data, const char* finishedLine, const char* skippedLine);

    bool isConnectedToHavrelCentral_ = false;
    bool isSyncing_ = false;
    bool didSendInitialConfiguration_ = false;
};

}  // namespace havrel
