#include "sequencing/HVArpeggio.hpp"

#include "model/HVDictionaryReading.hpp"
#include "platform/Assert.hpp"
#include "platform/Log.hpp"
#include "sequencing/HVDictionaryLimits.hpp"

#include <algorithm>
#include <cmath>
#include <random>

namespace havrel {

std::optional<HVArpeggioStyle> HVArpeggioStyleFromRawValue(std::int64_t raw) {
    if (raw < 0 || raw > 8) {
        return std::nullopt;
    }
    return static_cast<HVArpeggioStyle>(raw);
}

std::optional<HVArpeggioPlayingStyle> HVArpeggioPlayingStyleFromRawValue(std::int64_t raw) {
    if (raw < 0 || raw > 3) {
        return std::nullopt;
    }
    return static_cast<HVArpeggioPlayingStyle>(raw);
}

std::string HVArpeggioPlayingStyleStringValue(HVArpeggioPlayingStyle style) {
    switch (style) {
        case HVArpeggioPlayingStyle::none: return "None";
        case HVArpeggioPlayingStyle::thumb: return "Thumb";
        case HVArpeggioPlayingStyle::middle: return "Middle";
        case HVArpeggioPlayingStyle::pinky: return "Pinky";
    }
    return "";
}

std::shared_ptr<HVArpeggio> HVArpeggio::initWithStyle(HVArpeggioStyle) {
    return std::make_shared<HVArpeggio>();
}

void HVArpeggio::setSequence(HVArpeggioStyle style, HVArpeggioPlayingStyle playingStyle) {
    setStyle(style);
    setPlayingStyle(playingStyle);
    rebuild();
}

void HVArpeggio::setStyle(HVArpeggioStyle style) {
    style_ = style;
    rebuild();
}

void HVArpeggio::setPlayingStyle(HVArpeggioPlayingStyle playingStyle) {
    playingStyle_ = playingStyle;
    rebuild();
}

void HVArpeggio::setNumberOfPinkyNotes(std::int64_t count) {
    HV_ASSERT(count >= 0);
    numberOfPinkyNotes_ = count;
    rebuild();
}

void HVArpeggio::setOctaves(std::int64_t octaves) {
    HV_ASSERT(octaves >= 0);
    HV_ASSERT(octaves == 0 || (octaves - 1) * 12 <= 255);
    octaves_ = octaves;
    rebuild();
}

void HVArpeggio::setPressedNotes(std::vector<HVCCOrNote> notes) {
    pressedNotes_ = std::move(notes);
    rebuild();
}

void HVArpeggio::setStartTimeNote(HVMIDINoteLength ticks) {
    startTimeNote_ = ticks;
    HV_ASSERT(steps.size() <= 256);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        HV_ASSERT(i * ticks <= 255);
        steps[i]->startQN = i * ticks;
    }
}

void HVArpeggio::setLength(HVMIDINoteLength ticks) {
    length_ = ticks;
    for (const auto& step : steps) {
        step->length = noteDurationInMIDIQN_;
    }
}

void HVArpeggio::setNoteDurationInPercentageFromLength(double fraction) {
    noteDurationInPercentageFromLength_ = fraction;
    const double ticks = std::max(std::round(fraction * length_), 1.0);
    HV_ASSERT(ticks < 256);
    noteDurationInMIDIQN_ = static_cast<std::uint8_t>(ticks);
}

void HVArpeggio::setSequence(HVMIDISequencePtr sequence) {
    auto old = std::exchange(sequence_, std::move(sequence));
    if (old && sequence_ && old->position() < sequence_->length()) {
        sequence_->setPosition(old->position());
    }
}

HVStepPtr HVArpeggio::newStep(HVCCOrNote note) const {
    auto step = HVStep::create();
    step->startQN = startTimeNote_;
    step->length = noteDurationInMIDIQN_;
    step->ccNumberOrNote = note;
    return step;
}

std::vector<HVStepPtr> HVArpeggio::baseList() const {
    HV_ASSERT(octaves_ >= 0);
    std::vector<HVCCOrNote> sorted = pressedNotes_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const HVCCOrNote& a, const HVCCOrNote& b) { return a.value < b.value; });
    std::vector<HVStepPtr> list;
    for (std::int64_t octave = 0; octave < octaves_; ++octave) {
        for (const auto& note : sorted) {
            const auto raised = HVCCOrNote::checkedOctaveUp(note.value, octave);
            HV_ASSERT(raised.has_value());
            list.push_back(newStep(HVCCOrNote::withValue(*raised)));
        }
    }
    return list;
}

namespace {

std::vector<HVStepPtr> reversed(std::vector<HVStepPtr> list) {
    std::reverse(list.begin(), list.end());
    return list;
}

// Appends the second run to the first, the joint note once, and drops the last step: a loop
// that comes back to where it started without playing the first note twice.
std::vector<HVStepPtr> loop(std::vector<HVStepPtr> first, std::vector<HVStepPtr> second) {
    if (!first.empty() && !second.empty() && first.back()->ccNumberOrNote.value == second.front()->ccNumberOrNote.value) {
        first.pop_back();
    }
    first.insert(first.end(), second.begin(), second.end());
    if (!first.empty()) {
        first.pop_back();
    }
    return first;
}

std::vector<HVStepPtr> converged(const std::vector<HVStepPtr>& list) {
    std::vector<HVStepPtr> result;
    const std::size_t n = list.size();
    for (std::size_t i = 0; i < n; ++i) {
        result.push_back(i % 2 == 0 ? list[i / 2] : list[n - 1 - i / 2]);
    }
    return result;
}

std::vector<HVStepPtr> concatenated(std::vector<HVStepPtr> first, const std::vector<HVStepPtr>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace

void HVArpeggio::rebuild() {
    steps.clear();
    if (!pressedNotes_.empty()) {
        switch (style_) {
            case HVArpeggioStyle::up: steps = baseList(); break;
            case HVArpeggioStyle::down: steps = reversed(baseList()); break;
            case HVArpeggioStyle::upDownLoop: steps = loop(baseList(), reversed(baseList())); break;
            case HVArpeggioStyle::downUpLoop: steps = loop(reversed(baseList()), baseList()); break;
            case HVArpeggioStyle::upDown: steps = concatenated(baseList(), reversed(baseList())); break;
            case HVArpeggioStyle::downUp: steps = concatenated(reversed(baseList()), baseList()); break;
            case HVArpeggioStyle::converge: steps = converged(baseList()); break;
            case HVArpeggioStyle::diverge: steps = reversed(converged(baseList())); break;
            case HVArpeggioStyle::random: {
                static thread_local std::mt19937_64 generator{std::random_device{}()};
                for (int round = 0; round < 100; ++round) {
                    auto list = baseList();
                    std::shuffle(list.begin(), list.end(), generator);
                    steps.insert(steps.end(), list.begin(), list.end());
                }
                break;
            }
        }
    }
    weaveAccents();
    setSequence(HVMIDISequence::create());
    // The construction-time row of 64 steps is laid out for the grid, then replaced by the
    // built steps; the sequence's length stays 64 whatever their number.
    sequence_->setPlayTickLength(length_);
    sequence_->steps = steps;
}

void HVArpeggio::weaveAccents() {
    if (steps.empty()) {
        return;
    }
    std::vector<HVStepPtr> sorted = steps;
    std::stable_sort(sorted.begin(), sorted.end(), [](const HVStepPtr& a, const HVStepPtr& b) {
        return a->ccNumberOrNote.value < b->ccNumberOrNote.value;
    });
    std::vector<HVCCOrNote> notes;
    for (const auto& step : sorted) {
        notes.push_back(step->ccNumberOrNote);
    }
    HV_ASSERT(numberOfPinkyNotes_ >= 0);
    const auto p = static_cast<std::size_t>(std::min<std::int64_t>(numberOfPinkyNotes_, static_cast<std::int64_t>(notes.size())));
    std::vector<HVCCOrNote> accents;
    switch (playingStyle_) {
        case HVArpeggioPlayingStyle::thumb: accents.assign(notes.begin(), notes.begin() + static_cast<std::ptrdiff_t>(p)); break;
        case HVArpeggioPlayingStyle::pinky: accents.assign(notes.rbegin(), notes.rbegin() + static_cast<std::ptrdiff_t>(p)); break;
        case HVArpeggioPlayingStyle::middle: accents.push_back(notes[(notes.size() - 1) / 2]); break;
        case HVArpeggioPlayingStyle::none: break;
    }
    if (accents.empty()) {
        return;
    }
    std::vector<HVStepPtr> woven;
    for (const auto& step : steps) {
        const bool isAccent = std::any_of(accents.begin(), accents.end(), [&](const HVCCOrNote& accent) {
            return accent.value == step->ccNumberOrNote.value;
        });
        if (isAccent) {
            continue;
        }
        for (const auto& accent : accents) {
            woven.push_back(newStep(accent));
        }
        woven.push_back(step);
    }
    steps = std::move(woven);
}

// --- Dictionary form. ---

namespace {

Dictionary pair(const std::pair<double, double>& value) {
    return Dictionary::array({value.first, value.second});
}

std::optional<std::pair<double, double>> pairValue(const Dictionary& dictionary, const char* key) {
    const auto* array = arrayValue(dictionary, key);
    if (!array || array->size() != 2) {
        return std::nullopt;
    }
    const auto first = doubleValue((*array)[0]);
    const auto second = doubleValue((*array)[1]);
    if (!first || !second) {
        return std::nullopt;
    }
    return std::make_pair(*first, *second);
}

// The pressed notes: an array of {"value", "channel"}; other elements are passed over.
std::vector<HVCCOrNote> pressedNotesValue(const Dictionary& dictionary) {
    std::vector<HVCCOrNote> notes;
    if (const auto* array = arrayValue(dictionary, "pressedNotes")) {
        for (const auto& element : *array) {
            if (element.is_object()) {
                notes.push_back(HVCCOrNote{static_cast<std::uint8_t>(integerValue(element, "value").value_or(0)),
                                           static_cast<std::uint8_t>(integerValue(element, "channel").value_or(1))});
            }
        }
    }
    return notes;
}

}  // namespace

Dictionary HVArpeggio::dictionary() const {
    Dictionary notes = Dictionary::array();
    for (const auto& note : pressedNotes_) {
        notes.push_back({{"value", note.value}, {"channel", note.channel}});
    }
    return Dictionary{{"style", static_cast<int>(style_)},
                      {"playingStyle", static_cast<int>(playingStyle_)},
                      {"numberOfPinkyNotes", numberOfPinkyNotes_},
                      {"octaves", octaves_},
                      {"currentStepIndex", currentStepIndex},
                      {"startTimeNote", startTimeNote_},
                      {"length", length_},
                      {"noteDurationInPercentageFromLength", noteDurationInPercentageFromLength_},
                      {"pressedNotes", std::move(notes)},
                      {"randomizeOctaveProbability", randomizeOctaveProbability},
                      {"randomizeOctaveFrequency", randomizeOctaveFrequency},
                      {"randomizeOctaveRange", pair(randomizeOctaveRange)},
                      {"randomizeStyleProbability", randomizeStyleProbability},
                      {"randomizeStyleFrequency", randomizeStyleFrequency},
                      {"randomizeStyleRange", pair(randomizeStyleRange)}};
}

std::optional<std::string> HVArpeggio::refusalOf(const Dictionary& dictionary) {
    if (!dictionary.is_object()) {
        return "the arpeggio is not a dictionary";
    }
    const std::pair<const char*, std::int64_t> limits[] = {
        {"style", 8}, {"playingStyle", 3}, {"startTimeNote", 255}, {"length", 255},
        {"randomizeOctaveFrequency", 255}, {"randomizeStyleFrequency", 255},
        {"numberOfPinkyNotes", std::numeric_limits<std::int64_t>::max()},
        // Beyond 21 octaves 12 × o no longer fits in 8 bits.
        {"octaves", 21}};
    for (const auto& [key, highest] : limits) {
        if (auto refusal = outOfRange(dictionary, key, 0, highest)) {
            return refusal;
        }
    }
    if (const auto* array = arrayValue(dictionary, "pressedNotes")) {
        if (array->size() > kMaximumPressedNotes) {
            return fmt::format("{} pressed notes are more than {}", array->size(), kMaximumPressedNotes);
        }
        for (const auto& element : *array) {
            for (const char* key : {"value", "channel"}) {
                if (auto refusal = outOfRange(element, key, 0, 255)) {
                    return refusal;
                }
            }
        }
    }
    const auto octaves = integerValue(dictionary, "octaves").value_or(1);
    for (const auto& note : pressedNotesValue(dictionary)) {
        if (octaves > 0 && !HVCCOrNote::checkedOctaveUp(note.value, octaves - 1)) {
            return fmt::format("note {} over {} octaves leaves 8 bits", note.value, octaves);
        }
    }
    const double fraction = doubleValue(dictionary, "noteDurationInPercentageFromLength").value_or(1.0);
    const auto length = integerValue(dictionary, "length").value_or(6);
    if (!std::isfinite(fraction) || std::round(fraction * static_cast<double>(length)) >= 256) {
        return fmt::format("a note duration of {} of {} ticks", fraction, length);
    }
    return std::nullopt;
}

std::shared_ptr<HVArpeggio> HVArpeggio::initFromDictionary(const Dictionary& dictionary) {
    if (auto refusal = refusalOf(dictionary)) {
        logf("[HVSequencing] arpeggio refused: {}", *refusal);
        return nullptr;
    }
    auto arpeggio = std::make_shared<HVArpeggio>();
    auto byte = [&](const char* key, std::uint8_t fallback) {
        return static_cast<std::uint8_t>(integerValue(dictionary, key).value_or(fallback));
    };
    arpeggio->style_ = static_cast<HVArpeggioStyle>(byte("style", 0));
    arpeggio->playingStyle_ = static_cast<HVArpeggioPlayingStyle>(byte("playingStyle", 0));
    arpeggio->numberOfPinkyNotes_ = integerValue(dictionary, "numberOfPinkyNotes").value_or(1);
    arpeggio->octaves_ = integerValue(dictionary, "octaves").value_or(1);
    arpeggio->currentStepIndex = integerValue(dictionary, "currentStepIndex").value_or(0);
    arpeggio->startTimeNote_ = byte("startTimeNote", 6);
    arpeggio->length_ = byte("length", 6);
    arpeggio->setNoteDurationInPercentageFromLength(
        doubleValue(dictionary, "noteDurationInPercentageFromLength").value_or(1.0));
    arpeggio->pressedNotes_ = pressedNotesValue(dictionary);
    arpeggio->randomizeOctaveProbability = doubleValue(dictionary, "randomizeOctaveProbability").value_or(0);
    arpeggio->randomizeOctaveFrequency = byte("randomizeOctaveFrequency", 96);
    arpeggio->randomizeOctaveRange = pairValue(dictionary, "randomizeOctaveRange").value_or(std::make_pair(0.0, 0.0));
    arpeggio->randomizeStyleProbability = doubleValue(dictionary, "randomizeStyleProbability").value_or(0);
    arpeggio->randomizeStyleFrequency = byte("randomizeStyleFrequency", 96);
    arpeggio->randomizeStyleRange = pairValue(dictionary, "randomizeStyleRange").value_or(std::make_pair(0.0, 0.0));
    arpeggio->rebuild();
    return arpeggio;
}

}  // namespace havrel
