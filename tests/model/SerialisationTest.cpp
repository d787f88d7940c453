#include "model/HVArchive.hpp"
#include "model/HVCollectionUtilities.hpp"
#include "model/HVDictionaryReading.hpp"
#include "model/HVNoteNames.hpp"
#include "model/RNMIDIControllerSignal.hpp"
#include "platform/Log.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace havrel {
namespace {

TEST(Signals, TitlesNamesAndTheAttributeIdentifier) {
    EXPECT_EQ(titleForSignalType(0), "CC");
    EXPECT_EQ(titleForSignalType(3), "Pitch");
    EXPECT_FALSE(titleForSignalType(4).has_value());
    EXPECT_EQ(singalToString(2), "Program Change");
    EXPECT_EQ(singalToString(4), "");

    auto attribute = HVMIDIAttribute::create();
    EXPECT_EQ(attribute->uniqueIdentifier(), "Control Change-");
    attribute->signalType = 4;
    EXPECT_EQ(attribute->uniqueIdentifier(), "-");
    attribute->title = "kept in memory only";
    auto copy = HVMIDIAttribute::initFromDictionary(attribute->dictionary());
    EXPECT_EQ(copy->signalType, 4);
    EXPECT_TRUE(copy->title.empty());
}

TEST(Signals, ControllerNumberReadsIntoTheChannelAndUniqueIDIsNotSerialised) {
    auto signal = RNMIDIControllerSignal::RNMIDIControllerSignalWithChannel(3, 20, 100, "id-1");
    signal->attribute = HVMIDIAttribute::create();
    signal->attribute->signalType = HVSignalTypeNote;
    auto copy = RNMIDIControllerSignal::initFromDictionary(signal->dictionary());
    EXPECT_EQ(copy->channelNumber, 20u);
    EXPECT_EQ(copy->controllerNumber, 0u);
    EXPECT_EQ(copy->value, 100u);
    EXPECT_FALSE(copy->uniqueID.has_value());
    ASSERT_TRUE(copy->attribute);
    EXPECT_EQ(copy->attribute->signalType, HVSignalTypeNote);

    // 32-bit reading with sign extension; "type" kept to 8 bits; wrong kinds keep defaults.
    auto odd = RNMIDIControllerSignal::initFromDictionary(
        Dictionary{{"type", 259}, {"channelNumber", -1}, {"value", 0x100000005LL}, {"attribute", "not an object"}});
    EXPECT_EQ(odd->type, 3);
    EXPECT_EQ(odd->channelNumber, UINT64_MAX);
    EXPECT_EQ(odd->value, 5u);
    EXPECT_FALSE(odd->attribute);
    auto wrong = RNMIDIControllerSignal::initFromDictionary(Dictionary{{"value", Dictionary::array({1})}});
    EXPECT_EQ(wrong->value, 0u);
}

TEST(DictionaryReading, NumbersFromEveryKindWithoutThrowing) {
    Dictionary d{{"i", 7},       {"f", -2.9},          {"s", " 42abc"}, {"b", true},
                 {"n", nullptr}, {"a", {1, 2}},        {"big", 1e300},  {"ys", "Yes"},
                 {"zs", "0"},    {"u", 4294967301ULL}, {"str", "text"}};
    EXPECT_EQ(integerValue(d, "i"), 7);
    EXPECT_EQ(integerValue(d, "f"), -2);
    EXPECT_EQ(integerValue(d, "s"), 42);
    EXPECT_EQ(integerValue(d, "b"), 1);
    EXPECT_FALSE(integerValue(d, "n").has_value());
    EXPECT_FALSE(integerValue(d, "a").has_value());
    EXPECT_FALSE(integerValue(d, "missing").has_value());
    EXPECT_EQ(integerValue(d, "big"), INT64_MAX);
    EXPECT_EQ(intValue(d, "u"), 5);
    EXPECT_EQ(boolValue(d, "ys"), true);
    EXPECT_EQ(boolValue(d, "zs"), false);
    EXPECT_EQ(stringValue(d, "str"), "text");
    EXPECT_FALSE(stringValue(d, "i").has_value());
    EXPECT_EQ(objectValue(d, "a"), nullptr);
    EXPECT_NE(arrayValue(d, "a"), nullptr);
    EXPECT_FALSE(integerValue(Dictionary::array({1}), "i").has_value());
}

TEST(CollectionUtilities, ExclusionByPathReachesOneLevelDownAndTheRecursiveFormEveryLevel) {
    Dictionary d{{"a", {{"b", 1}, {"c", 2}}}, {"x", 5}};
    EXPECT_EQ(dictionaryWithExclodedValuesFromArray(d, {"a.b"}), (Dictionary{{"a", {{"c", 2}}}, {"x", 5}}));
    EXPECT_EQ(dictionaryWithExclodedValuesFromArray(Dictionary{{"a", 3}}, {"a.b"}), (Dictionary{{"a", 3}}));
    Dictionary deep{{"a", {{"b", {{"c", 1}, {"d", 2}}}, {"e", 3}}}};
    EXPECT_EQ(dictionaryWithExclodedValuesFromArray(deep, {"a.b.c"}), (Dictionary{{"a", {{"e", 3}}}}));
    EXPECT_EQ(dictionaryWithExclodedValuesFromArray(d, {"x"}), (Dictionary{{"a", {{"b", 1}, {"c", 2}}}}));
    EXPECT_EQ(dictionaryWithExclodedValuesFromDictionary(d, Dictionary{{"x", nullptr}}),
              (Dictionary{{"a", {{"b", 1}, {"c", 2}}}}));
    EXPECT_EQ(dictionaryWithExclodedValuesFromArray(d, {}), d);

    // The recursive form reaches through arrays and dictionaries at any depth.
    d = Dictionary{{"id", 1},
                 {"keep", 2},
                 {"wrappers", {{{"id", 3}, {"name", "a"}}, {{{"id", 4}}}, 7}},
                 {"inner", {{"id", 5}, {"more", {{"id", 6}, {"z", 0}}}}}};
    const Dictionary expected{{"keep", 2},
                        {"wrappers", {{{"name", "a"}}, {Dictionary::object()}, 7}},
                        {"inner", {{"more", {{"z", 0}}}}}};
    EXPECT_EQ(dictionaryFromJSONWithRecursivlyExclodingValuesFromArray(d, {"id"}), expected);
    EXPECT_EQ(dictionaryFromJSONWithRecursivlyExclodingValuesFromArray(d, {"absent"}), d);
}

TEST(CollectionUtilities, ArraysMapFilterMoveAndDiff) {
    Dictionary array{1, "two", Dictionary::binary({1, 2}), Dictionary::array({Dictionary::binary({3})}), nullptr};
    // Only the top level is tested for JSON kinds.
    EXPECT_EQ(filterOutNonJSON(array), (Dictionary{1, "two", Dictionary::array({Dictionary::binary({3})}), nullptr}));
    EXPECT_EQ(filterOutNonJSON(Dictionary{{"a", Dictionary::binary({})}, {"b", 1}}), (Dictionary{{"b", 1}}));

    auto evensDoubled = filteredArrayFromArray(Dictionary{1, 2, 3, 4, 5, 6}, [](const Dictionary& e, std::size_t i, bool& stop) {
        stop = i == 3;
        return e.get<int>() % 2 == 0 ? std::optional<Dictionary>(e.get<int>() * 2) : std::nullopt;
    });
    EXPECT_EQ(evensDoubled, (Dictionary{4, 8}));
    EXPECT_EQ(filteredArrayWithObjectsOfClass(Dictionary{1, "a", 2.5, true}, Dictionary::value_t::number_integer),
              (Dictionary{1, 2.5}));
    EXPECT_EQ(flattenedArray(Dictionary{{1, 2}, {3}, 4}), (Dictionary{1, 2, 3}));
    EXPECT_EQ(arrayByRemovingObject(Dictionary{1, 2, 1, 3}, 1), (Dictionary{2, 3}));
    EXPECT_TRUE(arrayContainsString(Dictionary{1, "x"}, "x"));
    EXPECT_FALSE(arrayContainsString(Dictionary{1, "y"}, "x"));

    std::vector<char> letters{'A', 'B', 'C', 'D'};
    replaceObjectAtIndex(letters, 0, 2);
    EXPECT_EQ(letters, (std::vector<char>{'B', 'A', 'C', 'D'}));
    letters = {'A', 'B', 'C', 'D'};
    replaceObjectAtIndex(letters, 3, 1);
    EXPECT_EQ(letters, (std::vector<char>{'A', 'D', 'B', 'C'}));
    Dictionary json{"A", "B", "C", "D"};
    replaceObjectAtIndex(json, 9, 1);
    EXPECT_EQ(json, (Dictionary{"A", "B", "C", "D"}));

    auto shuffled = randomOrderedArray(std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}, std::mt19937(7));
    std::vector<int> sorted = shuffled;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}));

    EXPECT_EQ(diff(Dictionary{{"k", 1}}, Dictionary{{"k", 2}}), (Dictionary{{"k", {1, 2}}}));
    EXPECT_EQ(diff(Dictionary{{"a", 1}, {"same", {1}}}, Dictionary{{"b", 2}, {"same", {1}}}),
              (Dictionary{{"a", {1, nullptr}}, {"b", {nullptr, 2}}}));
}

TEST(CollectionUtilities, RectAndSizeForms) {
    HVRect rect{{1.5, -2}, {30, 40}};
    Dictionary d = dictionaryFromRect(rect);
    EXPECT_EQ(d["origin"]["x"], 1.5);
    EXPECT_EQ(d["size"]["height"], 40.0);
    EXPECT_EQ(rectFromDictionary(d), rect);
    EXPECT_EQ(sizeFromDictionary(dictionaryFromSize({3, 4})), (HVSize{3, 4}));
    EXPECT_EQ(rectFromDictionary(Dictionary{{"origin", "bad"}}), HVRect{});
}

TEST(Archive, RestoresTheObjectGraphAndLogsFailures) {
    // Channel and controller equal, so that the signal's own reading quirk does not show.
    auto signal = RNMIDIControllerSignal::RNMIDIControllerSignalWithChannel(5, 5, 90);
    signal->attribute = HVMIDIAttribute::create();
    signal->attribute->signalType = HVSignalTypePitch;
    auto data = HVArchiveObject(signal);
    ASSERT_TRUE(data.has_value());
    auto restored = std::dynamic_pointer_cast<RNMIDIControllerSignal>(HVUnarchiveObject(data));
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->channelNumber, 5u);
    EXPECT_EQ(restored->value, 90u);
    ASSERT_TRUE(restored->attribute);
    EXPECT_EQ(restored->attribute->signalType, HVSignalTypePitch);

    EXPECT_FALSE(HVArchiveObject(nullptr).has_value());
    EXPECT_EQ(HVUnarchiveObject(std::nullopt), nullptr);

    ScopedLogCapture capture;
    EXPECT_EQ(HVUnarchiveObject(Bytes{1, 2, 3}), nullptr);
    EXPECT_EQ(capture.count("[HVKeyedArchiving] could not read archive: "), 1u);

    struct Unarchivable final : HVSerializeable {
        Dictionary dictionary() const override { return Dictionary{{"x", nullptr}}; }
        std::string className() const override { return "Unarchivable"; }
    };
    EXPECT_FALSE(HVArchiveObject(std::make_shared<Unarchivable>()).has_value());
    EXPECT_EQ(capture.count("[HVKeyedArchiving] could not archive Unarchivable: "), 1u);
}

TEST(NoteNames, OctavesStartTwoBelowZero) {
    EXPECT_EQ(noteStringFromNoteValue(60), "C 3");
    EXPECT_EQ(noteStringFromNoteValue(0), "C -2");
    EXPECT_EQ(noteStringFromNoteValue(127), "G 8");
    EXPECT_EQ(noteStringFromNoteValue(61), "C# 3");
}

}  // namespace
}  // namespace havrel
