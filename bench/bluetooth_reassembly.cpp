// How fast a Bluetooth link's values become messages: range commands on the realtime
// characteristic, each one value, and a configuration of 64 KiB on in cut into values of 182
// bytes (the write length of a typical link), through the connection to a delegate that only
// counts what arrives.
#include "transport/bluetooth/RNCentralBluetoothConnection.hpp"

#include <benchmark/benchmark.h>

namespace {

using namespace havrel;

class CountingDelegate final : public RNCentralBluetoothConnectionDelegate {
public:
    std::size_t messages = 0;
    void RNCentralBluetoothConnectionDidReceiveClient(RNCentralBluetoothConnection&,
                                                      const std::shared_ptr<RNBluetoothClient>&) override {}
    void RNCentralBluetoothConnectionDidReceiveChangeData(RNCentralBluetoothConnection&, ByteView) override {}
    void RNCentralBluetoothConnectionDidReceiveSyncData(RNCentralBluetoothConnection&, ByteView data) override {
        messages += data.size() > 0;
    }
    void RNCentralBluetoothConnectionDidReceivePureMIDIData(RNCentralBluetoothConnection&, ByteView) override {}
    void RNCentralBluetoothConnectionDidReceiveRangeData(RNCentralBluetoothConnection&, ByteView data) override {
        messages += data.size() > 0;
    }
    void RNCentralBluetoothConnectionDidReceiveDisconnectRequest(RNCentralBluetoothConnection&) override {}
};

void BM_RealtimeRangeCommands(benchmark::State& state) {
    auto delegate = std::make_shared<CountingDelegate>();
    auto connection = RNCentralBluetoothConnection::bluetoothConnection();
    connection->delegate = delegate;
    // Two entries of a range command and the end marker.
    const Bytes value{0x00, 0x02, 0x01, 0x00, 0x10, 0x02, 0x01, 0xFF, 0x7C, 0x7C};
    for (auto _ : state) {
        connection->isReceivingRealtimeData(value);
    }
    benchmark::DoNotOptimize(delegate->messages);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RealtimeRangeCommands);

void BM_ConfigurationInLinkSizedValues(benchmark::State& state) {
    auto delegate = std::make_shared<CountingDelegate>();
    auto connection = RNCentralBluetoothConnection::bluetoothConnection();
    connection->delegate = delegate;
    constexpr std::size_t kSize = 64 * 1024;
    constexpr std::size_t kValue = 182;
    Bytes message(kSize, 0x41);
    message[0] = 0x01;
    message.push_back(0x7C);
    message.push_back(0x7C);
    for (auto _ : state) {
        for (std::size_t offset = 0; offset < message.size(); offset += kValue) {
            const std::size_t length = std::min(kValue, message.size() - offset);
            connection->isReceivingInData(ByteView(message).subspan(offset, length));
        }
    }
    benchmark::DoNotOptimize(delegate->messages);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * message.size()));
}
BENCHMARK(BM_ConfigurationInLinkSizedValues);

}  // namespace

BENCHMARK_MAIN();
