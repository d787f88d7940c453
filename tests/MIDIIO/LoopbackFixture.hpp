#pragma once
// A fresh loopback server for each test, a manual main queue that this thread runs, and the
// delivery of everything in flight without sleeping.

#include "MIDIIO/MIDIManager.hpp"
#include "backends/midi_loopback/LoopbackMIDIServer.hpp"
#include "MIDIInternals/MainThread.hpp"
#include "MIDIInternals/ManualQueue.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace MIDIIO::testing {

class LoopbackTest : public ::testing::Test {
protected:
    // Installed at construction, so that the constructors of derived fixtures may use them.
    LoopbackTest() {
        MIDIInternals::setMainQueue(mainQueue);
        MIDIPlatform::setShared(server);
    }
    void TearDown() override {
        MIDIPlatform::setShared(nullptr);
        MIDIInternals::setMainQueue(nullptr);
    }

    // Runs what is due on the main queue; returns how many items ran.
    virtual std::size_t pollMainQueue() { return mainQueue->poll(); }

    // Delivers everything in flight (the server's queue, the managers' queues, then the main
    // queue, until none of them has anything left), then tells whether the condition holds.
    bool delivered(const std::function<bool()>& condition) {
        do {
            server->flush();
        } while (pollMainQueue() > 0);
        return condition();
    }

    std::shared_ptr<MIDIManager> startedManager(const std::string& name,
                                                MIDIManager::NotificationHandler handler = nullptr) {
        auto manager = MIDIManager::create(server, name, "Havrel", "HavrelApps", std::move(handler));
        manager->start();
        return manager;
    }

    // The bytes a device destination has received from its packet number `from` on, and how many
    // packets that was.
    std::pair<std::vector<std::uint8_t>, std::size_t> destinationBytesSince(MIDIEndpointRef destination, std::size_t from) {
        auto packets = server->deviceDestinationLog(destination);
        std::pair<std::vector<std::uint8_t>, std::size_t> result;
        for (auto it = packets.begin() + static_cast<std::ptrdiff_t>(from); it != packets.end(); ++it) {
            result.first.insert(result.first.end(), it->begin(), it->end());
            result.second += it->empty() ? 0 : 1;
        }
        return result;
    }

    std::shared_ptr<MIDIInternals::ManualQueue> mainQueue = std::make_shared<MIDIInternals::ManualQueue>("main");
    std::shared_ptr<LoopbackMIDIServer> server = LoopbackMIDIServer::create();
};

// Events received, with the thread check of each delivery.
struct EventLog {
    std::mutex mutex;
    std::vector<MIDICore::MIDIEvent> events;
    std::vector<std::optional<MIDIOutputEndpoint>> sources;
    bool allOnQueue = true;
    std::shared_ptr<MIDIInternals::DispatchQueue> expectedQueue;

    MIDIReceiver receiver(MIDIReceiverOptions options = MIDIReceiver::defaultOptions) {
        return MIDIReceiver::events(
            [this](const std::vector<MIDICore::MIDIEvent>& received, MIDITimeStamp,
                   const std::optional<MIDIOutputEndpoint>& source) {
                std::lock_guard lock(mutex);
                if (expectedQueue && !expectedQueue->isCurrent()) {
                    allOnQueue = false;
                }
                events.insert(events.end(), received.begin(), received.end());
                sources.push_back(source);
            },
            options);
    }
    std::size_t count() {
        std::lock_guard lock(mutex);
        return events.size();
    }
    std::vector<MIDICore::MIDIEvent> snapshot() {
        std::lock_guard lock(mutex);
        return events;
    }
};

// The texts of the notifications a manager sends, from whichever thread sends them.
struct NotificationLog {
    std::mutex mutex;
    std::vector<std::string> texts;

    MIDIManager::NotificationHandler handler() {
        return [this](const MIDIIONotification& notification) {
            std::lock_guard lock(mutex);
            texts.push_back(notification.description());
        };
    }
    bool noticed(const std::string& prefix) {
        std::lock_guard lock(mutex);
        return std::any_of(texts.begin(), texts.end(), [&](const std::string& text) { return text.starts_with(prefix); });
    }
};

}  // namespace MIDIIO::testing
