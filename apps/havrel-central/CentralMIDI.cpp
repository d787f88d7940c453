#include "CentralMIDI.hpp"

#include "MIDIIO/MIDIPlatform.hpp"
#include "midi_service/HVMIDIOutputMonitor.hpp"
#include "musical_output/HVTempoPositionForwarder.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"

namespace havrel {

CentralMIDI::CentralMIDI(Options options) : options_(std::move(options)) { build(); }

CentralMIDI::~CentralMIDI() = default;

void CentralMIDI::build() {
    service_ = HVMIDIManager::initSharedWithConnectionConfiguration(options_.configuration);
    tempoForwarder_ = HVTempoPositionForwarder::install(service_);
    tempoForwarder_->forwardInternalClock();
    service_->setReceivedEventsObserver(receivedEventsObserver_);
    if (options_.printLine) {
        printMonitor_ = HVMIDIOutputMonitor::start("havrel-central monitor", service_->outputName(), options_.printLine);
    }
}

void CentralMIDI::tearDown() {
    printMonitor_.reset();
    tempoForwarder_.reset();
    if (service_) {
        service_->setReceivedEventsObserver(nullptr);
        service_->stopTimers();
        if (service_->midiManager()) {
            service_->midiManager()->removeAll();
        }
    }
}

void CentralMIDI::setReceivedEventsObserver(HVMIDIManager::ReceivedEventsObserver observer) {
    receivedEventsObserver_ = std::move(observer);
    if (service_ && !stopped_) {
        service_->setReceivedEventsObserver(receivedEventsObserver_);
    }
}

void CentralMIDI::addRebuiltHandler(std::function<void()> handler) { rebuiltHandlers_.push_back(std::move(handler)); }

// Departure: the service never changes its MIDI platform while it runs; on Linux the sequencer
// can go away under a running program, and the program goes on without it rather than failing
// every send for the rest of its life.
void CentralMIDI::platformLost(const std::string& reason) {
    if (onFallback_ || stopped_ || !options_.fallbackPlatform) {
        return;
    }
    onFallback_ = true;
    logf("havrel-central: the MIDI backend went away ({}) — going on with the loopback MIDI server; restart "
         "havrel-central to reach it again",
         reason);
    tearDown();
    MIDIIO::MIDIPlatform::setShared(options_.fallbackPlatform());
    build();
    for (const auto& handler : rebuiltHandlers_) {
        handler();
    }
}

std::function<void(const std::string& reason)> CentralMIDI::lossHandler() {
    return [self = std::weak_ptr<CentralMIDI*>(self_)](const std::string& reason) {
        MainQueue::shared().post([self, reason] {
            if (const auto live = self.lock()) {
                (*live)->platformLost(reason);
            }
        });
    };
}

void CentralMIDI::stop() {
    stopped_ = true;
    tearDown();
}

}  // namespace havrel
