#include "model/HVMidiRangeContainer.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/NotificationCenter.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

HVMidiRangeContainerPtr fader(std::uint64_t low = 0, std::uint64_t high = 127) {
    return HVMidiRangeContainer::containerWithChannel(
        1, 7, false, {HVMidiRangeValue::valueWithRangePosition(0.0, low), HVMidiRangeValue::valueWithRangePosition(1.0, high)});
}

std::uint64_t valueAt(const HVMidiRangeContainer& container, double position) {
    auto value = container.midiValueFromRange({position});
    EXPECT_TRUE(value.has_value()) << "at " << position;
    return HVMidiIntegerValue(value);
}

TEST(RangeContainer, InterpolatesWithHalvesAwayFromZero) {
    auto container = fader();
    EXPECT_EQ(valueAt(*container, 0.5), 64u);
    EXPECT_EQ(valueAt(*container, 0.25), 32u);
    EXPECT_EQ(valueAt(*container, 0.0), 0u);
    EXPECT_EQ(valueAt(*container, 1.0), 127u);
    // What a client sends for 0.5 arrives as 255/511.
    EXPECT_EQ(valueAt(*container, 255.0 / 511.0), 63u);

    container->transitionBetweenValues = false;
    EXPECT_EQ(valueAt(*container, 0.0), 0u);
    EXPECT_EQ(valueAt(*container, 0.999), 0u);
    EXPECT_EQ(valueAt(*container, 1.0), 127u);

    // Downward mapping runs without a special case.
    auto inverted = fader(127, 0);
    EXPECT_EQ(valueAt(*inverted, 0.25), 95u);  // 95.25
    EXPECT_FALSE(HVMidiRangeContainer::create()->midiValueFromRange({}).has_value());
}

TEST(RangeContainer, EndStopsHoldAndDisabledStopsAreGaps) {
    auto container = HVMidiRangeContainer::containerWithChannel(
        1, 1, false, {HVMidiRangeValue::valueWithRangePosition(0.2, 10), HVMidiRangeValue::valueWithRangePosition(0.8, 90)});
    EXPECT_EQ(valueAt(*container, 0.1), 10u);
    EXPECT_EQ(valueAt(*container, 0.9), 90u);

    auto gap = HVMidiRangeContainer::containerWithChannel(
        1, 1, false,
        {HVMidiRangeValue::valueWithRangePosition(0.0, 0), HVMidiRangeValue::valueWithRangePosition(0.5, 64),
         HVMidiRangeValue::valueWithRangePosition(1.0, 127)});
    gap->values[1]->isEnabled = false;
    EXPECT_FALSE(gap->midiValueFromRange({0.5}).has_value());
    EXPECT_EQ(HVMidiIntegerValue(gap->midiValueFromRange({0.5})), 0u);
    // The enabled neighbour alone decides across the gap.
    EXPECT_EQ(valueAt(*gap, 0.3), 0u);
    EXPECT_EQ(valueAt(*gap, 0.7), 127u);
    gap->values[0]->isEnabled = false;
    EXPECT_FALSE(gap->midiValueFromRange({0.3}).has_value());

    // Equal positions: the first in list order wins.
    auto twins = HVMidiRangeContainer::containerWithChannel(
        1, 1, false, {HVMidiRangeValue::valueWithRangePosition(0.5, 1), HVMidiRangeValue::valueWithRangePosition(0.5, 2)});
    EXPECT_EQ(valueAt(*twins, 0.5), 1u);
    EXPECT_EQ(twins->bottomValueFromRange(0.9), twins->values[0]);

    auto empty = HVMidiRangeContainer::create();
    EXPECT_EQ(empty->topValue(), nullptr);
    EXPECT_EQ(empty->bottomValue(), nullptr);
}

TEST(RangeContainer, AlignedRangeWithinThePairOfStops) {
    auto container = HVMidiRangeContainer::containerWithChannel(
        1, 1, false,
        {HVMidiRangeValue::valueWithRangePosition(0.0, 0), HVMidiRangeValue::valueWithRangePosition(0.5, 64),
         HVMidiRangeValue::valueWithRangePosition(1.0, 127)});
    EXPECT_DOUBLE_EQ(container->alignedRangeFromRange(0.25), 0.5);
    EXPECT_DOUBLE_EQ(container->alignedRangeFromRange(0.5), 0.0);  // exact stop with one above
    EXPECT_DOUBLE_EQ(container->alignedRangeFromRange(1.0), 1.0);  // exact stop at the top
    EXPECT_TRUE(container->hasValueForRange(5.0));
}

TEST(RangeContainer, RadialPadCentreRimAndOutside) {
    auto pad = HVMidiRangeContainer::create();
    pad->containerType = HVContainerTypeRadial;
    auto outer = HVMidiRangeValue::valueWithRangePosition(0.0, 0);
    outer->setLength(0.5);
    auto centre = HVMidiRangeValue::valueWithRangePosition(1.0, 127);
    centre->setRadialX(0.5);
    centre->setRadialY(0.5);
    pad->values = {outer, centre};

    EXPECT_EQ(*pad->midiValueFromRange({0.5, 0.5}), 127.0);
    EXPECT_EQ(*pad->midiValueFromRange({1.0, 0.5}), 0.0);   // on the rim
    EXPECT_EQ(*pad->midiValueFromRange({0.75, 0.5}), 64.0);  // half way: 63.5 rounds up
    EXPECT_EQ(*pad->midiValueFromRange({1.0, 1.0}), 0.0);   // outside holds the outer value
    EXPECT_TRUE(pad->shouldBroadcastForMultiAxialValues({0.5, 0.5}));
    pad->lastValueBroadcasted = 50;
    EXPECT_TRUE(pad->shouldBroadcastForMultiAxialValues({1.0, 1.0}));
    pad->lastValueBroadcasted = 0;
    EXPECT_FALSE(pad->shouldBroadcastForMultiAxialValues({1.0, 1.0}));

    pad->transitionBetweenValues = false;
    EXPECT_EQ(*pad->midiValueFromRange({0.75, 0.5}), 127.0);

    // The stored y is measured from the opposite edge.
    centre->setRadialY(0.25);
    pad->transitionBetweenValues = true;
    EXPECT_EQ(*pad->midiValueFromRange({0.5, 0.75}), 127.0);

    // No radius: every point off the centre gives a negative ratio, so the outer value.
    outer->additionalData.reset();
    EXPECT_EQ(*pad->midiValueFromRange({0.6, 0.75}), 0.0);

    ScopedLogCapture capture;
    pad->values = {outer};
    EXPECT_EQ(*pad->midiValueFromRange({0.5, 0.5}), -1.0);
    EXPECT_EQ(capture.count("error must have two values"), 1u);

    // A linear container asked with two coordinates fails with -1.0, not with no value.
    auto linear = fader();
    EXPECT_EQ(linear->midiValueFromRange({0.5, 0.5}), std::optional<double>(-1.0));
    EXPECT_EQ(HVMidiIntegerValue(-1.0), UINT64_MAX);
}

TEST(RangeContainer, RimBoundaryUsesSinglePrecisionDistance) {
    // The radius is a float value; a point a hair beyond it in double precision narrows onto it,
    // so it counts as on the rim (inside), not outside.
    const double radius = static_cast<double>(0.1f);
    const double x = radius + 1e-12;
    auto pad = HVMidiRangeContainer::create();
    pad->containerType = HVContainerTypeRadial;
    auto outer = HVMidiRangeValue::valueWithRangePosition(0.0, 10);
    outer->setLength(radius);
    auto centre = HVMidiRangeValue::valueWithRangePosition(1.0, 20);
    centre->setRadialX(0.0);
    centre->setRadialY(1.0);
    pad->values = {outer, centre};
    ASSERT_GT(x / radius, 1.0);
    EXPECT_EQ(pad->radialDistanceRatio({x, 0.0}), std::optional<double>(1.0));
    // Outside with the outer value already sent would say false; on the rim it says true.
    pad->lastValueBroadcasted = 10;
    EXPECT_TRUE(pad->shouldBroadcastForMultiAxialValues({x, 0.0}));
    EXPECT_FALSE(pad->shouldBroadcastForMultiAxialValues({radius * 1.5, 0.0}));
    EXPECT_EQ(rnDistanceBetweenPoints(0.0, 0.0, 3.0, 4.0), 5.0);
}

TEST(RangeContainer, DictionaryFormsCopiesAndTheNestingBound) {
    auto legacy = HVMidiRangeContainer::initFromDictionary(
        Dictionary{{"isNote", true}, {"signalType", 3}, {"containerType", "Foo"}, {"channel", "5"}});
    EXPECT_EQ(legacy->signalType, HVSignalTypeNote);
    EXPECT_EQ(legacy->containerType, HVContainerTypeLinear);
    EXPECT_EQ(legacy->channel, 5u);
    EXPECT_FALSE(legacy->additionalData.has_value());
    EXPECT_TRUE(legacy->transitionBetweenValues);

    auto container = fader();
    container->title = "Volume";
    container->additionalData = Dictionary{{"keep", 1}, {"drop", Dictionary::binary({1})}};
    container->onStartTrigger = fader();
    container->lastValueBroadcasted = 64;
    container->setCurrentRangePosition({0.5}, false, nullptr);
    Dictionary form = container->dictionary();
    EXPECT_EQ(form["containerType"], "Linear");
    EXPECT_EQ(form["additionalData"], (Dictionary{{"keep", 1}}));
    EXPECT_FALSE(form.contains("isNote"));

    auto copy = container->copy();
    EXPECT_EQ(copy->uuid, container->uuid);
    EXPECT_EQ(copy->lastValueBroadcasted, HVLastValueNeverBroadcasted);
    EXPECT_TRUE(copy->currentRangePosition().empty());
    EXPECT_EQ(copy->title, "Volume");
    ASSERT_TRUE(copy->onStartTrigger);
    EXPECT_EQ(copy->onStartTrigger->values.size(), 2u);
    EXPECT_EQ(copy->dictionary(), form);
    // Equality compares stops by identity.
    EXPECT_FALSE(copy->isEqualRange(*container));
    EXPECT_TRUE(container->isEqualRange(*container));

    auto value = HVMidiRangeValue::valueFromDictionary(Dictionary{{"value", 3}});
    EXPECT_EQ(value->length(), -1.0);
    EXPECT_TRUE(value->isEnabled);
    EXPECT_EQ(value->radialX(), -1.0);
    EXPECT_EQ(value->dictionary()["multiRangePosition"], (Dictionary{-1.0, -1.0}));

    // Triggers nested too deep are cut, with a line.
    Dictionary nested = Dictionary::object();
    for (int i = 0; i < 100; ++i) {
        nested = Dictionary{{"onStartTrigger", nested}};
    }
    ScopedLogCapture capture;
    int depth = 0;
    for (auto c = HVMidiRangeContainer::initFromDictionary(nested); c->onStartTrigger; c = c->onStartTrigger) {
        ++depth;
    }
    EXPECT_LT(depth, 100);
    EXPECT_EQ(capture.count("nested deeper"), 1u);
}

TEST(RangeContainer, TextForms) {
    auto note = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 60, true);
    EXPECT_EQ(note->stringRepresentationOfControllerNumber(true), "C 3");
    note->setCurrentRangePosition({1.0}, false, nullptr);
    EXPECT_EQ(note->stringRepresentationOfCurrentValue(), "C 3: 127");
    auto program = fader();
    program->signalType = HVSignalTypePC;
    program->controllerNumber = 9;
    program->setCurrentRangePosition({1.0}, false, nullptr);
    EXPECT_EQ(program->stringRepresentationOfCurrentValue(), "9");
    EXPECT_EQ(program->stringRepresentationOfControllerNumber(true), "PC:9");
    EXPECT_EQ(program->stringRepresentationOfControllerNumber(false), "9");
    EXPECT_EQ(HVMidiRangeContainer::containerTypeToString(7), "Linear");
}

TEST(RangeContainer, AcceptedPositionsArePostedToTheMainQueueLater) {
    ManualClockScope scope;
    std::vector<Notification> received;
    int observer = 0;
    NotificationCenter::defaultCenter().addObserver(&observer, NotificationRangeContainerDidChangeValue, nullptr,
                                                    [&](const Notification& n) { received.push_back(n); });
    auto container = fader();
    container->setCurrentRangePosition({0.25}, true, nullptr);
    container->setCurrentRangePosition({0.75}, true, nullptr, true);
    container->setCurrentRangePosition({0.9}, false, nullptr);
    container->broadcastTransitionTargetWithDataWrapper(nullptr);
    EXPECT_TRUE(received.empty());
    scope.advance(std::chrono::milliseconds(0));
    NotificationCenter::defaultCenter().removeObserver(&observer);

    ASSERT_EQ(received.size(), 3u);
    const auto* first = received[0].objectAs<HVRangeContainerChange>();
    const auto* second = received[1].objectAs<HVRangeContainerChange>();
    const auto* target = received[2].objectAs<HVRangeContainerChange>();
    ASSERT_TRUE(first && second && target);
    EXPECT_EQ(first->rangeContainer, container);
    EXPECT_EQ(first->newValue, std::vector<double>{0.25});
    EXPECT_TRUE(first->oldValue.empty());
    EXPECT_FALSE(first->transitionStep);
    EXPECT_EQ(second->oldValue, std::vector<double>{0.25});
    EXPECT_TRUE(second->transitionStep);
    EXPECT_TRUE(target->transitionTarget);
    EXPECT_EQ(received[0].sender, nullptr);
    EXPECT_EQ(container->currentRangePosition(), std::vector<double>{0.9});
}

// A point of three or more values lives on the heap; going back to one or two must read the
// inline values again, and copies and comparisons must see the values, not the storage.
TEST(RangePoint, SwitchesBetweenInlineAndHeapValuesAndComparesByValue) {
    HVRangePoint point{0.1, 0.2, 0.3};
    EXPECT_EQ(point.toVector(), (std::vector<double>{0.1, 0.2, 0.3}));
    HVRangePoint copy = point;
    EXPECT_EQ(copy, point);
    EXPECT_NE(copy.data(), point.data());
    point.assign(std::vector<double>{0.7});
    EXPECT_EQ(point.size(), 1u);
    EXPECT_EQ(point.front(), 0.7);
    EXPECT_EQ(point, HVRangePoint{0.7});
    EXPECT_NE(point, HVRangePoint({0.7, 0.0}));
    EXPECT_EQ(copy[2], 0.3);
    point = std::move(copy);
    EXPECT_EQ(point, (HVRangePoint{0.1, 0.2, 0.3}));
    EXPECT_TRUE(HVRangePoint{}.empty());
}

}  // namespace
}  // namespace havrel
