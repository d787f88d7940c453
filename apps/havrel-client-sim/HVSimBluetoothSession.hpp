#pragma once
// One run of the simulated client over the simulated radio: a peripheral that advertises the
// Havrel service under the client's name, waits until the Central has subscribed to its in and
// realtime characteristics, introduces itself on in, reads the Central's two replies on out,
// sends its configuration and plays its frames in time (range commands on realtime, MIDI and
// change commands on in), then asks the Central to disconnect. It ends once, with an exit code
// of HVSimSession. Main queue only.

#include "backends/bluetooth_simulated/SimulatedBluetoothRadio.hpp"
#include "havrel-client-sim/HVSimHandshake.hpp"
#include "havrel-client-sim/HVSimPerformance.hpp"
#include "havrel-client-sim/HVSimSession.hpp"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace havrel {

class HVSimBluetoothSession final : public std::enable_shared_from_this<HVSimBluetoothSession> {
public:
    struct Settings {
        HVSimIdentity identity;
        Bytes syncPayload;
        std::vector<HVSimFrame> frames;
        double duration = 0.0;
        // Values are at most this long, as on a link of the default write size.
        std::size_t pieceSize = 20;
        MainQueue::Duration connectTimeout = std::chrono::seconds(30);
        MainQueue::Duration grace = std::chrono::milliseconds(200);
    };
    using LineSink = HVSimSession::LineSink;
    using Finish = HVSimSession::Finish;

    // Replies longer than this from the Central end the session.
    static constexpr std::size_t kMaximumCentralReply = 1u << 20;

    static std::shared_ptr<HVSimBluetoothSession> create(std::shared_ptr<SimulatedBluetoothRadio> radio,
                                                         Settings settings, LineSink out, LineSink progress,
                                                         Finish finish);
    HVSimBluetoothSession(std::shared_ptr<SimulatedBluetoothRadio> radio, Settings settings, LineSink out,
                          LineSink progress, Finish finish);

    void start();
    const std::shared_ptr<SimulatedPeripheral>& peripheral() const { return peripheral_; }

    // The client dictionary as JSON, framed as command 0 with the end marker.
    static Bytes introduction(const HVSimIdentity& identity);
    // The command byte, the body and the end marker.
    static Bytes inMessage(std::uint8_t command, ByteView body);

private:
    void watchLink();
    void centralWrote(const std::string& characteristic, const Bytes& value);
    void readReply(ByteView reply);
    void playDueFrames();
    void send(const HVSimFrame& frame);
    void end(int exitCode, const std::string& message);

    std::shared_ptr<SimulatedBluetoothRadio> radio_;
    Settings settings_;
    LineSink out_;
    LineSink progress_;
    Finish finish_;
    std::shared_ptr<SimulatedPeripheral> peripheral_;
    MainQueue::TimePoint started_{};
    bool linked_ = false;
    bool introduced_ = false;
    bool centralInfoRead_ = false;
    bool leaving_ = false;
    bool ended_ = false;
    Bytes reply_;
    MainQueue::TimePoint performanceStart_{};
    std::size_t nextFrame_ = 0;
};

}  // namespace havrel
