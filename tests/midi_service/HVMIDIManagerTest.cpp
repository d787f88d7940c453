// The application's MIDI manager on the loopback server: control traffic from the range
// dispatch reaching another application, clamping, the hardware fan-out, the once-a-second
// connection refresh and network scan, and clock following.

#include "MIDIServiceFixture.hpp"
#include "../central/RangeCommandBuilders.hpp"

#include "central/HVCentralConnectionTypeManager.hpp"
#include "central/HVCentralTransmissionManager.hpp"
#include "central/HVEncodedRangeCommand.hpp"
#include "central/RNClient.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "model/HVEncodedConfiguration.hpp"
#include "platform/Log.hpp"
#include "sequencing/HVSequence.hpp"

#include <algorithm>
#include <atomic>
#include <thread>

namespace havrel {
namespace {

using MIDICore::MIDIEvent;
using MIDICore::UInt4;
using MIDICore::UInt7;
using MIDIIO::testing::EventLog;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::rangeCommand;
using testing::wrapperWith;

class HVMIDIManagerTest : public testing::HVMIDIServiceTest {
protected:
    HVMIDIManagerTest() { HVSequenceManager::resetSharedInstanceForTesting(); }
    void TearDown() override {
        if (auto manager = HVMIDIManager::shared()) {
            manager->stopTimers();
        }
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
        HVMIDIManager::setShared(nullptr);
        HVTransmissionManager::setShared(nullptr);
        HVCentralTransmissionManager::sharedInstance()->resetForTesting();
        HVMIDIServiceTest::TearDown();
    }

    // A network session of the device: its entity with the session property, a source and a
    // destination of its name. Returns the destination.
    MIDIIO::MIDIEndpointRef addSession(MIDIIO::MIDIDeviceRef device, const std::string& name) {
        auto session = server->addEntity(device, name);
        server->objectSetDictionaryProperty(session, "apple.midirtp.session",
                                            {{"dns-sd-name", name}, {"peers", nlohmann::json::array()}});
        server->addSource(session, name);
        return server->addDestination(session, name);
    }

    // Advances virtual time in steps of 100 ms, letting the server's threads deliver between.
    void advance(std::chrono::milliseconds total) {
        for (auto step = milliseconds(0); step < total; step += milliseconds(100)) {
            server->flush();
            clock.advance(milliseconds(100));
            server->flush();
        }
    }
};

TEST_F(HVMIDIManagerTest, RangeCommandsLeaveAsMIDI2EventsOnTheVirtualOutput) {
    HVCentralConnectionTypeManager dispatch;
    dispatch.registerValueChangeObserversIfNeeded();
    auto manager = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    EventLog log;
    auto app = listener(log);
    ASSERT_EQ(app->managedInputConnection("in")->endpoints().size(), 1u);

    auto fader = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(1, 7, false);
    auto pad = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(2, 60, true);
    auto program = HVMidiRangeContainer::containerWithDefaultValuesAndChannel(3, 0, false);
    program->signalType = HVSignalTypePC;
    auto pitch = HVMidiRangeContainer::containerWithChannel(
        4, 0, false,
        {HVMidiRangeValue::valueWithRangePosition(0.0, 0), HVMidiRangeValue::valueWithRangePosition(1.0, 16383)});
    pitch->signalType = HVSignalTypePitch;
    auto configuration = HVEncodedConfiguration::create();
    configuration->dataWrappers = {wrapperWith(1, fader), wrapperWith(2, pad), wrapperWith(3, program),
                                   wrapperWith(4, pitch)};
    auto client = RNClient::create();
    client->configuration = configuration;
    auto send = [&](std::uint64_t id, double position) {
        dispatch.didReceiveRangeData(rangeCommand({HVEncodedRangeValue::rangeValueWithDataWraperID(id, 0, position)}),
                                     client);
        clock.advance(milliseconds(0));
    };
    send(1, 0.5);
    send(1, 0.5);  // a repeat sends nothing
    send(2, 1.0);
    send(3, 1.0);
    send(4, 1.0);
    send(1, 1.0);
    ASSERT_TRUE(delivered([&] { return log.count() >= 5; }));
    server->flush();
    auto events = log.snapshot();
    ASSERT_EQ(events.size(), 5u);

    const auto* cc = events[0].get<MIDIEvent::CC>();
    ASSERT_NE(cc, nullptr);
    EXPECT_EQ(cc->controller.number(), UInt7(7));
    EXPECT_EQ(cc->value().midi1Value(), UInt7(63));
    EXPECT_EQ(cc->channel, UInt4(0));
    // Carried as UMP at MIDI 2.0: the value arrives in its 32-bit form.
    EXPECT_EQ(cc->value().kind(), MIDICore::ChanVoice7Bit32BitValue::Case::midi2);
    const auto* on = events[1].get<MIDIEvent::NoteOn>();
    ASSERT_NE(on, nullptr);
    EXPECT_EQ(on->note.number(), UInt7(60));
    EXPECT_EQ(on->velocity().midi1Value(), UInt7(127));
    EXPECT_EQ(on->channel, UInt4(1));
    const auto* pc = events[2].get<MIDIEvent::ProgramChange>();
    ASSERT_NE(pc, nullptr);
    EXPECT_EQ(pc->program, UInt7(127));
    EXPECT_EQ(pc->channel, UInt4(2));
    const auto* bend = events[3].get<MIDIEvent::PitchBend>();
    ASSERT_NE(bend, nullptr);
    EXPECT_EQ(bend->value().midi1Value(), MIDICore::UInt14::fromStorage(16383));
    EXPECT_EQ(bend->channel, UInt4(3));
    ASSERT_NE(events[4].get<MIDIEvent::CC>(), nullptr);
    EXPECT_EQ(events[4].get<MIDIEvent::CC>()->value().midi1Value(), UInt7(127));
}

TEST_F(HVMIDIManagerTest, SendsClampWithTheirLinesAndChooseOnePath) {
    auto manager = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    EventLog log;
    auto app = listener(log);
    ScopedLogCapture capture;
    manager->sendWithController(7, 200, 16, true);
    manager->sendWithPitchBend(16384, 0, true);
    manager->sendWithPitchBend(16383, 255, true);
    manager->sendOnOffNote(130, 0, 3, true);
    ASSERT_TRUE(delivered([&] { return log.count() == 5; }));
    auto events = log.snapshot();
    EXPECT_EQ(capture.count("cc value 200 out of 7-bit range \u2014 clamped"), 1u);
    EXPECT_EQ(capture.count("channel 16 out of range \u2014 clamped"), 1u);
    EXPECT_EQ(capture.count("[HVMIDIDiag]   sending CC to managedOutput tag=output"), 1u);
    EXPECT_EQ(capture.count("pitch bend out of range (value 16384, channel 0) \u2014 clamped"), 1u);
    EXPECT_EQ(capture.count("pitch bend out of range (value 16383, channel 255) \u2014 clamped"), 1u);
    // The on-off note clamps once itself; the note on and off see clamped values.
    EXPECT_EQ(capture.count("note 130 out of 7-bit range \u2014 clamped"), 1u);
    EXPECT_EQ(events[0], MIDIEvent::cc(UInt7(7), MIDICore::ChanVoice7Bit32BitValue::midi1(UInt7(127)), UInt4(15)));
    EXPECT_EQ(events[1].get<MIDIEvent::PitchBend>()->value().midi1Value(), MIDICore::UInt14::fromStorage(16383));
    EXPECT_EQ(events[2].get<MIDIEvent::PitchBend>()->channel, UInt4(15));
    // A velocity of 0 stays a note on, followed at once by the note off.
    ASSERT_NE(events[3].get<MIDIEvent::NoteOn>(), nullptr);
    EXPECT_EQ(events[3].get<MIDIEvent::NoteOn>()->note.number(), UInt7(127));
    ASSERT_NE(events[4].get<MIDIEvent::NoteOff>(), nullptr);

    // The network path with no network outputs, and every hardware send with hardware off: no
    // message and no line.
    const auto lines = capture.lines().size();
    manager->sendWithController(1, 2, 3, false);
    manager->sendWithNoteOn(1, 2, 3, false);
    manager->sendToHardwareWithController(1, 2, 3);
    manager->sendToHardwareWithNoteOn(1, 2, 3);
    manager->sendToHardwareWithNoteOff(1, 3);
    manager->sendToHardwareWithProgramChange(1, 3);
    manager->sendToHardwareWithPitchBend(100, 3);
    server->flush();
    EXPECT_EQ(capture.lines().size(), lines);
    EXPECT_EQ(log.count(), 5u);
}

TEST_F(HVMIDIManagerTest, HardwareFanOutFollowsOnlineNonNetworkDestinations) {
    configuration_->hardwareMIDIEnabled = true;
    auto device = server->addDevice("Synth", "Maker");
    auto entity = server->addEntity(device, "Port 1");
    auto synthIn = server->addDestination(entity, "Synth In");
    auto rtpIn = server->addDestination(server->addEntity(device, "Net"), "Net In");
    server->objectSetStringProperty(rtpIn, "driver", "com.example.driver.rTp");
    auto offlineIn = server->addDestination(server->addEntity(device, "Gone"), "Gone In");
    server->objectSetIntegerProperty(offlineIn, "offline", 1);

    auto manager = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    auto destinations = manager->hardwareDestinations();
    ASSERT_EQ(destinations.size(), 1u);
    EXPECT_EQ(destinations[0].name, "Synth In");

    auto connection = manager->midiManager()->managedOutputConnection(HVMIDIManager::kHardwareOutputTag);
    ASSERT_NE(connection, nullptr);
    EXPECT_TRUE(connection->inputsCriteria().empty());
    advance(seconds(1));
    EXPECT_EQ(connection->inputsCriteria().size(), 1u);
    ASSERT_EQ(connection->endpoints().size(), 1u);

    ScopedLogCapture capture;
    manager->sendToHardwareWithNoteOff(60, 2);
    manager->sendToHardwareWithController(300 & 0xFF, 200, 1);
    server->flush();
    const auto received = server->deviceDestinationLog(synthIn);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0], (std::vector<std::uint8_t>{0x82, 60, 0}));
    EXPECT_EQ(received[1], (std::vector<std::uint8_t>{0xB1, 44, 127}));
    EXPECT_EQ(capture.count("cc value 200 out of 7-bit range \u2014 clamped"), 1u);

    // Switched off by the host: out of the fan-out at the next refresh though still a
    // candidate; back in when switched on again.
    manager->setHardwareDestinationEnabled("Synth In", false);
    EXPECT_TRUE(manager->hardwareDestinations().empty());
    ASSERT_EQ(manager->hardwareDestinationCandidates().size(), 1u);
    EXPECT_FALSE(manager->isHardwareDestinationEnabled("Synth In"));
    advance(seconds(1));
    EXPECT_TRUE(connection->inputsCriteria().empty());
    manager->sendToHardwareWithNoteOn(61, 90, 0);
    server->flush();
    EXPECT_EQ(server->deviceDestinationLog(synthIn).size(), 2u);
    manager->setHardwareDestinationEnabled("Synth In", true);
    advance(seconds(1));
    EXPECT_EQ(connection->inputsCriteria().size(), 1u);

    // The destination goes offline: the next refresh takes it out of the fan-out.
    server->objectSetIntegerProperty(synthIn, "offline", 1);
    advance(seconds(1));
    EXPECT_TRUE(connection->inputsCriteria().empty());
}

TEST_F(HVMIDIManagerTest, RefreshJoinsEndpointsByNameOnceAndDropsConnectionsOfVanishedOnes) {
    auto manager = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    auto other = startedManager("Other");
    other->addOutput("Drums", "drums", MIDIIO::MIDIIdentifierPersistence::adHoc());
    other->addInput("Drums", "drumsIn", MIDIIO::MIDIIdentifierPersistence::adHoc(), MIDIIO::MIDIReceiver::events({}));
    ASSERT_TRUE(delivered([&] { return manager->midiManager()->endpoints().outputs.size() == 2; }));

    advance(milliseconds(500));
    ASSERT_TRUE(manager->midiInputConnection().has_value());
    EXPECT_EQ(manager->midiInputConnection()->name, "Havrel Test Output");
    ScopedLogCapture capture;
    advance(milliseconds(500));
    EXPECT_EQ(capture.count("Setting up new input connection to Havrel Test Output."), 1u);
    auto& midi = *manager->midiManager();
    ASSERT_NE(midi.managedInputConnection(HVMIDIManager::kInputConnectionTag), nullptr);
    // The source "Drums" gives an output connection to the destination "Drums" and the other
    // way round.
    auto drumsOut = midi.managedOutputConnection("Drums");
    ASSERT_NE(drumsOut, nullptr);
    EXPECT_EQ(drumsOut->endpoints().size(), 1u);
    ASSERT_NE(midi.managedInputConnection("Drums"), nullptr);
    const auto outputConnections = midi.managedOutputConnections().size();
    const auto inputConnections = midi.managedInputConnections().size();

    // Endpoints that come and go under ever new names leave no connection behind.
    for (int i = 0; i < 20; ++i) {
        const std::string name = "Pad " + std::to_string(i);
        other->addOutput(name, "pad", MIDIIO::MIDIIdentifierPersistence::adHoc());
        advance(seconds(1));
        ASSERT_NE(midi.managedOutputConnection(name), nullptr);
        other->remove(MIDIIO::ManagedType::output, MIDIIO::TagSelection::withTag("pad"));
        advance(seconds(1));
        EXPECT_EQ(midi.managedOutputConnection(name), nullptr);
    }
    EXPECT_EQ(midi.managedOutputConnections().size(), outputConnections);

    // The source and destination go: their connections with them. Back, each is joined once.
    other->remove(MIDIIO::ManagedType::output, MIDIIO::TagSelection::withTag("drums"));
    other->remove(MIDIIO::ManagedType::input, MIDIIO::TagSelection::withTag("drumsIn"));
    advance(seconds(2));
    EXPECT_EQ(midi.managedOutputConnection("Drums"), nullptr);
    EXPECT_EQ(midi.managedInputConnection("Drums"), nullptr);
    other->addOutput("Drums", "drums", MIDIIO::MIDIIdentifierPersistence::adHoc());
    other->addInput("Drums", "drumsIn", MIDIIO::MIDIIdentifierPersistence::adHoc(), MIDIIO::MIDIReceiver::events({}));
    advance(seconds(2));
    ASSERT_NE(midi.managedOutputConnection("Drums"), nullptr);
    EXPECT_EQ(midi.managedOutputConnection("Drums")->endpoints().size(), 1u);
    EXPECT_EQ(midi.managedOutputConnections().size(), outputConnections);
    EXPECT_EQ(midi.managedInputConnections().size(), inputConnections);
    EXPECT_EQ(capture.count("Setting up new input connection to Havrel Test Output."), 1u);
}

TEST_F(HVMIDIManagerTest, NetworkScanFindsSessionsAndTheNetworkPathSendsToThem) {
    auto device = server->addDevice("Network", "Maker");
    auto destination = addSession(device, "Studio");
    server->addEntity(device, "Plain");

    auto manager = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    advance(seconds(1));
    ASSERT_EQ(manager->networkConnections().size(), 1u);
    EXPECT_EQ(manager->networkConnections()[0].name, "Studio");
    ASSERT_EQ(manager->networkOutputs().size(), 1u);
    EXPECT_EQ(manager->networkOutputs()[0], manager->midiManager()->managedOutputConnection("Studio"));
    advance(seconds(2));
    EXPECT_EQ(manager->networkOutputs().size(), 1u);

    ScopedLogCapture capture;
    manager->sendWithNoteOn(64, 100, 0, false);
    server->flush();
    const auto received = server->deviceDestinationLog(destination);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0], (std::vector<std::uint8_t>{0x90, 64, 100}));
    EXPECT_EQ(capture.count("[HVMIDIDiag]"), 0u);
}

// Senders on other threads use the network path while the once-a-second scan on the main
// queue adds the outputs of sessions that appear: every note reaches the first session once,
// and each later session hears notes once it is known.
TEST_F(HVMIDIManagerTest, NetworkSendsFromOtherThreadsWhileTheScanAddsSessions) {
    auto device = server->addDevice("Network", "Maker");
    const auto first = addSession(device, "Session A");
    auto manager = HVMIDIManager::initSharedWithConnectionConfiguration(configuration_);
    advance(seconds(1));
    ASSERT_EQ(manager->networkOutputs().size(), 1u);

    // Paced, so that the logs stay small however long the joining takes.
    std::atomic<bool> running{true};
    std::atomic<int> sent{0};
    auto sender = [&] {
        while (running) {
            manager->sendWithNoteOn(64, 100, 0, false);
            ++sent;
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    };
    std::thread one(sender);
    std::thread two(sender);
    std::vector<MIDIIO::MIDIEndpointRef> later;
    for (const char* name : {"Session B", "Session C", "Session D", "Session E", "Session F", "Session G"}) {
        later.push_back(addSession(device, name));
        advance(seconds(1));
    }
    // Go on until the last session has heard from the senders (its connection is joined on the
    // main queue).
    const auto deadline = std::chrono::steady_clock::now() + seconds(10);
    while (server->deviceDestinationLog(later.back()).empty() && std::chrono::steady_clock::now() < deadline) {
        advance(milliseconds(100));
    }
    running = false;
    one.join();
    two.join();
    server->flush();

    EXPECT_EQ(manager->networkOutputs().size(), 1u + later.size());
    EXPECT_EQ(server->deviceDestinationLog(first).size(), static_cast<std::size_t>(sent.load()));
    EXPECT_GT(server->deviceDestinationLog(later.back()).size(), 0u) << sent.load() << " sent";
    for (const auto& destination : later) {
        EXPECT_LE(server->deviceDestinationLog(destination).size(), server->deviceDestinationLog(first).size());
    }
}

TEST_F(HVMIDIManagerTest, VirtualEndpointIDsPersistAndTheSharedSlotIsReplaced) {
    auto first = HVMIDIManager::initSharedMinimalWithConnectionConfiguration(configuration_);
    EXPECT_EQ(HVMIDIManager::shared(), first);
    EXPECT_EQ(HVMIDISender::shared(), first);
    EXPECT_FALSE(first->hasClockParser());
    EXPECT_EQ(first->midiManager()->managedInput(HVMIDIManager::kInputTag), nullptr);
    auto id = first->midiManager()->managedOutput(HVMIDIManager::kOutputTag)->uniqueID();
    ASSERT_TRUE(id.has_value());
    EXPECT_EQ(DefaultsStore::standard()->integer("output"), *id);
    first->midiManager()->removeAll();

    auto second = HVMIDIManager::initSharedMinimalWithConnectionConfiguration(configuration_);
    EXPECT_EQ(HVMIDIManager::shared(), second);
    EXPECT_EQ(second->midiManager()->managedOutput(HVMIDIManager::kOutputTag)->uniqueID(), id);
}

// --- Clock following. ---

class ClockTest : public HVMIDIManagerTest {
protected:
    ClockTest() {
        HVMIDIManager::setClockForTesting([this] { return now_; });
        manager_ = HVMIDIManager::initSharedClockTestWithConnectionConfiguration(configuration_);
    }
    void ticks(int count, double interval) {
        for (int i = 0; i < count; ++i) {
            now_ += interval;
            manager_->didReceiveEvents({MIDIEvent::timingClock()});
        }
    }

    double now_ = 1000.0;
    std::shared_ptr<HVMIDIManager> manager_;
};

TEST_F(ClockTest, TempoFromTheTwentyFifthTickAndSongPositionAtTheNextBeat) {
    auto registrant = std::make_shared<int>(0);
    std::vector<double> tempos;
    std::vector<std::uint64_t> quanta;
    std::vector<std::tuple<double, int, int, int>> positions;
    // Ticks first, then tempo: both stay.
    manager_->registerForQNChangesWithRegistrar(registrant, [&](std::uint64_t total) { quanta.push_back(total); });
    manager_->registerForTempoChangesWithRegistrar(
        registrant, nullptr,
        [&](double position, int bar, int beat, int division) { positions.emplace_back(position, bar, beat, division); },
        [&](double bpm) { tempos.push_back(bpm); });

    manager_->didReceiveEvents({MIDIEvent::start()});
    EXPECT_TRUE(manager_->isTempoStarted());
    ticks(24, 0.0208333);
    EXPECT_TRUE(tempos.empty());
    ticks(1, 0.0208333);
    ASSERT_EQ(tempos.size(), 1u);
    EXPECT_EQ(tempos[0], 120.0);
    // Jitter within the same tenth: no further callback.
    ticks(6, 0.0208335);
    EXPECT_EQ(tempos.size(), 1u);
    EXPECT_EQ(manager_->tempo(), 120.0);
    EXPECT_EQ(quanta.size(), 31u);
    EXPECT_EQ(quanta.back(), 31u);

    manager_->didReceiveEvents({MIDIEvent::songPositionPointer(MIDICore::UInt14::fromStorage(64))});
    EXPECT_EQ(manager_->position(), 64.0);
    // 31 ticks so far: the next beat falls on tick 36.
    ticks(5, 0.0208333);
    EXPECT_EQ(manager_->position(), 65.0);
    EXPECT_EQ(manager_->bar(), 5);
    EXPECT_EQ(manager_->beat(), 1);
    EXPECT_EQ(manager_->beatDivision(), 2);
    ASSERT_FALSE(positions.empty());
    EXPECT_EQ(positions.back(), std::make_tuple(65.0, 5, 1, 2));

    manager_->didReceiveEvents({MIDIEvent::stop()});
    EXPECT_FALSE(manager_->isTempoStarted());
    EXPECT_EQ(manager_->debugTotalMIDIEventsReceived(), 39u);
    EXPECT_EQ(manager_->midiTimeObserverCount(), 1u);
}

TEST_F(ClockTest, RegistrationsWithoutATickCallbackOrOwnerAreDroppedAtTheNextTick) {
    auto ticksThenTempo = std::make_shared<int>(1);
    auto tempoOnly = std::make_shared<int>(2);
    auto tempoThenTicks = std::make_shared<int>(3);
    int ticksSeen = 0;
    manager_->registerForQNChangesWithRegistrar(ticksThenTempo, [&](std::uint64_t) { ++ticksSeen; });
    manager_->registerForTempoChangesWithRegistrar(ticksThenTempo, nullptr, nullptr, [](double) {});
    manager_->registerForTempoChangesWithRegistrar(tempoOnly, nullptr, nullptr, [](double) {});
    EXPECT_EQ(manager_->midiTimeObserverCount(), 2u);
    ticks(2, 0.02);
    EXPECT_EQ(manager_->midiTimeObserverCount(), 1u);
    EXPECT_EQ(ticksSeen, 2);

    // Tempo first, then ticks: the registrar is already present, the tick callback is lost and
    // the entry goes at the next tick.
    manager_->registerForTempoChangesWithRegistrar(tempoThenTicks, nullptr, nullptr, [](double) {});
    manager_->registerForQNChangesWithRegistrar(tempoThenTicks, [&](std::uint64_t) { ticksSeen += 100; });
    ticks(1, 0.02);
    EXPECT_EQ(ticksSeen, 3);
    EXPECT_EQ(manager_->midiTimeObserverCount(), 1u);

    // The owner goes: dropped at the next tick.
    ticksThenTempo.reset();
    ticks(1, 0.02);
    EXPECT_EQ(manager_->midiTimeObserverCount(), 0u);

    // Collected indices are not adjusted for earlier removals: with [x, y, z] where x and y hold
    // no tick callback, removing 0 and then 1 takes x and z, and y is left until the next tick.
    auto x = std::make_shared<int>(4);
    auto y = std::make_shared<int>(5);
    auto z = std::make_shared<int>(6);
    manager_->registerForTempoChangesWithRegistrar(x, nullptr, nullptr, nullptr);
    manager_->registerForTempoChangesWithRegistrar(y, nullptr, nullptr, nullptr);
    manager_->registerForQNChangesWithRegistrar(z, [&](std::uint64_t) { ++ticksSeen; });
    ScopedLogCapture capture;
    ticks(1, 0.02);
    EXPECT_EQ(ticksSeen, 4);
    EXPECT_EQ(manager_->midiTimeObserverCount(), 1u);
    manager_->removeRegistrationForTempoChangesWithRegistrar(z);  // not there any more
    EXPECT_EQ(manager_->midiTimeObserverCount(), 1u);
    manager_->removeRegistrationForTempoChangesWithRegistrar(y);
    EXPECT_EQ(manager_->midiTimeObserverCount(), 0u);
    EXPECT_EQ(capture.count("past the end"), 0u);

    // Both entries of a two-entry array collected: the second index is past the end once the
    // first is gone. A clock stream alone reaches that, so it is logged, not fatal.
    manager_->registerForTempoChangesWithRegistrar(x, nullptr, nullptr, nullptr);
    manager_->registerForTempoChangesWithRegistrar(y, nullptr, nullptr, nullptr);
    ticks(1, 0.02);
    EXPECT_EQ(capture.count("past the end of 2 observers"), 1u);
    EXPECT_EQ(manager_->midiTimeObserverCount(), 1u);
    ticks(1, 0.02);
    EXPECT_EQ(manager_->midiTimeObserverCount(), 0u);
}

// The one receiver sits on the virtual input and on every input connection, and each of those
// delivers on its own queue: two sources sending clock at once must still count every tick once
// and move the position once per beat.
TEST_F(HVMIDIManagerTest, ClockFromTwoSourcesAtOnceCountsEveryTickOnce) {
    std::atomic<std::int64_t> calls{0};
    HVMIDIManager::setClockForTesting([&calls] { return 1000.0 + 0.02 * static_cast<double>(++calls); });
    auto manager = HVMIDIManager::initSharedClockTestWithConnectionConfiguration(configuration_);
    auto registrant = std::make_shared<int>(0);
    std::vector<std::uint64_t> totals;  // written under the manager's observer lock
    manager->registerForQNChangesWithRegistrar(registrant, [&](std::uint64_t total) { totals.push_back(total); });
    manager->didReceiveEvents({MIDIEvent::start()});

    constexpr int ticksPerSource = 600;
    std::atomic<int> ready{0};
    auto source = [&] {
        ++ready;
        while (ready.load() < 2) {
        }
        for (int i = 0; i < ticksPerSource; ++i) {
            manager->didReceiveEvents({MIDIEvent::timingClock()});
        }
    };
    std::thread first(source);
    std::thread second(source);
    first.join();
    second.join();

    ASSERT_EQ(totals.size(), 2u * ticksPerSource);
    std::sort(totals.begin(), totals.end());
    for (std::size_t i = 0; i < totals.size(); ++i) {
        ASSERT_EQ(totals[i], i + 1) << "tick totals repeat or skip";
    }
    EXPECT_EQ(manager->position(), 2.0 * ticksPerSource / 6.0);
    EXPECT_EQ(manager->debugTotalMIDIEventsReceived(), 1u + 2u * ticksPerSource);
}

}  // namespace
}  // namespace havrel
