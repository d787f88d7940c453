#pragma once
// Moves the cursors of the running step sequences: on every "MIDIQN" notification it stores the
// tick count and, one turn of the main queue later, sets each running sequence's position to
// (count mod (tick length × length)) / tick length. The cursor is a pure function of the global
// count, so sequences on the same grid stay in phase and one started later joins mid-row.

#include "platform/NotificationCenter.hpp"
#include "platform/SharedSlot.hpp"
#include "sequencing/HVMIDISequence.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace havrel {

// What an owner of sequences tells the player.
class SequenceChangeProtocol {
public:
    virtual ~SequenceChangeProtocol() = default;
    virtual void addSequence(const HVMIDISequencePtr& sequence) = 0;
    virtual void arpParamsDidChange() = 0;
    virtual void changeSequenceStepForSequenceID(const std::string& sequenceID, std::uint64_t stepIndex,
                                                 const Dictionary& change) = 0;
    virtual void changeSequenceLengthForSequenceID(const std::string& sequenceID, std::uint64_t length) = 0;
    virtual void changeSequenceSpeedForSequenceID(const std::string& sequenceID, HVMIDINoteLength speed) = 0;
    virtual void removeSequence(const HVMIDISequencePtr& sequence) = 0;
};

class HVSequencePlayer final : public SequenceChangeProtocol, public std::enable_shared_from_this<HVSequencePlayer> {
public:
    // Made on first use, listening to "MIDIQN" from then on.
    static std::shared_ptr<HVSequencePlayer> shared();
    // For tests: replaces the shared player (nullptr: the next use makes a new one).
    static void setShared(std::shared_ptr<HVSequencePlayer> player);
    static std::shared_ptr<HVSequencePlayer> create();
    ~HVSequencePlayer() override;

    // By identifier; main queue only.
    const std::map<std::string, HVMIDISequencePtr>& sequences() const { return sequences_; }
    std::uint64_t midiQN() const { return midiQN_; }

    // Registers the sequence with its cursor at 0, once; an absent sequence is a programming fault.
    void addSequence(const HVMIDISequencePtr& sequence) override;
    // The rest of the protocol does nothing: sequences stay registered.
    void arpParamsDidChange() override {}
    void changeSequenceStepForSequenceID(const std::string&, std::uint64_t, const Dictionary&) override {}
    void changeSequenceLengthForSequenceID(const std::string&, std::uint64_t) override {}
    void changeSequenceSpeedForSequenceID(const std::string&, HVMIDINoteLength) override {}
    void removeSequence(const HVMIDISequencePtr&) override {}

    void MIDIQNDidChangeWithNotification(const Notification& notification);

    // For the host: told of each sequence as it is registered, before its cursor is set.
    void addSequenceAdditionObserver(std::function<void(const HVMIDISequencePtr&)> observer);

    HVSequencePlayer() = default;

private:
    void update();
    static SharedSlot<HVSequencePlayer>& sharedSlot();

    std::map<std::string, HVMIDISequencePtr> sequences_;
    std::uint64_t midiQN_ = 0;
    std::vector<std::function<void(const HVMIDISequencePtr&)>> additionObservers_;
};

}  // namespace havrel
