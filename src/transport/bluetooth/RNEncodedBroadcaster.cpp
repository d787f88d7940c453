#include "transport/bluetooth/RNEncodedBroadcaster.hpp"

#include "platform/Log.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace havrel {

RNEncodedBroadcasterService::~RNEncodedBroadcasterService() = default;

std::shared_ptr<RNEncodedBroadcaster> RNEncodedBroadcaster::create(std::shared_ptr<RNEncodedBroadcasterService> service) {
    auto broadcaster = std::make_shared<RNEncodedBroadcaster>();
    broadcaster->service = std::move(service);
    return broadcaster;
}

void RNEncodedBroadcaster::setIsConnectedToHavrelCentral(bool connected) {
    if (connected == isConnectedToHavrelCentral_) {
        return;
    }
    isConnectedToHavrelCentral_ = connected;
    if (!connected) {
        didSendInitialConfiguration_ = false;
    }
}

void RNEncodedBroadcaster::startSyncingEncodedConfigurationData(ByteView data, Progress progress) {
    isSyncing_ = true;
    didSendInitialConfiguration_ = true;
    std::weak_ptr<RNEncodedBroadcaster> weak = weak_from_this();
    service->startSceneSyncData(data, [weak, progress](float value) {
        if (auto self = weak.lock(); self && value >= 1.0f) {
            log("finished syncing");
            self->isSyncing_ = false;
        }
        if (progress) {
            progress(value);
        }
    });
}

bool RNEncodedBroadcaster::canSendDeltaCommands() const {
    return isConnectedToHavrelCentral_ && didSendInitialConfiguration_;
}

void RNEncodedBroadcaster::sendSceneAborted() {
    service->sendSceneAborted();
}

void RNEncodedBroadcaster::sendRangeDataCommand(const HVEncodedRangeCommand* command) {
    if (command == nullptr || !isConnectedToHavrelCentral_ || isSyncing_) {
        return;
    }
    const auto data = command->data();
    if (!data) {
        return;
    }
    logDiagf("range command {:02X}", fmt::join(*data, " "));
    service->sendRangeData(*data);
}

void RNEncodedBroadcaster::sendPureMIDIDataCommand(const RNBluetoothMIDICommandPure* command) {
    if (command == nullptr || !isConnectedToHavrelCentral_) {
        return;
    }
    if (const auto data = command->data()) {
        service->sendPureMIDIData(*data);
    }
}

void RNEncodedBroadcaster::sendFile(const HVFileRepresentation& file, Progress completion) {
    if (isConnectedToHavrelCentral_) {
        service->sendFile(file, std::move(completion));
    }
}

void RNEncodedBroadcaster::sendDelta(ByteView data, const char* finishedLine, const char* skippedLine) {
    if (!canSendDeltaCommands()) {
        log(skippedLine);
        return;
    }
    isSyncing_ = true;
    std::weak_ptr<RNEncodedBroadcaster> weak = weak_from_this();
    service->sendChangeData(data, [weak, finishedLine](float value) {
        if (auto self = weak.lock(); self && value >= 1.0f) {
            log(finishedLine);
            self->isSyncing_ = false;
        }
    });
}

void RNEncodedBroadcaster::deleteDataWrappersWithData(ByteView data) {
    sendDelta(data, "did finish sending delete data",
              "skipping delete \u2014 configuration not yet sent to Central; the pending full sync already reflects it");
}

void RNEncodedBroadcaster::addDataWrappersWithData(ByteView data) {
    sendDelta(data, "did finish sending add data",
              "skipping add \u2014 configuration not yet sent to Central; the pending full sync already reflects it");
}

void RNEncodedBroadcaster::syncChangesToDataWrappersWithData(ByteView data) {
    sendDelta(data, "did finish sending add data",
              "skipping change \u2014 configuration not yet sent to Central; the pending full sync already reflects it");
}

}  // namespace havrel
