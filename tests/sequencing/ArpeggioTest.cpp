// The arpeggiator: the order of every style over one and two octaves, the accents of every
// playing style, the sequence handed over, and the refusal of settings it cannot build from.

#include "platform/Log.hpp"
#include "sequencing/HVArpeggio.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace havrel {
namespace {

using Notes = std::vector<int>;

Notes notesOf(const std::vector<HVStepPtr>& steps) {
    Notes notes;
    for (const auto& step : steps) {
        notes.push_back(step->ccNumberOrNote.value);
    }
    return notes;
}

std::shared_ptr<HVArpeggio> arpeggio(std::vector<std::uint8_t> pressed, std::int64_t octaves) {
    auto result = HVArpeggio::initWithStyle(HVArpeggioStyle::down);
    EXPECT_EQ(result->style(), HVArpeggioStyle::up);  // the style given is not applied
    std::vector<HVCCOrNote> notes;
    for (auto note : pressed) {
        notes.push_back(HVCCOrNote::withValue(note));
    }
    result->setPressedNotes(notes);
    result->setOctaves(octaves);
    return result;
}

TEST(Arpeggio, EveryStyleOverOneAndTwoOctaves) {
    struct Case {
        HVArpeggioStyle style;
        Notes one;
        Notes two;
    };
    const std::vector<Case> cases = {
        {HVArpeggioStyle::up, {60, 64, 67}, {60, 64, 67, 72, 76, 79}},
        {HVArpeggioStyle::down, {67, 64, 60}, {79, 76, 72, 67, 64, 60}},
        {HVArpeggioStyle::upDownLoop, {60, 64, 67, 64}, {60, 64, 67, 72, 76, 79, 76, 72, 67, 64}},
        {HVArpeggioStyle::downUpLoop, {67, 64, 60, 64}, {79, 76, 72, 67, 64, 60, 64, 67, 72, 76}},
        {HVArpeggioStyle::upDown, {60, 64, 67, 67, 64, 60}, {60, 64, 67, 72, 76, 79, 79, 76, 72, 67, 64, 60}},
        {HVArpeggioStyle::downUp, {67, 64, 60, 60, 64, 67}, {79, 76, 72, 67, 64, 60, 60, 64, 67, 72, 76, 79}},
        {HVArpeggioStyle::converge, {60, 67, 64}, {60, 79, 64, 76, 67, 72}},
        {HVArpeggioStyle::diverge, {64, 67, 60}, {72, 67, 76, 64, 79, 60}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.style));
        // Pressed out of order: the base list sorts them.
        auto one = arpeggio({67, 60, 64}, 1);
        one->setStyle(c.style);
        EXPECT_EQ(notesOf(one->steps), c.one);
        auto two = arpeggio({64, 67, 60}, 2);
        two->setStyle(c.style);
        EXPECT_EQ(notesOf(two->steps), c.two);
        // Every step: channel 1, the common start and the sounding length.
        for (const auto& step : two->steps) {
            EXPECT_EQ(step->ccNumberOrNote.channel, 1);
            EXPECT_EQ(step->startQN, 6u);
            EXPECT_EQ(step->length, 6);
        }
    }
    // Random: one hundred rounds, each a permutation of the base list.
    for (std::int64_t octaves : {1, 2}) {
        auto random = arpeggio({60, 64, 67}, octaves);
        random->setStyle(HVArpeggioStyle::random);
        const auto notes = notesOf(random->steps);
        const std::size_t n = 3 * static_cast<std::size_t>(octaves);
        ASSERT_EQ(notes.size(), 100 * n);
        auto base = notesOf(arpeggio({60, 64, 67}, octaves)->steps);
        std::sort(base.begin(), base.end());
        bool varied = false;
        for (std::size_t round = 0; round < 100; ++round) {
            Notes chunk(notes.begin() + static_cast<std::ptrdiff_t>(round * n),
                        notes.begin() + static_cast<std::ptrdiff_t>((round + 1) * n));
            varied = varied || chunk != notesOf(arpeggio({60, 64, 67}, octaves)->steps);
            std::sort(chunk.begin(), chunk.end());
            EXPECT_EQ(chunk, base);
        }
        EXPECT_TRUE(varied);
    }
}

TEST(Arpeggio, AccentsOfEveryPlayingStyle) {
    auto build = [](std::vector<std::uint8_t> pressed, std::int64_t octaves, HVArpeggioStyle style,
                    HVArpeggioPlayingStyle playing, std::int64_t accents) {
        auto result = arpeggio(std::move(pressed), octaves);
        result->setNumberOfPinkyNotes(accents);
        result->setSequence(style, playing);
        return notesOf(result->steps);
    };
    using S = HVArpeggioStyle;
    using P = HVArpeggioPlayingStyle;
    EXPECT_EQ(build({60, 64, 67}, 1, S::up, P::none, 1), (Notes{60, 64, 67}));
    EXPECT_EQ(build({60, 64, 67}, 1, S::up, P::thumb, 1), (Notes{60, 64, 60, 67}));
    EXPECT_EQ(build({60, 64, 67}, 1, S::up, P::middle, 1), (Notes{64, 60, 64, 67}));
    EXPECT_EQ(build({60, 64, 67}, 1, S::up, P::pinky, 1), (Notes{67, 60, 67, 64}));
    EXPECT_EQ(build({60, 64, 67}, 2, S::up, P::thumb, 2),
              (Notes{60, 64, 67, 60, 64, 72, 60, 64, 76, 60, 64, 79}));
    EXPECT_EQ(build({60, 64, 67}, 2, S::up, P::middle, 3), (Notes{67, 60, 67, 64, 67, 72, 67, 76, 67, 79}));
    EXPECT_EQ(build({60, 64, 67}, 2, S::down, P::pinky, 1), (Notes{79, 76, 79, 72, 79, 67, 79, 64, 79, 60}));
    // Every occurrence of an accent note leaves the row before the weave.
    EXPECT_EQ(build({60, 64, 67}, 1, S::upDown, P::pinky, 1), (Notes{67, 60, 67, 64, 67, 64, 67, 60}));
    // Middle of an even count takes the lower middle; a duplicate pressed note stays a duplicate.
    EXPECT_EQ(build({60, 62, 64, 65}, 1, S::up, P::middle, 1), (Notes{62, 60, 62, 64, 62, 65}));
    EXPECT_EQ(build({60, 60, 64}, 1, S::up, P::none, 1), (Notes{60, 60, 64}));
    // All notes accents: nothing remains.
    EXPECT_EQ(build({60, 64, 67}, 1, S::up, P::thumb, 5), Notes{});
    EXPECT_EQ(build({60}, 1, S::up, P::pinky, 1), Notes{});
    // One note: the loops play nothing, up-down plays it twice.
    EXPECT_EQ(build({60}, 1, S::upDownLoop, P::none, 1), Notes{});
    EXPECT_EQ(build({60}, 1, S::downUpLoop, P::none, 1), Notes{});
    EXPECT_EQ(build({60}, 1, S::upDown, P::none, 1), (Notes{60, 60}));
    // High octaves pile up on 127.
    EXPECT_EQ(build({120}, 2, S::up, P::none, 1), (Notes{120, 127}));
    EXPECT_EQ(build({120}, 3, S::up, P::none, 1), (Notes{120, 127, 127}));
    EXPECT_FALSE(HVArpeggioStyleFromRawValue(9));
    EXPECT_FALSE(HVArpeggioPlayingStyleFromRawValue(4));
}

TEST(Arpeggio, SequenceHandedOverAndTimingSetters) {
    auto result = arpeggio({}, 1);
    ASSERT_NE(result->sequence(), nullptr);  // made even with no notes
    EXPECT_TRUE(result->sequence()->steps.empty());

    result->setPressedNotes({HVCCOrNote::withValue(60), HVCCOrNote::withValue(64), HVCCOrNote::withValue(67)});
    auto first = result->sequence();
    first->setPosition(2);
    result->setLength(12);
    result->setStyle(HVArpeggioStyle::down);
    auto second = result->sequence();
    EXPECT_NE(first, second);
    EXPECT_EQ(second->position(), 2u);  // the cursor survives a rebuild
    EXPECT_EQ(second->length(), 64u);
    EXPECT_EQ(second->playTickLength(), 12);
    EXPECT_EQ(notesOf(second->steps), (Notes{67, 64, 60}));

    result->setNoteDurationInPercentageFromLength(0.5);
    EXPECT_EQ(result->noteDurationInMIDIQN(), 6);
    result->setNoteDurationInPercentageFromLength(0.1);
    EXPECT_EQ(result->noteDurationInMIDIQN(), 1);
    result->setLength(6);  // the steps take the duration, the duration is not recalculated
    EXPECT_EQ(result->steps[2]->length, 1);
    result->setNoteDurationInPercentageFromLength(0.5);
    EXPECT_EQ(result->noteDurationInMIDIQN(), 3);
    result->setStartTimeNote(24);
    EXPECT_EQ(result->steps[2]->startQN, 48u);

    EXPECT_DEATH(result->setOctaves(23), "octaves - 1");
    EXPECT_DEATH(result->setNumberOfPinkyNotes(-1), "count >= 0");
    result->setLength(255);
    EXPECT_DEATH(result->setNoteDurationInPercentageFromLength(1.01), "ticks < 256");
}

TEST(Arpeggio, DictionaryRoundTripAndRefusals) {
    Dictionary settings = {{"style", 4},
                           {"playingStyle", 3},
                           {"numberOfPinkyNotes", 2},
                           {"octaves", 2},
                           {"currentStepIndex", 0},
                           {"startTimeNote", 12},
                           {"length", 12},
                           {"noteDurationInPercentageFromLength", 0.5},
                           {"pressedNotes", {{{"value", 62}, {"channel", 3}}, {{"value", 57}, {"channel", 1}}}},
                           {"randomizeOctaveProbability", 0.25},
                           {"randomizeOctaveFrequency", 48},
                           {"randomizeOctaveRange", {-1.0, 2.0}},
                           {"randomizeStyleProbability", 0.75},
                           {"randomizeStyleFrequency", 24},
                           {"randomizeStyleRange", {0.0, 8.0}}};
    auto read = HVArpeggio::initFromDictionary(settings);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->dictionary(), settings);
    EXPECT_EQ(read->noteDurationInMIDIQN(), 6);
    // 57 62 69 74 up and down; the two highest notes of the sorted row are both 74, so 74 is
    // woven in twice before every remaining step.
    EXPECT_EQ(notesOf(read->steps), (Notes{74, 74, 57, 74, 74, 62, 74, 74, 69, 74, 74, 69, 74, 74, 62, 74, 74, 57}));
    EXPECT_EQ(read->sequence()->playTickLength(), 12);

    ScopedLogCapture capture;
    const std::vector<Dictionary> refused = {
        {{"style", 9}},
        {{"playingStyle", -1}},
        {{"octaves", 22}},
        {{"octaves", -1}},
        {{"numberOfPinkyNotes", -3}},
        {{"pressedNotes", {{{"value", 250}}}}, {"octaves", 2}},  // 250 + 12 leaves 8 bits
        {{"pressedNotes", {{{"value", 256}}}}},
        {{"length", 255}, {"noteDurationInPercentageFromLength", 1.01}},
        {{"noteDurationInPercentageFromLength", 1e300}},
        {{"pressedNotes", Dictionary(129, Dictionary{{"value", 60}})}},
    };
    for (const auto& dictionary : refused) {
        EXPECT_EQ(HVArpeggio::initFromDictionary(dictionary), nullptr) << dictionary.dump();
    }
    EXPECT_EQ(capture.count("[HVSequencing] arpeggio refused"), refused.size());
    EXPECT_EQ(capture.lines().size(), refused.size());
    // The widest accepted: 21 octaves of 128 notes of the random style.
    auto widest = HVArpeggio::initFromDictionary(
        {{"style", 8}, {"octaves", 21}, {"pressedNotes", Dictionary(128, Dictionary{{"value", 0}})}});
    ASSERT_NE(widest, nullptr);
    EXPECT_EQ(widest->steps.size(), 100u * 21u * 128u);
}

}  // namespace
}  // namespace havrel
