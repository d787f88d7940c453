#include "havrel-client-sim/HVSimError.hpp"
#include "havrel-client-sim/HVSimScript.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace havrel {
namespace {

class ScriptTest : public ::testing::Test {
protected:
    HVSimSurface surface = HVSimSurface::builtIn();

    // The message of the error the script raises, or "" when it parses.
    std::string errorOf(const std::string& text) {
        try {
            HVSimScript::parse(text, surface);
        } catch (const HVSimScriptError& error) {
            return error.what();
        }
        return "";
    }
};

TEST_F(ScriptTest, ReadsEveryCommandWithItsControlAndArguments) {
    auto steps = HVSimScript::parse("# a comment\n"
                                    "\n"
                                    "set fader 0.5   # trailing comment\n"
                                    "  sweep xy 0,0.25 1,0.75 1.5\n"
                                    "tap pad\n"
                                    "tap 4 0.1\r\n"
                                    "wait 2\n"
                                    "midi 90 3c 64\n"
                                    "midi C005\n"
                                    "change {\"changeType\": 1, \"note\": \"# kept\"}\n",
                                    surface);
    ASSERT_EQ(steps.size(), 8u);

    EXPECT_EQ(steps[0].kind, HVSimStepKind::set);
    EXPECT_EQ(steps[0].line, 3u);
    EXPECT_EQ(steps[0].text, "set fader 0.5");
    EXPECT_EQ(steps[0].control, (HVSimControl{"fader", kHVSimFaderID, 1}));
    EXPECT_EQ(steps[0].to, std::vector<double>{0.5});

    EXPECT_EQ(steps[1].kind, HVSimStepKind::sweep);
    EXPECT_EQ(steps[1].control.numericID, kHVSimXYID);
    EXPECT_EQ(steps[1].from, (std::vector<double>{0.0, 0.25}));
    EXPECT_EQ(steps[1].to, (std::vector<double>{1.0, 0.75}));
    EXPECT_DOUBLE_EQ(steps[1].seconds, 1.5);

    EXPECT_EQ(steps[2].kind, HVSimStepKind::tap);
    EXPECT_DOUBLE_EQ(steps[2].seconds, HVSimScript::kDefaultTapSeconds);
    // A wrapper number names the same control as its word.
    EXPECT_EQ(steps[3].control, (HVSimControl{"program", kHVSimProgramID, 1}));
    EXPECT_DOUBLE_EQ(steps[3].seconds, 0.1);

    EXPECT_EQ(steps[4].kind, HVSimStepKind::wait);
    EXPECT_DOUBLE_EQ(steps[4].seconds, 2.0);

    EXPECT_EQ(steps[5].payload, (Bytes{0x90, 0x3C, 0x64}));
    EXPECT_EQ(steps[6].payload, (Bytes{0xC0, 0x05}));

    EXPECT_EQ(steps[7].kind, HVSimStepKind::change);
    EXPECT_EQ(std::string(steps[7].payload.begin(), steps[7].payload.end()),
              "{\"changeType\": 1, \"note\": \"# kept\"}");
}

TEST_F(ScriptTest, InlineFormSeparatesLinesBySemicolonsAndNumbersThem) {
    auto steps = HVSimScript::parseInline("set fader 1; ; wait 0.5;tap pad", surface);
    ASSERT_EQ(steps.size(), 3u);
    EXPECT_EQ(steps[0].line, 1u);
    EXPECT_EQ(steps[1].line, 3u);
    EXPECT_EQ(steps[2].text, "tap pad");

    try {
        HVSimScript::parseInline("wait 1; jump", surface);
        FAIL() << "a bad second line parsed";
    } catch (const HVSimScriptError& error) {
        EXPECT_EQ(error.line(), 2u);
        EXPECT_EQ(error.message(), "unknown command 'jump' (set, sweep, tap, wait, midi, change, file)");
    }
}

TEST_F(ScriptTest, EachKindOfBadLineNamesItsLineAndFault) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"jump fader", "line 1: unknown command 'jump' (set, sweep, tap, wait, midi, change, file)"},
        {"wait 1\nset fader", "line 2: expected: set <control> <position>[,<position>]"},
        {"set fader 0.5 0.6", "line 1: expected: set <control> <position>[,<position>]"},
        {"set knob 0.5", "line 1: no control 'knob' (controls: fader, xy, pad, program, pitch, radial)"},
        {"set 9 0.5", "line 1: no control '9' (controls: fader, xy, pad, program, pitch, radial)"},
        {"set fader half", "line 1: 'half' is not a position"},
        {"set fader nan", "line 1: 'nan' is not a position"},
        {"set fader 1.5", "line 1: position 1.5 is outside 0 to 1"},
        {"set fader -0.1", "line 1: position -0.1 is outside 0 to 1"},
        {"set xy 0.5", "line 1: control 'xy' takes 2 positions, separated by commas (1 given)"},
        {"set fader 0.5,0.5", "line 1: control 'fader' takes 1 position (2 given)"},
        {"set xy 0.5,", "line 1: '' is not a position"},
        {"sweep fader 0 1", "line 1: expected: sweep <control> <from> <to> <seconds>"},
        {"sweep fader 0 1 soon", "line 1: 'soon' is not a number of seconds"},
        {"sweep fader 0 1 -1", "line 1: seconds must be from 0 to 3600, not -1"},
        {"tap", "line 1: expected: tap <control> [<seconds>]"},
        {"tap pad 1 2", "line 1: expected: tap <control> [<seconds>]"},
        {"wait", "line 1: expected: wait <seconds>"},
        {"wait 4000", "line 1: seconds must be from 0 to 3600, not 4000"},
        {"midi", "line 1: expected: midi <status> [<data> [<data>]], 1 to 3 hex bytes"},
        {"midi 90 3C 64 00", "line 1: expected: midi <status> [<data> [<data>]], 1 to 3 hex bytes"},
        {"midi 9", "line 1: '9' is not whole hex bytes (two digits each)"},
        {"midi 9G 3C", "line 1: '9G' is not a hex byte"},
        {"midi 3C 64", "line 1: a MIDI message starts with a status byte (80 to FF), not 3C"},
        {"midi 90 80 64", "line 1: data byte 80 is above 7F"},
        {"change", "line 1: expected: change <json>"},
        {"change {\"changeType\": ", "line 1: the change is not JSON"},
        {"change [1, 2]", "line 1: the change is not a JSON object"},
    };
    for (const auto& [text, message] : cases) {
        EXPECT_EQ(errorOf(text), message) << text;
    }
}

TEST_F(ScriptTest, ADocumentSurfaceNamesControlsByNumberOnly) {
    std::string document = R"({"dataWrappers": [
        {"numericID": 12, "axisDataArray": [{"rangeContainers": []}, {"rangeContainers": []}]},
        {"numericID": 0, "axisDataArray": [{"rangeContainers": []}]},
        {"numericID": 13, "axisDataArray": []}]})";
    auto custom = HVSimSurface::fromDocument(ByteView(reinterpret_cast<const std::uint8_t*>(document.data()),
                                                      document.size()));
    auto steps = HVSimScript::parse("set 12 0.1,0.9", custom);
    ASSERT_EQ(steps.size(), 1u);
    EXPECT_EQ(steps[0].control, (HVSimControl{"", 12, 2}));

    // Words of the built-in surface, unnumbered wrappers and wrappers without axes are not controls.
    for (const char* text : {"set fader 0.5", "set 0 0.5", "set 13 0.5"}) {
        try {
            HVSimScript::parse(text, custom);
            ADD_FAILURE() << text << " parsed";
        } catch (const HVSimScriptError& error) {
            EXPECT_NE(error.message().find("(controls: 12)"), std::string::npos) << error.message();
        }
    }
}

TEST_F(ScriptTest, BuiltInPerformanceTouchesEveryControl) {
    for (const auto& source : {HVSimSurface::builtIn(), HVSimSurface::fromDocument(*surface.configuration()->zippedData())}) {
        auto steps = HVSimScript::parse(HVSimScript::builtInPerformance(source), source);
        for (const auto& control : source.controls()) {
            bool touched = false;
            for (const auto& step : steps) {
                touched = touched || (step.control.numericID == control.numericID && step.kind != HVSimStepKind::wait);
            }
            EXPECT_TRUE(touched) << "control " << control.numericID;
        }
    }
}

}  // namespace
}  // namespace havrel
