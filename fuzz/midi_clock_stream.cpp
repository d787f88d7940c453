// Arbitrary MIDI 1.0 bytes as a clock source would send them, into the application's MIDI
// manager: the clock parser, the tempo/position handling and the observer registry with its
// removal order. The first byte chooses which parties register (some without a tick callback,
// some whose objects go away mid-stream); each byte of the rest also moves the clock on by its
// value in tenths of a millisecond. Nothing a stream does may fault, and the values read back
// must be sane.
#include "DictionaryFuzzSupport.hpp"
#include "FuzzCheck.hpp"
#include "MIDICore/MIDI1Parser.hpp"
#include "backends/midi_loopback/LoopbackMIDIServer.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/Log.hpp"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

namespace {

using namespace havrel;

using fuzz::DiscardingSink;

double now = 1000.0;

std::shared_ptr<HVMIDIManager> manager() {
    static std::shared_ptr<HVMIDIManager> instance = [] {
        setLogSink(std::make_shared<DiscardingSink>());
        havrel::installMIDILibraryServices();
        char pattern[] = "/tmp/havrel-fuzz-clock-XXXXXX";
        const std::filesystem::path folder = ::mkdtemp(pattern);
        DefaultsStore::setStandard(std::make_shared<DefaultsStore>(folder / "defaults.json"));
        MIDIIO::MIDIPlatform::setShared(MIDIIO::LoopbackMIDIServer::create());
        HVMIDIManager::setClockForTesting([] { return now; });
        auto configuration = HVConnectionTypeConfiguration::create();
        configuration->productToSendOut = "Fuzz";
        auto created = HVMIDIManager::initSharedClockTestWithConnectionConfiguration(configuration);
        created->stopTimers();
        return created;
    }();
    return instance;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    auto midi = manager();
    std::span<const std::uint8_t> input(data, size);
    const std::uint8_t pattern = input[0];

    // Up to four parties; bit n set registers party n for ticks first (so it stays), clear
    // registers it for tempo only (so the first tick drops it). Parties 2 and 3 go away halfway.
    std::vector<std::shared_ptr<int>> parties;
    std::uint64_t calls = 0;
    for (int n = 0; n < 4; ++n) {
        auto party = std::make_shared<int>(n);
        if ((pattern >> n) & 1) {
            midi->registerForQNChangesWithRegistrar(party, [&calls](std::uint64_t) { ++calls; });
        }
        midi->registerForTempoChangesWithRegistrar(
            party, [&calls](bool) { ++calls; },
            [&calls](double position, std::int32_t bar, std::int32_t, std::int32_t) {
                FUZZ_CHECK(std::isfinite(position) && bar >= 1);
                ++calls;
            },
            [&calls](double bpm) {
                FUZZ_CHECK(std::isfinite(bpm) && bpm > 0);
                ++calls;
            });
        parties.push_back(party);
    }

    MIDICore::MIDI1Parser parser;
    const auto body = input.subspan(1);
    const std::size_t half = body.size() / 2;
    for (std::size_t i = 0; i < body.size(); ++i) {
        if (i == half) {
            parties.resize(2);
        }
        now += body[i] * 1e-4;
        std::vector<MIDICore::MIDIEvent> events;
        parser.parse(body.subspan(i, 1), MIDICore::UInt4(0),
                     [&](MIDICore::MIDIEvent&& event) { events.push_back(std::move(event)); });
        if (!events.empty()) {
            midi->didReceiveEvents(events);
        }
    }
    FUZZ_CHECK(midi->bar() >= 0 && midi->beat() >= 0);
    FUZZ_CHECK(std::isfinite(midi->tempo()) && midi->tempo() >= 0);

    // Leave no party behind for the next input.
    for (const auto& party : parties) {
        midi->removeRegistrationForTempoChangesWithRegistrar(party);
    }
    parties.clear();
    while (midi->midiTimeObserverCount() > 0) {
        midi->didReceiveEvents({MIDICore::MIDIEvent::timingClock()});
    }
    return 0;
}
