// Values notified on a Bluetooth link's in and realtime characteristics, cut at arbitrary
// points and interleaved arbitrarily, through the connection's reassembly and dispatch.
// Nothing may crash; every message that comes out is what a plain reading of the values gives
// (each characteristic on its own: bytes gathered until a value ends with 0x7C 0x7C, the marker
// dropped), and an in message reaches the operation its first byte names, with its body.
//
// Input: a count of split bytes (mod 32), the split bytes, a byte whose bits say which
// characteristic each piece goes to (bit i for piece i, cycling; set: realtime), then the values.
#include "FuzzCheck.hpp"
#include "split_points.hpp"

#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "transport/bluetooth/RNCentralBluetoothConnection.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>

namespace {

using namespace havrel;

std::string asText(ByteView bytes) {
    return std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

class QuietPrompts final : public HostPrompts {
public:
    void runSavePanel(const std::string&, SaveCompletion completion) override { completion(std::nullopt); }

protected:
    void presentAlert(const Alert&) override {}
};

// What the connection delivers, against what it should deliver.
class CheckingDelegate final : public RNCentralBluetoothConnectionDelegate {
public:
    std::deque<std::pair<std::string, std::string>> expected;
    std::size_t clients = 0;

    void check(const char* what, ByteView data) {
        FUZZ_CHECK(!expected.empty());
        FUZZ_CHECK(expected.front().first == what);
        FUZZ_CHECK(asText(data) == expected.front().second);
        expected.pop_front();
    }
    void RNCentralBluetoothConnectionDidReceiveClient(RNCentralBluetoothConnection& connection,
                                                      const std::shared_ptr<RNBluetoothClient>& client) override {
        FUZZ_CHECK(client != nullptr);
        FUZZ_CHECK(connection.client == client);
        ++clients;
    }
    void RNCentralBluetoothConnectionDidReceiveChangeData(RNCentralBluetoothConnection&, ByteView data) override {
        check("change", data);
    }
    void RNCentralBluetoothConnectionDidReceiveSyncData(RNCentralBluetoothConnection&, ByteView data) override {
        check("sync", data);
    }
    void RNCentralBluetoothConnectionDidReceivePureMIDIData(RNCentralBluetoothConnection&, ByteView data) override {
        check("midi", data);
    }
    void RNCentralBluetoothConnectionDidReceiveRangeData(RNCentralBluetoothConnection&, ByteView data) override {
        check("range", data);
    }
    void RNCentralBluetoothConnectionDidReceiveDisconnectRequest(RNCentralBluetoothConnection&) override {
        check("disconnect", {});
    }
};

// The plain reading of one characteristic's values.
struct Model {
    bool open = false;
    Bytes buffer;

    // The finished message, if this value ends one.
    std::optional<Bytes> take(ByteView value) {
        if (!open) {
            open = true;
            buffer.clear();
        }
        const bool ends = value.size() >= 2 && value[value.size() - 2] == 0x7C && value[value.size() - 1] == 0x7C;
        buffer.insert(buffer.end(), value.begin(), ends ? value.end() - 2 : value.end());
        if (!ends) {
            return std::nullopt;
        }
        open = false;
        return std::move(buffer);
    }
};

void expectInMessage(CheckingDelegate& delegate, ByteView message) {
    if (message.empty()) {
        return;
    }
    const std::string body = asText(message.subspan(1));
    if (message[0] == 4) {
        delegate.expected.emplace_back("disconnect", std::string());
        return;
    }
    if (body.empty()) {
        return;
    }
    switch (message[0]) {
    case 1:
        delegate.expected.emplace_back("sync", body);
        break;
    case 2:
        delegate.expected.emplace_back("change", body);
        break;
    case 3:
        delegate.expected.emplace_back("midi", body);
        break;
    default:
        break;  // 0 is the handshake, checked by its own call; others are dropped
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool prompts = [] {
        HostPrompts::setShared(std::make_shared<QuietPrompts>());
        return true;
    }();
    (void)prompts;
    if (size < 2) {
        return 0;
    }
    ScopedLogCapture quiet;
    const ByteView input(data, size);
    const std::size_t splitCount = std::min<std::size_t>(input[0] % 32, input.size() - 1);
    const ByteView splits = input.subspan(1, splitCount);
    ByteView rest = input.subspan(1 + splitCount);
    if (rest.empty()) {
        return 0;
    }
    const std::uint8_t routes = rest[0];
    rest = rest.subspan(1);
    const auto pieces = splitPackets(rest, splits, 1);

    auto delegate = std::make_shared<CheckingDelegate>();
    auto connection = RNCentralBluetoothConnection::bluetoothConnection();
    connection->delegate = delegate;
    Model inModel;
    Model realtimeModel;
    for (std::size_t index = 0; index < pieces.size(); ++index) {
        const ByteView piece = pieces[index];
        if ((routes >> (index % 8)) & 1) {
            if (auto message = realtimeModel.take(piece)) {
                delegate->expected.emplace_back("range", asText(*message));
            }
            connection->isReceivingRealtimeData(piece);
        } else {
            if (auto message = inModel.take(piece)) {
                expectInMessage(*delegate, *message);
            }
            connection->isReceivingInData(piece);
        }
        FUZZ_CHECK(delegate->expected.empty());
        FUZZ_CHECK(connection->isReceivingInData() == inModel.open);
        FUZZ_CHECK(connection->isReceivingRealtimeData() == realtimeModel.open);
        FUZZ_CHECK(connection->inData().size() <= kRNBluetoothMaximumMessageSize);
        FUZZ_CHECK(connection->realtimeData().size() <= kRNBluetoothMaximumMessageSize);
    }
    return 0;
}
