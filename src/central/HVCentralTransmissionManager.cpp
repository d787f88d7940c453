#include "central/HVCentralTransmissionManager.hpp"

#include "central/HVCentralThroughputMeter.hpp"
#include "central/HVMIDISender.hpp"
#include "central/RNBluetoothMIDICommandPure.hpp"
#include "central/RNClient.hpp"
#include "model/RNMIDIControllerSignal.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationQueue.hpp"
#include "platform/SharedSlot.hpp"

#include <fmt/format.h>

#include <chrono>

namespace havrel {

namespace {

void enqueueIndicator(const char* name, const std::shared_ptr<RNClient>& client) {
    // No sender: two clients active in one turn collapse into one posting of the name.
    Notification notification{name, nullptr, Dictionary::object(), client};
    NotificationQueue::defaultQueue().enqueue(std::move(notification), PostingStyle::WhenIdle,
                                              Coalescing::OnNameAndSender);
}

SharedSlot<HVCentralTransmissionManager>& sharedSlot() {
    static SharedSlot<HVCentralTransmissionManager> slot(
        [] { return std::make_shared<HVCentralTransmissionManager>(); });
    return slot;
}

}  // namespace

std::shared_ptr<HVCentralTransmissionManager> HVCentralTransmissionManager::sharedInstance() {
    return sharedSlot().get();
}

// --- Broadcasts. ---

void HVCentralTransmissionManager::broadcastController(std::uint64_t controller, std::uint64_t value,
                                                       std::uint64_t channel) {
    auto sender = HVMIDISender::shared();
    if (logEnabled(LogLevel::diag)) {
        logDiagf("[HVCentralTxDiag] broadcastController cc={} val={} ch={} midiMgrShared={}", controller, value, channel,
                 describe(sender));
    }
    if (sender) {
        sender->sendWithController(static_cast<std::uint8_t>(controller), static_cast<std::uint8_t>(value),
                                   static_cast<std::uint8_t>(channel), true);
    }
    HVCentralThroughputMeter::sharedInstance()->recordController(controller, value, channel);
}

void HVCentralTransmissionManager::broadcastNote(std::uint64_t note, std::uint64_t velocity, std::uint64_t channel) {
    auto sender = HVMIDISender::shared();
    if (logEnabled(LogLevel::diag)) {
        logDiagf("[HVCentralTxDiag] broadcastNote note={} vel={} ch={} midiMgrShared={}", note, velocity, channel,
                 describe(sender));
    }
    if (sender) {
        sender->sendWithNoteOn(static_cast<std::uint8_t>(note), static_cast<std::uint8_t>(velocity),
                               static_cast<std::uint8_t>(channel), true);
    }
    HVCentralThroughputMeter::sharedInstance()->recordNote(note, velocity, channel, true);
}

void HVCentralTransmissionManager::broadcastProgramChange(std::uint64_t program, std::uint64_t channel) {
    logDiagf("[HVCentralTxDiag] broadcastProgramChange pc={} ch={}", program, channel);
    if (auto sender = HVMIDISender::shared()) {
        sender->sendWithProgramChange(static_cast<std::uint8_t>(program), static_cast<std::uint8_t>(channel), true);
    }
    HVCentralThroughputMeter::sharedInstance()->recordProgramChange(program);
}

void HVCentralTransmissionManager::broadcastPitchBendWithChannel(std::uint64_t channel, std::uint64_t lsb,
                                                                 std::uint64_t msb) {
    logDiagf("[HVCentralTxDiag] broadcastPitchBend ch={} lsb={} msb={}", channel, lsb, msb);
    const std::uint64_t value = lsb + (msb << 7);
    if (auto sender = HVMIDISender::shared()) {
        sender->sendWithPitchBend(static_cast<std::uint16_t>(value), static_cast<std::uint8_t>(channel), true);
    }
    HVCentralThroughputMeter::sharedInstance()->recordPitchBend(value);
}

void HVCentralTransmissionManager::sendSignal(const RNMIDIControllerSignal& signal) {
    switch (signal.type) {
        case HVSignalTypeCC:
            broadcastController(signal.controllerNumber, signal.value, signal.channelNumber);
            break;
        case HVSignalTypeNote:
            broadcastNote(signal.controllerNumber, signal.value, signal.channelNumber);
            break;
        default:
            break;
    }
}

void HVCentralTransmissionManager::sendPureCommandWithData(ByteView data) {
    // A short buffer has been reported by the reader; nothing is sent.
    if (auto command = RNBluetoothMIDICommandPure::initWithData(data)) {
        sendPureCommand(command->status, command->data1, command->data2);
    }
}

void HVCentralTransmissionManager::sendPureCommand(std::uint8_t status, std::uint8_t data1, std::uint8_t data2) {
    const std::uint8_t channel = status & 0x0F;
    switch (status & 0xF0) {
        case 0x90:
            if (auto sender = HVMIDISender::shared()) {
                sender->sendWithNoteOn(data1, data2, channel, true);
            }
            HVCentralThroughputMeter::sharedInstance()->recordNote(data1, data2, channel, true);
            break;
        case 0xB0:
            broadcastController(data1, data2, channel);
            break;
        case 0x80:
            if (auto sender = HVMIDISender::shared()) {
                sender->sendWithNoteOff(data1, data2, channel, true);
            }
            HVCentralThroughputMeter::sharedInstance()->recordNote(data1, data2, channel, false);
            break;
        case 0xE0:
            broadcastPitchBendWithChannel(channel, data1, data2);
            break;
        case 0xC0:
            broadcastProgramChange(data1, channel);
            break;
        default:
            // Pressure and system messages go nowhere.
            break;
    }
}

// --- The activity indicator. ---

void HVCentralTransmissionManager::didReceiveCommandForClient(const std::shared_ptr<RNClient>& client) {
    if (!client) {
        log("transmission indicator: command with no matching client \u2014 ignoring");
        return;
    }
    toggleTransmittionForClient(client);
}

void HVCentralTransmissionManager::toggleTransmittionForClient(const std::shared_ptr<RNClient>& client) {
    // One timer per active client, pushed back by each command: the indicator comes down 0.1
    // seconds after the last one.
    auto& timer = timers_[client];
    if (timer && timer->isValid()) {
        timer->schedule();
    } else {
        std::weak_ptr<HVCentralTransmissionManager> weakSelf = weak_from_this();
        timer = Timer::scheduled(MainQueue::shared(), std::chrono::milliseconds(100), false, [weakSelf, client] {
            if (auto self = weakSelf.lock()) {
                self->clientTimerDidFire(client);
            }
        });
    }
    enqueueIndicator(HVCentralTransmissionManagerIsTransmitting, client);
}

void HVCentralTransmissionManager::clientTimerDidFire(const std::shared_ptr<RNClient>& client) {
    enqueueIndicator(HVCentralTransmissionManagerStoppedTransmitting, client);
    timers_.erase(client);
}

void HVCentralTransmissionManager::resetForTesting() {
    for (auto& [client, timer] : timers_) {
        timer->invalidate();
    }
    timers_.clear();
}

}  // namespace havrel
