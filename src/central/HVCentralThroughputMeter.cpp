#include "central/HVCentralThroughputMeter.hpp"

#include "platform/MainQueue.hpp"
#include "platform/SharedSlot.hpp"

#include <fmt/format.h>

#include <algorithm>
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
    recordRaw(fmt::format("CC {} \u00b7 {}", controller, value));
}

void HVCentralThroughputMeter::recordNote(std::uint64_t note, std::uint64_t velocity, std::uint64_t channel,
                                          bool isNoteOn) {
    (void)channel;
    recordRaw(fmt::format("{} {} \u00b7 {}", isNoteOn ? "Note On" : "Note Off", note, velocity));
}

void HVCentralThroughputMeter::recordRaw(const std::string& description) {
    const double time = now();
    std::lock_guard guard(lock_);
    timestamps_.push_back(time);
    lastDescription_ = description;
    prune(time);
}

void HVCentralThroughputMeter::prune(double time) {
    const double cutoff = time - 1.0;
    auto first = std::find_if(timestamps_.begin(), timestamps_.end(), [cutoff](double t) { return t >= cutoff; });
    timestamps_.erase(timestamps_.begin(), first);
}

std::int64_t HVCentralThroughputMeter::messagesPerSecond() {
    const double time = now();
    std::lock_guard guard(lock_);
    prune(time);
    return static_cast<std::int64_t>(timestamps_.size());
}

std::optional<std::string> HVCentralThroughputMeter::lastMessageDescription() {
    std::lock_guard guard(lock_);
    return lastDescription_;
}

void HVCentralThroughputMeter::reset() {
    std::lock_guard guard(lock_);
    timestamps_.clear();
    lastDescription_.reset();
}

}  // namespace havrel
