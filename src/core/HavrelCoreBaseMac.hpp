#pragma once
// The entry of the core: the host says once who it is, and the client registry, its transports
// and the MIDI output come up.

#include <string>

namespace havrel {

class HavrelCoreBaseMac final {
public:
    HavrelCoreBaseMac() = delete;

    // Starts the client registry with the product and version, then the MIDI manager in its
    // minimal form (one virtual output named after the product) with a configuration whose
    // switches are all off, and routes control traffic to it. The API version is accepted and
    // not used. Calling it again starts everything afresh.
    // A host that sets up the full MIDI service itself says so (fromHost), and no MIDI client is
    // started here only to be replaced.
    enum class MIDIService { minimal, fromHost };
    static void instantiateWithProductToSendOut(const std::string& product, const std::string& version,
                                                const std::string& apiVersion,
                                                MIDIService midiService = MIDIService::minimal);
    // False until the first instantiate has finished.
    static bool isInitiated();
};

}  // namespace havrel
