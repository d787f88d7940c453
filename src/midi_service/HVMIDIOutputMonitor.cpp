#include "midi_service/HVMIDIOutputMonitor.hpp"

#include "platform/Log.hpp"
#include "platform/MIDILibraryServices.hpp"

#include <fmt/format.h>

#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace havrel {

struct HVMIDIOutputMonitor::Tap {
    // What the receive queue holds: the handlers, apart from the client, so that the client is
    // let go of where the last monitor ends and never on its own receive queue.
    struct Handlers {
        // Held while the handlers run, and while one is added or removed.
        std::mutex mutex;
        std::vector<std::pair<std::uint64_t, EventHandler>> list;
        std::uint64_t nextID = 0;
    };
    std::shared_ptr<MIDIIO::MIDIManager> manager;
    std::shared_ptr<Handlers> handlers = std::make_shared<Handlers>();

    ~Tap() {
        if (manager) {
            manager->removeAll();
        }
    }
};

namespace {

struct TapKey {
    const void* platform;
    std::string endpointName;
    auto operator<=>(const TapKey&) const = default;
};

std::mutex tapsMutex;
std::map<TapKey, std::weak_ptr<void>>& taps() {
    static std::map<TapKey, std::weak_ptr<void>> map;
    return map;
}

}  // namespace

HVMIDIOutputMonitor::HVMIDIOutputMonitor(std::shared_ptr<Tap> tap, std::uint64_t id)
    : tap_(std::move(tap)), id_(id) {}

HVMIDIOutputMonitor::~HVMIDIOutputMonitor() {
    {
        std::lock_guard lock(tap_->handlers->mutex);
        std::erase_if(tap_->handlers->list, [this](const auto& entry) { return entry.first == id_; });
    }
    std::lock_guard lock(tapsMutex);
    tap_.reset();  // the last monitor of the endpoint takes its MIDI client with it
}

std::string HVMIDIOutputMonitor::lineForEvent(const std::string& endpointName, const MIDICore::MIDIEvent& event) {
    std::string words;
    for (const auto& packet : event.umpRawWords(MIDICore::MIDIProtocolVersion::midi2_0)) {
        for (std::uint32_t word : packet) {
            fmt::format_to(std::back_inserter(words), "{}{:08X}", words.empty() ? "" : " ", word);
        }
    }
    std::string bytes;
    for (std::uint8_t byte : event.midi1RawBytes()) {
        fmt::format_to(std::back_inserter(bytes), "{}{:02X}", bytes.empty() ? "" : " ", byte);
    }
    return fmt::format("midi-out \"{}\" ump={} midi1={}", endpointName, words, bytes);
}

std::unique_ptr<HVMIDIOutputMonitor> HVMIDIOutputMonitor::start(const std::string& clientName,
                                                                const std::string& endpointName, LineHandler handler) {
    return startWithEvents(clientName, endpointName,
                           [handler = std::move(handler)](const std::string& name, const MIDICore::MIDIEvent& event) {
                               handler(lineForEvent(name, event));
                           });
}

std::unique_ptr<HVMIDIOutputMonitor> HVMIDIOutputMonitor::startWithEvents(const std::string& clientName,
                                                                          const std::string& endpointName,
                                                                          EventHandler handler) {
    installMIDILibraryServices();
    std::shared_ptr<Tap> tap;
    {
        std::lock_guard lock(tapsMutex);
        const TapKey key{MIDIIO::MIDIPlatform::shared().get(), endpointName};
        tap = std::static_pointer_cast<Tap>(taps()[key].lock());
        if (!tap) {
            tap = startTap(clientName, endpointName);
            if (!tap) {
                taps().erase(key);
                return nullptr;
            }
            taps()[key] = tap;
        }
    }
    std::lock_guard lock(tap->handlers->mutex);
    const auto id = tap->handlers->nextID++;
    tap->handlers->list.emplace_back(id, std::move(handler));
    return std::unique_ptr<HVMIDIOutputMonitor>(new HVMIDIOutputMonitor(tap, id));
}

std::shared_ptr<HVMIDIOutputMonitor::Tap> HVMIDIOutputMonitor::startTap(const std::string& clientName,
                                                                       const std::string& endpointName) {
    auto tap = std::make_shared<Tap>();
    auto manager = MIDIIO::MIDIManager::create(MIDIIO::MIDIPlatform::shared(), clientName, clientName, "Havrel");
    try {
        manager->start();
        // No option: a note on with velocity 0 is printed as what it is.
        auto receiver = MIDIIO::MIDIReceiver::events(
            [endpointName, handlers = tap->handlers](const std::vector<MIDICore::MIDIEvent>& events,
                                                     MIDIIO::MIDITimeStamp,
                                                     const std::optional<MIDIIO::MIDIOutputEndpoint>& source) {
                const std::string& name = source ? source->name : endpointName;
                std::lock_guard lock(handlers->mutex);
                for (const auto& event : events) {
                    for (const auto& [id, handler] : handlers->list) {
                        handler(name, event);
                    }
                }
            },
            MIDIIO::MIDIReceiverOptions());
        manager->addInputConnection(
            MIDIIO::MIDIInputConnectionMode::outputs({MIDIIO::MIDIEndpointIdentity::name(endpointName)}), "monitor",
            MIDIIO::MIDIEndpointFilter::default_(), receiver);
    } catch (const MIDIIO::MIDIIOError& error) {
        logf("[HVMIDIOutputMonitor] could not start the monitor: {}", error.description());
        return nullptr;
    }
    tap->manager = std::move(manager);
    return tap;
}

}  // namespace havrel
