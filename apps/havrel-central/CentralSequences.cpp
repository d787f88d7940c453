#include "CentralSequences.hpp"

#include "midi_service/HVMIDIHandOff.hpp"
#include "model/HVDictionaryReading.hpp"
#include "platform/DurableWrite.hpp"
#include "platform/FolderWatcher.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace havrel {

namespace {

// The file's bytes, at most one more than the document may hold; nothing when it is missing.
std::optional<std::string> readBounded(const std::filesystem::path& file, std::string& error) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        std::error_code ignored;
        if (std::filesystem::exists(file, ignored)) {
            error = "it cannot be opened";
        }
        return std::nullopt;
    }
    std::string text(HVSequencesDocument::kMaximumBytes + 1, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    return text;
}

// A whole number of at least 0 under the key of a request, however the JSON holds it.
std::optional<std::uint64_t> naturalNumber(const Dictionary& request, std::string_view key) {
    const auto* value = dictionaryValue(request, key);
    if (!value || !value->is_number_integer()) {
        return std::nullopt;
    }
    if (value->is_number_unsigned()) {
        return value->get<std::uint64_t>();
    }
    const auto number = value->get<std::int64_t>();
    return number < 0 ? std::nullopt : std::optional<std::uint64_t>(number);
}

}  // namespace

CentralSequences::CentralSequences(Options options)
    : options_(std::move(options)), handOff_(std::make_shared<HVMIDIHandOff>(MainQueue::shared())) {}

std::shared_ptr<CentralSequences> CentralSequences::start(Options options) {
    auto sequences = std::make_shared<CentralSequences>(std::move(options));
    sequences->reload();
    if (!sequences->options_.watch) {
        return sequences;
    }
    const auto folder = sequences->options_.file.parent_path().empty() ? std::filesystem::path(".")
                                                                        : sequences->options_.file.parent_path();
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    std::weak_ptr<CentralSequences> weak = sequences;
    const auto name = sequences->options_.file.filename().string();
    sequences->watcher_ = FolderWatcher::create(
        MainQueue::shared(), folder,
        [weak, name](const std::string& changed) {
            if (auto self = weak.lock(); self && changed == name) {
                self->reload();
            }
        },
        FolderWatcher::Events::completedFiles);
    return sequences;
}

CentralSequences::~CentralSequences() {
    stopWatching();
}

void CentralSequences::stopWatching() {
    if (auto watcher = std::exchange(watcher_, nullptr)) {
        watcher->stop();
    }
}

bool CentralSequences::reload() {
    const auto& file = options_.file;
    std::string error;
    const auto text = readBounded(file, error);
    if (!text) {
        if (!error.empty()) {
            logf("sequences: {} refused: {}; what plays stays", file.string(), error);
        } else if (!haveRead_) {
            logf("sequences: no {}; nothing to play until it is written", file.string());
        }
        haveRead_ = true;
        return false;
    }
    haveRead_ = true;
    // One save can be told twice (written, then closed): the same bytes change nothing.
    if (*text == lastText_) {
        return false;
    }
    auto read = HVSequencesDocument::read(
        ByteView(reinterpret_cast<const std::uint8_t*>(text->data()), text->size()), options_.inputName);
    if (auto* problem = std::get_if<std::string>(&read)) {
        logf("sequences: {} refused: {}; what plays stays", file.string(), *problem);
        return false;
    }
    lastText_ = *text;
    apply(std::get<HVSequencesDocument>(read));
    logf("sequences: {} read: {} sequence(s){}", file.string(), document_.sequences.size(),
         document_.arpeggiator ? ", the arpeggiator on " + document_.arpeggiator->input : "");
    return true;
}

void CentralSequences::apply(const HVSequencesDocument& document) {
    const auto& player = options_.player;
    const auto& output = options_.output;
    for (std::size_t i = 0; i < document.sequences.size(); ++i) {
        if (i == slots_.size()) {
            slots_.push_back(HVMIDISequence::create());
        }
        const auto& slot = slots_[i];
        const auto& entry = document.sequences[i];
        // The slot keeps its identifier, under which the player and the step output know it.
        auto form = entry.matrix->stepSequence->dictionary();
        form["UUID"] = slot->identifier;
        slot->copyValuesFromDictionary(form, {}, false);
        slot->color = entry.matrix->color;
        slot->isRunning = entry.isRunning;
        const auto& container = *entry.matrix->rangeContainer;
        output->setTarget(slot->identifier, HVStepOutput::Target{container.signalType == HVSignalTypeNote, container.channel});
        player->addSequence(slot);
    }
    for (std::size_t i = document.sequences.size(); i < slots_.size(); ++i) {
        slots_[i]->isRunning = false;
    }
    arpeggio_ = document.arpeggiator ? HVArpeggio::initFromDictionary(document.arpeggiator->settings) : nullptr;
    document_ = document;
    rebuildArpeggio();
    const bool plays = document.arpeggiator || std::any_of(document.sequences.begin(), document.sequences.end(),
                                                           [](const auto& entry) { return entry.isRunning; });
    if (plays && options_.somethingToPlay) {
        options_.somethingToPlay();
    }
}

std::string CentralSequences::edit(const Dictionary& request) {
    auto form = document_.dictionary();
    auto& list = form["sequences"];
    const auto action = stringValue(request, "action").value_or("");
    const auto index = naturalNumber(request, "sequence");
    Dictionary* entry = index && *index < list.size() ? &list[*index] : nullptr;
    auto needsSequence = [&] {
        return fmt::format("{} needs \"sequence\" (one of the {} sequences, counted from 0)", action, list.size());
    };
    if (action == "setStep") {
        const auto step = naturalNumber(request, "step");
        if (!entry) {
            return needsSequence();
        }
        auto& steps = (*entry)["stepSequence"]["steps"];
        if (!step || *step >= steps.size()) {
            return fmt::format("setStep needs \"step\" (one of the {} steps, counted from 0)", steps.size());
        }
        auto& target = steps[*step];
        for (const auto& [key, field] : {std::pair{"value", "value"}, std::pair{"note", "ccNumberOrNote"}}) {
            if (dictionaryValue(request, key)) {
                const auto number = naturalNumber(request, key);
                if (!number || *number > 127) {
                    return fmt::format("\"{}\" must be 0 to 127", key);
                }
                target[field] = *number;
            }
        }
    } else if (action == "setRunning") {
        const auto* running = dictionaryValue(request, "running");
        if (!entry || !running || !running->is_boolean()) {
            return "setRunning needs \"sequence\" and \"running\" (true or false)";
        }
        (*entry)["isRunning"] = *running;
    } else if (action == "setLength") {
        const auto length = naturalNumber(request, "length");
        if (!entry || !length || *length == 0 || *length > 256) {
            return "setLength needs \"sequence\" and \"length\" (1 to 256)";
        }
        // The row keeps its steps; new ones are rests on the grid.
        auto& sequence = (*entry)["stepSequence"];
        auto& steps = sequence["steps"];
        const auto wanted = static_cast<std::size_t>(*length);
        const auto ticks = sequence.value("playTickLength", 6);
        while (steps.size() > wanted) {
            steps.erase(steps.size() - 1);
        }
        while (steps.size() < wanted) {
            steps.push_back({{"length", ticks}, {"ccNumberOrNote", 60}, {"value", 0}, {"startQN", steps.size() * ticks}});
        }
        sequence["length"] = wanted;
    } else if (action == "setNoteLength") {
        const auto ticks = naturalNumber(request, "noteLength");
        if (!entry || !ticks || *ticks == 0 || *ticks > 96) {
            return "setNoteLength needs \"sequence\" and \"noteLength\" (1 to 96 ticks)";
        }
        for (auto& step : (*entry)["stepSequence"]["steps"]) {
            step["length"] = *ticks;
        }
        (*entry)["stepSequence"]["noteLength"] = *ticks;
    } else if (action == "add") {
        auto added = HVMatrixSequence::create();
        added->rangeContainer = HVMidiRangeContainer::containerWithChannel(1, 60, true);
        added->stepSequence = HVMIDISequence::initFromDictionary(Dictionary{{"length", 16}});
        list.push_back(added->dictionary());
    } else if (action == "remove") {
        if (!entry) {
            return needsSequence();
        }
        list.erase(static_cast<std::size_t>(*index));
    } else if (action == "setArpeggiator") {
        const auto* settings = dictionaryValue(request, "settings");
        if (!settings || !settings->is_object()) {
            return "setArpeggiator needs \"settings\" (a dictionary)";
        }
        form["arpeggiator"] = *settings;
    } else {
        return fmt::format("unknown sequence edit \"{}\"", action.substr(0, 64));
    }
    const auto text = form.dump(2) + "\n";
    auto read = HVSequencesDocument::read(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()),
                                          options_.inputName);
    if (auto* problem = std::get_if<std::string>(&read)) {
        return *problem;
    }
    if (auto failure = replaceFileAtomically(options_.file, text)) {
        return fmt::format("{} cannot be written: {}", options_.file.string(), *failure);
    }
    // The watcher will tell of this write: the same bytes then change nothing.
    lastText_ = text;
    apply(std::get<HVSequencesDocument>(read));
    return "";
}

Dictionary CentralSequences::state() const {
    Dictionary rows = Dictionary::array();
    for (std::size_t i = 0; i < document_.sequences.size(); ++i) {
        const auto& slot = slots_[i];
        Dictionary steps = Dictionary::array();
        for (std::size_t j = 0; j < slot->steps.size() && j < slot->length(); ++j) {
            steps.push_back({{"note", slot->steps[j]->ccNumberOrNote.value}, {"value", slot->steps[j]->value()}});
        }
        const auto& container = *document_.sequences[i].matrix->rangeContainer;
        rows.push_back({{"running", slot->isRunning},
                        {"position", slot->position()},
                        {"length", slot->length()},
                        {"noteLength", slot->noteLength()},
                        {"isNote", container.signalType == HVSignalTypeNote},
                        {"color", slot->color.hxValue()},
                        {"steps", std::move(steps)}});
    }
    Dictionary result{{"sequences", std::move(rows)}, {"held", held_}};
    result["arpeggiator"] = document_.arpeggiator ? document_.dictionary()["arpeggiator"] : Dictionary();
    return result;
}

std::vector<HVMIDISequencePtr> CentralSequences::sequences() const {
    return {slots_.begin(), slots_.begin() + static_cast<std::ptrdiff_t>(document_.sequences.size())};
}

void CentralSequences::noteOn(std::uint8_t note, std::uint8_t velocity) {
    if (velocity == 0) {
        noteOff(note);
        return;
    }
    velocity_ = velocity;
    if (std::find(held_.begin(), held_.end(), note) == held_.end()) {
        held_.push_back(note);
    }
    rebuildArpeggio();
}

void CentralSequences::noteOff(std::uint8_t note) {
    const auto found = std::find(held_.begin(), held_.end(), note);
    if (found == held_.end()) {
        return;
    }
    held_.erase(found);
    rebuildArpeggio();
}

void CentralSequences::rebuildArpeggio() {
    if (!arpeggio_ || held_.empty()) {
        // Released: the note sounding ends with the keys.
        if (arpeggioSlot_) {
            arpeggioSlot_->isRunning = false;
            options_.output->allNotesOff(arpeggioSlot_->identifier);
        }
        return;
    }
    std::vector<HVCCOrNote> notes;
    for (const auto note : held_) {
        notes.push_back(HVCCOrNote::withValue(note));
    }
    arpeggio_->setPressedNotes(std::move(notes));
    if (!arpeggioSlot_) {
        arpeggioSlot_ = HVMIDISequence::create();
    }
    if (arpeggio_->steps.empty()) {
        // An accent style can take every note away.
        arpeggioSlot_->isRunning = false;
        return;
    }
    // The arpeggio's steps carry no velocity: they sound at the last one played.
    std::vector<HVStepPtr> steps;
    steps.reserve(arpeggio_->steps.size());
    for (const auto& built : arpeggio_->steps) {
        auto step = std::make_shared<HVStep>(*built);
        step->changeBlock = nullptr;
        step->setValue(velocity_);
        steps.push_back(std::move(step));
    }
    // The row is exactly the arpeggio: its length is the number of steps, on the arpeggio's grid.
    arpeggioSlot_->setLength(steps.size());
    arpeggioSlot_->steps = std::move(steps);
    arpeggioSlot_->setPlayTickLength(arpeggio_->length());
    for (const auto& step : arpeggioSlot_->steps) {
        step->length = arpeggio_->noteDurationInMIDIQN();
    }
    arpeggioSlot_->isRunning = true;
    options_.output->setTarget(arpeggioSlot_->identifier,
                               HVStepOutput::Target{true, document_.arpeggiator ? document_.arpeggiator->channel : 1});
    options_.player->addSequence(arpeggioSlot_);
}

HVMIDIManager::ReceivedEventsObserver CentralSequences::receivedEventsObserver() {
    using MIDICore::MIDIEvent;
    struct Action {
        enum Kind { noteOn, noteOff, stop, run } kind;
        std::uint8_t note = 0;
        std::uint8_t velocity = 0;
    };
    return [weak = weak_from_this(), handOff = handOff_](const std::vector<MIDIEvent>& events, bool viaVirtualInput) {
        std::vector<Action> actions;
        for (const auto& event : events) {
            if (const auto* on = event.get<MIDIEvent::NoteOn>(); on && viaVirtualInput) {
                actions.push_back({Action::noteOn, on->note.number().storage(), on->velocity().midi1Value().storage()});
            } else if (const auto* off = event.get<MIDIEvent::NoteOff>(); off && viaVirtualInput) {
                actions.push_back({Action::noteOff, off->note.number().storage()});
            } else if (event.get<MIDIEvent::Stop>()) {
                actions.push_back({Action::stop});
            } else if (event.get<MIDIEvent::Start>() || event.get<MIDIEvent::Continue>()) {
                actions.push_back({Action::run});
            }
        }
        if (actions.empty()) {
            return;
        }
        handOff->post([weak, actions = std::move(actions)] {
            auto self = weak.lock();
            if (!self) {
                return;
            }
            for (const auto& action : actions) {
                switch (action.kind) {
                    case Action::noteOn: self->noteOn(action.note, action.velocity); break;
                    case Action::noteOff: self->noteOff(action.note); break;
                    case Action::stop: self->options_.output->setTransportStopped(true); break;
                    case Action::run: self->options_.output->setTransportStopped(false); break;
                }
            }
        });
    };
}

}  // namespace havrel
