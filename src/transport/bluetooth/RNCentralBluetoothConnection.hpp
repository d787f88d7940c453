#pragma once
// The state of one Bluetooth link: puts the values notified on the in and realtime
// characteristics back together into messages (each ends with the two bytes 0x7C 0x7C), works
// out what each message is, runs the client's handshake and owns the link's send queue.
// Main queue only.

#include "central/RNClient.hpp"
#include "platform/Types.hpp"
#include "transport/bluetooth/RNBluetoothDataQueue.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace havrel {

class RNBluetoothPeripheral;
class RNCentralBluetoothConnection;
class RNCentralBluetoothManager;

// First bytes of a message on the in characteristic.
inline constexpr std::uint8_t RNBluetoothCommandClientData = 0;
inline constexpr std::uint8_t RNBluetoothCommandSyncData = 1;
inline constexpr std::uint8_t RNBluetoothCommandChangeData = 2;
inline constexpr std::uint8_t RNBluetoothCommandPureMIDIData = 3;
inline constexpr std::uint8_t RNBluetoothCommandDisconnectRequest = 4;

// An open message longer than this without an end marker is dropped.
inline constexpr std::size_t kRNBluetoothMaximumMessageSize = 16u * 1024u * 1024u;

class RNCentralBluetoothConnectionDelegate {
public:
    virtual ~RNCentralBluetoothConnectionDelegate();
    virtual void RNCentralBluetoothConnectionDidReceiveClient(RNCentralBluetoothConnection& connection,
                                                              const std::shared_ptr<RNBluetoothClient>& client) = 0;
    virtual void RNCentralBluetoothConnectionDidReceiveChangeData(RNCentralBluetoothConnection& connection,
                                                                  ByteView data) = 0;
    virtual void RNCentralBluetoothConnectionDidReceiveSyncData(RNCentralBluetoothConnection& connection,
                                                                ByteView data) = 0;
    virtual void RNCentralBluetoothConnectionDidReceivePureMIDIData(RNCentralBluetoothConnection& connection,
                                                                    ByteView data) = 0;
    virtual void RNCentralBluetoothConnectionDidReceiveRangeData(RNCentralBluetoothConnection& connection,
                                                                 ByteView data) = 0;
    virtual void RNCentralBluetoothConnectionDidReceiveDisconnectRequest(RNCentralBluetoothConnection& connection) = 0;
};

class RNCentralBluetoothConnection final : public std::enable_shared_from_this<RNCentralBluetoothConnection> {
private:
    struct Key {};

public:
    // A new connection with its own send queue, whose first chunk starts the send loop.
    static std::shared_ptr<RNCentralBluetoothConnection> bluetoothConnection();
    explicit RNCentralBluetoothConnection(Key);

    std::weak_ptr<RNCentralBluetoothConnectionDelegate> delegate;
    std::weak_ptr<RNCentralBluetoothManager> bluetoothManager;
    std::optional<std::string> connectionName;
    std::optional<std::string> productTypeName;
    // Set by the handshake.
    std::shared_ptr<RNBluetoothClient> client;

    RNBluetoothDataQueue& dataQueue() { return dataQueue_; }
    const std::shared_ptr<RNBluetoothPeripheral>& peripheral() const { return peripheral_; }
    // Stores the link and sizes the queue's chunks to its write length without response (20
    // where the platform cannot tell).
    void setPeripheral(std::shared_ptr<RNBluetoothPeripheral> peripheral);
    // The peripheral's link is up.
    bool isConnected() const;

    bool isReceivingInData() const { return isReceivingInData_; }
    bool isReceivingRealtimeData() const { return isReceivingRealtimeData_; }
    const Bytes& inData() const { return inData_; }
    const Bytes& realtimeData() const { return realtimeData_; }

    // Asks the manager to drain the send queue.
    void startSendingData();
    // One value notified on the in or the realtime characteristic.
    void isReceivingInData(ByteView value);
    void isReceivingRealtimeData(ByteView value);
    // One whole message of either characteristic, without its end marker.
    void didFinishReceivingInData(ByteView message);
    void didFinishReceivingRealtimeData(ByteView message);
    // Reached by no message of the wire.
    void didReceiveProductTypeData(ByteView data);
    void didReceiveSceneSyncData(ByteView data);
    // The client's introduction: JSON of its client dictionary. Once one is acted on (the client
    // accepted, or refused as too new), later ones are dropped, so a client repeating it adds no
    // record and no alert.
    void handleClientData(ByteView data);

private:
    using Finish = void (RNCentralBluetoothConnection::*)(ByteView message);
    void receive(ByteView value, bool& isReceiving, Bytes& buffer, const char* characteristicName, Finish finish);

    RNBluetoothDataQueue dataQueue_;
    std::shared_ptr<RNBluetoothPeripheral> peripheral_;
    bool isReceivingInData_ = false;
    Bytes inData_;
    bool isReceivingRealtimeData_ = false;
    Bytes realtimeData_;
    bool introduced_ = false;
    bool repeatLogged_ = false;
};

}  // namespace havrel
