#include "central/HVCentralThroughputMeter.hpp"

#include "platform/MainQueue.hpp"
#include "platform/SharedSlot.hpp"

#include <fmt/format.h>

#include <chrono>

namespace havrel {

namespace {

SharedSlot<HVCentralThroughputMeter>& sharedSlot() {
    static SharedSlot<HVCentralThroughputMeter> slot([] { return std::make_shared<HVCentralThroughputMeter>(); });
    return slot;
}

}  // namespace

std::shared_ptr<HVCentralThroughputMeter> HVCentralThroughputMeter::sharedInstance() {
    return sharedSlot().get();
}

double HVCentralThroughputMeter::now() {
    return std::chrono::duration<double>(MainQueue::shared().now().time_since_epoch()).count();
}

void HVCentralThroughputMeter::recordController(std::uint64_t controller, std::uint64_t value, std::uint64_t channel) {
    (void)channel;
    record(LastMessage::Kind::controller, controller, value);
}

void HVCentralThroughputMeter::recordNote(std::uint64_t note, std::uint64_t velocity, std::uint64_t channel,
                                          bool isNoteOn) {
    (void)channel;
    record(isNoteOn ? LastMessage::Kind::noteOn : LastMessage::Kind::noteOff, note, velocity);
}

void HVCentralThroughputMeter::recordProgramChange(std::uint64_t program) {
    record(LastMessage::Kind::programChange, program, 0);
}

void HVCentralThroughputMeter::recordPitchBend(std::uint64_t value) {
    record(LastMessage::Kind::pitchBend, value, 0);
}

void HVCentralThroughputMeter::recordRaw(const std::string& description) {
    const double time = now();
    std::lock_guard guard(lock_);
    last_.kind = LastMessage::Kind::raw;
    last_.raw = description;
    timestamps_.push_back(time);
    prune(time);
}

void HVCentralThroughputMeter::record(LastMessage::Kind kind, std::uint64_t number, std::uint64_t value) {
    const double time = now();
    std::lock_guard guard(lock_);
    last_.kind = kind;
    last_.number = number;
    last_.value = value;
    timestamps_.push_back(time);
    prune(time);
}

void HVCentralThroughputMeter::prune(double time) {
    const double cutoff = time - 1.0;
    while (!timestamps_.empty() && timestamps_.front() < cutoff) {
        timestamps_.pop_front();
    }
}

std::int64_t HVCentralThroughputMeter::messagesPerSecond() {
    const double time = now();
    std::lock_guard guard(lock_);
    prune(time);
    return static_cast<std::int64_t>(timestamps_.size());
}

std::optional<std::string> HVCentralThroughputMeter::lastMessageDescription() {
    std::lock_guard guard(lock_);
    switch (last_.kind) {
    case LastMessage::Kind::none:
        return std::nullopt;
    case LastMessage::Kind::controller:
        return fmt::format("CC {} \u00b7 {}", last_.number, last_.value);
    case LastMessage::Kind::noteOn:
        return fmt::format("Note On {} \u00b7 {}", last_.number, last_.value);
    case LastMessage::Kind::noteOff:
        return fmt::format("Note Off {} \u00b7 {}", last_.number, last_.value);
    case LastMessage::Kind::programChange:
        return fmt::format("PC {}", last_.number);
    case LastMessage::Kind::pitchBend:
        return fmt::format("Bend {}", last_.number);
    case LastMessage::Kind::raw:
        return last_.raw;
    }
    return std::nullopt;
}

void HVCentralThroughputMeter::reset() {
    std::lock_guard guard(lock_);
    timestamps_.clear();
    last_ = {};
}

}  // namespace havrel
