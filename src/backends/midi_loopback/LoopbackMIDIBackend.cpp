#include "backends/midi_loopback/LoopbackMIDIBackend.hpp"

namespace MIDIIO {

std::shared_ptr<LoopbackMIDIServer> LoopbackMIDIBackend::create() { return LoopbackMIDIServer::create(); }

std::shared_ptr<LoopbackMIDIServer> LoopbackMIDIBackend::install() {
    auto server = create();
    MIDIPlatform::setShared(server);
    return server;
}

}  // namespace MIDIIO
