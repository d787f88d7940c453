#include "sequencing/HVMIDISequence.hpp"

#include "model/HVDictionaryReading.hpp"
#include "model/HVUUID.hpp"
#include "platform/Assert.hpp"
#include "platform/Log.hpp"
#include "sequencing/HVDictionaryLimits.hpp"

#include <limits>

namespace havrel {

HVMIDISequence::HVMIDISequence(Key) : identifier(randomUUIDString()) {}

HVMIDISequencePtr HVMIDISequence::create() {
    auto sequence = std::make_shared<HVMIDISequence>(Key{});
    sequence->installStepChangeBlock();
    for (std::uint64_t i = 0; i < sequence->length_; ++i) {
        sequence->steps.push_back(sequence->newStep(i * 6, 6));
    }
    return sequence;
}

void HVMIDISequence::installStepChangeBlock() {
    std::weak_ptr<HVMIDISequence> weak = weak_from_this();
    stepChangeBlock = [weak](const HVStep& step, const Dictionary& change) {
        auto self = weak.lock();
        if (!self) {
            return;
        }
        for (std::size_t index = 0; index < self->steps.size(); ++index) {
            if (self->steps[index].get() == &step) {
                if (self->sequenceChangeBlock) {
                    self->sequenceChangeBlock(
                        *self, Dictionary{{"Steps", Dictionary::array({{{"StepIndex", index}, {"Change", change}}})}});
                }
                return;
            }
        }
    };
}

HVStepPtr HVMIDISequence::newStep(std::uint64_t startQN, HVMIDINoteLength length) const {
    auto step = HVStep::create();
    step->startQN = startQN;
    step->length = length;
    step->changeBlock = stepChangeBlock;
    return step;
}

void HVMIDISequence::setPlayTickLength(HVMIDINoteLength ticks) {
    playTickLength_ = ticks;
    HV_ASSERT(steps.size() >= length_);
    for (std::uint64_t i = 0; i < length_; ++i) {
        steps[i]->length = ticks;
        steps[i]->startQN = i * ticks;
    }
}

void HVMIDISequence::setLength(std::uint64_t length) {
    length_ = length;
    if (sequenceChangeBlock) {
        sequenceChangeBlock(*this, Dictionary{{"Length", length}});
    }
}

void HVMIDISequence::setNoteLength(HVMIDINoteLength noteLength) {
    noteLength_ = noteLength;
    if (sequenceChangeBlock) {
        sequenceChangeBlock(*this, Dictionary{{"Speed", noteLength}});
    }
}

void HVMIDISequence::setPosition(std::uint64_t position) {
    position_ = position;
    notifyPosition();
}

void HVMIDISequence::notifyPosition() {
    std::vector<std::size_t> gone;
    for (std::size_t index = 0; index < registeredUIObjects_.size(); ++index) {
        const auto& entry = registeredUIObjects_[index];
        if (!entry.observerIsAlive()) {
            gone.push_back(index);
        } else if (auto callback = entry.sequencePositionDidChange) {
            callback(*this, position_);
        }
    }
    for (auto it = gone.rbegin(); it != gone.rend(); ++it) {
        if (*it < registeredUIObjects_.size()) {
            registeredUIObjects_.erase(registeredUIObjects_.begin() + static_cast<std::ptrdiff_t>(*it));
        }
    }
}

void HVMIDISequence::setNoteValueToAllStepsWithNoteValue(std::uint8_t note) {
    Dictionary changes = Dictionary::array();
    for (std::size_t i = 0; i < steps.size(); ++i) {
        steps[i]->ccNumberOrNote = HVCCOrNote::withValue(note);
        changes.push_back({{"StepIndex", i}, {"Change", {{"note", note}}}});
    }
    if (sequenceChangeBlock) {
        sequenceChangeBlock(*this, Dictionary{{"Steps", changes}});
    }
}

void HVMIDISequence::registerForPositionChangeWithRegistrar(const std::shared_ptr<void>& registrar,
                                                            PositionCallback callback) {
    for (const auto& entry : registeredUIObjects_) {
        if (entry.isObserver(registrar)) {
            return;
        }
    }
    HVSequenceChangeOservationContainer entry;
    entry.observer = registrar;
    entry.sequencePositionDidChange = std::move(callback);
    registeredUIObjects_.push_back(std::move(entry));
}

void HVMIDISequence::registerForChangesWithRegistrar(const std::shared_ptr<void>& registrar,
                                                     std::function<void(HVMIDISequence&, const HVStep&)>,
                                                     std::function<void(HVMIDISequence&, const HVStep&)>) {
    for (const auto& entry : registeredUIObjects_) {
        if (entry.isObserver(registrar)) {
            return;
        }
    }
    HVSequenceChangeOservationContainer entry;
    entry.observer = registrar;
    registeredUIObjects_.push_back(std::move(entry));
}

void HVMIDISequence::removeRegistrationForTempoChangesWithRegistrar(const std::shared_ptr<void>& registrar) {
    for (auto it = registeredUIObjects_.begin(); it != registeredUIObjects_.end(); ++it) {
        if (it->isObserver(registrar)) {
            registeredUIObjects_.erase(it);
            return;
        }
    }
}

Dictionary HVMIDISequence::dictionary() const {
    Dictionary stepDictionaries = Dictionary::array();
    for (const auto& step : steps) {
        stepDictionaries.push_back(step->dictionary());
    }
    return Dictionary{{"UUID", identifier},       {"playTickLength", playTickLength_},
                      {"color", color.hxValue()}, {"length", length_},
                      {"noteLength", noteLength_}, {"steps", std::move(stepDictionaries)}};
}

namespace {

// The steps of the dictionary when "steps" is an array of dictionaries only.
const Dictionary* stepArray(const Dictionary& dictionary) {
    const auto* array = arrayValue(dictionary, "steps");
    if (!array) {
        return nullptr;
    }
    for (const auto& element : *array) {
        if (!element.is_object()) {
            return nullptr;
        }
    }
    return array;
}

}  // namespace

std::optional<std::string> HVMIDISequence::refusalOf(const Dictionary& dictionary) {
    if (!dictionary.is_object()) {
        return "the sequence is not a dictionary";
    }
    for (const char* key : {"playTickLength", "noteLength"}) {
        if (auto refusal = outOfRange(dictionary, key, 0, 255)) {
            return refusal;
        }
    }
    if (auto refusal = outOfRange(dictionary, "length", 0, std::numeric_limits<std::int64_t>::max())) {
        return refusal;
    }
    const auto* array = stepArray(dictionary);
    std::size_t stepCount = 0;
    if (array) {
        stepCount = array->size();
        for (const auto& step : *array) {
            if (auto refusal = HVStep::refusalOf(step)) {
                return refusal;
            }
        }
    }
    // A row of the wrong size is laid out anew, step i at i × the tick length, counted in 8 bits.
    const auto length = static_cast<std::uint64_t>(integerValue(dictionary, "length").value_or(16));
    const auto ticks = static_cast<std::uint64_t>(integerValue(dictionary, "playTickLength").value_or(6));
    if (stepCount != length && length > 0) {
        if (length > 256) {
            return fmt::format("a row of {} steps cannot be laid out", length);
        }
        if ((length - 1) * ticks > 255) {
            return fmt::format("a row of {} steps of {} ticks cannot be laid out", length, ticks);
        }
    }
    return std::nullopt;
}

HVMIDISequencePtr HVMIDISequence::initFromDictionary(const Dictionary& dictionary) {
    if (auto refusal = refusalOf(dictionary)) {
        logf("[HVSequencing] step sequence refused: {}", *refusal);
        return nullptr;
    }
    auto sequence = create();
    sequence->copyValuesFromDictionary(dictionary, {}, true);
    return sequence;
}

void HVMIDISequence::copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>& excludeValues) {
    copyValuesFromDictionary(dictionary, excludeValues, false);
}

void HVMIDISequence::copyValuesFromDictionary(const Dictionary& dictionary, const std::vector<std::string>&,
                                              bool forceNewID) {
    HV_ASSERT(!refusalOf(dictionary).has_value());
    if (forceNewID) {
        identifier = randomUUIDString();
    } else {
        const auto text = stringValue(dictionary, "UUID");
        const auto parsed = text ? parseUUIDString(*text) : std::nullopt;
        identifier = parsed ? *parsed : randomUUIDString();
    }
    setPlayTickLength(static_cast<HVMIDINoteLength>(integerValue(dictionary, "playTickLength").value_or(6)));
    color = HVColor::hx_colorWithHexString(stringValue(dictionary, "color").value_or("B62F33"));
    setLength(static_cast<std::uint64_t>(integerValue(dictionary, "length").value_or(16)));
    setNoteLength(static_cast<HVMIDINoteLength>(integerValue(dictionary, "noteLength").value_or(6)));
    steps.clear();
    if (const auto* array = stepArray(dictionary)) {
        for (const auto& element : *array) {
            auto step = HVStep::initFromDictionary(element);
            step->changeBlock = stepChangeBlock;
            steps.push_back(std::move(step));
        }
    }
    if (steps.size() != length_) {
        steps.clear();
        for (std::uint64_t i = 0; i < length_; ++i) {
            steps.push_back(newStep(i * playTickLength_, playTickLength_));
        }
    }
}

}  // namespace havrel
