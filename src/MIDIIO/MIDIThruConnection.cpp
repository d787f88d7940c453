#include "MIDIIO/MIDIThruConnection.hpp"

#include "MIDIIO/MIDIManager.hpp"
#include "MIDIIO/MIDIPacketLayout.hpp"

#include <array>

namespace MIDIIO {

void MIDIThruConnectionProxy::refresh() {
    if (inputConnection) {
        try {
            inputConnection->refreshConnections();
        } catch (const MIDIIOError&) {
            // A source that vanished meanwhile: the next change connects again.
        }
    }
    if (outputConnection) {
        outputConnection->refreshConnections();
    }
}

MIDIThruConnection::MIDIThruConnection(std::weak_ptr<MIDIManager> manager, std::shared_ptr<MIDIPlatform> platform,
                                       std::vector<MIDIOutputEndpoint> outputs, std::vector<MIDIInputEndpoint> inputs,
                                       Lifecycle lifecycle, Parameters parameters, CoreMIDIAPIVersion api)
    : midiManager_(std::move(manager)),
      platform_(std::move(platform)),
      api_(api),
      outputs_(std::move(outputs)),
      inputs_(std::move(inputs)),
      lifecycle_(std::move(lifecycle)),
      parameters_(parameters) {}

MIDIThruConnection::~MIDIThruConnection() { dispose(); }

void MIDIThruConnection::dispose() {
    if (coreMIDIThruConnectionRef_ && !lifecycle_.isPersistent()) {
        platform_->thruConnectionDispose(*coreMIDIThruConnectionRef_);
        coreMIDIThruConnectionRef_.reset();
    }
    proxy_.reset();
}

MIDIThruConnectionParams MIDIThruConnection::coreMIDIParams() const {
    MIDIThruConnectionParams params;
    MIDIPlatform::thruConnectionParamsInitialize(&params);
    params.numSources = static_cast<std::uint32_t>(outputs_.size());
    params.numDestinations = static_cast<std::uint32_t>(inputs_.size());
    for (std::size_t i = 0; i < outputs_.size() && i < MIDIThruConnectionParams::kMaxEndpoints; ++i) {
        params.sources[i] = outputs_[i].coreMIDIObjectRef;
    }
    for (std::size_t i = 0; i < inputs_.size() && i < MIDIThruConnectionParams::kMaxEndpoints; ++i) {
        params.destinations[i] = inputs_[i].coreMIDIObjectRef;
    }
    params.filterOutAllControls = parameters_.filterOutAllControls;
    params.filterOutBeatClock = parameters_.filterOutBeatClock;
    params.filterOutMTC = parameters_.filterOutMTC;
    params.filterOutSysEx = parameters_.filterOutSysEx;
    params.filterOutTuneRequest = parameters_.filterOutTuneRequest;
    return params;
}

void MIDIThruConnection::create(MIDIManager& manager) {
    const MIDIThruConnectionParams params = coreMIDIParams();
    bool systemThru = platform_->supportsThruConnections(params);
    if (lifecycle_.isPersistent() && !systemThru) {
        throw MIDIIOError::notSupported(
            "Persistent MIDI Thru Connections cannot be created on macOS 11 & 12 and iOS 14 & 15 due to a Core MIDI "
            "bug. Consider using a non-persistent thru connection instead.");
    }
    if (systemThru) {
        MIDIThruConnectionRef ref = 0;
        MIDIIOError::check(platform_->thruConnectionCreate(lifecycle_.ownerID.value_or(""), params, &ref));
        coreMIDIThruConnectionRef_ = ref;
        return;
    }
    // The proxy: an output connection to the destinations, and an input connection from the
    // sources whose raw data goes straight to it.
    std::vector<MIDIEndpointIdentity> destinations;
    for (const auto& input : inputs_) {
        destinations.push_back(MIDIEndpointIdentity::uniqueID(input.uniqueID));
    }
    std::vector<MIDIEndpointIdentity> sources;
    for (const auto& output : outputs_) {
        sources.push_back(MIDIEndpointIdentity::uniqueID(output.uniqueID));
    }
    MIDIThruConnectionProxy proxy;
    proxy.outputConnection = std::make_shared<MIDIOutputConnection>(
        midiManager_, platform_, MIDIOutputConnectionMode::inputs(destinations), MIDIEndpointFilter{}, api_);
    proxy.outputConnection->setupOutput(manager);
    std::weak_ptr<MIDIOutputConnection> weakOutput = proxy.outputConnection;
    auto forward = MIDIReceiver::rawData([weakOutput](const AnyMIDIPacketData& packet) {
        auto output = weakOutput.lock();
        if (!output) {
            return;
        }
        try {
            if (packet.isUniversal()) {
                const auto& bytes = packet.bytes();
                std::array<std::uint32_t, kMIDIEventPacketMaxWords> words{};
                std::size_t count = std::min(bytes.size() / 4, words.size());
                for (std::size_t i = 0; i < count; ++i) {
                    words[i] = (std::uint32_t{bytes[4 * i]} << 24) | (std::uint32_t{bytes[4 * i + 1]} << 16) |
                               (std::uint32_t{bytes[4 * i + 2]} << 8) | bytes[4 * i + 3];
                }
                output->send(std::span<const std::uint32_t>(words.data(), count));
            } else {
                output->send(std::span<const std::uint8_t>(packet.bytes()));
            }
        } catch (const MIDIIOError&) {
            // A destination that went away meanwhile.
        }
    });
    proxy.inputConnection = std::make_shared<MIDIInputConnection>(
        midiManager_, platform_, MIDIInputConnectionMode::outputs(sources), MIDIEndpointFilter{}, api_, forward);
    proxy.inputConnection->listen(manager);
    proxy_ = std::move(proxy);
}

void MIDIThruConnection::notifySetupChanged() {
    if (proxy_) {
        proxy_->refresh();
    }
}

}  // namespace MIDIIO
