#pragma once
// Watches what leaves through a virtual output from the outside: a MIDI client of its own,
// connected to the output endpoint like any other application, turning each event it hears
// into one line:
//   midi-out "<endpoint name>" ump=<words> midi1=<bytes>
// with the UMP words as sent at MIDI 2.0 (8 upper-case hex digits each) and the MIDI 1.0 bytes
// of the same event (2 upper-case hex digits each; nothing after "midi1=" for an event with no
// MIDI 1.0 form). Lines are handed over on the monitor's receive queue, in order.
//
// Monitors of the same endpoint name on the same MIDI platform share one MIDI client (named by
// the first of them): each message is delivered and decoded once and handed to every monitor in
// the order they started. A monitor's handler is not called once its destructor has returned.

#include "MIDICore/MIDIEvent.hpp"
#include "MIDIIO/MIDIManager.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace havrel {

class HVMIDIOutputMonitor {
public:
    using LineHandler = std::function<void(const std::string& line)>;

    // Starts a MIDI client named clientName on the process's MIDI platform and connects it to
    // every output endpoint named endpointName, now or when it appears. nullptr when the MIDI
    // client cannot start (after a log line).
    static std::unique_ptr<HVMIDIOutputMonitor> start(const std::string& clientName, const std::string& endpointName,
                                                      LineHandler handler);
    // The same, handing over each event with the name of the endpoint it left through.
    using EventHandler = std::function<void(const std::string& endpointName, const MIDICore::MIDIEvent& event)>;
    static std::unique_ptr<HVMIDIOutputMonitor> startWithEvents(const std::string& clientName,
                                                                const std::string& endpointName,
                                                                EventHandler handler);
    ~HVMIDIOutputMonitor();

    static std::string lineForEvent(const std::string& endpointName, const MIDICore::MIDIEvent& event);

private:
    struct Tap;
    HVMIDIOutputMonitor(std::shared_ptr<Tap> tap, std::uint64_t id);
    static std::shared_ptr<Tap> startTap(const std::string& clientName, const std::string& endpointName);

    std::shared_ptr<Tap> tap_;
    std::uint64_t id_;
};

}  // namespace havrel
