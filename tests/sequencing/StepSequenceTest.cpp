// Step sequences: the musical vocabulary, the row and its layout, the change dictionaries and
// position observers, and the dictionary form with its refusals of client data.

#include "platform/Log.hpp"
#include "sequencing/HVMIDISequence.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace havrel {
namespace {

TEST(MusicalTypes, DurationsAndOctaves) {
    // A length that is no note value has no name; raw values outside the tables are refused.
    EXPECT_EQ(HVMIDINoteLengthStringValue(5), "");
    EXPECT_FALSE(HVMusicalDuration::fromRawValue(12));
    EXPECT_FALSE(HVMusicalDuration::fromRawValue(-1));
    EXPECT_EQ(HVMusicalDuration::fromRawValue(7)->multiplier(), 0.375);
    EXPECT_EQ(HVMusicalDuration::fromRawValue(11)->multiplier(), 1.5);
    EXPECT_FALSE(HVSequencerStepShapeFromRawValue(3));

    HVCCOrNote note{120, 5};
    EXPECT_EQ(note.up(1), (HVCCOrNote{127, 1}));
    EXPECT_EQ(note.down(2), (HVCCOrNote{96, 1}));
    note.changeDown(1);
    EXPECT_EQ(note, (HVCCOrNote{108, 5}));
    note.changeUp(3);
    EXPECT_EQ(note, (HVCCOrNote{127, 5}));
    EXPECT_EQ(HVCCOrNote::checkedOctaveUp(200, 5), std::nullopt);  // 260 overflows 8 bits
    EXPECT_EQ(HVCCOrNote::checkedOctaveUp(0, 22), std::nullopt);   // 12 × 22 is above 255
    EXPECT_EQ(HVCCOrNote::checkedOctaveUp(0, 21), 127);
    EXPECT_DEATH(HVCCOrNote::withValue(5).down(1), "value >= octaves");
    EXPECT_DEATH(HVCCOrNote::withValue(0).up(22), "raised");
}

TEST(StepSequence, LayoutChangeDictionariesAndPositionObservers) {
    auto sequence = HVMIDISequence::create();
    ASSERT_EQ(sequence->steps.size(), 64u);
    EXPECT_EQ(sequence->steps[10]->startQN, 60u);
    std::vector<Dictionary> changes;
    sequence->sequenceChangeBlock = [&](HVMIDISequence&, const Dictionary& change) { changes.push_back(change); };

    sequence->setLength(8);
    EXPECT_EQ(sequence->steps.size(), 64u);
    sequence->setPlayTickLength(12);
    EXPECT_EQ(sequence->steps[7]->startQN, 84u);
    EXPECT_EQ(sequence->steps[7]->length, 12);
    EXPECT_EQ(sequence->steps[8]->startQN, 48u);  // beyond the length: untouched
    sequence->setNoteLength(24);
    sequence->steps[3]->setValue(99);
    sequence->setNoteValueToAllStepsWithNoteValue(61);
    ASSERT_EQ(changes.size(), 4u);
    EXPECT_EQ(changes[0], (Dictionary{{"Length", 8}}));
    EXPECT_EQ(changes[1], (Dictionary{{"Speed", 24}}));
    EXPECT_EQ(changes[2], (Dictionary{{"Steps", {{{"StepIndex", 3}, {"Change", {{"value", 99}}}}}}}));
    EXPECT_EQ(changes[3]["Steps"].size(), 64u);
    EXPECT_EQ(changes[3]["Steps"][63], (Dictionary{{"StepIndex", 63}, {"Change", {{"note", 61}}}}));
    EXPECT_EQ(sequence->steps[63]->ccNumberOrNote, (HVCCOrNote{61, 1}));

    // A step that has left the row is ignored.
    auto removed = sequence->steps.back();
    sequence->steps.pop_back();
    removed->setValue(1);
    EXPECT_EQ(changes.size(), 4u);

    sequence->setLength(100);
    EXPECT_DEATH(sequence->setPlayTickLength(6), "steps.size\\(\\) >= length_");

    // Position observers: a second registration keeps the first callback; a gone observer is
    // dropped at the next notification.
    auto display = std::make_shared<int>(0);
    auto other = std::make_shared<int>(0);
    std::vector<std::uint64_t> seen;
    sequence->registerForPositionChangeWithRegistrar(display, [&](HVMIDISequence&, std::uint64_t p) { seen.push_back(p); });
    sequence->registerForPositionChangeWithRegistrar(display, [&](HVMIDISequence&, std::uint64_t) { seen.push_back(999); });
    sequence->registerForChangesWithRegistrar(other, nullptr, nullptr);
    sequence->setPosition(5);
    EXPECT_EQ(seen, (std::vector<std::uint64_t>{5}));
    EXPECT_EQ(sequence->registeredObserverCount(), 2u);
    other.reset();
    sequence->setPosition(6);
    EXPECT_EQ(sequence->registeredObserverCount(), 1u);
    sequence->removeRegistrationForTempoChangesWithRegistrar(display);
    sequence->setPosition(7);
    EXPECT_EQ(seen, (std::vector<std::uint64_t>{5, 6}));
}

TEST(StepSequence, ReadingDefaultsAndLayoutOfAMissingRow) {
    auto empty = HVMIDISequence::initFromDictionary(Dictionary::object());
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->length(), 16u);
    EXPECT_EQ(empty->steps.size(), 16u);
    EXPECT_EQ(empty->color.hxValue(), "#B62F33");

    auto eight = HVMIDISequence::initFromDictionary({{"length", 8}, {"playTickLength", 12}, {"color", "f00"}});
    ASSERT_NE(eight, nullptr);
    ASSERT_EQ(eight->steps.size(), 8u);
    EXPECT_EQ(eight->steps[7]->startQN, 84u);
    EXPECT_EQ(eight->steps[7]->length, 12);
    EXPECT_EQ(eight->color.hxValue(), "#FF0000");

    // A stored identifier is never kept by a read; copying keeps it unless told otherwise.
    const std::string id = "0F4C2D8E-6B41-4C4A-9E44-1E0B9A1A7C55";
    auto read = HVMIDISequence::initFromDictionary({{"UUID", id}});
    EXPECT_NE(read->identifier, id);
    read->copyValuesFromDictionary({{"UUID", "0f4c2d8e-6b41-4c4a-9e44-1e0b9a1a7c55"}}, {});
    EXPECT_EQ(read->identifier, id);
    read->copyValuesFromDictionary({{"UUID", "not a uuid"}}, {});
    EXPECT_NE(read->identifier, id);

    // A step: "value" read twice, the channel always 1, the shape read but not written.
    auto step = HVStep::initFromDictionary({{"shape", 2}, {"ccNumberOrNote", 64}});
    EXPECT_EQ(step->value(), 0);
    EXPECT_EQ(step->shape, HVSequencerStepShape::shape2);
    EXPECT_EQ(step->ccNumberOrNote, (HVCCOrNote{64, 1}));
    EXPECT_EQ(step->length, 6);
    EXPECT_FALSE(step->dictionary().contains("shape"));
    EXPECT_EQ(HVStep::initFromDictionary(Dictionary::object())->ccNumberOrNote.value, 20);
    std::vector<Dictionary> told;
    step->changeBlock = [&](const HVStep&, const Dictionary& change) { told.push_back(change); };
    step->copyValuesFromDictionary({{"value", 50}}, {});
    EXPECT_EQ(told, (std::vector<Dictionary>{{{"value", 50}}, {{"value", 50}}}));
    step->copyValuesFromDictionary({{"shape", 7}}, {});
    EXPECT_EQ(step->shape, HVSequencerStepShape::shape0);
}

TEST(StepSequence, RoundTripAndRefusalsOfClientData) {
    auto sequence = HVMIDISequence::create();
    sequence->setLength(4);
    sequence->setPlayTickLength(24);
    sequence->steps.resize(4);
    sequence->steps[2]->setValue(100);
    sequence->steps[2]->ccNumberOrNote = HVCCOrNote{72, 9};
    sequence->color = HVColor::hx_colorWithHexString("#123456");
    const auto form = sequence->dictionary();
    EXPECT_EQ(form["UUID"], sequence->identifier);
    EXPECT_EQ(form["steps"][2], (Dictionary{{"length", 24}, {"ccNumberOrNote", 72}, {"value", 100}, {"startQN", 48}}));
    auto again = HVMIDISequence::initFromDictionary(form);
    ASSERT_NE(again, nullptr);
    auto withoutID = [](Dictionary d) {
        d.erase("UUID");
        return d;
    };
    EXPECT_EQ(withoutID(again->dictionary()), withoutID(form));

    ScopedLogCapture capture;
    // A row that would be laid out past 8 bits: 43 × 6 = 258.
    EXPECT_EQ(HVMIDISequence::initFromDictionary({{"length", 48}, {"steps", Dictionary::array({Dictionary::object()})}}),
              nullptr);
    // 256 steps of one tick would need an index of 256.
    EXPECT_EQ(HVMIDISequence::initFromDictionary({{"length", 257}, {"playTickLength", 0}}), nullptr);
    EXPECT_EQ(HVMIDISequence::initFromDictionary({{"length", 1e30}}), nullptr);
    EXPECT_EQ(HVMIDISequence::initFromDictionary({{"length", -1}}), nullptr);
    EXPECT_EQ(HVMIDISequence::initFromDictionary({{"playTickLength", 256}}), nullptr);
    EXPECT_EQ(HVMIDISequence::initFromDictionary({{"length", 1}, {"steps", {{{"value", 300}}}}}), nullptr);
    EXPECT_EQ(HVMIDISequence::initFromDictionary({{"length", 1}, {"steps", {{{"startQN", -5}}}}}), nullptr);
    EXPECT_EQ(HVMIDISequence::initFromDictionary(Dictionary::array()), nullptr);
    EXPECT_EQ(capture.count("[HVSequencing] step sequence refused"), 8u);
    EXPECT_EQ(capture.lines().size(), 8u);
    // The widest row that still lays out: 43 steps of 6 ticks, the last at 252.
    auto widest = HVMIDISequence::initFromDictionary({{"length", 43}});
    ASSERT_NE(widest, nullptr);
    EXPECT_EQ(widest->steps.back()->startQN, 252u);
    // A length-0 sequence reads; it is the player that leaves it out when it runs.
    EXPECT_NE(HVMIDISequence::initFromDictionary({{"length", 0}}), nullptr);
}

}  // namespace
}  // namespace havrel
