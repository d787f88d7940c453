#pragma once
// What the Bluetooth transport tells the client registry, and what the registry passes on to
// the host: scanning, connecting, the client of a finished handshake and its departure. Called
// on the main queue.

#include "central/RNClient.hpp"

#include <memory>

namespace havrel {

class RNCentralBluetoothManager;

class RNCentralBluetoothManagerDelegate {
public:
    virtual ~RNCentralBluetoothManagerDelegate();

    virtual void RNCentralBluetoothManagerDidStartScanning(RNCentralBluetoothManager* manager) = 0;
    virtual void RNCentralBluetoothManagerDidStopScanning(RNCentralBluetoothManager* manager) = 0;
    virtual void RNCentralBluetoothManagerDidStartConnecting(RNCentralBluetoothManager* manager,
                                                             const PeripheralReference& perhipheral) = 0;
    // Never called by the transport; kept for the host.
    virtual void RNCentralBluetoothManagerDidStopConnecting(RNCentralBluetoothManager* manager,
                                                            const PeripheralReference& perhipheral) = 0;
    // Never called by the transport; kept for the host.
    virtual void RNCentralBluetoothManagerDidDidReceiveConnectionNameForPerhipheral(
        RNCentralBluetoothManager* manager, const PeripheralReference& perhipheral) = 0;
    // A client whose handshake has been accepted by the transport.
    virtual void RNCentralBluetoothManagerDidReceiveClient(RNCentralBluetoothManager* manager,
                                                           const std::shared_ptr<RNClient>& client) = 0;
    virtual void RNCentralBluetoothManagerDidFinishConnection(RNCentralBluetoothManager* manager,
                                                              const std::shared_ptr<RNClient>& client) = 0;
    // The link of the client ended; nullptr when the peripheral had no client yet.
    virtual void RNCentralBluetoothManagerDidDisconnectFromClient(RNCentralBluetoothManager* manager,
                                                                  const std::shared_ptr<RNClient>& client) = 0;
    // The client received from the peripheral, or nullptr.
    virtual std::shared_ptr<RNBluetoothClient> clientForPeripheral(const PeripheralReference& peripheral) = 0;
};

}  // namespace havrel
