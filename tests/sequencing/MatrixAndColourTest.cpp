// Matrix sequences and the colour helpers, and a configuration of step sequences, arpeggios and
// matrix sequences that reads and writes back to the same values.

#include "platform/Log.hpp"
#include "sequencing/HVArpeggio.hpp"
#include "sequencing/HVMatrixSequence.hpp"

#include <gtest/gtest.h>

namespace havrel {
namespace {

TEST(Colour, HexadecimalTextsAndHelpers) {
    const auto reference = HVColor::hx_colorWithHexString("B62F33");
    for (const char* text : {"#B62F33", "b62f33", "#b62F33"}) {
        EXPECT_EQ(HVColor::hx_colorWithHexString(text), reference) << text;
    }
    EXPECT_EQ(reference.hxValue(), "#B62F33");
    EXPECT_EQ(reference.hxValueNoPound(), "B62F33");
    EXPECT_EQ(HVColor::hx_colorWithHexString("F00"), HVColor::plainRed());

    // Alpha in front: two digits, or one doubled.
    const auto translucent = HVColor::hx_colorWithHexString("80FF0000");
    EXPECT_DOUBLE_EQ(translucent.components()[3], 128.0 / 255.0);
    EXPECT_EQ(translucent.hxValue(), "#FF0000");
    EXPECT_TRUE(translucent.isEqualToColor(HVColor::plainRed()));
    const auto short_ = HVColor::hx_colorWithHexString("1234");
    EXPECT_DOUBLE_EQ(short_.components()[3], 17.0 / 255.0);
    EXPECT_EQ(short_.hxValue(), "#223344");
    // Lengths that fit no form read as white; a pair that does not scan reads as 0.
    EXPECT_EQ(HVColor::hx_colorWithHexString("12345"), HVColor::white());
    EXPECT_EQ(HVColor::hx_colorWithHexString("", 0.2), HVColor::white());
    EXPECT_EQ(HVColor::hx_colorWithHexString("#zz00FF").hxValue(), "#0000FF");

    EXPECT_EQ(HVColor::grey(0.5).hxValue(), "#808080");
    EXPECT_FALSE(HVColor::grey(1.0).isColorBright());
    EXPECT_TRUE(HVColor::rgba(1, 1, 0).isColorBright());
    EXPECT_FALSE(HVColor::rgba(0, 0, 1).isColorBright());
    EXPECT_FALSE(HVColor::rgba(1, 1, 1, 0.4).isColorBright());
    EXPECT_EQ(reference.changeBrightness(1.0).hxValue(), "#B62F33");
    EXPECT_EQ(reference.changeBrightness(0.0).hxValue(), "#000000");
    EXPECT_EQ(HVColor::hx_colorWithHexString("#804020").changeBrightness(1.5).hxValue(), "#FF8040");
    for (int i = 0; i < 20; ++i) {
        const auto random = HVColor::randomColor();
        for (int c = 0; c < 3; ++c) {
            EXPECT_LE(random.components()[static_cast<std::size_t>(c)], 254.0 / 255.0);
        }
    }
}

TEST(MatrixSequence, DefaultsAndTheRefusalOfItsStepSequence) {
    auto fromEmpty = HVMatrixSequence::initFromDictionary(Dictionary::object());
    ASSERT_NE(fromEmpty, nullptr);
    EXPECT_EQ(fromEmpty->rangeContainer->controllerNumber, 20u);
    EXPECT_EQ(fromEmpty->rangeContainer->channel, 0u);
    EXPECT_EQ(fromEmpty->rangeContainer->signalType, HVSignalTypeCC);
    EXPECT_EQ(fromEmpty->stepSequence->steps.size(), 64u);
    EXPECT_EQ(fromEmpty->color, HVColor::plainRed());
    EXPECT_DEATH(HVMatrixSequence::create()->dictionary(), "rangeContainer != nullptr");

    ScopedLogCapture capture;
    const Dictionary list = {{"sequences",
                              {{{"color", "00FF00"}},
                               {{"stepSequence", {{"length", 300}}}},
                               {{"stepSequence", {{"length", 2}}}}}}};
    auto read = HVMatrixSequences::initFromDictionary(list);
    ASSERT_EQ(read->sequences.size(), 2u);
    EXPECT_EQ(read->sequences[0]->color.hxValue(), "#00FF00");
    EXPECT_EQ(read->sequences[1]->stepSequence->length(), 2u);
    EXPECT_EQ(capture.count("step sequence refused"), 1u);
    // Not an array of dictionaries: the list stays.
    read->copyValuesFromDictionary({{"sequences", {1, 2}}}, {});
    read->copyValuesFromDictionary({{"sequences", "none"}}, {});
    EXPECT_EQ(read->sequences.size(), 2u);
    // A list longer than the bound is refused whole.
    read->copyValuesFromDictionary({{"sequences", Dictionary(1025, Dictionary::object())}}, {});
    EXPECT_EQ(read->sequences.size(), 2u);
    EXPECT_EQ(capture.count("matrix sequences refused: 1025 sequences"), 1u);
}

// Every "UUID" removed: a read takes new identifiers for its step sequences.
Dictionary withoutIdentifiers(Dictionary value) {
    if (value.is_object()) {
        value.erase("UUID");
        for (auto& [key, element] : value.items()) {
            element = withoutIdentifiers(element);
        }
    } else if (value.is_array()) {
        for (auto& element : value) {
            element = withoutIdentifiers(element);
        }
    }
    return value;
}

TEST(MatrixSequence, AConfigurationOfSequencesArpeggiosAndMatricesRoundTrips) {
    auto step = HVMIDISequence::create();
    step->setLength(8);
    step->setPlayTickLength(12);
    step->steps.resize(8);
    step->steps[1]->setValue(90);
    step->steps[1]->ccNumberOrNote = HVCCOrNote::withValue(64);
    step->color = HVColor::hx_colorWithHexString("2040C0");

    auto arpeggio = HVArpeggio::initWithStyle(HVArpeggioStyle::up);
    arpeggio->setPressedNotes({HVCCOrNote::withValue(60), HVCCOrNote{67, 2}});
    arpeggio->setSequence(HVArpeggioStyle::diverge, HVArpeggioPlayingStyle::thumb);
    arpeggio->randomizeStyleRange = {0.5, 2.5};

    auto matrices = HVMatrixSequences::create();
    for (int i = 0; i < 2; ++i) {
        auto matrix = HVMatrixSequence::create();
        matrix->rangeContainer = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(3, 40 + i, i == 1);
        matrix->stepSequence = HVMIDISequence::initFromDictionary({{"length", 4 + i}, {"playTickLength", 24}});
        matrix->color = HVColor::hx_colorWithHexString(i == 0 ? "#FFFF00" : "#00FFFF");
        matrices->sequences.push_back(matrix);
    }

    const Dictionary configuration = {{"stepSequences", {step->dictionary()}},
                                      {"arpeggios", {arpeggio->dictionary()}},
                                      {"matrixSequences", matrices->dictionary()}};
    // Through text, as a client sends it.
    const auto parsed = Dictionary::parse(configuration.dump());
    auto stepAgain = HVMIDISequence::initFromDictionary(parsed["stepSequences"][0]);
    auto arpeggioAgain = HVArpeggio::initFromDictionary(parsed["arpeggios"][0]);
    auto matricesAgain = HVMatrixSequences::initFromDictionary(parsed["matrixSequences"]);
    ASSERT_NE(stepAgain, nullptr);
    ASSERT_NE(arpeggioAgain, nullptr);
    const Dictionary written = {{"stepSequences", {stepAgain->dictionary()}},
                                {"arpeggios", {arpeggioAgain->dictionary()}},
                                {"matrixSequences", matricesAgain->dictionary()}};
    EXPECT_EQ(withoutIdentifiers(written), withoutIdentifiers(configuration));
    EXPECT_NE(written["stepSequences"][0]["UUID"], configuration["stepSequences"][0]["UUID"]);
    // What the arpeggio builds comes back with it.
    ASSERT_EQ(arpeggioAgain->steps.size(), arpeggio->steps.size());
    for (std::size_t i = 0; i < arpeggio->steps.size(); ++i) {
        EXPECT_EQ(arpeggioAgain->steps[i]->ccNumberOrNote, arpeggio->steps[i]->ccNumberOrNote);
    }
    EXPECT_EQ(matricesAgain->sequences[1]->rangeContainer->signalType, HVSignalTypeNote);
}

}  // namespace
}  // namespace havrel
