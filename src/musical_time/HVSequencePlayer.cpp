#include "musical_time/HVSequencePlayer.hpp"

#include "musical_time/HVClock.hpp"
#include "platform/Assert.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <limits>

namespace havrel {

SharedSlot<HVSequencePlayer>& HVSequencePlayer::sharedSlot() {
    static SharedSlot<HVSequencePlayer> slot([] { return HVSequencePlayer::create(); });
    return slot;
}

std::shared_ptr<HVSequencePlayer> HVSequencePlayer::shared() {
    return sharedSlot().get();
}

void HVSequencePlayer::setShared(std::shared_ptr<HVSequencePlayer> player) {
    sharedSlot().set(std::move(player));
}

std::shared_ptr<HVSequencePlayer> HVSequencePlayer::create() {
    auto player = std::make_shared<HVSequencePlayer>();
    std::weak_ptr<HVSequencePlayer> weak = player;
    NotificationCenter::defaultCenter().addObserver(player.get(), HVMIDIQNNotification, nullptr,
                                                    [weak](const Notification& notification) {
                                                        if (auto self = weak.lock()) {
                                                            self->MIDIQNDidChangeWithNotification(notification);
                                                        }
                                                    });
    return player;
}

HVSequencePlayer::~HVSequencePlayer() {
    NotificationCenter::defaultCenter().removeObserver(this);
}

void HVSequencePlayer::addSequence(const HVMIDISequencePtr& sequence) {
    HV_ASSERT(sequence != nullptr);
    if (sequences_.contains(sequence->identifier)) {
        return;
    }
    for (const auto& observer : additionObservers_) {
        observer(sequence);
    }
    sequence->setPosition(0);
    sequences_.emplace(sequence->identifier, sequence);
}

void HVSequencePlayer::addSequenceAdditionObserver(std::function<void(const HVMIDISequencePtr&)> observer) {
    additionObservers_.push_back(std::move(observer));
}

void HVSequencePlayer::MIDIQNDidChangeWithNotification(const Notification& notification) {
    const auto it = notification.userInfo.find(HVMIDIQNNotification);
    if (it == notification.userInfo.end() || !it->is_number_unsigned()) {
        return;
    }
    midiQN_ = it->get<std::uint64_t>();
    // A second hop, on purpose: the cursors move in a later turn, with the count of that time.
    std::weak_ptr<HVSequencePlayer> weak = weak_from_this();
    MainQueue::shared().post([weak] {
        if (auto self = weak.lock()) {
            self->update();
        }
    });
}

void HVSequencePlayer::update() {
    std::vector<HVMIDISequencePtr> running;
    for (const auto& [identifier, sequence] : sequences_) {
        if (sequence->isRunning) {
            running.push_back(sequence);
        }
    }
    for (const auto& sequence : running) {
        const std::uint64_t ticks = sequence->playTickLength();
        const std::uint64_t length = sequence->length();
        // A grid of no ticks, no positions or more ticks than 64 bits hold has no cursor: such
        // a sequence (its numbers may come from a client) is left out.
        if (ticks == 0 || length == 0 || length > std::numeric_limits<std::uint64_t>::max() / ticks) {
            logf("[HVSequencePlayer] sequence {} left out: a grid of {} ticks × {} positions cannot be played",
                 sequence->identifier, ticks, length);
            sequences_.erase(sequence->identifier);
            continue;
        }
        sequence->setPosition((midiQN_ % (ticks * length)) / ticks);
    }
}

}  // namespace havrel
