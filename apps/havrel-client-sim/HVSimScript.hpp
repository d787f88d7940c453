#pragma once
// The gesture script: one command a line.
//
//   set <control> <position>[,<position>]            positions from 0 to 1, one per axis
//   sweep <control> <from> <to> <seconds>             positions at the sweep rate
//   tap <control> [<seconds>]                         1 on every axis, then 0 after the hold
//   wait <seconds>
//   midi <hex bytes>                                  a status byte and up to two data bytes
//   change <json>                                     a change command, sent as it stands
//   file <name> <text>                                a file of that name holding the text (USB)
//
// '#' starts a comment; blank lines are skipped. Controls are the words of the built-in surface
// or wrapper numbers. In the inline form ';' separates lines as well.

#include "havrel-client-sim/HVSimSurface.hpp"
#include "platform/Types.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace havrel {

enum class HVSimStepKind { set, sweep, tap, wait, midi, change, file };

struct HVSimStep {
    HVSimStepKind kind = HVSimStepKind::wait;
    std::size_t line = 0;
    std::string text;        // the command as written, for progress lines
    HVSimControl control;    // set, sweep, tap
    std::vector<double> from;  // sweep
    std::vector<double> to;    // set, sweep
    double seconds = 0.0;      // sweep, tap (the hold), wait
    Bytes payload;             // midi: the 1 to 3 message bytes; change, file: the JSON text
};

class HVSimScript {
public:
    // How long a tap holds 1.0 when the line does not say.
    static constexpr double kDefaultTapSeconds = 0.25;
    // The longest single sweep, hold or wait.
    static constexpr double kMaximumSeconds = 3600.0;

    // Throws HVSimScriptError at the first bad line.
    static std::vector<HVSimStep> parse(std::string_view text, const HVSimSurface& surface);
    // The --do form: ';' separates lines as newlines do.
    static std::vector<HVSimStep> parseInline(std::string_view text, const HVSimSurface& surface);

    // About five seconds that touch every control: of the built-in surface, or every numbered
    // wrapper of a surface read from a document.
    static std::string builtInPerformance(const HVSimSurface& surface);
};

}  // namespace havrel
