#pragma once
// The program's MIDI side on the process's MIDI platform: the MIDI service, the forwarder of
// MIDI clock's tempo and position to the USB clients, and the monitor behind --print-midi.
//
// When the platform is lost while running (the ALSA sequencer removed our client, its module
// was reloaded), the whole side is made again, once, on a loopback server: clients keep playing
// into this process's own endpoints instead of every send failing, and one line says so. The
// MIDI library takes its platform once, at a manager's creation, so nothing of the old side is
// kept. A restart of the program reaches the sequencer again.

#include "central/HVConnectionTypeConfiguration.hpp"
#include "midi_service/HVMIDIManager.hpp"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace MIDIIO {
class MIDIPlatform;
}

namespace havrel {

class HVMIDIOutputMonitor;
class HVTempoPositionForwarder;

class CentralMIDI {
public:
    struct Options {
        std::shared_ptr<HVConnectionTypeConfiguration> configuration;
        // Each line of --print-midi; empty: no print.
        std::function<void(const std::string& line)> printLine;
        // The platform to go on with when the installed one is lost.
        std::function<std::shared_ptr<MIDIIO::MIDIPlatform>()> fallbackPlatform;
    };

    // Sets the MIDI side up on the installed platform (main queue).
    explicit CentralMIDI(Options options);
    ~CentralMIDI();
    CentralMIDI(const CentralMIDI&) = delete;
    CentralMIDI& operator=(const CentralMIDI&) = delete;

    // Told on the main queue each time the side was made again (the host's own watchers of the
    // output start afresh there).
    void addRebuiltHandler(std::function<void()> handler);
    // Installs the fallback platform and makes the side again there, the first time; later calls
    // do nothing. Main queue.
    void platformLost(const std::string& reason);
    bool isOnFallback() const { return onFallback_; }
    // What the lost platform calls, on any thread: it hands the loss to the main queue, where it
    // reaches this object while it lives.
    std::function<void(const std::string& reason)> lossHandler();

    const std::shared_ptr<HVMIDIManager>& service() const { return service_; }
    // Shown every received batch, by this service and by any it is made again as.
    void setReceivedEventsObserver(HVMIDIManager::ReceivedEventsObserver observer);
    // Orderly end: timers stopped, the print's monitor gone, endpoints disposed of; a loss
    // told afterwards changes nothing.
    void stop();

private:
    void build();
    void tearDown();

    Options options_;
    std::shared_ptr<HVMIDIManager> service_;
    std::shared_ptr<HVTempoPositionForwarder> tempoForwarder_;
    std::unique_ptr<HVMIDIOutputMonitor> printMonitor_;
    std::vector<std::function<void()>> rebuiltHandlers_;
    HVMIDIManager::ReceivedEventsObserver receivedEventsObserver_;
    bool onFallback_ = false;
    bool stopped_ = false;
    std::shared_ptr<CentralMIDI*> self_ = std::make_shared<CentralMIDI*>(this);
};

}  // namespace havrel
