#include "havrel-client-sim/HVSimError.hpp"
#include "havrel-client-sim/HVSimSurface.hpp"
#include "model/HVDataHelpers.hpp"

#include <gtest/gtest.h>

#include <string>

namespace havrel {
namespace {

Bytes bytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

// The only container of a wrapper's axis.
HVMidiRangeContainerPtr containerOf(const HVEncodedConfiguration& configuration, std::uint64_t id,
                                    std::size_t axis = 0) {
    auto wrapper = configuration.dataWrapperWithNumericID(id);
    EXPECT_NE(wrapper, nullptr) << id;
    if (!wrapper || !wrapper->midiAxisForIndex(axis) || wrapper->midiAxisForIndex(axis)->rangeContainers.size() != 1) {
        ADD_FAILURE() << "wrapper " << id << " axis " << axis << " has not exactly one container";
        return HVMidiRangeContainer::create();
    }
    return wrapper->midiAxisForIndex(axis)->rangeContainers.front();
}

TEST(SimSurface, BuiltInDocumentArrivesWithEveryControlAtItsNumber) {
    auto surface = HVSimSurface::builtIn();
    auto inflated = gzipInflate(surface.syncPayload());
    ASSERT_TRUE(inflated.has_value());
    auto received = HVEncodedConfiguration::initWithData(*inflated);
    EXPECT_EQ(received->dictionary(), surface.configuration()->dictionary());
    ASSERT_EQ(received->dataWrappers.size(), 6u);

    // What each control plays is checked where the programs run; here the controls of two axes.
    EXPECT_EQ(containerOf(*received, kHVSimXYID, 1)->controllerNumber, 2u);

    auto radialWrapper = received->dataWrapperWithNumericID(kHVSimRadialID);
    ASSERT_NE(radialWrapper, nullptr);
    EXPECT_EQ(radialWrapper->numberOfAxes(), 2u);
    ASSERT_EQ(radialWrapper->multiAxialRangeContainers.size(), 1u);
    auto radial = radialWrapper->multiAxialRangeContainers.front();
    EXPECT_EQ(radial->containerType, HVContainerTypeRadial);
    EXPECT_EQ(radial->controllerNumber, 74u);
    EXPECT_EQ(radialWrapper->axisWithUUIDStrings(radial->axisUUIDs), radialWrapper->midiAxis());
    // Full at the centre of the field, nothing on the rim and beyond.
    EXPECT_EQ(radial->midiValueFromRange({0.5, 0.5}), 127.0);
    EXPECT_EQ(radial->midiValueFromRange({1.0, 0.5}), 0.0);
    EXPECT_EQ(radial->midiValueFromRange({0.0, 0.0}), 0.0);
    EXPECT_EQ(radial->midiValueFromRange({0.75, 0.5}), 64.0);

    for (const auto& control : surface.controls()) {
        auto wrapper = received->dataWrapperWithNumericID(control.numericID);
        ASSERT_NE(wrapper, nullptr) << control.name;
        EXPECT_EQ(wrapper->numberOfAxes(), control.axes) << control.name;
        EXPECT_EQ(surface.controlNamed(control.name), control);
        EXPECT_EQ(surface.controlNamed(std::to_string(control.numericID)), control);
    }
}

TEST(SimSurface, DocumentIsReadCompressedOrNotAndTravelsAsItsOwnText) {
    const std::string text = R"({"dataWrappers": [{"numericID": 40, "axisDataArray": [{"rangeContainers": []}]}],
                                 "extra": "kept"})";
    auto plain = HVSimSurface::fromDocument(bytesOf(text));
    auto zipped = HVSimSurface::fromDocument(*gzipDeflate(bytesOf(text)));
    for (const auto* surface : {&plain, &zipped}) {
        EXPECT_FALSE(surface->isBuiltIn());
        EXPECT_EQ(surface->controlNamed("40"), (HVSimControl{"", 40, 1}));
        EXPECT_EQ(gzipInflate(surface->syncPayload()), bytesOf(text));
    }
}

TEST(SimSurface, BadDocumentsAreRefusedWithTheirReason) {
    const std::pair<Bytes, std::string> cases[] = {
        {Bytes{0x1F, 0x8B, 1, 2, 3}, "the configuration is gzip data that does not inflate"},
        {bytesOf("{\"dataWrappers\": ["), "the configuration is not JSON"},
        {bytesOf(""), "the configuration is not JSON"},
        {bytesOf("[1, 2]"), "the configuration is not a JSON object"},
        {bytesOf(std::string(300, '[') + std::string(300, ']')), "the configuration is not JSON"},
    };
    for (const auto& [bytes, message] : cases) {
        try {
            HVSimSurface::fromDocument(bytes);
            ADD_FAILURE() << message << ": accepted";
        } catch (const HVSimError& error) {
            EXPECT_EQ(std::string(error.what()), message);
        }
    }
    // Keys of the wrong kind are the model's to tolerate: no crash, no control.
    auto odd = HVSimSurface::fromDocument(bytesOf(R"({"dataWrappers": [{"numericID": "x", "axisDataArray": 5}, 7]})"));
    EXPECT_TRUE(odd.controls().empty());
}

}  // namespace
}  // namespace havrel
