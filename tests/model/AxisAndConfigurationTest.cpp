#include "model/HVArchive.hpp"
#include "model/HVDataHelpers.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/Log.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

HVMidiAxisDataWrapperPtr faderWrapper(std::uint64_t numericID, std::uint64_t controller = 7) {
    auto wrapper = HVMidiAxisDataWrapper::midiAxisWrapperWithAxisArray({HVMidiAxisData::axisDataWithCC(controller)});
    wrapper->numericID = numericID;
    return wrapper;
}

std::shared_ptr<HVEncodedConfiguration> fromText(const std::string& text) {
    return HVEncodedConfiguration::initWithData(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::vector<std::uint64_t> numbers(const HVEncodedConfiguration& configuration) {
    std::vector<std::uint64_t> result;
    for (const auto& wrapper : configuration.dataWrappers) {
        result.push_back(wrapper->numericID);
    }
    return result;
}

TEST(AxisData, PolicyQueriesAndHistory) {
    auto axis = HVMidiAxisData::axisDataWithCC(7);
    auto container = axis->rangeContainers.front();
    EXPECT_EQ(container->axisUUIDs, std::vector<std::string>{axis->uuid});
    EXPECT_EQ(container->channel, 1u);
    // No history: everything counts whatever the policy.
    EXPECT_EQ(axis->rangeContainersThatShouldBeBroadcastedForPolicy(99).size(), 1u);

    axis->setCurrentRangePosition(0.5, false);
    axis->syncPreviousRangePositionWithCurrentRangePosition();
    EXPECT_TRUE(axis->rangeContainersThatShouldBeBroadcastedForPolicy(HVBroadcastPolicyOnValueChange).empty());
    EXPECT_EQ(axis->rangeContainersThatShouldBeBroadcastedForPolicy(HVBroadcastPolicyInsideRange).size(), 1u);
    EXPECT_EQ(axis->rangeContainersThatShouldBeBroadcastedForPolicy(HVBroadcastPolicyAlways).size(), 1u);
    EXPECT_TRUE(axis->rangeContainersThatShouldBeBroadcastedForPolicy(7).empty());
    axis->setCurrentRangePosition(0.6, false);
    EXPECT_EQ(axis->rangeContainersThatShouldBeBroadcastedForPolicy(HVBroadcastPolicyOnValueChange).size(), 1u);

    // Not broadcast but marked as broadcast: the stop's value, or 0 off any stop.
    axis->setCurrentRangePosition(1.0, false, true);
    EXPECT_EQ(container->lastValueBroadcasted, 127u);
    axis->setCurrentRangePosition(0.3, false, true);
    EXPECT_EQ(container->lastValueBroadcasted, 0u);

    // From a dictionary the history is what the dictionary says, 0.0 by default.
    auto read = HVMidiAxisData::axisDataFromDictionary(Dictionary{{"rangeContainers", Dictionary::array()}});
    EXPECT_EQ(read->previousRangePosition, 0.0);
    EXPECT_FALSE(read->uuid.empty());

    // Selection by signal: the controller list leaves CC out.
    auto note = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 60, true);
    auto pitch = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 0, false);
    pitch->signalType = HVSignalTypePitch;
    axis->addRangeContainer(note);
    axis->addRangeContainer(pitch);
    EXPECT_EQ(axis->noteMIDIRanges(), std::vector<HVMidiRangeContainerPtr>{note});
    EXPECT_EQ(axis->controllerMIDIRanges(), (std::vector<HVMidiRangeContainerPtr>{note, pitch}));
    axis->removeRangeContainerAtIndex(1);
    EXPECT_TRUE(note->axisUUIDs.empty());
}

TEST(AxisDataWrapper, ObserversMultiAxialAndDictionaryForm) {
    auto wrapper = HVMidiAxisDataWrapper::midiAxisWithNumberOfAxes(2);
    EXPECT_EQ(wrapper->midiAxisForIndex(5), nullptr);
    EXPECT_EQ(wrapper->midiAxis()[0]->wrapper.lock(), wrapper);

    auto owner = std::make_shared<int>(1);
    int calls = 0;
    wrapper->registerForRangePositionChange(owner, [&](const auto&, const auto&, double position) {
        ++calls;
        EXPECT_EQ(position, 0.4);
    });
    wrapper->setCurrentRangePosition(0.4, 0, false);
    EXPECT_EQ(calls, 1);
    owner.reset();
    wrapper->setCurrentRangePosition(0.4, 0, false);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(wrapper->observers.empty());

    // An axis index out of range still updates the multi-axial containers.
    auto pad = HVMidiRangeContainer::create();
    pad->containerType = HVContainerTypeRadial;
    pad->values = {HVMidiRangeValue::valueWithRangePosition(0, 0), HVMidiRangeValue::valueWithRangePosition(1, 127)};
    wrapper->addMultiAxialRangeContainer(pad, {wrapper->midiAxis()[1], wrapper->midiAxis()[0]});
    wrapper->setCurrentRangePosition(0.9, 7, false);
    EXPECT_EQ(pad->currentRangePosition(), (std::vector<double>{0.0, 0.4}));

    wrapper->broadcastPolicy = HVBroadcastPolicyAlways;
    // A fresh pad appears twice: once for the missing history, once for the policy.
    EXPECT_EQ(wrapper->multiAxialRangeContainersThatShouldBeBroadcasted().size(), 2u);
    EXPECT_EQ(wrapper->allMIDIRanges().size(), 1u);

    Dictionary form = wrapper->dictionary();
    EXPECT_FALSE(form.contains("numericID"));
    auto copy = HVMidiAxisDataWrapper::initFromDictionary(form);
    EXPECT_EQ(copy->uuid(), wrapper->uuid());
    EXPECT_TRUE(copy->isEqualToDataWrapper(*wrapper));
    EXPECT_EQ(copy->midiAxis()[1]->wrapper.lock(), copy);
    auto renamed = copy->copyWithNewUUID(true);
    EXPECT_NE(renamed->uuid(), wrapper->uuid());

    wrapper->removeMultiAxialRangeContainerAtIndex(pad);
    EXPECT_TRUE(wrapper->multiAxialRangeContainers.empty());
    EXPECT_TRUE(pad->axisUUIDs.empty());

    std::vector<HVMidiAxisDataWrapperPtr> list{faderWrapper(9), faderWrapper(3), faderWrapper(5)};
    sortDataWrappersByNumericID(list);
    EXPECT_EQ(list[0]->numericID, 3u);
    EXPECT_EQ(list[2]->numericID, 9u);
}

TEST(EncodedConfiguration, ReadsTolerantlyAndRoundTripsThroughGzip) {
    auto empty = HVEncodedConfiguration::initFromDictionary(Dictionary::object());
    EXPECT_TRUE(empty->dataWrappers.empty());
    EXPECT_EQ(empty->dictionary(), (Dictionary{{"dataWrappers", Dictionary::array()}}));
    EXPECT_TRUE(fromText("not json {")->dataWrappers.empty());
    // Wrong kinds under known keys are defaulted, never fatal.
    auto odd = HVEncodedConfiguration::initFromDictionary(
        Dictionary{{"dataWrappers", {1, "x", Dictionary{{"axisDataArray", "nope"}, {"numericID", "12"}},
                                     Dictionary{{"axisDataArray", {{{"rangeContainers", {{{"values", {{{"value", "a"}}}}}}}}}}}}}});
    ASSERT_EQ(odd->dataWrappers.size(), 2u);
    EXPECT_EQ(odd->dataWrappers[0]->numericID, 12u);
    EXPECT_EQ(odd->dataWrappers[1]->midiAxis()[0]->rangeContainers[0]->values[0]->value, 0u);
    // A document nested too deep is refused with one line.
    ScopedLogCapture capture;
    EXPECT_TRUE(fromText(std::string(100000, '['))->dataWrappers.empty());
    EXPECT_EQ(capture.count("HVEncodedConfiguration: JSON nested deeper than"), 1u);
    // Brackets inside strings do not count.
    EXPECT_EQ(fromText("{\"dataWrappers\":[{\"UUID\":\"" + std::string(1000, '[') + "\"}]}")->dataWrappers.size(), 1u);

    auto configuration = HVEncodedConfiguration::create();
    configuration->dataWrappers = {faderWrapper(1), faderWrapper(2, 8)};
    auto zipped = configuration->zippedData();
    ASSERT_TRUE(zipped.has_value());
    auto text = gzipInflate(*zipped);
    ASSERT_TRUE(text.has_value());
    auto back = HVEncodedConfiguration::initWithData(*text);
    EXPECT_EQ(back->dictionary(), configuration->dictionary());
    EXPECT_EQ(back->dataWrapperWithNumericID(2)->midiAxis()[0]->rangeContainers[0]->controllerNumber, 8u);
    EXPECT_EQ(back->indexOfDataWrapperWithNumericID(77), HVEncodedConfiguration::kNoIndex);
}

TEST(EncodedConfiguration, ChangeCommandsOfEveryType) {
    auto configuration = HVEncodedConfiguration::create();
    for (std::uint64_t n = 1; n <= 5; ++n) {
        configuration->dataWrappers.push_back(faderWrapper(n));
    }
    auto command = RNDataPackagerChangeCommandDataWrapper::create();
    ScopedLogCapture capture;

    // Update keeps the object in place and rebuilds its containers.
    auto existing = configuration->dataWrappers[2];
    auto oldContainer = existing->midiAxis()[0]->rangeContainers[0];
    oldContainer->lastValueBroadcasted = 5;
    command->changeType = HVChangeTypeUpdate;
    command->changedDataWrappers = {faderWrapper(3, 42), faderWrapper(7)};
    configuration->processChangeCommand(*RNDataPackagerChangeCommandDataWrapper::initFromDictionary(command->dictionary()));
    EXPECT_EQ(configuration->dataWrappers[2], existing);
    EXPECT_EQ(existing->midiAxis()[0]->rangeContainers[0]->controllerNumber, 42u);
    EXPECT_EQ(existing->midiAxis()[0]->rangeContainers[0]->lastValueBroadcasted, HVLastValueNeverBroadcasted);
    EXPECT_EQ(capture.count("change for unknown data wrapper #7 \u2014 dropped (configuration out of sync)"), 1u);

    // Delete of an absent number goes on with the rest.
    command->changeType = HVChangeTypeDelete;
    command->changedDataWrappers = {faderWrapper(9), faderWrapper(2)};
    configuration->processChangeCommand(*command);
    EXPECT_EQ(numbers(*configuration), (std::vector<std::uint64_t>{1, 3, 4, 5}));
    EXPECT_EQ(capture.count("delete for unknown data wrapper #9 \u2014 already absent, skipping"), 1u);

    // Add sorts, and a duplicate number simply joins.
    command->changeType = HVChangeTypeAdd;
    command->changedDataWrappers = {faderWrapper(9), faderWrapper(3), faderWrapper(0)};
    configuration->processChangeCommand(*command);
    EXPECT_EQ(numbers(*configuration), (std::vector<std::uint64_t>{0, 1, 3, 3, 4, 5, 9}));

    // Unknown type: nothing, silently. Writing a wrapper without a number warns.
    capture.clear();
    command->changeType = 3;
    configuration->processChangeCommand(*command);
    EXPECT_EQ(configuration->dataWrappers.size(), 7u);
    EXPECT_TRUE(capture.lines().empty());
    Dictionary form = command->dictionary();
    EXPECT_EQ(capture.count("this shouldnt be!"), 1u);
    EXPECT_EQ(form["CommandType"], "ComponentChangeCommand");
    EXPECT_EQ(form["changedDataWrapper"].size(), 3u);
}

TEST(ChangeCommandGeneral, DictionaryAndArchiveForms) {
    auto command = RNDataPackagerChangeCommandGeneral::create();
    command->changeType = 2;
    command->dataString = "scene 4";
    EXPECT_EQ(command->dictionary(),
              (Dictionary{{"CommandType", "GeneralChangeCommand"}, {"ChangeType", 2}, {"ChangeData", "scene 4"}}));
    auto read = RNDataPackagerChangeCommandGeneral::initFromDictionary(Dictionary::object());
    EXPECT_EQ(read->changeType, 0);
    EXPECT_FALSE(read->dataString.has_value());

    RNDataPackagerChangeCommandGeneral::registerForArchiving();
    auto archive = HVArchiveObject(command);
    ASSERT_TRUE(archive.has_value());
    auto restored = std::dynamic_pointer_cast<RNDataPackagerChangeCommandGeneral>(HVUnarchiveObject(archive));
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->changeType, 2);
    EXPECT_EQ(restored->dataString, "scene 4");
}

}  // namespace
}  // namespace havrel
