#pragma once
// The Central inside the simulator's process, for a run over the simulated radio (the radio
// exists only in this process): the core on the in-process loopback MIDI server with the
// radio as its Bluetooth platform, its USB transport kept away from the usbmux daemon and the
// local path, and every message leaving its virtual output handed over as the host program
// prints it ("midi-out ..."). It scans as soon as the radio reports power. Main queue.

#include "backends/bluetooth_simulated/SimulatedBluetoothRadio.hpp"

#include <functional>
#include <memory>
#include <string>

namespace havrel {

class HVMIDIOutputMonitor;
class HVMIDIManager;

class HVSimBluetoothHost {
public:
    using LineHandler = std::function<void(const std::string& line)>;

    // Brings the core up for the product on the radio; the MIDI print goes to midiOut, on a
    // queue of the MIDI server.
    static std::unique_ptr<HVSimBluetoothHost> start(std::shared_ptr<SimulatedBluetoothRadio> radio,
                                                     const std::string& product, LineHandler midiOut);
    // Shuts the core down: links cancelled, endpoints disposed of.
    ~HVSimBluetoothHost();

    HVSimBluetoothHost(const HVSimBluetoothHost&) = delete;
    HVSimBluetoothHost& operator=(const HVSimBluetoothHost&) = delete;

private:
    HVSimBluetoothHost() = default;
    void scanWhenPowered();

    std::shared_ptr<HVMIDIManager> midi_;
    std::unique_ptr<HVMIDIOutputMonitor> monitor_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace havrel
