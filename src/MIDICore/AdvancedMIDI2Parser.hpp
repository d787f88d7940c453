#pragma once
// AdvancedMIDI2Parser is MIDI2Parser followed by ParameterNumberEventBundler: it joins an RPN or
// NRPN whose data entry LSB arrives as a separate message. Because it may hold an event back,
// it delivers through `handleEvents` rather than returning events; a held event that times out
// is delivered from the given queue. Generic over the time-stamp and source types of the
// packets, so that the core knows nothing of the platform's endpoints.

#include "MIDICore/MIDI2Parser.hpp"
#include "MIDICore/ParameterNumberEventBundler.hpp"

#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <utility>

namespace MIDICore {

template <class TimeStamp, class Source>
class AdvancedMIDI2Parser {
public:
    using Bundler = ParameterNumberEventBundler<TimeStamp, Source>;
    using HandleEvents = typename Bundler::HandleEvents;

    // `expirationQueue` runs the bundler's time-outs; give the receiver's own queue so that
    // every delivery happens there.
    AdvancedMIDI2Parser(HandleEvents handleEvents, std::shared_ptr<MIDIInternals::DispatchQueue> expirationQueue)
        : handleEvents_(handleEvents), pnBundler(std::move(expirationQueue), std::move(handleEvents)) {}

    // True by default; when false, events go to handleEvents as parsed.
    bool bundleRPNAndNRPNDataEntryLSB() const { return bundle_.load(); }
    void setBundleRPNAndNRPNDataEntryLSB(bool bundle) { bundle_.store(bundle); }

    void setHandleEvents(HandleEvents handleEvents) {
        handleEvents_ = handleEvents;
        pnBundler.setHandleEvents(std::move(handleEvents));
    }

    void parseEvents(std::span<const std::uint8_t> bytes, const TimeStamp& timeStamp,
                     const std::optional<Source>& source = std::nullopt) {
        auto events = parser.parsedEvents(bytes);
        if (bundleRPNAndNRPNDataEntryLSB()) {
            pnBundler.process(std::move(events), timeStamp, source);
        } else if (!events.empty() && handleEvents_) {
            handleEvents_(std::move(events), timeStamp, source);
        }
    }
    // A packet value with `bytes`, `timeStamp` and an optional `source`.
    template <class Packet>
        requires requires(const Packet& packet) {
            std::span<const std::uint8_t>(packet.bytes);
            packet.timeStamp;
            packet.source;
        }
    void parseEvents(const Packet& packet) {
        parseEvents(std::span<const std::uint8_t>(packet.bytes), packet.timeStamp, packet.source);
    }

    MIDI2Parser parser;

private:
    HandleEvents handleEvents_;
    std::atomic<bool> bundle_{true};

public:
    Bundler pnBundler;
};

}  // namespace MIDICore
