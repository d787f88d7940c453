#include "core/HavrelCoreBaseMac.hpp"

#include "central/HVConnectionTypeConfiguration.hpp"
#include "core/HVCentralConnectionManager.hpp"
#include "midi_service/HVMIDIManager.hpp"

#include <atomic>

namespace havrel {

namespace {

std::atomic<bool> initiated{false};

}  // namespace

void HavrelCoreBaseMac::instantiateWithProductToSendOut(const std::string& product, const std::string& version,
                                                        const std::string& apiVersion, MIDIService midiService) {
    (void)apiVersion;
    HVCentralConnectionManager::instantiateWithProductToSendOut(product, version);
    if (midiService == MIDIService::minimal) {
        auto configuration = HVConnectionTypeConfiguration::create();
        configuration->productToSendOut = product;
        HVMIDIManager::initSharedMinimalWithConnectionConfiguration(configuration);
    }
    initiated = true;
}

bool HavrelCoreBaseMac::isInitiated() {
    return initiated;
}

}  // namespace havrel
