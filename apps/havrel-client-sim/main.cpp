// havrel-client-sim: plays a client device for demos and whole-program tests. Listens on
// 127.0.0.1:<port> as a client app does on its USB tunnel, introduces itself to the Central that
// connects, sends its configuration and performs a script of gestures. With --bluetooth it plays
// the same over the simulated radio to a Central in its own process, whose MIDI out it prints.

#include "havrel-client-sim/HVSimBluetoothHost.hpp"
#include "havrel-client-sim/HVSimBluetoothSession.hpp"
#include "havrel-client-sim/HVSimError.hpp"
#include "havrel-client-sim/HVSimHandshake.hpp"
#include "havrel-client-sim/HVSimPerformance.hpp"
#include "havrel-client-sim/HVSimScript.hpp"
#include "havrel-client-sim/HVSimSession.hpp"
#include "havrel-client-sim/HVSimSurface.hpp"
#include "platform/DefaultsStore.hpp"
#include "platform/MainQueue.hpp"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>

namespace {

using namespace havrel;

constexpr const char* kProgram = "havrel-client-sim";
constexpr const char* kVersion = "0.1.0";
// Script and configuration files larger than this are refused before they are read.
constexpr std::uintmax_t kMaximumFileSize = 64u * 1024u * 1024u;

struct Options {
    std::uint16_t port = 4699;
    HVSimIdentity identity;
    std::string configurationPath;
    std::string scriptPath;
    std::string inlineScript;
    double rate = 100.0;
    double timeout = 30.0;
    bool printScript = false;
    bool bluetooth = false;
    std::string product = "Havrel";
    std::string configDir;
};

void printError(const std::string& message) {
    std::cerr << kProgram << ": " << message << std::endl;
}

Bytes readFile(const std::string& path, const char* what) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error) {
        throw HVSimError(fmt::format("cannot read the {} file {}: {}", what, path, error.message()));
    }
    if (size > kMaximumFileSize) {
        throw HVSimError(fmt::format("the {} file {} is larger than {} bytes", what, path, kMaximumFileSize));
    }
    std::ifstream stream(path, std::ios::binary);
    Bytes bytes((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    if (!stream.good() && !stream.eof()) {
        throw HVSimError(fmt::format("cannot read the {} file {}", what, path));
    }
    return bytes;
}

struct Prepared {
    HVSimSession::Settings settings;
    std::string script;
};

Prepared prepare(const Options& options) {
    HVSimSurface surface = HVSimSurface::builtIn();
    if (!options.configurationPath.empty()) {
        const Bytes document = readFile(options.configurationPath, "configuration");
        try {
            surface = HVSimSurface::fromDocument(document);
        } catch (const HVSimError& error) {
            throw HVSimError(options.configurationPath + ": " + error.what());
        }
    }

    Prepared prepared;
    std::vector<HVSimStep> steps;
    std::string source;
    try {
        if (!options.scriptPath.empty()) {
            source = options.scriptPath;
            const Bytes text = readFile(options.scriptPath, "script");
            prepared.script.assign(text.begin(), text.end());
            steps = HVSimScript::parse(prepared.script, surface);
        } else if (!options.inlineScript.empty()) {
            source = "--do";
            prepared.script = options.inlineScript;
            steps = HVSimScript::parseInline(prepared.script, surface);
        } else {
            source = "built-in performance";
            prepared.script = HVSimScript::builtInPerformance(surface);
            steps = HVSimScript::parse(prepared.script, surface);
        }
        prepared.settings.frames = HVSimPerformance::frames(steps, options.rate);
    } catch (const HVSimScriptError& error) {
        throw HVSimError(source + ": " + error.what());
    }

    prepared.settings.port = options.port;
    prepared.settings.apiVersion = options.identity.apiVersion;
    prepared.settings.deviceInfo = HVSimHandshake::deviceInfoPayload(options.identity);
    prepared.settings.syncPayload = surface.syncPayload();
    prepared.settings.duration = HVSimPerformance::duration(steps);
    prepared.settings.connectTimeout =
        std::chrono::duration_cast<MainQueue::Duration>(std::chrono::duration<double>(options.timeout));
    return prepared;
}

// The Central's MIDI print and the client's own lines share stdout, one whole line at a time.
void printLine(const std::string& line) {
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    std::cout << line << std::endl;
}

void printProgress(const std::string& line) {
    std::cerr << kProgram << ": " << line << std::endl;
}

// What a session calls when it ends: keeps its exit status and ends the main queue's run.
auto stopWithExitCode(int& exitCode) {
    return [&exitCode](int code) {
        exitCode = code;
        MainQueue::shared().stop();
    };
}

int runOverTheRadio(const Options& options, HVSimSession::Settings prepared) {
    HVSimBluetoothSession::Settings settings;
    settings.identity = options.identity;
    settings.syncPayload = std::move(prepared.syncPayload);
    settings.frames = std::move(prepared.frames);
    settings.duration = prepared.duration;
    settings.connectTimeout = prepared.connectTimeout;

    if (!options.configDir.empty()) {
        DefaultsStore::setStandard(
            std::make_shared<DefaultsStore>(std::filesystem::path(options.configDir) / "defaults.json"));
    }
    int exitCode = kHVSimExitFailed;
    auto radio = SimulatedBluetoothRadio::create();
    auto host = HVSimBluetoothHost::start(radio, options.product, printLine);
    auto session = HVSimBluetoothSession::create(
        radio, std::move(settings), printLine,
        printProgress, stopWithExitCode(exitCode));
    MainQueue::shared().post([session] { session->start(); });
    MainQueue::shared().run();
    // What is still on its way out of the Central leaves before it shuts down.
    MainQueue::shared().runFor(std::chrono::milliseconds(100));
    host.reset();
    return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Plays a Havrel client device: listens on 127.0.0.1, introduces itself to the Central that "
                 "connects, sends its configuration and performs a script of gestures.",
                 kProgram};
    app.add_option("--port", options.port, "Port to listen on (127.0.0.1)")->capture_default_str();
    app.add_option("--name", options.identity.connectionName, "Connection name of the client")->capture_default_str();
    app.add_option("--product", options.identity.productID, "Product identifier of the client")->capture_default_str();
    app.add_option("--id", options.identity.uniqueIdentifier, "Unique identifier (default: derived from the name)");
    app.add_option("--api-version", options.identity.apiVersion, "API version of the client")->capture_default_str();
    app.add_option("--configuration", options.configurationPath,
                   "Configuration document to send instead of the built-in surface (JSON, gzip or not)");
    auto* script = app.add_option("--script", options.scriptPath, "Script file to perform");
    app.add_option("--do", options.inlineScript, "Script lines to perform, separated by ';'")->excludes(script);
    app.add_option("--rate", options.rate, "Positions per second in a sweep")
        ->check(CLI::Range(1.0, 1000.0))
        ->capture_default_str();
    app.add_option("--timeout", options.timeout, "Seconds to wait for the Central to connect")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str();
    app.add_flag("--print-script", options.printScript, "Print the script that would be performed and exit");
    app.add_flag("--bluetooth", options.bluetooth,
                 "Play over the simulated radio to a Central in this process, and print its MIDI out on stdout");
    app.add_option("--central-product", options.product,
                   "With --bluetooth: the product name of that Central (its output is \"<name> Output\")")
        ->capture_default_str();
    app.add_option("--config-dir", options.configDir,
                   "With --bluetooth: folder of that Central's defaults store (default: the XDG config folder)");
    app.set_version_flag("--version", kVersion);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForVersion& version) {
        return app.exit(version);
    } catch (const CLI::ParseError& error) {
        printError(error.what());
        return kHVSimExitFailed;
    }
    options.identity.version = kVersion;

    Prepared prepared;
    try {
        prepared = prepare(options);
    } catch (const HVSimError& error) {
        printError(error.what());
        return kHVSimExitFailed;
    }
    if (options.printScript) {
        std::cout << prepared.script;
        if (!prepared.script.empty() && prepared.script.back() != '\n') {
            std::cout << '\n';
        }
        return kHVSimExitDone;
    }

    int exitCode = kHVSimExitFailed;
    if (options.bluetooth) {
        return runOverTheRadio(options, std::move(prepared.settings));
    }
    auto session = HVSimSession::create(
        std::move(prepared.settings), [](const std::string& line) { std::cout << line << std::endl; },
        printProgress, stopWithExitCode(exitCode));
    MainQueue::shared().post([session] { session->start(); });
    MainQueue::shared().run();
    return exitCode;
}
