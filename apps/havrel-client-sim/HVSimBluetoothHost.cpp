#include "havrel-client-sim/HVSimBluetoothHost.hpp"

#include "backends/midi_loopback/LoopbackMIDIBackend.hpp"
#include "central/HVConnectionTypeConfiguration.hpp"
#include "central/HVProductData.hpp"
#include "core/HavrelCoreBaseMac.hpp"
#include "midi_service/HVMIDIManager.hpp"
#include "midi_service/HVMIDIOutputMonitor.hpp"
#include "platform/MIDILibraryServices.hpp"
#include "platform/MainQueue.hpp"
#include "transport/bluetooth/RNCentralBluetoothManager.hpp"
#include "transport/usb/HVCentralUSBManager.hpp"

#include <chrono>

namespace havrel {

namespace {

constexpr const char* kCentralVersion = "0.1.0";
constexpr const char* kCentralAPIVersion = "2.1";
// A port of 127.0.0.1 where no client listens, so the local path stays idle.
constexpr std::uint16_t kIdleLocalPort = 1;

}  // namespace

std::unique_ptr<HVSimBluetoothHost> HVSimBluetoothHost::start(std::shared_ptr<SimulatedBluetoothRadio> radio,
                                                              const std::string& product, LineHandler midiOut) {
    std::unique_ptr<HVSimBluetoothHost> host(new HVSimBluetoothHost());
    installMIDILibraryServices();
    MIDIIO::LoopbackMIDIBackend::install();
    RNBluetoothPlatform::setShared(std::move(radio));

    auto productData = HVProductData::create();
    productData->name = product;
    productData->versionToSendOut = kCentralVersion;
    productData->apiVersionToSendOut = kCentralAPIVersion;
    HVProductData::setSharedInstance(productData);

    HVCentralUSBManager::Options usb;
    usb.useUSBHub = false;
    usb.localPort = kIdleLocalPort;
    HVCentralUSBManager::instantiateWithProductToSendOut(product, kCentralVersion, usb);
    HavrelCoreBaseMac::instantiateWithProductToSendOut(product, kCentralVersion, kCentralAPIVersion);

    auto configuration = HVConnectionTypeConfiguration::defaultConfiguration();
    configuration->productToSendOut = product;
    host->midi_ = HVMIDIManager::initSharedWithConnectionConfiguration(configuration);
    host->monitor_ = HVMIDIOutputMonitor::start("havrel-client-sim monitor", host->midi_->outputName(),
                                                std::move(midiOut));
    host->scanWhenPowered();
    return host;
}

void HVSimBluetoothHost::scanWhenPowered() {
    auto bluetooth = RNCentralBluetoothManager::sharedInstance();
    if (bluetooth && bluetooth->bluetoothPowerOn()) {
        bluetooth->scan();
        return;
    }
    std::weak_ptr<bool> alive = alive_;
    MainQueue::shared().postAfter(std::chrono::milliseconds(10), [this, alive] {
        if (alive.lock()) {
            scanWhenPowered();
        }
    });
}

HVSimBluetoothHost::~HVSimBluetoothHost() {
    alive_.reset();
    monitor_.reset();
    RNCentralBluetoothManager::resetShared();
    HVCentralUSBManager::resetShared();
    midi_->stopTimers();
    if (midi_->midiManager()) {
        midi_->midiManager()->removeAll();
    }
    MainQueue::shared().poll();
    RNBluetoothPlatform::setShared(nullptr);
}

}  // namespace havrel
