#pragma once
// The ALSA sequencer backend as a host chooses it: its name on the command line, whether the
// sequencer can be used here, a fresh server, and the installation of one as the process's MIDI
// platform.

#include "MIDIIO/MIDIPlatform.hpp"
#include "backends/midi_alsa/AlsaMIDIServer.hpp"

#include <memory>

namespace MIDIIO {

class AlsaMIDIBackend {
public:
    static constexpr const char* name = "alsa";
    static constexpr const char* devicePath = "/dev/snd/seq";

    // Whether the sequencer's device opens.
    static bool isAvailable();
    // A server on the default sequencer; see AlsaMIDIServer::status() for whether it opened.
    static std::shared_ptr<AlsaMIDIServer> create();
    // Makes a new server the process's MIDI platform and returns it.
    static std::shared_ptr<AlsaMIDIServer> install();
};

}  // namespace MIDIIO
