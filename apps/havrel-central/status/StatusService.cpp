#include "StatusService.hpp"

#include "midi_service/HVMIDIOutputMonitor.hpp"
#include "platform/Log.hpp"
#include "platform/MainQueue.hpp"
#include "platform/Timer.hpp"

#include <chrono>

namespace havrel {

std::unique_ptr<StatusService> StatusService::start(const Options& options, std::shared_ptr<StatusSources> sources) {
    std::unique_ptr<StatusService> service(new StatusService());
    service->model_ = std::make_shared<StatusModel>(std::move(sources), options.allowControl);
    StatusServer::Options serverOptions;
    serverOptions.port = options.port;
    service->server_ =
        std::make_unique<StatusServer>(MainQueue::shared().context(), serverOptions, pageResources());
    // The handlers may still run for a request in flight after the service is gone (the server
    // lets its connections' work finish): they reach the model only while it lives.
    std::weak_ptr<StatusModel> weakModel = service->model_;
    service->server_->setGreetingHandler([weakModel] {
        auto model = weakModel.lock();
        return model ? model->state(true) : std::string();
    });
    service->server_->setMessageHandler([weakModel](const std::string& text) {
        auto model = weakModel.lock();
        return model ? model->handleRequest(text) : std::string();
    });
    std::string error;
    const auto port = service->server_->start(&error);
    if (!port) {
        logf("havrel-central: no status page: {}", error);
        return nullptr;
    }
    service->port_ = *port;

    // The info lines from now on, kept for the page and passed on to the sink that was there.
    service->logSink_ = std::make_shared<StatusLogSink>(setLogSink(nullptr), service->model_);
    setLogSink(service->logSink_);

    service->monitoredOutput_ = options.monitoredOutput;
    service->restartMonitor();
    StatusService* self = service.get();
    service->timer_ = Timer::scheduled(MainQueue::shared(), std::chrono::milliseconds(1000 / kUpdatesPerSecond), true,
                                       [self] { self->tick(); });
    logf("havrel-central: status page at http://127.0.0.1:{}/ ({})", service->port_,
         options.allowControl ? "changes allowed" : "read-only");
    return service;
}

void StatusService::restartMonitor() {
    monitor_.reset();
    if (monitoredOutput_.empty()) {
        return;
    }
    model_->setMonitoredEndpoint(monitoredOutput_);
    std::weak_ptr<StatusModel> weakModel = model_;
    monitor_ = HVMIDIOutputMonitor::startWithEvents(
        "havrel-central status", monitoredOutput_, [weakModel](const std::string&, const MIDICore::MIDIEvent& event) {
            if (auto model = weakModel.lock()) {
                model->addMonitorEvent(event);
            }
        });
}

StatusService::~StatusService() {
    if (timer_) {
        timer_->invalidate();
    }
    monitor_.reset();
    if (logSink_) {
        auto current = setLogSink(nullptr);
        setLogSink(current == logSink_ ? static_cast<StatusLogSink&>(*logSink_).next() : current);
    }
    server_.reset();
}

void StatusService::tick() {
    // With no page open and nothing in the queues the timer turns once a second, for the
    // throughput samples alone, so an idle program does not wake twenty times a second; a
    // page's greeting carries the state. While messages flow the queues are drained at the
    // page's pace all the same, so they do not fill up and drop while nobody looks.
    const bool watched = server_->connectionCount() > 0;
    const bool busy = model_->drain() > 0;
    const auto interval = watched || busy ? std::chrono::milliseconds(1000 / kUpdatesPerSecond)
                                          : std::chrono::milliseconds(1000);
    if (timer_ && timer_->interval() != interval) {
        timer_->rearm(interval);
        ticks_ = 0;
    }
    if (interval.count() == 1000 || ++ticks_ % kUpdatesPerSecond == 0) {
        model_->sampleThroughput();
    }
    if (!watched) {
        lastSent_.clear();
        return;
    }
    std::string state = model_->state(false);
    if (state != lastSent_) {
        server_->broadcast(state);
        ++statesSent_;
        lastSent_ = std::move(state);
    }
}

}  // namespace havrel
