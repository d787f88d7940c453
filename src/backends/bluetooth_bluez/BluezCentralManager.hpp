#pragma once
// A central manager over the BlueZ platform: its scan and its links are the platform's, its
// sightings those of the devices that list a wanted service.

#include "backends/bluetooth_bluez/BluezPeripheral.hpp"
#include "transport/bluetooth/RNBluetoothPlatform.hpp"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

class BluezBluetoothPlatform;

class BluezCentralManager final : public RNBluetoothCentralManager,
                                  public std::enable_shared_from_this<BluezCentralManager> {
public:
    BluezCentralManager(std::weak_ptr<BluezBluetoothPlatform> platform,
                        std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate)
        : platform_(std::move(platform)), delegate_(std::move(delegate)) {}

    std::int64_t state() const override;
    void scanForPeripheralsWithServices(const std::optional<std::vector<std::string>>& serviceUUIDs,
                                        bool allowDuplicates) override;
    void stopScan() override;
    void connectPeripheral(const std::shared_ptr<RNBluetoothPeripheral>& peripheral, bool notifyOnConnection,
                           bool notifyOnDisconnection) override;
    void cancelPeripheralConnection(const std::shared_ptr<RNBluetoothPeripheral>& peripheral) override;

    // --- For the platform ---
    bool isScanning() const { return scanning_; }
    const std::optional<std::vector<std::string>>& wantedServices() const { return serviceUUIDs_; }
    void endScan() { scanning_ = false; }
    // A device in range reported itself while this manager scans.
    void sight(const std::shared_ptr<BluezPeripheral>& peripheral);
    // Calls the delegate now (the caller is on the main queue, in an item of its own).
    void report(const std::function<void(RNBluetoothCentralManagerDelegate&)>& call);
    // Posts a delegate call for when the main queue gets to it.
    void deliver(std::function<void(RNBluetoothCentralManagerDelegate&)> call);

private:
    std::weak_ptr<BluezBluetoothPlatform> platform_;
    std::weak_ptr<RNBluetoothCentralManagerDelegate> delegate_;
    bool scanning_ = false;
    bool allowDuplicates_ = false;
    std::optional<std::vector<std::string>> serviceUUIDs_;
    // The devices reported in this scan, at most kMaximumDevices of them (the oldest go first).
    std::deque<std::weak_ptr<const BluezPeripheral>> sighted_;
};

}  // namespace havrel
