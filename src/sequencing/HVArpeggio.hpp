#pragma once
// The arpeggiator: pressed notes spread over octaves, ordered by a style, with accent notes
// woven in by a playing style, handed over as a fresh step sequence. Every parameter change
// rebuilds the whole thing.

#include "model/HVSerializeable.hpp"
#include "sequencing/HVMIDISequence.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace havrel {

enum class HVArpeggioStyle : std::uint8_t {
    up = 0,
    down = 1,
    upDownLoop = 2,
    downUpLoop = 3,
    upDown = 4,
    downUp = 5,
    converge = 6,
    diverge = 7,
    random = 8,
};
// Nothing for a raw value above 8.
std::optional<HVArpeggioStyle> HVArpeggioStyleFromRawValue(std::int64_t raw);

enum class HVArpeggioPlayingStyle : std::uint8_t { none = 0, thumb = 1, middle = 2, pinky = 3 };
// Nothing for a raw value above 3.
std::optional<HVArpeggioPlayingStyle> HVArpeggioPlayingStyleFromRawValue(std::int64_t raw);
// "None", "Thumb", "Middle", "Pinky".
std::string HVArpeggioPlayingStyleStringValue(HVArpeggioPlayingStyle style);

// A placeholder with nothing of its own.
class HVChord {};

class HVArpeggio final : public HVSerializeable {
public:
    // Every field at its default: the style given is not applied, on purpose.
    static std::shared_ptr<HVArpeggio> initWithStyle(HVArpeggioStyle style);
    // The settings of a client. Settings the arpeggiator cannot build from (a style out of
    // range, a negative or too large octave count, a negative accent count, a note that octaves
    // lift past 8 bits, a note duration of 256 ticks or more, more than 128 pressed notes) are
    // refused with one log line: the result is then nullptr.
    static std::shared_ptr<HVArpeggio> initFromDictionary(const Dictionary& dictionary);
    static std::optional<std::string> refusalOf(const Dictionary& dictionary);

    static constexpr std::size_t kMaximumPressedNotes = 128;

    // Stores the style and rebuilds, the playing style and rebuilds, then rebuilds once more.
    void setSequence(HVArpeggioStyle style, HVArpeggioPlayingStyle playingStyle);

    const HVMIDISequencePtr& sequence() const { return sequence_; }
    // Keeps the cursor of the old sequence when it fits the new one.
    void setSequence(HVMIDISequencePtr sequence);

    HVArpeggioStyle style() const { return style_; }
    void setStyle(HVArpeggioStyle style);
    HVArpeggioPlayingStyle playingStyle() const { return playingStyle_; }
    void setPlayingStyle(HVArpeggioPlayingStyle playingStyle);
    std::int64_t numberOfPinkyNotes() const { return numberOfPinkyNotes_; }
    // A negative count is a programming fault.
    void setNumberOfPinkyNotes(std::int64_t count);
    std::int64_t octaves() const { return octaves_; }
    // A negative count, or one whose octaves overflow 8 bits, is a programming fault.
    void setOctaves(std::int64_t octaves);
    const std::vector<HVCCOrNote>& pressedNotes() const { return pressedNotes_; }
    void setPressedNotes(std::vector<HVCCOrNote> notes);

    HVMIDINoteLength startTimeNote() const { return startTimeNote_; }
    // Step i of the built row starts at i × the value, counted in 8 bits.
    void setStartTimeNote(HVMIDINoteLength ticks);
    HVMIDINoteLength length() const { return length_; }
    // Each built step gets noteDurationInMIDIQN as its length.
    void setLength(HVMIDINoteLength ticks);
    std::uint8_t noteDurationInMIDIQN() const { return noteDurationInMIDIQN_; }
    double noteDurationInPercentageFromLength() const { return noteDurationInPercentageFromLength_; }
    // noteDurationInMIDIQN = max(round(fraction × length), 1); 256 or more is a programming fault.
    void setNoteDurationInPercentageFromLength(double fraction);

    std::vector<HVStepPtr> steps;
    std::int64_t currentStepIndex = 0;
    // Stored, read and written; nothing evaluates them.
    double randomizeOctaveProbability = 0;
    HVMIDINoteLength randomizeOctaveFrequency = 96;
    std::pair<double, double> randomizeOctaveRange{0, 0};
    double randomizeStyleProbability = 0;
    HVMIDINoteLength randomizeStyleFrequency = 96;
    std::pair<double, double> randomizeStyleRange{0, 0};

    Dictionary dictionary() const override;
    std::string className() const override { return "HVArpeggio"; }

    HVArpeggio() = default;

private:
    void rebuild();
    std::vector<HVStepPtr> baseList() const;
    void weaveAccents();
    HVStepPtr newStep(HVCCOrNote note) const;

    HVMIDISequencePtr sequence_;
    HVArpeggioStyle style_ = HVArpeggioStyle::up;
    HVArpeggioPlayingStyle playingStyle_ = HVArpeggioPlayingStyle::none;
    std::int64_t numberOfPinkyNotes_ = 1;
    std::int64_t octaves_ = 1;
    HVMIDINoteLength startTimeNote_ = 6;
    HVMIDINoteLength length_ = 6;
    std::uint8_t noteDurationInMIDIQN_ = 6;
    double noteDurationInPercentageFromLength_ = 1.0;
    std::vector<HVCCOrNote> pressedNotes_;
};

}  // namespace havrel
