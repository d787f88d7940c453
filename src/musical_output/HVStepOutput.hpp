#pragma once
// Sounds the running step sequences: on each cursor move of a running, unmuted sequence the
// step under the cursor is sent through the MIDI sender (the application's MIDI manager) on the
// virtual output, a note with its note off after the step's length in ticks, or a controller
// value. A sequence that stops (or leaves the player), a clock that pauses, a tick count that
// goes back (MIDI Start) and a transport stop (MIDI Stop) end the notes still sounding.
//
// Installed by the host over the sequence player: it follows every sequence the player
// registers. Main queue only.

#include "musical_time/HVClock.hpp"
#include "musical_time/HVSequencePlayer.hpp"
#include "sequencing/HVMatrixSequence.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HVStepOutput : public std::enable_shared_from_this<HVStepOutput> {
public:
    // What a sequence's steps drive. Without a channel, each step's own (stored from 1).
    struct Target {
        bool isNote = true;
        std::optional<std::uint64_t> channel;
    };

    // Follows the player's sequences, now and as they are registered, and the clock's pauses.
    static std::shared_ptr<HVStepOutput> install(const std::shared_ptr<HVSequencePlayer>& player,
                                                 const std::shared_ptr<HVClock>& clock);
    ~HVStepOutput();

    // Sounds the sequence's steps from the first cursor move of a tick on (the player does this
    // for what it registers).
    void follow(const HVMIDISequencePtr& sequence);
    // Ends what sounds when the clock pauses (a clock that replaces another is followed too).
    void followClock(const std::shared_ptr<HVClock>& clock);
    // A stopped transport (MIDI Stop) ends what sounds and keeps every step silent until it runs
    // again (MIDI Continue or Start); the cursors go on moving meanwhile.
    void setTransportStopped(bool stopped);
    bool isTransportStopped() const { return transportStopped_; }
    void setTarget(const std::string& sequenceID, Target target);
    // Registers the matrix sequence's step sequence with the player, driving what its range
    // container says: a note or a controller on the container's channel.
    void playMatrixSequence(const HVMatrixSequence& matrix);

    // Note offs for every note still sounding, of one sequence or of all.
    void allNotesOff(const std::string& sequenceID);
    void allNotesOff();

    std::size_t soundingNoteCount() const;

    explicit HVStepOutput(std::weak_ptr<HVSequencePlayer> player) : player_(std::move(player)) {}

private:
    struct Sounding {
        std::uint8_t note;
        std::uint8_t channel;
        std::uint64_t offTick;
    };
    struct State {
        std::weak_ptr<HVMIDISequence> sequence;
        Target target;
        // The grid position (tick / tick length) last sounded: a step sounds once per grid
        // position, so a one-step row repeats.
        std::optional<std::uint64_t> lastSlot;
        // Set by the first tick after the sequence is followed: the cursor set while it is
        // registered is no move to sound.
        bool armed = false;
        std::uint64_t lastTick = 0;
        std::vector<Sounding> sounding;
    };

    void positionDidChange(HVMIDISequence& sequence, std::uint64_t position);
    void tickDidPass();
    void sound(State& state, const HVStep& step, std::uint64_t startTick);
    void release(State& state, std::optional<std::uint64_t> upToTick);
    std::uint64_t now() const;

    std::weak_ptr<HVSequencePlayer> player_;
    std::map<std::string, State> states_;
    bool transportStopped_ = false;
};

}  // namespace havrel
