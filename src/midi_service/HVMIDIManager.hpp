#pragma once
// The application's MIDI service: the one process-wide object through which every MIDI
// message of the system leaves and through which MIDI clock comes in. It owns a MIDIManager,
// publishes the virtual endpoints other applications see ("<product> Input" and "<product>
// Output", their unique IDs kept in the defaults store), joins every named endpoint of the
// machine to itself once a second, picks out the network sessions, keeps one hardware fan-out
// connection, and follows MIDI clock for the observers that register.
//
// Sends run on the caller's thread and allocate nothing beyond the event. Set-up and the two
// refresh timers run on the main queue. Received events and the clock handling run on the
// queue of the input that received them, one batch at a time across all inputs.

#include "central/HVConnectionTypeConfiguration.hpp"
#include "central/HVMIDISender.hpp"
#include "midi_service/HVMIDIClockParser.hpp"
#include "midi_service/HVTempoChangeObservationContainer.hpp"
#include "MIDIIO/MIDIManager.hpp"
#include "platform/Timer.hpp"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace havrel {

class HVMIDIEntityObserver;

class HVMIDIManager final : public HVMIDISender, public std::enable_shared_from_this<HVMIDIManager> {
public:
    // Each replaces the shared instance with a new one, without looking at what was there, and
    // runs one set-up: the full service, output only, or listening to clock on every source.
    static std::shared_ptr<HVMIDIManager> initSharedWithConnectionConfiguration(
        std::shared_ptr<HVConnectionTypeConfiguration> configuration);
    static std::shared_ptr<HVMIDIManager> initSharedMinimalWithConnectionConfiguration(
        std::shared_ptr<HVConnectionTypeConfiguration> configuration);
    static std::shared_ptr<HVMIDIManager> initSharedClockTestWithConnectionConfiguration(
        std::shared_ptr<HVConnectionTypeConfiguration> configuration);

    static std::shared_ptr<HVMIDIManager> shared();
    // Also registers the manager as the central core's MIDI sender.
    static void setShared(std::shared_ptr<HVMIDIManager> manager);

    ~HVMIDIManager() override;

    static constexpr const char* kInputName = "Havrel MIDI In";
    static constexpr const char* kInputConnectionTag = "inputConnections";
    static constexpr const char* kInputTag = "input";
    static constexpr const char* kOutputTag = "output";
    static constexpr const char* kHardwareOutputTag = "hardwareMIDIOutputs";

    // "<product> Output" and "<product> Input".
    std::string outputName() const;
    std::string inputName() const;

    // --- Sending (clamped; see the .cpp for the lines printed). ---
    void sendWithController(std::uint8_t controller, std::uint8_t value, std::uint8_t channel,
                            bool sendVirtual) override;
    // A velocity of 0 stays a note on.
    void sendWithNoteOn(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool sendVirtual) override;
    void sendWithNoteOff(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool sendVirtual) override;
    void sendOnOffNote(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel, bool sendVirtual);
    void sendWithProgramChange(std::uint8_t program, std::uint8_t channel, bool sendVirtual) override;
    // 16 bits in, 14 bits out.
    void sendWithPitchBend(std::uint16_t value, std::uint8_t channel, bool sendVirtual) override;
    void sendToHardwareWithController(std::uint8_t controller, std::uint8_t value, std::uint8_t channel);
    void sendToHardwareWithNoteOn(std::uint8_t note, std::uint8_t velocity, std::uint8_t channel);
    // Always velocity 0.
    void sendToHardwareWithNoteOff(std::uint8_t note, std::uint8_t channel);
    void sendToHardwareWithProgramChange(std::uint8_t program, std::uint8_t channel);
    void sendToHardwareWithPitchBend(std::uint16_t value, std::uint8_t channel);
    std::string description() const override;

    // --- Set-up and the connection refresh (main queue). ---
    void setupVirtualMIDI();
    void setupHardwareOutput();
    // Destinations that look like hardware: with a device, online, not owned by an RTP driver;
    // those the host has switched off are left out.
    std::vector<MIDIIO::MIDIInputEndpoint> hardwareDestinations() const;
    // The same, switched off ones included.
    std::vector<MIDIIO::MIDIInputEndpoint> hardwareDestinationCandidates() const;
    // Switches a hardware destination, by name, in or out of the fan-out from the next refresh
    // on. All are in at first. Any thread.
    void setHardwareDestinationEnabled(const std::string& name, bool enabled);
    bool isHardwareDestinationEnabled(const std::string& name) const;
    void refreshHardwareOutputs();
    // Finds this application's own output endpoint among the sources.
    void setInputConnectionToVirtual();
    void updateInputConnection();
    // One tick of each repeating timer. Each does nothing unless the MIDI service announced a
    // change of its objects, or a setting here moved, since its last run.
    void refreshConnections();
    void scanNetworkSessions();
    // Invalidates both timers (host shutdown, tests). Nothing else changes.
    void stopTimers();

    // --- Clock following. ---
    // Finds the registrar's entry and overwrites its three callbacks (absent ones too), or
    // appends a new entry without a tick callback.
    void registerForTempoChangesWithRegistrar(const std::shared_ptr<void>& registrar,
                                              std::function<void(bool)> startStopBlock,
                                              std::function<void(double, std::int32_t, std::int32_t, std::int32_t)>
                                                  positionChangeBlock,
                                              std::function<void(double)> tempoBlock);
    // Appends an entry holding only the tick callback; a registrar already present is left as
    // it is, so a party that wants both registers for ticks first.
    void registerForQNChangesWithRegistrar(const std::shared_ptr<void>& registrar,
                                           std::function<void(std::uint64_t)> qnBlock);
    void removeRegistrationForTempoChangesWithRegistrar(const std::shared_ptr<void>& registrar);
    std::size_t midiTimeObserverCount() const;

    // What the receiver does with a batch of received events (public so a host can feed it).
    void didReceiveEvents(const std::vector<MIDICore::MIDIEvent>& events, bool viaVirtualInput = false);
    // For the host: every received batch is shown to it too, on the receive queue, with whether
    // it came in through the virtual input "<product> Input". It must not block. Any thread.
    using ReceivedEventsObserver =
        std::function<void(const std::vector<MIDICore::MIDIEvent>& events, bool viaVirtualInput)>;
    void setReceivedEventsObserver(ReceivedEventsObserver observer);

    // --- State. ---
    const std::shared_ptr<MIDIIO::MIDIManager>& midiManager() const { return midiManager_; }
    std::optional<MIDIIO::MIDIOutputEndpoint> midiInputConnection() const;
    std::vector<MIDIIO::MIDIEntity> networkConnections() const;
    std::vector<std::shared_ptr<MIDIIO::MIDIOutputConnection>> networkOutputs() const;
    const std::shared_ptr<HVConnectionTypeConfiguration>& connectionConfiguration() const { return configuration_; }
    bool hasClockParser() const { return clockParser_ != nullptr; }

    double position() const { return position_.load(); }
    std::int32_t bar() const { return bar_.load(); }
    std::int32_t beat() const { return beat_.load(); }
    std::int32_t beatDivision() const { return beatDivision_.load(); }
    bool isTempoStarted() const { return isTempoStarted_.load(); }
    double tempo() const { return tempo_.load(); }
    std::uint64_t debugTotalMIDIEventsReceived() const { return debugTotalMIDIEventsReceived_.load(); }
    double debugLastEventTimestamp() const { return debugLastEventTimestamp_.load(); }
    // Flags for the embedding application; nothing here reads them.
    std::atomic<bool> sendVirtualMIDI{false};
    std::atomic<bool> isSendingVirtualMIDI{false};

    // For tests: the clock parser's notion of now (seconds), so clock streams run in virtual
    // time. Set before the set-up creates the parser.
    static void setClockForTesting(HVMIDIClockParser::Now now);

    struct Key {};
    HVMIDIManager(Key, std::shared_ptr<HVConnectionTypeConfiguration> configuration);

private:
    enum class Setup { full, minimal, clockTest };
    static std::shared_ptr<HVMIDIManager> initShared(std::shared_ptr<HVConnectionTypeConfiguration> configuration,
                                                     Setup setup);
    void setupMIDI();
    void setupMIDIMinimal();
    void setupMIDIClockTest();
    void createLibraryManager();
    void createClockParser();
    MIDIIO::MIDIReceiver eventsReceiver(bool viaVirtualInput = false);
    void refreshClockSources();
    void handleClockEvent(const HVMIDIClockParser::Event& event);
    void notifyPosition();
    void notifyTempo(double bpm);
    void notifyQuantum(std::uint64_t total);
    // Calls `call(entry)` for each live entry and returns the indices of the others, in order.
    template <class Call>
    std::vector<std::size_t> callObservers(bool dropWithoutTickCallback, Call&& call);
    void removeCollected(const std::vector<std::size_t>& collected);
    MIDIIO::MIDIManager& requireManager() const;

    template <class Build>
    void sendOnPath(bool sendVirtual, const char* networkErrorLabel, bool logVirtualTag, Build&& build);
    template <class Build>
    void sendToHardware(Build&& build);

    std::shared_ptr<MIDIIO::MIDIManager> midiManager_;
    mutable std::mutex stateMutex_;  // midiInputConnection_, networkConnections_
    std::optional<MIDIIO::MIDIOutputEndpoint> midiInputConnection_;
    std::shared_ptr<HVMIDIEntityObserver> connectionObserver_;  // offered to the host; never made here
    const std::shared_ptr<HVConnectionTypeConfiguration> configuration_;
    std::vector<MIDIIO::MIDIEntity> networkConnections_;
    std::set<std::string> disabledHardwareDestinations_;  // under stateMutex_
    // Written on the main queue, read by sends on any thread.
    mutable std::mutex networkOutputsMutex_;
    std::vector<std::shared_ptr<MIDIIO::MIDIOutputConnection>> networkOutputs_;

    std::atomic<double> position_{0};
    std::atomic<std::int32_t> bar_{0};
    std::atomic<std::int32_t> beat_{0};
    std::atomic<std::int32_t> beatDivision_{0};
    std::atomic<bool> isTempoStarted_{false};
    std::optional<double> prevTempoSent_;
    std::atomic<double> tempo_{0};
    std::optional<HVBeatComponents> prevPositionSent_;
    // Registration happens on any thread, notification on the receiving queue; callbacks may
    // register again, hence the recursive lock.
    mutable std::recursive_mutex observersMutex_;
    std::vector<HVTempoChangeObservationContainer> midiTimeObservers_;
    // One receiver serves the virtual input and every input connection, each delivering on its
    // own receive queue, and they all feed the one parser: clockMutex_ serialises the parser's
    // state and the clock handling after it (the position's read-then-write at each beat, the
    // song position). Taken before observersMutex_; observer callbacks run with it held, so
    // they must not feed events back in.
    std::mutex clockMutex_;
    mutable std::mutex receivedObserverMutex_;
    std::shared_ptr<const ReceivedEventsObserver> receivedObserver_;
    std::unique_ptr<HVMIDIClockParser> clockParser_;
    std::atomic<std::uint64_t> debugTotalMIDIEventsReceived_{0};
    std::atomic<double> debugLastEventTimestamp_{0};

    std::shared_ptr<Timer> refreshTimer_;
    std::shared_ptr<Timer> networkTimer_;
    // The per-name connections the refresh made (main queue), and their removal once no
    // endpoint of that name is left.
    std::set<std::string> refreshedOutputTags_;
    std::set<std::string> refreshedInputTags_;
    void removeConnectionsOfVanishedEndpoints(const std::set<std::string>& sourceNames,
                                              const std::set<std::string>& destinationNames);
    // Changes announced by the MIDI service or made here, counted; and the count each timer
    // last acted on (main queue).
    std::atomic<std::uint64_t> graphChanges_{1};
    std::uint64_t refreshedAtChange_ = 0;
    std::uint64_t scannedAtChange_ = 0;
};

}  // namespace havrel
