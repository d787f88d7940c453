#include "midi_service/HVMIDIEntityObserver.hpp"

#include "platform/Assert.hpp"

#include <chrono>
#include <utility>

namespace havrel {

HVMIDIEntityObserver::HVMIDIEntityObserver(ChangeBlock changeBlock)
    : changeBlock_(std::move(changeBlock)),
      dispatchQueue_(SerialQueue::create("com.havrel.midimonitoring")) {
    HV_ASSERT(changeBlock_ != nullptr);
    // The destructor waits for this work and stops the queue before the object goes, so the
    // work and the timer may refer to the object directly.
    dispatchQueue_->async([this] {
        setConnectionString(std::nullopt);
        changeBlock_(std::nullopt, std::nullopt);
        timer_ = Timer::scheduled(*dispatchQueue_, std::chrono::seconds(1), true, [this] { checkConnection(); });
    });
}

HVMIDIEntityObserver::~HVMIDIEntityObserver() {
    // Queued behind the start-up work, so the timer exists by the time this runs.
    dispatchQueue_->sync([this] {
        HV_ASSERT(timer_ != nullptr);
        timer_->invalidate();
    });
    dispatchQueue_.reset();
}

void HVMIDIEntityObserver::checkConnection() {
    std::optional<std::string> old;
    {
        std::lock_guard lock(mutex_);
        old = std::exchange(connectionString_, std::nullopt);
    }
    if (old) {
        changeBlock_(std::nullopt, std::move(old));
    }
}

std::optional<std::string> HVMIDIEntityObserver::connectionString() const {
    std::lock_guard lock(mutex_);
    return connectionString_;
}

void HVMIDIEntityObserver::setConnectionString(std::optional<std::string> connectionString) {
    std::lock_guard lock(mutex_);
    connectionString_ = std::move(connectionString);
}

}  // namespace havrel
