#include "midi_service/HVMIDIOutputMonitor.hpp"

#include "platform/Log.hpp"
#include "platform/MIDILibraryServices.hpp"

#include <fmt/format.h>

namespace havrel {

HVMIDIOutputMonitor::HVMIDIOutputMonitor(std::shared_ptr<MIDIIO::MIDIManager> manager) : manager_(std::move(manager)) {}

HVMIDIOutputMonitor::~HVMIDIOutputMonitor() {
    if (manager_) {
        manager_->removeAll();
    }
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
    auto manager = MIDIIO::MIDIManager::create(MIDIIO::MIDIPlatform::shared(), clientName, clientName, "Havrel");
    try {
        manager->start();
        // No option: a note on with velocity 0 is printed as what it is.
        auto receiver = MIDIIO::MIDIReceiver::events(
            [endpointName, handler](const std::vector<MIDICore::MIDIEvent>& events, MIDIIO::MIDITimeStamp,
                                    const std::optional<MIDIIO::MIDIOutputEndpoint>& source) {
                const std::string& name = source ? source->name : endpointName;
                for (const auto& event : events) {
                    handler(name, event);
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
    return std::unique_ptr<HVMIDIOutputMonitor>(new HVMIDIOutputMonitor(std::move(manager)));
}

}  // namespace havrel
