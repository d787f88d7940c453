#include "musical_output/HVSequencesDocument.hpp"

#include "model/HVDictionaryReading.hpp"
#include "sequencing/HVArpeggio.hpp"
#include "sequencing/HVDictionaryLimits.hpp"

#include <fmt/format.h>

namespace havrel {

namespace {

// Notes from a keyboard reach 127: over more octaves than this the highest would leave 8 bits.
constexpr std::int64_t kMaximumKeyboardOctaves = 11;

std::optional<std::string> sequenceProblem(const Dictionary& entry) {
    if (!entry.is_object()) {
        return "it is not a dictionary";
    }
    if (const auto* container = dictionaryValue(entry, "rangeContainer"); container && !container->is_object()) {
        return "\"rangeContainer\" is not a dictionary";
    }
    const auto* steps = dictionaryValue(entry, "stepSequence");
    if (steps == nullptr) {
        return "it has no \"stepSequence\"";
    }
    if (auto refusal = HVMIDISequence::refusalOf(*steps)) {
        return refusal;
    }
    // A grid of no ticks or no positions has no cursor to move.
    if (integerValue(*steps, "playTickLength").value_or(6) == 0) {
        return "\"playTickLength\" is 0";
    }
    if (integerValue(*steps, "length").value_or(16) == 0) {
        return "\"length\" is 0";
    }
    if (const auto* running = dictionaryValue(entry, "isRunning"); running && !running->is_boolean()) {
        return "\"isRunning\" is not true or false";
    }
    return std::nullopt;
}

std::optional<std::string> arpeggiatorProblem(const Dictionary& settings, std::string_view inputName) {
    if (!settings.is_object()) {
        return "it is not a dictionary";
    }
    if (auto refusal = HVArpeggio::refusalOf(settings)) {
        return refusal;
    }
    if (auto refusal = outOfRange(settings, "octaves", 0, kMaximumKeyboardOctaves)) {
        return *refusal + fmt::format(" for notes from a keyboard (at most {})", kMaximumKeyboardOctaves);
    }
    if (integerValue(settings, "length").value_or(6) == 0) {
        return "\"length\" is 0";
    }
    if (const auto* channel = dictionaryValue(settings, "channel");
        channel && (!channel->is_number_integer() || channel->get<std::int64_t>() < 1 || channel->get<std::int64_t>() > 16)) {
        return fmt::format("\"channel\" {} is not 1 to 16", channel->dump());
    }
    if (const auto* input = dictionaryValue(settings, "input")) {
        if (!input->is_string()) {
            return "\"input\" is not a text";
        }
        if (input->get_ref<const std::string&>() != inputName) {
            return fmt::format("\"input\" {} is not an input of this Central (it offers \"{}\")",
                               input->dump(-1, ' ', false, Dictionary::error_handler_t::replace).substr(0, 200),
                               inputName);
        }
    }
    return std::nullopt;
}

}  // namespace

std::variant<HVSequencesDocument, std::string> HVSequencesDocument::read(ByteView bytes, std::string_view inputName) {
    if (bytes.size() > kMaximumBytes) {
        return fmt::format("{} bytes are more than {}", bytes.size(), kMaximumBytes);
    }
    std::string parseError;
    const auto json = parseJSONFromOutside(bytes, "sequences document", &parseError);
    if (json.is_discarded()) {
        return parseError.empty() ? std::string("it is not JSON") : parseError;
    }
    if (!json.is_object()) {
        return "it is not a JSON object";
    }
    HVSequencesDocument document;
    if (const auto* list = dictionaryValue(json, "sequences")) {
        if (!list->is_array()) {
            return "\"sequences\" is not a list";
        }
        if (list->size() > kMaximumSequences) {
            return fmt::format("{} sequences are more than {}", list->size(), kMaximumSequences);
        }
        for (std::size_t i = 0; i < list->size(); ++i) {
            const auto& entry = (*list)[i];
            if (auto problem = sequenceProblem(entry)) {
                return fmt::format("sequence {}: {}", i + 1, *problem);
            }
            auto matrix = HVMatrixSequence::initFromDictionary(entry);
            if (!matrix) {
                return fmt::format("sequence {}: the step sequence cannot be read", i + 1);
            }
            document.sequences.push_back({std::move(matrix), boolValue(entry, "isRunning").value_or(true)});
        }
    }
    if (const auto* settings = dictionaryValue(json, "arpeggiator")) {
        if (auto problem = arpeggiatorProblem(*settings, inputName)) {
            return "arpeggiator: " + *problem;
        }
        Arpeggiator arpeggiator;
        arpeggiator.settings = *settings;
        arpeggiator.settings.erase("pressedNotes");
        arpeggiator.channel = static_cast<std::uint8_t>(integerValue(*settings, "channel").value_or(1));
        arpeggiator.input = stringValue(*settings, "input").value_or(std::string(inputName));
        arpeggiator.settings.erase("channel");
        arpeggiator.settings.erase("input");
        document.arpeggiator = std::move(arpeggiator);
    }
    return document;
}

Dictionary HVSequencesDocument::dictionary() const {
    Dictionary list = Dictionary::array();
    for (const auto& sequence : sequences) {
        auto entry = sequence.matrix->dictionary();
        entry["isRunning"] = sequence.isRunning;
        list.push_back(std::move(entry));
    }
    Dictionary result{{"sequences", std::move(list)}};
    if (arpeggiator) {
        auto settings = arpeggiator->settings;
        settings["channel"] = arpeggiator->channel;
        settings["input"] = arpeggiator->input;
        result["arpeggiator"] = std::move(settings);
    }
    return result;
}

}  // namespace havrel
