#include "backends/midi_alsa/AlsaMIDIBackend.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace MIDIIO {

bool AlsaMIDIBackend::isAvailable() {
    int fd = ::open(devicePath, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    ::close(fd);
    return true;
}

std::shared_ptr<AlsaMIDIServer> AlsaMIDIBackend::create() { return AlsaMIDIServer::create(); }

std::shared_ptr<AlsaMIDIServer> AlsaMIDIBackend::install() {
    auto server = create();
    MIDIPlatform::setShared(server);
    return server;
}

}  // namespace MIDIIO
