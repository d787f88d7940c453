#include "havrel-client-sim/HVSimScript.hpp"

#include "central/HVFileRepresentation.hpp"
#include "havrel-client-sim/HVSimError.hpp"
#include "model/HVDataHelpers.hpp"
#include "model/HVDictionaryReading.hpp"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <sstream>

namespace havrel {

namespace {

// The most axes one range command can address: axis numbers of 8 and more travel as 7.
constexpr std::size_t kMaximumAxes = 8;

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> result;
    std::size_t index = 0;
    while (index < text.size()) {
        const auto start = text.find_first_not_of(" \t", index);
        if (start == std::string_view::npos) {
            break;
        }
        const auto end = text.find_first_of(" \t", start);
        result.push_back(text.substr(start, end == std::string_view::npos ? end : end - start));
        index = end == std::string_view::npos ? text.size() : end;
    }
    return result;
}

std::optional<double> number(std::string_view word) {
    double value = 0.0;
    auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

class LineParser {
public:
    LineParser(std::size_t line, std::string_view text, const HVSimSurface& surface)
        : line_(line), text_(text), surface_(surface) {}

    HVSimStep parse() {
        auto parts = words(text_);
        const std::string_view keyword = parts.front();
        std::vector<std::string_view> arguments(parts.begin() + 1, parts.end());
        HVSimStep step;
        step.line = line_;
        step.text = std::string(text_);
        if (keyword == "set") {
            expect(arguments.size() == 2, "set <control> <position>[,<position>]");
            step.kind = HVSimStepKind::set;
            step.control = control(arguments[0]);
            step.to = positions(arguments[1], step.control);
        } else if (keyword == "sweep") {
            expect(arguments.size() == 4, "sweep <control> <from> <to> <seconds>");
            step.kind = HVSimStepKind::sweep;
            step.control = control(arguments[0]);
            step.from = positions(arguments[1], step.control);
            step.to = positions(arguments[2], step.control);
            step.seconds = seconds(arguments[3]);
        } else if (keyword == "tap") {
            expect(arguments.size() == 1 || arguments.size() == 2, "tap <control> [<seconds>]");
            step.kind = HVSimStepKind::tap;
            step.control = control(arguments[0]);
            step.seconds = arguments.size() == 2 ? seconds(arguments[1]) : HVSimScript::kDefaultTapSeconds;
        } else if (keyword == "wait") {
            expect(arguments.size() == 1, "wait <seconds>");
            step.kind = HVSimStepKind::wait;
            step.seconds = seconds(arguments[0]);
        } else if (keyword == "midi") {
            step.kind = HVSimStepKind::midi;
            step.payload = midiBytes(arguments);
        } else if (keyword == "change") {
            step.kind = HVSimStepKind::change;
            step.payload = changeText(trimmed(text_.substr(keyword.size())));
        } else if (keyword == "file") {
            expect(arguments.size() == 2, "file <name> <text>");
            step.kind = HVSimStepKind::file;
            auto file = HVFileRepresentation::create();
            file->filename = std::string(arguments[0]);
            file->data = *gzipDeflate(Bytes(arguments[1].begin(), arguments[1].end()));
            const std::string json = file->dictionary().dump();
            step.payload.assign(json.begin(), json.end());
        } else {
            fail(fmt::format("unknown command '{}' (set, sweep, tap, wait, midi, change, file)", keyword));
        }
        return step;
    }

private:
    [[noreturn]] void fail(const std::string& message) const { throw HVSimScriptError(line_, message); }

    void expect(bool condition, std::string_view usage) const {
        if (!condition) {
            fail(fmt::format("expected: {}", usage));
        }
    }

    HVSimControl control(std::string_view word) const {
        auto found = surface_.controlNamed(word);
        if (!found) {
            std::string known;
            for (const auto& control : surface_.controls()) {
                known += known.empty() ? "" : ", ";
                known += control.name.empty() ? std::to_string(control.numericID) : control.name;
            }
            fail(fmt::format("no control '{}' (controls: {})", word, known.empty() ? "none" : known));
        }
        if (found->axes > kMaximumAxes) {
            fail(fmt::format("control {} has {} axes; a range command reaches {}", found->numericID, found->axes,
                             kMaximumAxes));
        }
        return *found;
    }

    std::vector<double> positions(std::string_view word, const HVSimControl& control) const {
        std::vector<double> result;
        std::size_t start = 0;
        while (true) {
            const auto comma = word.find(',', start);
            const auto part = word.substr(start, comma == std::string_view::npos ? comma : comma - start);
            auto value = number(part);
            if (!value) {
                fail(fmt::format("'{}' is not a position", part));
            }
            if (*value < 0.0 || *value > 1.0) {
                fail(fmt::format("position {} is outside 0 to 1", part));
            }
            result.push_back(*value);
            if (comma == std::string_view::npos) {
                break;
            }
            start = comma + 1;
        }
        if (result.size() != control.axes) {
            const std::string name = control.name.empty() ? std::to_string(control.numericID) : control.name;
            fail(fmt::format("control '{}' takes {} position{} ({} given)", name, control.axes,
                             control.axes == 1 ? "" : "s, separated by commas", result.size()));
        }
        return result;
    }

    double seconds(std::string_view word) const {
        auto value = number(word);
        if (!value) {
            fail(fmt::format("'{}' is not a number of seconds", word));
        }
        if (*value < 0.0 || *value > HVSimScript::kMaximumSeconds) {
            fail(fmt::format("seconds must be from 0 to {}, not {}", HVSimScript::kMaximumSeconds, word));
        }
        return *value;
    }

    Bytes midiBytes(const std::vector<std::string_view>& arguments) const {
        std::string digits;
        for (auto word : arguments) {
            if (word.size() % 2 != 0) {
                fail(fmt::format("'{}' is not whole hex bytes (two digits each)", word));
            }
            digits += word;
        }
        if (digits.empty() || digits.size() > 6) {
            fail("expected: midi <status> [<data> [<data>]], 1 to 3 hex bytes");
        }
        Bytes bytes;
        for (std::size_t index = 0; index < digits.size(); index += 2) {
            std::uint8_t byte = 0;
            const char* first = digits.data() + index;
            auto [end, error] = std::from_chars(first, first + 2, byte, 16);
            if (error != std::errc() || end != first + 2) {
                fail(fmt::format("'{}' is not a hex byte", std::string_view(first, 2)));
            }
            bytes.push_back(byte);
        }
        if (bytes[0] < 0x80) {
            fail(fmt::format("a MIDI message starts with a status byte (80 to FF), not {:02X}", bytes[0]));
        }
        for (std::size_t index = 1; index < bytes.size(); ++index) {
            if (bytes[index] >= 0x80) {
                fail(fmt::format("data byte {:02X} is above 7F", bytes[index]));
            }
        }
        return bytes;
    }

    Bytes changeText(std::string_view json) const {
        if (json.empty()) {
            fail("expected: change <json>");
        }
        auto view = ByteView(reinterpret_cast<const std::uint8_t*>(json.data()), json.size());
        Dictionary parsed = parseJSONFromOutside(view, "change");
        if (parsed.is_discarded()) {
            fail("the change is not JSON");
        }
        if (!parsed.is_object()) {
            fail("the change is not a JSON object");
        }
        return Bytes(view.begin(), view.end());
    }

    std::size_t line_;
    std::string_view text_;
    const HVSimSurface& surface_;
};

// A line without its comment; a change keeps the rest of its line, '#' included.
std::string_view withoutComment(std::string_view line) {
    line = trimmed(line);
    if (line.starts_with('#')) {
        return {};
    }
    if (line.starts_with("change ") || line.starts_with("change\t")) {
        return line;
    }
    for (std::size_t index = 1; index < line.size(); ++index) {
        if (line[index] == '#' && (line[index - 1] == ' ' || line[index - 1] == '\t')) {
            return trimmed(line.substr(0, index));
        }
    }
    return line;
}

std::vector<HVSimStep> parseSeparatedBy(std::string_view text, std::string_view separators,
                                        const HVSimSurface& surface) {
    std::vector<HVSimStep> steps;
    std::size_t line = 0;
    std::size_t start = 0;
    while (start <= text.size()) {
        const auto end = text.find_first_of(separators, start);
        const auto raw = text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        ++line;
        auto command = withoutComment(raw);
        if (!command.empty()) {
            steps.push_back(LineParser(line, command, surface).parse());
        }
        if (end == std::string_view::npos) {
            break;
        }
        start = end + 1;
    }
    return steps;
}

std::string positionsText(std::size_t axes, double value) {
    std::string text;
    for (std::size_t axis = 0; axis < axes; ++axis) {
        text += fmt::format("{}{}", axis == 0 ? "" : ",", value);
    }
    return text;
}

}  // namespace

std::vector<HVSimStep> HVSimScript::parse(std::string_view text, const HVSimSurface& surface) {
    return parseSeparatedBy(text, "\n", surface);
}

std::vector<HVSimStep> HVSimScript::parseInline(std::string_view text, const HVSimSurface& surface) {
    return parseSeparatedBy(text, ";\n", surface);
}

std::string HVSimScript::builtInPerformance(const HVSimSurface& surface) {
    std::ostringstream script;
    if (!surface.isBuiltIn()) {
        // Every numbered control up and back down, in about five seconds.
        const auto& controls = surface.controls();
        const double seconds = controls.empty() ? 0.0 : 2.4 / static_cast<double>(controls.size());
        for (const auto& control : controls) {
            const auto low = positionsText(control.axes, 0.0);
            const auto high = positionsText(control.axes, 1.0);
            script << fmt::format("sweep {} {} {} {:.3f}\n", control.numericID, low, high, seconds);
            script << fmt::format("sweep {} {} {} {:.3f}\n", control.numericID, high, low, seconds);
        }
        script << "wait 0.2\n";
        return script.str();
    }

    // The fader's top stop moves from 127 to 100, by a change command built from the surface.
    auto fader = surface.configuration()->dataWrapperWithNumericID(kHVSimFaderID)->copy();
    fader->midiAxis().front()->rangeContainers.front()->topValue()->value = 100;
    auto change = RNDataPackagerChangeCommandDataWrapper::create();
    change->changeType = HVChangeTypeUpdate;
    change->changedDataWrappers = {fader};

    script << "# every control of the built-in surface, about five seconds\n"
              "sweep fader 0 1 1\n"
              "set xy 0.25,0.75\n"
              "wait 0.1\n"
              "sweep xy 0,0 1,1 0.6\n"
              "tap pad 0.6\n"
              "sweep program 0 1 0.5\n"
              "sweep pitch 0.5 1 0.3\n"
              "sweep pitch 1 0.5 0.3\n"
              "set radial 0.5,0.5\n"
              "wait 0.1\n"
              "sweep radial 0.5,0.5 1,0.5 0.5\n"
              "midi B0 7B 00\n"
           << "change " << change->dictionary().dump() << "\n"
           << "sweep fader 0 1 0.5\n"
              "wait 0.2\n";
    return script.str();
}

}  // namespace havrel
