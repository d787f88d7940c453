// havrel-central: the desktop side of the Havrel controllers. Brings up the core and the full
// MIDI service, follows client devices over USB (through the usbmux daemon) and on the local
// path 127.0.0.1:<port>, and runs until SIGINT or SIGTERM.


#include "central/HVConnectionTypeConfiguration.hpp"
#include "central/HVProductData.hpp"
#include "core/HavrelCoreBaseMac.hpp"
#include "musical_output/HVStepOutput.hpp"
#include "backends/midi_loopback/LoopbackMIDIBackend.hpp"
#ifdef HAVREL_HAS_ALSA_BACKEND
#include "backends/midi_alsa/AlsaMIDIBackend.hpp"
#endif
#include "platform/AsyncLogSink.hpp"
#include "platform/DescriptorLineWriter.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "platform/MainQueue.hpp"
#include "platform/Timer.hpp"
#include "platform/UserFolders.hpp"
#include "sequencing/HVSequence.hpp"
#include "transport/bluetooth/RNCentralBluetoothManager.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"
#include "backends/bluetooth_bluez/BluezBluetoothPlatform.hpp"
#include "CentralClock.hpp"
#include "CentralMIDI.hpp"
#include "CentralSequences.hpp"
#include "CoreStatusSources.hpp"
#include "StatusService.hpp"

#include <CLI/CLI.hpp>
#include <asio/signal_set.hpp>

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace {

constexpr const char* kVersion = "0.1.0";
constexpr const char* kAPIVersion = "2.1";

struct Options {
    std::string product = "Havrel";
    std::string midiBackend;
    bool noUsbmux = false;
    std::uint16_t localPort = 4699;
    bool printMIDI = false;
    std::string configDir;
    std::string logLevel = "info";
    std::uint16_t statusPort = 4700;
    bool statusControl = false;
    bool hardwareMIDI = false;
    bool noBluetooth = false;
    std::string bluetoothAdapter;
    std::string receiveFolder;
    std::string sequencesFile;
};

// Bluetooth through BlueZ where the system bus has it with an adapter; otherwise one line says
// the host runs without. The transport only scans when asked: while the radio is on and no link
// is up or being made, the host asks again each second.
std::shared_ptr<havrel::Timer> startBluetooth(const Options& options) {
    using namespace havrel;
    if (options.noBluetooth) {
        std::cerr << "havrel-central: running without Bluetooth (--no-bluetooth)\n";
        return nullptr;
    }
    BluezBluetoothPlatform::Options bluez;
    bluez.adapter = options.bluetoothAdapter;
    std::string reason;
    if (!BluezBluetoothPlatform::hasAdapter(bluez, std::chrono::seconds(2), reason)) {
        std::cerr << "havrel-central: running without Bluetooth (" << reason << ")\n";
        return nullptr;
    }
    std::cerr << "havrel-central: Bluetooth through BlueZ\n";
    RNBluetoothPlatform::setShared(BluezBluetoothPlatform::create(bluez));
    return Timer::scheduled(MainQueue::shared(), std::chrono::seconds(1), true, [] {
        const auto bluetooth = RNCentralBluetoothManager::sharedInstance();
        if (bluetooth && bluetooth->bluetoothPowerOn() && !bluetooth->isScanning() &&
            bluetooth->bluetoothConnections().empty()) {
            bluetooth->scan();
        }
    });
}

// The backend to run on, with one line on standard error saying which and why: the one asked
// for where it can run, else the ALSA sequencer where its device opens, else the loopback server.
std::string chooseBackend(const std::string& requested) {
#ifdef HAVREL_HAS_ALSA_BACKEND
    const bool sequencer = MIDIIO::AlsaMIDIBackend::isAvailable();
    if (requested == "loopback") {
        std::cerr << "havrel-central: MIDI backend loopback (requested)\n";
        return "loopback";
    }
    if (sequencer) {
        std::cerr << "havrel-central: MIDI backend alsa (" << (requested == "alsa" ? "requested, " : "")
                  << MIDIIO::AlsaMIDIBackend::devicePath << " opens)\n";
        return "alsa";
    }
    std::cerr << "havrel-central: MIDI backend loopback (" << (requested == "alsa" ? "alsa requested, but " : "")
              << MIDIIO::AlsaMIDIBackend::devicePath << " does not open)\n";
    return "loopback";
#else
    if (requested == "alsa") {
        std::cerr << "havrel-central: MIDI backend loopback (alsa requested, but this build has no ALSA backend)\n";
    } else if (requested == "loopback") {
        std::cerr << "havrel-central: MIDI backend loopback (requested)\n";
    } else {
        std::cerr << "havrel-central: MIDI backend loopback (this build has no ALSA backend)\n";
    }
    return "loopback";
#endif
}

// The options, from the command line. Nothing when the program is to exit at once (help,
// version, a bad option), with the exit code.
std::optional<int> parseOptions(int argc, char** argv, Options& options, bool& receiveFolderGiven) {
    CLI::App app{"havrel-central: turns Havrel client devices into MIDI"};
    app.set_version_flag("--version", std::string("havrel-central ") + kVersion);
    app.add_option("--product", options.product, "product name; the MIDI endpoints are \"<product> Output\" and \"<product> Input\"")
        ->capture_default_str();
    app.add_option("--midi-backend", options.midiBackend, "alsa or loopback (default: alsa where a sequencer is usable)")
        ->check(CLI::IsMember({"alsa", "loopback"}));
    app.add_flag("--no-usbmux", options.noUsbmux, "do not follow USB devices through the usbmux daemon");
    app.add_option("--local-port", options.localPort, "port of the local path on 127.0.0.1")->capture_default_str();
    app.add_flag("--print-midi", options.printMIDI, "print every message leaving through the virtual output on stdout");
    app.add_option("--config-dir", options.configDir, "folder of the defaults store (default: the XDG config folder)");
    app.add_flag("--no-bluetooth", options.noBluetooth, "do not use Bluetooth");
    app.add_option("--bluetooth-adapter", options.bluetoothAdapter, "the BlueZ adapter to use, such as hci0 (default: the first)");
    app.add_option("--log-level", options.logLevel, "quiet, info or diag")
        ->check(CLI::IsMember({"quiet", "info", "diag"}))
        ->capture_default_str();
    app.add_option("--status-port", options.statusPort, "port of the status page on 127.0.0.1; 0 turns it off")
        ->capture_default_str();
    app.add_flag("--status-control", options.statusControl,
                 "let the status page switch hardware outputs and the internal clock");
    app.add_flag("--hardware-midi", options.hardwareMIDI, "send to the machine's hardware MIDI destinations as well");
    app.add_option("--sequences", options.sequencesFile,
                   "the sequences document: step sequences and the arpeggiator, read again when it changes "
                   "(default: sequences.json in the config folder)");
    auto* receiveFolder = app.add_option(
        "--receive-folder", options.receiveFolder,
        "folder for files from clients when no one answers on a terminal (default: the download folder's "
        "Havrel; \"\": refuse them)");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    receiveFolderGiven = receiveFolder->count() > 0;
    return std::nullopt;
}

// The log, the defaults store and the prompts.
void startServices(const Options& options, bool receiveFolderGiven) {
    using namespace havrel;
    // Everything but the MIDI print goes to stderr.
    // quiet drops every line, info keeps the connection and error lines, diag keeps all.
    setLogLevel(logLevelFromName(options.logLevel).value_or(LogLevel::info));
    // Lines are written on a thread of their own, so the main queue never waits on stderr.
    setLogSink(std::make_shared<AsyncLogSink>(std::make_shared<StderrLogSink>()));
    if (!options.configDir.empty()) {
        DefaultsStore::setStandard(
            std::make_shared<DefaultsStore>(std::filesystem::path(options.configDir) / "defaults.json"));
    }
    TerminalHostPrompts::Options promptOptions;
    promptOptions.output = &std::cerr;
    if (receiveFolderGiven) {
        promptOptions.saveFolder = std::filesystem::path(options.receiveFolder);
    }
    HostPrompts::setShared(std::make_shared<TerminalHostPrompts>(promptOptions));
}

// Installs the MIDI backend; the ALSA server when that is the one, so that its loss can be
// followed.
std::shared_ptr<MIDIIO::MIDIPlatform> installMIDIBackend(const Options& options) {
    // This thread runs the main queue, which is the MIDI library's main queue too.
    havrel::installMIDILibraryServices();
#ifdef HAVREL_HAS_ALSA_BACKEND
    if (chooseBackend(options.midiBackend) == MIDIIO::AlsaMIDIBackend::name) {
        return MIDIIO::AlsaMIDIBackend::install();
    }
#else
    chooseBackend(options.midiBackend);
#endif
    MIDIIO::LoopbackMIDIBackend::install();
    return nullptr;
}

// The product, the USB transport with the host's options, and the registry.
void startCore(const Options& options) {
    using namespace havrel;
    auto product = HVProductData::create();
    product->name = options.product;
    product->versionToSendOut = kVersion;
    product->apiVersionToSendOut = kAPIVersion;
    HVProductData::setSharedInstance(product);
    // The USB transport is made once per process; made here first, it takes the host's options,
    // and the registry made by the entry finds it.
    HVCentralUSBManager::Options usbOptions;
    usbOptions.localPort = options.localPort;
    usbOptions.useUSBHub = !options.noUsbmux;
    HVCentralUSBManager::instantiateWithProductToSendOut(options.product, kVersion, usbOptions);
}

// The MIDI side; when the ALSA sequencer goes away under it, it goes on with the loopback server.
std::unique_ptr<havrel::CentralMIDI> startMIDI(const Options& options,
                                               const std::shared_ptr<MIDIIO::MIDIPlatform>& alsa,
                                               const std::shared_ptr<havrel::DescriptorLineWriter>& printer) {
    using namespace havrel;
    CentralMIDI::Options midiOptions;
    midiOptions.configuration = HVConnectionTypeConfiguration::defaultConfiguration();
    midiOptions.configuration->productToSendOut = options.product;
    midiOptions.configuration->hardwareMIDIEnabled = options.hardwareMIDI;
    midiOptions.fallbackPlatform = [] { return MIDIIO::LoopbackMIDIBackend::create(); };
    if (printer) {
        midiOptions.printLine = [printer](const std::string& line) { printer->write(line); };
    }
    auto midi = std::make_unique<CentralMIDI>(std::move(midiOptions));
#ifdef HAVREL_HAS_ALSA_BACKEND
    if (auto server = std::dynamic_pointer_cast<MIDIIO::AlsaMIDIServer>(alsa)) {
        server->setLostHandler([lost = midi->lossHandler()](const std::string& reason) {
            lost("ALSA sequencer: " + reason);
        });
    }
#else
    (void)alsa;
#endif
    return midi;
}

// The sequences document, from --sequences or the config folder, played through the step output.
std::shared_ptr<havrel::CentralSequences> startSequences(const Options& options, const std::string& inputName,
                                                         const std::shared_ptr<havrel::HVStepOutput>& output) {
    using namespace havrel;
    CentralSequences::Options sequenceOptions;
    if (!options.sequencesFile.empty()) {
        sequenceOptions.file = options.sequencesFile;
    } else {
        const auto folder = options.configDir.empty() ? UserFolders::config() / "havrel"
                                                      : std::filesystem::path(options.configDir);
        sequenceOptions.file = folder / CentralSequences::kFileName;
    }
    sequenceOptions.inputName = inputName;
    sequenceOptions.player = HVSequencePlayer::shared();
    sequenceOptions.output = output;
    // The internal clock starts once there is something to play (an idle program stays idle).
    sequenceOptions.somethingToPlay = [] {
        const auto clock = HVClock::shared();
        if (clock->clockSource() == HVClockSource::internalClock && !clock->isRunning()) {
            clock->start();
        }
    };
    return CentralSequences::start(std::move(sequenceOptions));
}

// Runs the main queue until SIGINT or SIGTERM.
void runUntilSignal(const Options& options) {
    using namespace havrel;
    auto& mainQueue = MainQueue::shared();
    asio::signal_set signals(mainQueue.context(), SIGINT, SIGTERM);
    signals.async_wait([&mainQueue](const std::error_code& error, int signalNumber) {
        if (!error) {
            logf("havrel-central: signal {} — shutting down", signalNumber);
            mainQueue.stop();
        }
    });
    std::signal(SIGPIPE, SIG_IGN);
    logf("havrel-central {} running: product \"{}\", local path 127.0.0.1:{}, usbmux {}", kVersion, options.product,
         options.localPort, options.noUsbmux ? "off" : "on");
    mainQueue.run();
    signals.cancel();
}

}  // namespace

int main(int argc, char** argv) {
    using namespace havrel;
    Options options;
    bool receiveFolderGiven = false;
    if (const auto exitCode = parseOptions(argc, argv, options, receiveFolderGiven)) {
        return *exitCode;
    }
    startServices(options, receiveFolderGiven);
    auto alsa = installMIDIBackend(options);
    startCore(options);
    auto bluetoothScanner = startBluetooth(options);
    HavrelCoreBaseMac::instantiateWithProductToSendOut(options.product, kVersion, kAPIVersion,
                                                       HavrelCoreBaseMac::MIDIService::fromHost);
    // The print is written on a thread of its own: a stdout that nobody reads costs dropped
    // lines, never a stalled MIDI receive queue or memory.
    auto printer = options.printMIDI ? std::make_shared<DescriptorLineWriter>(STDOUT_FILENO, "--print-midi") : nullptr;
    auto midi = startMIDI(options, alsa, printer);
    alsa.reset();
    // Musical time: running step sequences are heard on the virtual output (through whichever
    // MIDI service is current).
    auto stepOutput = HVStepOutput::install(HVSequencePlayer::shared(), HVClock::shared());
    auto centralSequences = startSequences(options, midi->service()->inputName(), stepOutput);
    midi->setReceivedEventsObserver(centralSequences->receivedEventsObserver());
    std::unique_ptr<StatusService> status;
    auto centralClock = CentralClock::create(stepOutput);
    if (options.statusPort != 0) {
        auto sources = CoreStatusSources::create();
        sources->clockHandBackOffered = [centralClock] { return centralClock->canHandBack(); };
        sources->clockHandBack = [centralClock] { return centralClock->handBack(); };
        sources->sequencesState = [centralSequences] { return centralSequences->state(); };
        sources->sequencesEdit = [centralSequences](const nlohmann::json& request) {
            return centralSequences->edit(request);
        };
        status = StatusService::start({options.statusPort, options.statusControl, midi->service()->outputName()},
                                      std::move(sources));
    }
    if (status) {
        midi->addRebuiltHandler([&status] { status->restartMonitor(); });
    }

    runUntilSignal(options);

    // Orderly shutdown: sockets closed, endpoints disposed of, the defaults store written.
    if (bluetoothScanner) {
        bluetoothScanner->invalidate();
    }
    status.reset();
    midi->setReceivedEventsObserver(nullptr);
    centralSequences.reset();
    HVCentralUSBManager::resetShared();
    RNCentralBluetoothManager::resetShared();
    RNBluetoothPlatform::setShared(nullptr);
    midi->stop();
    if (printer && printer->droppedCount() > 0) {
        logf("havrel-central: --print-midi dropped {} lines", printer->droppedCount());
    }
    printer.reset();
    MainQueue::shared().poll();
    const auto sequences = HVSequenceManager::sharedInstance();
    logf("havrel-central: playback timer started {} times, fired {} times", sequences->timerStarts(),
         sequences->timerFires());
    log("havrel-central: stopped");
    setLogSink(nullptr);  // the buffered lines are written before the writer ends
    return 0;
}
