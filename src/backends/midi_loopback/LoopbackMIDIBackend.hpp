#pragma once
// The loopback backend as a host chooses it: its name on the command line, a fresh server, and
// the installation of one as the process's MIDI platform.

#include "MIDIIO/MIDIPlatform.hpp"
#include "backends/midi_loopback/LoopbackMIDIServer.hpp"

#include <memory>

namespace MIDIIO {

class LoopbackMIDIBackend {
public:
    static constexpr const char* name = "loopback";

    // A new, empty server.
    static std::shared_ptr<LoopbackMIDIServer> create();
    // Makes a new server the process's MIDI platform and returns it.
    static std::shared_ptr<LoopbackMIDIServer> install();
};

}  // namespace MIDIIO
