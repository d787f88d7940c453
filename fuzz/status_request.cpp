// Reads arbitrary bytes as a request from the status page (with changes allowed): the answer
// is always one JSON reply, and only checked requests reach the system. The same bytes go
// through the monitor's decoder as a MIDI message.
#include "FuzzCheck.hpp"
#include "StatusModel.hpp"
#include "platform/Log.hpp"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

class Sources final : public havrel::StatusSources {
public:
    std::vector<havrel::StatusClient> clients() override { return {}; }
    std::int64_t messagesPerSecond() override { return 0; }
    std::string lastMessageDescription() override { return ""; }
    std::vector<havrel::StatusOutput> outputs() override {
        return {{"Havrel Output", "virtual", true, false}, {"Synth", "hardware", true, true}};
    }
    havrel::StatusClock clock() override { return {}; }
    std::string setOutputEnabled(const std::string& name, bool) override {
        FUZZ_CHECK(name == "Synth");
        return "";
    }
    std::string setClockRunning(bool) override { return ""; }
    std::string setTempo(double bpm) override {
        FUZZ_CHECK(std::isfinite(bpm) && bpm >= 20.0 && bpm <= 300.0);
        return "";
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    havrel::ScopedLogCapture quiet(havrel::LogLevel::quiet);
    static auto sources = std::make_shared<Sources>();
    havrel::StatusModel model(sources, true);
    const std::string reply = model.handleRequest(std::string(reinterpret_cast<const char*>(data), size));
    const auto answer = nlohmann::json::parse(reply, nullptr, false);
    FUZZ_CHECK(answer.is_object() && answer.contains("ok") && answer["type"] == "reply");
    const auto entry = havrel::StatusModel::decode(std::vector<std::uint8_t>(data, data + std::min<std::size_t>(size, 3)));
    FUZZ_CHECK(entry.channel >= 0 && entry.channel <= 16);
    return 0;
}
