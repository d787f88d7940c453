#pragma once
// A step sequence: a row of steps on a grid of MIDI clock ticks, and the cursor the sequence
// player moves over it. Changes are told through a change dictionary (for persistence and the
// client) and position observers (for displays).

#include "model/HVObservationContainer.hpp"
#include "model/HVSerializeable.hpp"
#include "sequencing/HVColor.hpp"
#include "sequencing/HVStep.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class HVMIDISequence;
using HVMIDISequencePtr = std::shared_ptr<HVMIDISequence>;

class HVSequenceChangeOservationContainer final : public HVObservationContainer {
public:
    std::function<void(HVMIDISequence& sequence, std::uint64_t position)> sequencePositionDidChange;
    std::function<void(HVMIDISequence& sequence, const HVStep& step)> sequenceStepDidStart;
    std::function<void(HVMIDISequence& sequence, const HVStep& step)> sequenceStepDidFinish;
};

class HVMIDISequence final : public HVSerializeable, public std::enable_shared_from_this<HVMIDISequence> {
public:
    using SequenceChangeBlock = std::function<void(HVMIDISequence& sequence, const Dictionary& change)>;
    using PositionCallback = std::function<void(HVMIDISequence& sequence, std::uint64_t position)>;

    // 64 steps, step i at i × 6 ticks, 6 ticks long.
    static HVMIDISequencePtr create();
    // A sequence with a new identifier. Client data that the sequence cannot hold (a number
    // outside its field's range, a row that cannot be laid out in 8 bits) is refused with one
    // log line: the result is then nullptr.
    static HVMIDISequencePtr initFromDictionary(const Dictionary& dictionary);
    // Why the dictionary would be refused, or nothing.
    static std::optional<std::string> refusalOf(const Dictionary& dictionary);

    SequenceChangeBlock sequenceChangeBlock;
    HVStep::ChangeBlock stepChangeBlock;
    std::string identifier;
    HVColor color = HVColor::hx_colorWithHexString("B62F33");
    std::vector<HVStepPtr> steps;
    bool isMuted = false;
    bool isRunning = false;
    bool isLooping = true;
    HVStepPtr currentStep;

    HVMIDINoteLength playTickLength() const { return playTickLength_; }
    // Lays out steps 0 to length − 1: each gets the tick length as its length and starts at
    // i × the tick length. A row shorter than length is a programming fault.
    void setPlayTickLength(HVMIDINoteLength ticks);
    std::uint64_t length() const { return length_; }
    // Tells sequenceChangeBlock {"Length": length}; steps are neither added nor removed.
    void setLength(std::uint64_t length);
    HVMIDINoteLength noteLength() const { return noteLength_; }
    // Tells sequenceChangeBlock {"Speed": value}.
    void setNoteLength(HVMIDINoteLength noteLength);
    std::uint64_t position() const { return position_; }
    // Stores the position and tells the position observers.
    void setPosition(std::uint64_t position);

    // Every step gets the note on channel 1; sequenceChangeBlock hears of all of them at once.
    void setNoteValueToAllStepsWithNoteValue(std::uint8_t note);

    void registerForPositionChangeWithRegistrar(const std::shared_ptr<void>& registrar, PositionCallback callback);
    // The callbacks are not kept: step start and finish are not reported.
    void registerForChangesWithRegistrar(const std::shared_ptr<void>& registrar,
                                         std::function<void(HVMIDISequence&, const HVStep&)> stepDidStart,
                                         std::function<void(HVMIDISequence&, const HVStep&)> stepDidFinish);
    void removeRegistrationForTempoChangesWithRegistrar(const std::shared_ptr<void>& registrar);
    std::size_t registeredObserverCount() const { return registeredUIObjects_.size(); }

    Dictionary dictionary() const override;
    std::string className() const override { return "HVMIDISequence"; }
    // The dictionary must have passed refusalOf.
    void copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues) override;
    void copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues,
                                  bool forceNewID) override;

private:
    struct Key {};

public:
    explicit HVMIDISequence(Key);

private:
    void notifyPosition();
    void installStepChangeBlock();
    HVStepPtr newStep(std::uint64_t startQN, HVMIDINoteLength length) const;

    HVMIDINoteLength playTickLength_ = 6;
    std::uint64_t length_ = 64;
    HVMIDINoteLength noteLength_ = 6;
    std::uint64_t position_ = 0;
    std::vector<HVSequenceChangeOservationContainer> registeredUIObjects_;
};

}  // namespace havrel
