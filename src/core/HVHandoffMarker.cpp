#include "core/HVHandoffMarker.hpp"

#include "core/HVCentralConnectionManager.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/MainQueue.hpp"
#include "platform/SerialQueue.hpp"

#include <fmt/chrono.h>

#include <algorithm>
#include <ctime>

namespace havrel {

namespace {

// The current date and time as ISO-8601 text in UTC, to the second: "2024-05-01T09:30:00Z".
std::string currentDateText() {
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now())));
}

}  // namespace

std::shared_ptr<HVHandoffMarker> HVHandoffMarker::create() {
    return std::make_shared<HVHandoffMarker>();
}

HVHandoffMarker::HVHandoffMarker() : queue_(SerialQueue::create("com.havrelapps.handoff.marker")) {}

HVHandoffMarker::~HVHandoffMarker() {
    if (writePending_) {
        writeNow();
    }
    queue_->sync([] {});
}

void HVHandoffMarker::markConnection() {
    date_ = currentDateText();
    if (writePending_) {
        return;
    }
    writePending_ = true;
    auto& main = MainQueue::shared();
    const auto due = lastWrite_ ? std::max(main.now(), *lastWrite_ + kMinimumInterval) : main.now();
    std::weak_ptr<HVHandoffMarker> weak = weak_from_this();
    main.postAt(due, [weak] {
        if (auto self = weak.lock()) {
            self->writeNow();
        }
    });
}

void HVHandoffMarker::writeNow() {
    writePending_ = false;
    lastWrite_ = MainQueue::shared().now();
    queue_->post([store = DefaultsStore::standard(), date = date_, writes = writes_] {
        store->set(kLastConnectedAtKey, date);
        ++*writes;
    });
}

}  // namespace havrel
