// One Bluetooth link's receiving side on its own: values put back together into messages at
// the end marker, messages told apart by their first byte, the client's introduction, and the
// bound on a message that never ends.

#include "central/RNCentral.hpp"
#include "platform/HostPrompts.hpp"
#include "platform/Log.hpp"
#include "transport/bluetooth/RNCentralBluetoothConnection.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace havrel {
namespace {

class RecordingConnectionDelegate final : public RNCentralBluetoothConnectionDelegate {
public:
    std::vector<std::string> calls;
    std::vector<Bytes> payloads;
    std::shared_ptr<RNBluetoothClient> client;

    void record(const char* what, ByteView data) {
        calls.push_back(what);
        payloads.emplace_back(data.begin(), data.end());
    }
    void RNCentralBluetoothConnectionDidReceiveClient(RNCentralBluetoothConnection&,
                                                      const std::shared_ptr<RNBluetoothClient>& received) override {
        calls.push_back("client");
        payloads.emplace_back();
        client = received;
    }
    void RNCentralBluetoothConnectionDidReceiveChangeData(RNCentralBluetoothConnection&, ByteView data) override {
        record("change", data);
    }
    void RNCentralBluetoothConnectionDidReceiveSyncData(RNCentralBluetoothConnection&, ByteView data) override {
        record("sync", data);
    }
    void RNCentralBluetoothConnectionDidReceivePureMIDIData(RNCentralBluetoothConnection&, ByteView data) override {
        record("midi", data);
    }
    void RNCentralBluetoothConnectionDidReceiveRangeData(RNCentralBluetoothConnection&, ByteView data) override {
        record("range", data);
    }
    void RNCentralBluetoothConnectionDidReceiveDisconnectRequest(RNCentralBluetoothConnection&) override {
        record("disconnect", {});
    }
};

Bytes text(const std::string& value) {
    return Bytes(value.begin(), value.end());
}

Bytes message(std::uint8_t command, const std::string& body) {
    std::string whole(1, static_cast<char>(command));
    whole += body;
    whole += "||";
    return text(whole);
}

class ConnectionTest : public ::testing::Test {
protected:
    void SetUp() override {
        connection->delegate = delegate;
        HostPrompts::setShared(prompts);
    }
    void TearDown() override { HostPrompts::setShared(nullptr); }

    std::shared_ptr<RNCentralBluetoothConnection> connection = RNCentralBluetoothConnection::bluetoothConnection();
    std::shared_ptr<RecordingConnectionDelegate> delegate = std::make_shared<RecordingConnectionDelegate>();
    std::shared_ptr<ScriptedHostPrompts> prompts = std::make_shared<ScriptedHostPrompts>();
};

TEST_F(ConnectionTest, ValuesBecomeMessagesAtTheEndMarkerAndGoWhereTheirFirstByteSays) {
    connection->isReceivingInData(Bytes{0x01, 0x41});
    EXPECT_TRUE(connection->isReceivingInData());
    connection->isReceivingInData(Bytes{0x42, 0x7C, 0x7C});
    EXPECT_FALSE(connection->isReceivingInData());

    connection->isReceivingInData(Bytes{0x04, 0x7C, 0x7C});             // disconnect, no body needed
    connection->isReceivingInData(Bytes{0x01, 0x7C, 0x7C});             // a command without a body: dropped
    connection->isReceivingInData(Bytes{0x09, 0x55, 0x7C, 0x7C});       // unknown command: dropped
    connection->isReceivingInData(Bytes{0x7C, 0x7C});                   // empty message: dropped
    connection->isReceivingInData(message(2, "{\"x\":1}"));
    connection->isReceivingInData(message(3, "\x90\x40\x7F"));

    // A marker split over two values is not seen: both bytes stay in the message.
    connection->isReceivingInData(Bytes{0x01, 0x7C});
    connection->isReceivingInData(Bytes{0x7C});
    EXPECT_TRUE(connection->isReceivingInData());
    // A value of just the marker ends what was buffered.
    connection->isReceivingInData(Bytes{0x7C, 0x7C});

    // Realtime and in interleaved value by value: independent buffers, no first byte on realtime.
    connection->isReceivingInData(Bytes{0x01, 0xAA});
    connection->isReceivingRealtimeData(Bytes{0x00, 0x01});
    connection->isReceivingInData(Bytes{0xBB});
    connection->isReceivingRealtimeData(Bytes{0x02, 0x7C, 0x7C});
    connection->isReceivingInData(Bytes{0xCC, 0x7C, 0x7C});
    connection->isReceivingRealtimeData(Bytes{0x7C, 0x7C});  // empty range message still goes on

    EXPECT_EQ(delegate->calls,
              (std::vector<std::string>{"sync", "disconnect", "change", "midi", "sync", "range", "sync", "range"}));
    EXPECT_EQ(delegate->payloads[0], (Bytes{0x41, 0x42}));
    EXPECT_EQ(delegate->payloads[2], text("{\"x\":1}"));
    EXPECT_EQ(delegate->payloads[3], text("\x90\x40\x7F"));
    EXPECT_EQ(delegate->payloads[4], (Bytes{0x7C, 0x7C}));
    EXPECT_EQ(delegate->payloads[5], (Bytes{0x00, 0x01, 0x02}));
    EXPECT_EQ(delegate->payloads[6], (Bytes{0xAA, 0xBB, 0xCC}));
    EXPECT_TRUE(delegate->payloads[7].empty());
}

TEST_F(ConnectionTest, AMessageThatNeverEndsIsDroppedAtTheBoundAndTheNextOneArrives) {
    ScopedLogCapture capture;
    const Bytes piece(1024 * 1024, 0x11);
    for (int count = 0; count < 16; ++count) {
        connection->isReceivingRealtimeData(piece);
    }
    EXPECT_TRUE(connection->isReceivingRealtimeData());
    EXPECT_EQ(capture.count("without an end marker"), 0u);
    connection->isReceivingRealtimeData(Bytes{0x22});
    EXPECT_FALSE(connection->isReceivingRealtimeData());
    EXPECT_TRUE(connection->realtimeData().empty());
    EXPECT_EQ(capture.count("Bluetooth message on realtime grew past 16777216 bytes without an end marker"), 1u);

    connection->isReceivingRealtimeData(Bytes{0x01, 0x02, 0x7C, 0x7C});
    ASSERT_EQ(delegate->calls, std::vector<std::string>{"range"});
    EXPECT_EQ(delegate->payloads[0], (Bytes{0x01, 0x02}));

    // Exactly at the bound with its marker: delivered.
    Bytes whole(kRNBluetoothMaximumMessageSize, 0x01);
    whole[0] = 0x01;
    whole.push_back(0x7C);
    whole.push_back(0x7C);
    connection->isReceivingInData(whole);
    ASSERT_EQ(delegate->calls.size(), 2u);
    EXPECT_EQ(delegate->payloads[1].size(), kRNBluetoothMaximumMessageSize - 1);
}

TEST_F(ConnectionTest, TheHandshakeAcceptsKnownAPIVersionsAndRefusesWhatItCannotRead) {
    ScopedLogCapture capture;
    connection->isReceivingInData(message(0, "{not json"));
    EXPECT_EQ(capture.count("client handshake JSON was malformed ("), 1u);
    EXPECT_EQ(capture.count(") \u2014 connection cannot complete"), 1u);
    connection->isReceivingInData(message(0, "\"just a text\""));
    EXPECT_EQ(capture.count("client handshake JSON was malformed (not a dictionary"), 1u);
    connection->isReceivingInData(message(0, R"({"type":"RNUSBClient","connectionName":"Pad"})"));
    EXPECT_EQ(capture.count("is not a Bluetooth client"), 1u);
    EXPECT_TRUE(delegate->calls.empty());
    EXPECT_EQ(connection->client, nullptr);

    connection->isReceivingInData(message(0, R"({"type":"RNBluetoothClient","connectionName":"Pad","apiVersion":"2.1"})"));
    ASSERT_EQ(delegate->calls, std::vector<std::string>{"client"});
    ASSERT_NE(delegate->client, nullptr);
    EXPECT_EQ(delegate->client->connectionName, "Pad");
    EXPECT_EQ(connection->client, delegate->client);

    // Only the first introduction of a link counts: a repeat, even a too new one, is dropped.
    for (const char* again : {R"({"type":"RNBluetoothClient","connectionName":"Old"})",
                              R"({"type":"RNBluetoothClient","connectionName":"Pad","apiVersion":"2.2"})"}) {
        connection->isReceivingInData(message(0, again));
    }
    EXPECT_EQ(delegate->calls.size(), 1u);
    EXPECT_EQ(connection->client->connectionName, "Pad");
    EXPECT_EQ(capture.count("client handshake again on this link"), 1u);
    EXPECT_TRUE(prompts->alerts().empty());

    auto other = RNCentralBluetoothConnection::bluetoothConnection();
    other->delegate = delegate;
    for (int i = 0; i < 2; ++i) {
        other->isReceivingInData(message(0, R"({"type":"RNBluetoothClient","connectionName":"Pad","apiVersion":"2.2"})"));
    }
    EXPECT_EQ(capture.count("update needed!"), 1u);
    ASSERT_EQ(prompts->alerts().size(), 1u);
    EXPECT_EQ(prompts->alerts()[0], (ScriptedHostPrompts::Alert{"Update required.", kCentralUpdateRequiredText, "OK"}));
    EXPECT_EQ(delegate->calls.size(), 1u);
}

}  // namespace
}  // namespace havrel
