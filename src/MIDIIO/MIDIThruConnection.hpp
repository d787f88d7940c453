#pragma once
// A route from sources to destinations kept by the system; where the system has no thru
// connections of its own, a proxy of an input and an output connection forwards the data.

#include "MIDIIO/MIDIInputConnection.hpp"
#include "MIDIIO/MIDIOutputConnection.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace MIDIIO {

class MIDIThruConnectionProxy {
public:
    std::shared_ptr<MIDIInputConnection> inputConnection;
    std::shared_ptr<MIDIOutputConnection> outputConnection;
    // Connects again to the endpoints found now.
    void refresh();
};

class MIDIThruConnection {
public:
    struct Lifecycle {
        std::optional<std::string> ownerID;  // persistent when present
        static Lifecycle persistent(std::string ownerID) { return Lifecycle{std::move(ownerID)}; }
        static Lifecycle nonPersistent() { return Lifecycle{}; }
        bool isPersistent() const { return ownerID.has_value(); }
    };
    struct Parameters {
        bool filterOutAllControls = false;
        bool filterOutBeatClock = false;
        bool filterOutMTC = false;
        bool filterOutSysEx = false;
        bool filterOutTuneRequest = false;
    };

    MIDIThruConnection(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform,
                       std::vector<MIDIOutputEndpoint> outputs, std::vector<MIDIInputEndpoint> inputs,
                       Lifecycle lifecycle, Parameters parameters, CoreMIDIAPIVersion api);
    // Disposes of a non-persistent connection; a persistent one stays with the system.
    ~MIDIThruConnection();
    // Disposes of a non-persistent system connection (or the proxy) now.
    void dispose();

    // Creates the system connection, or the proxy where the system has none.
    void create(MIDIManager& manager);
    // The routing as handed to the system: full counts, at most eight of each in the table.
    MIDIThruConnectionParams coreMIDIParams() const;

    std::optional<MIDIThruConnectionRef> coreMIDIThruConnectionRef() const { return coreMIDIThruConnectionRef_; }
    const std::vector<MIDIOutputEndpoint>& outputs() const { return outputs_; }
    const std::vector<MIDIInputEndpoint>& inputs() const { return inputs_; }
    const Lifecycle& lifecycle() const { return lifecycle_; }
    const Parameters& parameters() const { return parameters_; }
    const std::optional<MIDIThruConnectionProxy>& proxy() const { return proxy_; }
    // After a change of the setup: the proxy connects again.
    void notifySetupChanged();

private:
    std::weak_ptr<MIDIManager> midiManager_;
    std::shared_ptr<MIDIPlatform> platform_;
    CoreMIDIAPIVersion api_;
    std::optional<MIDIThruConnectionRef> coreMIDIThruConnectionRef_;
    std::vector<MIDIOutputEndpoint> outputs_;
    std::vector<MIDIInputEndpoint> inputs_;
    Lifecycle lifecycle_;
    Parameters parameters_;
    std::optional<MIDIThruConnectionProxy> proxy_;
};

}  // namespace MIDIIO
